// NotesInitExtended reads the program directory from argv[0] and the notes.ini
// named by an argument that starts with "="; the ini's Directory= is the data directory.
// The ini must be a regular file.
#include "environment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

#include "handles.h"
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
    unsigned long starts = 0;
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

// The whole of `path` when it is a regular file. Opened without blocking and checked
// on the open descriptor: a FIFO would wait for a writer, a device may never end.
bool readRegularFile(const std::string& path, std::string& content)
{
    int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status;
    bool ok = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    char buffer[8192];
    while (ok) {
        ssize_t got = read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            ok = got == 0;
            break;
        }
        content.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return ok;
}

bool loadIni(const std::string& path, std::map<std::string, std::string>& settings)
{
    std::string content;
    if (!readRegularFile(path, content))
        return false;
    std::istringstream in(content);
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
unsigned long runtimeStarts() { return runtime().starts; }
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
    if (!sim::faultListProblem().empty())
        return sim::STS_FAULT_LIST;
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
    ++state.starts;
    return NOERROR;
}

void impl::NotesTerm()
{
    sim::runtime().initialized = false;
    // For a test in another process: what the host left open.
    sim::traceNote("NotesTerm: " + sim::liveHandleSummary());
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
