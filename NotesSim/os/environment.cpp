// NotesInitExtended reads the program directory from argv[0] and the notes.ini
// named by an argument that starts with "="; the ini's Directory= is the data directory.
#include "environment.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

#include "sim_core.h"

namespace sim {
namespace {

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string trimmed(const std::string& text)
{
    size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return std::string();
    size_t last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

struct Runtime {
    bool initialized = false;
    int threads = 0;
    std::string programDirectory;
    std::string iniPath;
    std::string dataDirectory;
    std::map<std::string, std::string> settings; // key lower-cased
};

Runtime& runtime()
{
    static Runtime state;
    return state;
}

bool loadIni(const std::string& path, std::map<std::string, std::string>& settings)
{
    std::ifstream in(path);
    if (!in)
        return false;
    std::string line;
    while (std::getline(in, line)) {
        // Every setting is read back as a C string, so a line ends at a NUL byte: a
        // value holding one would otherwise differ from what its readers see.
        line.erase(std::min(line.find('\0'), line.size()));
        line = trimmed(line);
        if (line.empty() || line[0] == '[' || line[0] == ';' || line[0] == '#')
            continue;
        size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        std::string key = lowered(trimmed(line.substr(0, equals)));
        if (!key.empty() && settings.count(key) == 0)
            settings[key] = trimmed(line.substr(equals + 1));
    }
    return true;
}

std::string withoutTrailingSlash(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

} // namespace

bool runtimeInitialized() { return runtime().initialized; }
const std::string& dataDirectory() { return runtime().dataDirectory; }
const std::string& programDirectory() { return runtime().programDirectory; }
const std::string& iniPath() { return runtime().iniPath; }

bool iniValue(const std::string& name, std::string& value)
{
    const auto& settings = runtime().settings;
    auto it = settings.find(lowered(name));
    if (it == settings.end())
        return false;
    value = it->second;
    return true;
}

std::string localServerName()
{
    std::string name;
    iniValue("ServerName", name);
    return name;
}

} // namespace sim

STATUS impl::NotesInitExtended(int argc, char** argv)
{
    sim::Runtime& state = sim::runtime();
    if (argc < 1 || argv == nullptr || argv[0] == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::string program = argv[0];
    std::string ini;
    for (int i = 1; i < argc && argv[i] != nullptr; ++i)
        if (argv[i][0] == '=')
            ini = argv[i] + 1;
    if (ini.empty())
        ini = "notes.ini";
    if (ini[0] != '/')
        ini = program + "/" + ini;
    std::map<std::string, std::string> settings;
    if (!sim::loadIni(ini, settings))
        return sim::STS_INI_MISSING;
    auto directory = settings.find("directory");
    if (directory == settings.end() || directory->second.empty())
        return sim::STS_INI_MISSING;
    state.programDirectory = program;
    state.iniPath = ini;
    state.dataDirectory = sim::withoutTrailingSlash(directory->second);
    state.settings = std::move(settings);
    state.initialized = true;
    return NOERROR;
}

void impl::NotesTerm()
{
    sim::runtime().initialized = false;
}

STATUS impl::NotesInitThread()
{
    if (!sim::runtime().initialized)
        return sim::STS_NOT_INITIALIZED;
    ++sim::runtime().threads;
    return NOERROR;
}

void impl::NotesTermThread()
{
    if (sim::runtime().threads > 0)
        --sim::runtime().threads;
}

BOOL impl::OSGetEnvironmentString(const char* VariableName, char* retValueBuffer, WORD BufferLength)
{
    std::string value;
    if (VariableName == nullptr || !sim::iniValue(VariableName, value))
        return FALSE;
    if (retValueBuffer != nullptr) {
        size_t count = std::min<size_t>(value.size(), BufferLength);
        std::memcpy(retValueBuffer, value.data(), count);
        retValueBuffer[count] = '\0';
    }
    return TRUE;
}

long impl::OSGetEnvironmentLong(const char* VariableName)
{
    std::string value;
    if (VariableName == nullptr || !sim::iniValue(VariableName, value))
        return 0;
    char* end = nullptr;
    long number = std::strtol(value.c_str(), &end, 10);
    return end == value.c_str() ? 0 : number;
}
