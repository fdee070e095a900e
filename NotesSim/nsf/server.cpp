// Server operations on the local server: taking databases offline and back online,
// and the remote console (which this runtime does not simulate).
#include <sys/stat.h>

#include <map>
#include <string>

#include "availability.h"
#include "environment.h"
#include "paths.h"
#include "sim_core.h"
#include "storage.h"

namespace sim {
namespace {

constexpr DWORD kOfflineNoDelete = 1; // OFFLINE_NODELETE

// Offline database files, each with the runtime start in which it went offline:
// a restarted runtime brings every database back online, as a restarted server does.
std::map<std::string, unsigned long>& offlineFiles()
{
    static std::map<std::string, unsigned long> files;
    return files;
}

// The database file `dbPath` names: ERR_NOEXIST when there is none, ERR_DIRECTORY for a directory.
STATUS databaseFile(const char* dbPath, std::string& file)
{
    if (dbPath == nullptr || dbPath[0] == '\0')
        return STS_BAD_ARGUMENT;
    std::string absolute;
    STATUS status = resolvePathName(dbPath, absolute);
    if (status != NOERROR)
        return status;
    file = existingDatabaseFile(absolute);
    struct stat info;
    if (stat(file.c_str(), &info) != 0)
        return ERR_NOEXIST;
    return S_ISDIR(info.st_mode) ? ERR_DIRECTORY : NOERROR;
}

} // namespace

bool databaseOffline(const std::string& file)
{
    auto it = offlineFiles().find(file);
    return it != offlineFiles().end() && it->second == runtimeStarts();
}

} // namespace sim

STATUS impl::NSFBringDatabaseOnline(const char* dbPath, DWORD options)
{
    if (options != 0)
        return sim::STS_UNSUPPORTED;
    std::string file;
    STATUS status = sim::databaseFile(dbPath, file);
    if (status == NOERROR)
        sim::offlineFiles().erase(file);
    return status;
}

// The database must be free now: this runtime answers at once instead of waiting
// WaitTime for other users to close it (they could not, while it holds the API lock).
STATUS impl::NSFTakeDatabaseOffline(const char* dbPath, DWORD WaitTime, DWORD options)
{
    (void)WaitTime;
    if ((options & ~sim::kOfflineNoDelete) != 0)
        return sim::STS_UNSUPPORTED;
    std::string file;
    STATUS status = sim::databaseFile(dbPath, file);
    if (status != NOERROR)
        return status;
    if (sim::databaseInUse(file))
        return sim::kErrDbInUse;
    sim::offlineFiles()[file] = sim::runtimeStarts();
    return NOERROR;
}

// No console command is simulated; another server is out of reach as everywhere.
STATUS impl::NSFRemoteConsole(char* ServerName, char* ConsoleCommand, DHANDLE* hResponseText)
{
    if (ServerName == nullptr || ConsoleCommand == nullptr || hResponseText == nullptr)
        return sim::STS_BAD_ARGUMENT;
    if (!sim::isLocalServer(ServerName))
        return sim::STS_SERVER_NOT_RESPONDING;
    sim::traceDetail("NSFRemoteConsole", ConsoleCommand);
    return sim::STS_UNSUPPORTED;
}
