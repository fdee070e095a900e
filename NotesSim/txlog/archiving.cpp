// Transaction logging: every committed note change of every database becomes a log
// record, and the archiving entry points walk the extents that wait for archiving.
// A session confirms what it offered when it ends; offers of a session that never
// ended (the process died, or the runtime restarted) come again.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <vector>

#include "environment.h"
#include "extents.h"
#include "sim_core.h"

namespace sim {
namespace {

constexpr STATUS kErrTranslogNotArchived = 0x0EA1;
constexpr STATUS kErrTranslogArchiveInProgress = 0x0EAE;

struct ArchivingSession {
    bool open = false;
    unsigned long runtimeStart = 0;
    int lockFd = -1; // excludes archivers in other processes
    TranslogSettings settings;
    UNID logId{};
    bool listed = false;
    std::vector<Extent> waiting;
    size_t next = 0;
    std::map<DWORD, DWORD> offered; // extent number -> bytes it held when offered
};

ArchivingSession& session()
{
    static ArchivingSession current;
    return current;
}

void closeSession()
{
    if (session().lockFd >= 0)
        close(session().lockFd);
    session() = ArchivingSession();
}

// A session of an earlier start of the runtime ends unconfirmed.
void dropStaleSession()
{
    if (session().open && session().runtimeStart != runtimeStarts())
        closeSession();
}

STATUS archiveStyleSettings(TranslogSettings& settings)
{
    if (!runtimeInitialized())
        return STS_NOT_INITIALIZED;
    STATUS status = readTranslogSettings(settings);
    if (status != NOERROR)
        return status;
    if (!settings.logged)
        return ERR_SERVER_NOT_TRANSLOGGED;
    return settings.style == kTranslogArchive ? NOERROR : kErrTranslogNotArchived;
}

// One archiver at a time over the log directory, in this process or any other.
STATUS lockArchiving(const std::string& directory, int& fd)
{
    fd = ::open((directory + "/archiving.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return STS_STORAGE;
    if (flock(fd, LOCK_EX | LOCK_NB) == 0)
        return NOERROR;
    close(fd);
    fd = -1;
    return kErrTranslogArchiveInProgress;
}

STATUS openSession()
{
    dropStaleSession();
    TranslogSettings settings;
    STATUS status = archiveStyleSettings(settings);
    if (status != NOERROR)
        return status;
    if (session().open)
        return kErrTranslogArchiveInProgress;
    UNID logId{};
    DWORD current = 0;
    status = logIdentity(settings, logId, current); // makes the directory and the log's identity
    int fd = -1;
    if (status == NOERROR)
        status = lockArchiving(settings.directory, fd);
    if (status != NOERROR)
        return status;
    ArchivingSession& s = session();
    s.open = true;
    s.runtimeStart = runtimeStarts();
    s.lockFd = fd;
    s.settings = settings;
    s.logId = logId;
    return NOERROR;
}

STATUS openedSession()
{
    dropStaleSession();
    TranslogSettings settings;
    STATUS status = archiveStyleSettings(settings);
    if (status != NOERROR)
        return status;
    return session().open ? NOERROR : STS_NO_ARCHIVING_SESSION;
}

STATUS listWaiting()
{
    ArchivingSession& s = session();
    STATUS status = extentsToArchive(s.settings, s.logId, s.waiting);
    s.listed = status == NOERROR;
    s.next = 0;
    return status;
}

STATUS offerNext(UNID* LogID, DWORD* LogNumber, char* LogPath)
{
    ArchivingSession& s = session();
    if (s.next >= s.waiting.size())
        return ERR_NO_TRANSLOGS_TO_ARCHIVE;
    const Extent& extent = s.waiting[s.next];
    if (extent.path.size() >= MAXPATH)
        return STS_BAD_ARGUMENT;
    *LogID = s.logId;
    *LogNumber = extent.number;
    std::memcpy(LogPath, extent.path.c_str(), extent.path.size() + 1);
    s.offered[extent.number] = extent.size;
    ++s.next;
    return NOERROR;
}

STATUS walkLogs(bool restart, UNID* LogID, DWORD* LogNumber, char* LogPath)
{
    if (LogID == nullptr || LogNumber == nullptr || LogPath == nullptr)
        return STS_BAD_ARGUMENT;
    STATUS status = openedSession();
    if (status == NOERROR && (restart || !session().listed))
        status = listWaiting();
    return status != NOERROR ? status : offerNext(LogID, LogNumber, LogPath);
}

// The observer of committed note changes. The change is in the database already,
// so a record that cannot be written is only reported to the trace.
void logNoteChange(Storage& storage, const NoteRecord& note, NoteChange change)
{
    TranslogSettings settings;
    if (!runtimeInitialized() || readTranslogSettings(settings) != NOERROR || !settings.logged)
        return;
    DatabaseProperties properties;
    STATUS status = storage.readProperties(properties);
    if (status == NOERROR)
        status = appendLogRecord(settings, logRecordOf(databaseInstanceId(properties), note, change));
    if (status != NOERROR)
        traceNote("transaction log: no record of note " + std::to_string(note.id) + " in " + storage.path() +
                  ", status " + std::to_string(status));
}

struct FollowNoteChanges {
    FollowNoteChanges() { setNoteChangeObserver(&logNoteChange); }
} followNoteChanges;

} // namespace
} // namespace sim

STATUS impl::NSFGetTransLogStyle(WORD* LogType)
{
    if (LogType == nullptr)
        return sim::STS_BAD_ARGUMENT;
    if (!sim::runtimeInitialized())
        return sim::STS_NOT_INITIALIZED;
    sim::TranslogSettings settings;
    STATUS status = sim::readTranslogSettings(settings);
    if (status == NOERROR && !settings.logged)
        status = ERR_SERVER_NOT_TRANSLOGGED;
    if (status == NOERROR)
        *LogType = settings.style;
    return status;
}

STATUS impl::NSFBeginArchivingLogs() { return sim::openSession(); }

STATUS impl::NSFGetFirstLogToArchive(UNID* LogID, DWORD* LogNumber, char* LogPath)
{
    return sim::walkLogs(true, LogID, LogNumber, LogPath);
}

STATUS impl::NSFGetNextLogToArchive(UNID* LogID, DWORD* LogNumber, char* LogPath)
{
    return sim::walkLogs(false, LogID, LogNumber, LogPath);
}

STATUS impl::NSFEndArchivingLogs()
{
    STATUS status = sim::openedSession();
    if (status == NOERROR)
        status = sim::confirmArchived(sim::session().settings, sim::session().offered);
    if (status == NOERROR)
        sim::closeSession();
    return status;
}

STATUS impl::NSFDbGetLogInfo(DBHANDLE hDb, DWORD Flags, BOOL* LOGGED, UNID* LogID, UNID* DbIID, DWORD* LogExtent)
{
    if (Flags != 0)
        return sim::STS_UNSUPPORTED;
    std::shared_ptr<sim::Storage> storage;
    sim::DatabaseProperties properties;
    sim::TranslogSettings settings;
    STATUS status = sim::lookupStorage(hDb, storage);
    if (status == NOERROR)
        status = storage->readProperties(properties);
    if (status == NOERROR)
        status = sim::readTranslogSettings(settings);
    UNID logId{};
    DWORD extent = 0;
    if (status == NOERROR && settings.logged)
        status = sim::logIdentity(settings, logId, extent);
    if (status != NOERROR)
        return status;
    if (LOGGED != nullptr)
        *LOGGED = settings.logged ? TRUE : FALSE;
    if (LogID != nullptr)
        *LogID = logId;
    if (DbIID != nullptr)
        *DbIID = sim::databaseInstanceId(properties);
    if (LogExtent != nullptr)
        *LogExtent = extent;
    return NOERROR;
}
