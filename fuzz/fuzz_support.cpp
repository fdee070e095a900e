#include "fuzz_support.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>

namespace fs = std::filesystem;

namespace hyln_fuzz {
namespace {

void formatAndDrop(const char*, int, const char*, int, const char*, ...) {}

bool keepRecord(char* record)
{
    sentRecords().emplace_back(record);
    return false;
}

std::vector<std::string>& workDirs()
{
    static std::vector<std::string> dirs;
    return dirs;
}

void removeWorkDirs()
{
    std::error_code ignored;
    for (const std::string& dir : workDirs())
        fs::remove_all(dir, ignored);
}

} // namespace

const char kServerName[] = "CN=FuzzSrv/O=FuzzOrg";

void loadRuntime()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (!loadNotesFunctions(HYLN_FUZZ_DOMINO_DIR))
            fail("cannot load the simulated runtime from " HYLN_FUZZ_DOMINO_DIR);
        SetLogCallback(formatAndDrop);
        SetSendMsgCallback(keepRecord);
    });
}

std::string makeWorkDir(const std::string& tag)
{
    fs::create_directories(HYLN_FUZZ_WORK_DIR);
    std::string pattern = std::string(HYLN_FUZZ_WORK_DIR) + "/" + tag + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr)
        fail("mkdtemp failed for " + pattern);
    if (workDirs().empty())
        atexit(removeWorkDirs);
    workDirs().emplace_back(buffer.data());
    return workDirs().back();
}

std::string writeNotesIni(const std::string& dir, const std::string& extraLines)
{
    std::string path = dir + "/notes.ini";
    std::ofstream ini(path, std::ios::binary | std::ios::trunc);
    ini << "[Notes]\nDirectory=" << dir << "\nServerName=" << kServerName << "\n" << extraLines;
    if (!ini)
        fail("cannot write " + path);
    return path;
}

STATUS startRuntime(const std::string& iniPath)
{
    loadRuntime();
    std::string program = HYLN_FUZZ_DOMINO_DIR;
    std::string iniArgument = "=" + iniPath;
    char* argv[] = {program.data(), iniArgument.data(), nullptr};
    return HY_NotesInitExtended(2, argv);
}

void* controlFunction(const char* name)
{
    loadRuntime();
    void* runtime = dlopen(HYLN_FUZZ_DOMINO_DIR "/notes/latest/linux/libnotes.so", RTLD_LAZY | RTLD_NOLOAD);
    void* function = runtime != nullptr ? dlsym(runtime, name) : nullptr;
    if (function == nullptr)
        fail(std::string("the simulated runtime lacks ") + name);
    return function;
}

std::vector<std::string>& sentRecords()
{
    static std::vector<std::string> records;
    return records;
}

uint8_t Fields::byte()
{
    return at_ < size_ ? data_[at_++] : 0;
}

std::string Fields::text()
{
    size_t start = at_;
    while (at_ < size_ && data_[at_] != 0)
        ++at_;
    std::string field(reinterpret_cast<const char*>(data_ + start), at_ - start);
    if (at_ < size_)
        ++at_; // the separator
    return field;
}

std::string Fields::rest()
{
    std::string field(reinterpret_cast<const char*>(data_ + std::min(at_, size_)), size_ - std::min(at_, size_));
    at_ = size_;
    return field;
}

void fail(const std::string& what)
{
    std::fprintf(stderr, "fuzz property failed: %s\n", what.c_str());
    std::fflush(stderr);
    abort();
}

} // namespace hyln_fuzz
