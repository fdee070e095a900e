// NSFDb* entry points: creating, opening and describing database files and directories.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

#include "availability.h"
#include "dirsearch.h"
#include "paths.h"
#include "sim_core.h"
#include "storage.h"

namespace sim {

STATUS lookupDatabase(DBHANDLE handle, std::shared_ptr<DatabaseObject>& out)
{
    if (handle == NULLHANDLE)
        return ERR_NULL_DBHANDLE;
    out = findAs<DatabaseObject>(handle, HandleKind::Database);
    return out ? NOERROR : STS_INVALID_HANDLE;
}

STATUS lookupStorage(DBHANDLE handle, std::shared_ptr<Storage>& out)
{
    std::shared_ptr<DatabaseObject> database;
    STATUS status = lookupDatabase(handle, database);
    if (status != NOERROR)
        return status;
    if (database->isDirectory)
        return ERR_DIRECTORY;
    out = database->storage;
    return NOERROR;
}

STATUS readAclOf(DBHANDLE handle, std::vector<char>& image)
{
    std::shared_ptr<Storage> storage;
    STATUS status = lookupStorage(handle, storage);
    return status != NOERROR ? status : storage->readAcl(image);
}

namespace {

constexpr WORD kLastDbClass = 0xFF1F;
constexpr DWORD kMaxDatabaseSizeKB = 64u * 1024u * 1024u; // 64 GB
constexpr WORD kQuotaMethodDefault = 0;

STATUS databaseClassFor(USHORT requested, const std::string& file, WORD& dbClass)
{
    if (requested == DBCLASS_BY_EXTENSION) {
        bool isTemplate = file.size() >= 4 && file.compare(file.size() - 4, 4, ".ntf") == 0;
        dbClass = isTemplate ? DBCLASS_TEMPLATEFILE : DBCLASS_NOTEFILE;
        return NOERROR;
    }
    if (requested < DBCLASS_NOTEFILE || requested > kLastDbClass)
        return kErrDbClass;
    dbClass = requested;
    return NOERROR;
}

bool isDirectory(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Copies `text` NUL-terminated, at most `maxChars` characters before the NUL.
void copyTruncated(const std::string& text, char* out, size_t maxChars)
{
    size_t count = std::min(text.size(), maxChars);
    std::memcpy(out, text.data(), count);
    out[count] = '\0';
}

DWORD clampToDword(unsigned long long value)
{
    return static_cast<DWORD>(std::min<unsigned long long>(value, MAXDWORD));
}

template <class F>
STATUS withProperties(DBHANDLE hDB, F use)
{
    std::shared_ptr<Storage> storage;
    DatabaseProperties properties;
    STATUS status = lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->readProperties(properties);
    if (status == NOERROR)
        use(properties);
    return status;
}

// One piece of the info buffer: the title line, the categories line, or the
// line that starts with the given marker ("#1" template, "#2" inherited template).
std::string infoPiece(const std::string& info, WORD what)
{
    std::vector<std::string> lines;
    size_t start = 0;
    for (;;) {
        size_t end = info.find('\n', start);
        lines.push_back(info.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    if (what == INFOPARSE_TITLE)
        return lines[0];
    if (what == INFOPARSE_CATEGORIES)
        return lines.size() > 1 && lines[1].compare(0, 1, "#") != 0 ? lines[1] : std::string();
    const char* marker = what == INFOPARSE_CLASS ? "#1" : what == INFOPARSE_DESIGN_CLASS ? "#2" : nullptr;
    for (size_t i = 1; marker != nullptr && i < lines.size(); ++i)
        if (lines[i].compare(0, 2, marker) == 0)
            return lines[i].substr(2);
    return std::string();
}

} // namespace
} // namespace sim

STATUS impl::NSFDbCreate(const char* PathName, USHORT DbClass, BOOL ForceCreation)
{
    sim::traceDetail("NSFDbCreate", PathName != nullptr ? PathName : "");
    std::string absolute;
    STATUS status = sim::resolvePathName(PathName, absolute);
    if (status != NOERROR)
        return status;
    if (sim::isDirectory(absolute))
        return ERR_DIRECTORY;
    std::string file = sim::newDatabaseFile(absolute);
    WORD dbClass = 0;
    status = sim::databaseClassFor(DbClass, file, dbClass);
    if (status != NOERROR)
        return status;
    return sim::Storage::create(file, dbClass, ForceCreation != FALSE);
}

namespace {

// Handles on the same database file share one storage: hosts keep thousands of
// handles open (discovery never closes the mail files it reports). The storage
// bounds the SQLite connections, and so the file descriptors, behind them. Keyed by
// inode too, so a file re-created under the same name gets a storage of its own.
std::map<std::string, std::weak_ptr<sim::Storage>>& openStorages()
{
    static std::map<std::string, std::weak_ptr<sim::Storage>> open;
    return open;
}

std::string storageKey(const std::string& path)
{
    struct stat info;
    std::string key = path;
    if (stat(path.c_str(), &info) == 0)
        key += ":" + std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
    return key;
}

STATUS sharedStorage(const std::string& path, std::shared_ptr<sim::Storage>& out)
{
    std::weak_ptr<sim::Storage>& shared = openStorages()[storageKey(path)];
    out = shared.lock();
    if (out)
        return NOERROR;
    STATUS status = sim::Storage::open(path, out);
    if (status == NOERROR)
        shared = out;
    return status;
}

} // namespace

bool sim::databaseInUse(const std::string& file)
{
    auto it = openStorages().find(storageKey(file));
    return it != openStorages().end() && !it->second.expired();
}

STATUS impl::NSFDbOpen(const char* PathName, DBHANDLE* rethDB)
{
    sim::traceDetail("NSFDbOpen", PathName != nullptr ? PathName : "");
    if (rethDB == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::string absolute;
    STATUS status = sim::resolvePathName(PathName, absolute);
    if (status != NOERROR)
        return status;
    auto database = std::make_shared<sim::DatabaseObject>();
    database->isDirectory = sim::isDirectory(absolute);
    database->absolutePath = database->isDirectory ? absolute : sim::existingDatabaseFile(absolute);
    if (!database->isDirectory) {
        if (sim::databaseOffline(database->absolutePath))
            return sim::STS_DATABASE_OFFLINE;
        status = sharedStorage(database->absolutePath, database->storage);
        if (status != NOERROR)
            return status;
    }
    *rethDB = sim::registerHandle(database);
    return NOERROR;
}

STATUS impl::NSFDbClose(DBHANDLE hDB)
{
    std::shared_ptr<sim::DatabaseObject> database;
    STATUS status = sim::lookupDatabase(hDB, database);
    if (status == NOERROR)
        sim::releaseHandle(hDB, sim::HandleKind::Database);
    return status;
}

STATUS impl::NSFDbInfoGet(DBHANDLE hDB, char* retBuffer)
{
    if (retBuffer == nullptr)
        return sim::STS_BAD_ARGUMENT;
    return sim::withProperties(hDB, [&](const sim::DatabaseProperties& properties) {
        std::memset(retBuffer, 0, NSF_INFO_SIZE);
        sim::copyTruncated(properties.info, retBuffer, NSF_INFO_SIZE - 1);
    });
}

STATUS impl::NSFDbInfoSet(DBHANDLE hDB, char* Buffer)
{
    if (Buffer == nullptr)
        return sim::STS_BAD_ARGUMENT;
    size_t length = strnlen(Buffer, NSF_INFO_SIZE);
    if (length == NSF_INFO_SIZE)
        return sim::kErrNsfInfoSize;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    return status != NOERROR ? status : storage->writeInfo(std::string(Buffer, length));
}

void impl::NSFDbInfoParse(char* Info, WORD What, char* Buffer, WORD Length)
{
    if (Buffer == nullptr)
        return;
    std::string info = Info != nullptr ? std::string(Info, strnlen(Info, NSF_INFO_SIZE)) : std::string();
    sim::copyTruncated(sim::infoPiece(info, What), Buffer, Length);
}

STATUS impl::NSFDbReplicaInfoGet(DBHANDLE hDB, DBREPLICAINFO* retReplicationInfo)
{
    if (retReplicationInfo == nullptr)
        return sim::STS_BAD_ARGUMENT;
    return sim::withProperties(hDB, [&](const sim::DatabaseProperties& properties) {
        *retReplicationInfo = properties.replica;
    });
}

STATUS impl::NSFDbReplicaInfoSet(DBHANDLE hDB, DBREPLICAINFO* ReplicationInfo)
{
    if (ReplicationInfo == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    return status != NOERROR ? status : storage->writeReplicaInfo(*ReplicationInfo);
}

STATUS impl::NSFDbIDGet(DBHANDLE hDB, DBID* retDbID)
{
    if (retDbID == nullptr)
        return sim::STS_BAD_ARGUMENT;
    return sim::withProperties(hDB, [&](const sim::DatabaseProperties& properties) { *retDbID = properties.dbid; });
}

STATUS impl::NSFDbModifiedTime(DBHANDLE hDB, TIMEDATE* retDataModified, TIMEDATE* retNonDataModified)
{
    return sim::withProperties(hDB, [&](const sim::DatabaseProperties& properties) {
        if (retDataModified != nullptr)
            *retDataModified = properties.dataModified;
        if (retNonDataModified != nullptr)
            *retNonDataModified = properties.nonDataModified;
    });
}

STATUS impl::NSFDbSpaceUsage(DBHANDLE hDB, DWORD* retAllocatedBytes, DWORD* retFreeBytes)
{
    std::shared_ptr<sim::Storage> storage;
    unsigned long long allocated = 0;
    unsigned long long unused = 0;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->spaceUsage(allocated, unused);
    if (status != NOERROR)
        return status;
    if (retAllocatedBytes != nullptr)
        *retAllocatedBytes = sim::clampToDword(allocated);
    if (retFreeBytes != nullptr)
        *retFreeBytes = sim::clampToDword(unused);
    return NOERROR;
}

STATUS impl::NSFDbQuotaGethDB(DBHANDLE hDB, DBQUOTAINFOEXT* QuotaInfo)
{
    if (QuotaInfo == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    sim::DatabaseProperties properties;
    unsigned long long allocated = 0;
    unsigned long long unused = 0;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->readProperties(properties);
    if (status == NOERROR)
        status = storage->spaceUsage(allocated, unused);
    if (status != NOERROR)
        return status;
    DBQUOTAINFOEXT quota{};
    quota.WarningThreshold = properties.quotaWarningKB;
    quota.SizeLimit = properties.quotaLimitKB;
    quota.CurrentDbSize = sim::clampToDword((allocated + 1023) / 1024);
    quota.MaxDbSize = sim::kMaxDatabaseSizeKB;
    quota.QuotaMethod = sim::kQuotaMethodDefault;
    quota.CurrentUsage = sim::clampToDword((allocated - unused + 1023) / 1024);
    quota.CurrentSizeUsed = quota.CurrentDbSize;
    *QuotaInfo = quota;
    return NOERROR;
}

STATUS impl::NSFDbModeGet(DBHANDLE hDB, USHORT* retMode)
{
    std::shared_ptr<sim::DatabaseObject> database;
    STATUS status = sim::lookupDatabase(hDB, database);
    if (status == NOERROR && retMode != nullptr)
        *retMode = database->isDirectory ? DB_DIRECTORY : DB_LOADED;
    return status;
}

STATUS impl::NSFDbPathGet(DBHANDLE hDB, char* retCanonicalPathName, char* retExpandedPathName)
{
    std::shared_ptr<sim::DatabaseObject> database;
    STATUS status = sim::lookupDatabase(hDB, database);
    if (status != NOERROR)
        return status;
    if (retCanonicalPathName != nullptr)
        sim::copyTruncated(sim::canonicalPathOf(database->absolutePath), retCanonicalPathName, MAXPATH - 1);
    if (retExpandedPathName != nullptr)
        sim::copyTruncated(database->absolutePath, retExpandedPathName, MAXPATH - 1);
    return NOERROR;
}

STATUS impl::NSFDbGetOptions(DBHANDLE hDB, DWORD* retDbOptions)
{
    if (retDbOptions == nullptr)
        return sim::STS_BAD_ARGUMENT;
    return sim::withProperties(hDB, [&](const sim::DatabaseProperties& properties) { *retDbOptions = properties.options; });
}

STATUS impl::NSFDbReadACL(DBHANDLE hDB, DHANDLE* rethACL)
{
    if (rethACL == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::vector<char> image;
    STATUS status = sim::readAclOf(hDB, image);
    if (status != NOERROR)
        return status;
    if (image.empty())
        return sim::kErrSpecialId;
    *rethACL = sim::allocateMemoryWith(image.data(), image.size());
    return NOERROR;
}

// Only the plain open is simulated: no open options, names list or modified-since test.
STATUS impl::NSFDbOpenExtended(const char* PathName, WORD Options, DHANDLE hNames, TIMEDATE* ModifiedTime,
                               DBHANDLE* rethDB, TIMEDATE* retDataModified, TIMEDATE* retNonDataModified)
{
    if (Options != 0 || hNames != NULLHANDLE || ModifiedTime != nullptr)
        return sim::STS_UNSUPPORTED;
    if (rethDB == nullptr)
        return sim::STS_BAD_ARGUMENT;
    DBHANDLE opened = NULLHANDLE;
    STATUS status = impl::NSFDbOpen(PathName, &opened);
    if (status != NOERROR)
        return status;
    std::shared_ptr<sim::DatabaseObject> database;
    sim::lookupDatabase(opened, database);
    if (!database->isDirectory)
        status = impl::NSFDbModifiedTime(opened, retDataModified, retNonDataModified);
    if (status != NOERROR) {
        impl::NSFDbClose(opened);
        return status;
    }
    *rethDB = opened;
    return NOERROR;
}

namespace {
constexpr WORD kAclStoreUpdate = 0;
constexpr WORD kAclStoreNew = 1;
} // namespace

// Both methods store the image as given; this runtime keeps no other ACL form.
STATUS impl::NSFDbStoreACL(DBHANDLE hDB, DHANDLE hACL, DWORD ObjectID, WORD Method)
{
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status != NOERROR)
        return status;
    if (Method != kAclStoreUpdate && Method != kAclStoreNew)
        return sim::STS_UNSUPPORTED;
    if (ObjectID != 0) // reserved
        return sim::STS_BAD_ARGUMENT;
    auto block = sim::findAs<sim::MemoryBlock>(hACL, sim::HandleKind::Memory);
    if (!block)
        return sim::STS_INVALID_HANDLE;
    if (!sim::isAclImage(block->bytes))
        return sim::STS_BAD_ARGUMENT;
    return storage->writeAcl(block->bytes);
}

STATUS impl::NSFDbLocateByReplicaID(DBHANDLE hDB, DBID* ReplicaID, char* retPathName, WORD PathMaxLen)
{
    if (ReplicaID == nullptr || retPathName == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::DatabaseObject> directory;
    STATUS status = sim::lookupDatabase(hDB, directory);
    if (status != NOERROR)
        return status;
    if (!directory->isDirectory)
        return ERR_NOT_DIRECTORY;
    std::string path;
    status = sim::locateReplica(directory->absolutePath, *ReplicaID, path);
    if (status != NOERROR)
        return status;
    // A cut path would name another file.
    if (path.size() > PathMaxLen)
        return sim::STS_BAD_ARGUMENT;
    sim::copyTruncated(path, retPathName, PathMaxLen);
    return NOERROR;
}
