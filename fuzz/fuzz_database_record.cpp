// The record ProcessDatabase makes for a database, from a caller's path (rewritten
// in place), the database's title and the owner's name. The input is a mode byte,
// the title (NUL-ended; set on mail/a.nsf when the mode asks), the owner's name
// (NUL-ended), then the path. Paths that would leave the scratch data directory are
// not opened: the runtime opens absolute paths as they are.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <vector>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

// True when the runtime would resolve `path` inside its data directory.
bool staysInDataDirectory(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    size_t network = path.find("!!");
    if (network != std::string::npos)
        path.erase(0, network + 2);
    return path.empty() || path[0] != '/';
}

// Kept open: closing the last handle of a file makes the storage write it out.
DBHANDLE titled = NULLHANDLE;

void setTitle(const std::string& title)
{
    char info[NSF_INFO_SIZE] = {};
    std::memcpy(info, title.data(), std::min(title.size(), sizeof info - 1));
    HY_NSFDbInfoSet(titled, info);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string dir = makeWorkDir("record");
    std::filesystem::create_directories(dir + "/mail");
    if (startRuntime(writeNotesIni(dir)) != NOERROR)
        fail("the runtime did not start");
    for (const char* path : {"mail/a.nsf", "b.nsf"})
        if (HY_NSFDbCreate(path, DBCLASS_NOTEFILE, TRUE) != NOERROR)
            fail(std::string("cannot create ") + path);
    if (HY_NSFDbOpen("mail/a.nsf", &titled) != NOERROR)
        fail("cannot open mail/a.nsf");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fields fields(data, size);
    uint8_t mode = fields.byte();
    std::string title = fields.text();
    std::string owner = fields.text();
    std::string path = fields.rest();
    if (!staysInDataDirectory(path.c_str()))
        return 0;
    if (mode & 2)
        setTitle(title);

    std::vector<char> callerPath(path.begin(), path.end());
    callerPath.push_back('\0');
    std::set<std::string> reported;
    sentRecords().clear();
    HyLNUtilities::ProcessDatabase(callerPath.data(), owner, &reported, mode & 1);
    if (sentRecords().size() > 1 || reported.size() != sentRecords().size())
        fail("one database gave " + std::to_string(sentRecords().size()) + " records");
    return 0;
}
