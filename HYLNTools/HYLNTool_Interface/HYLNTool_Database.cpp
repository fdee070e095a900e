// HyLNDatabase: one Domino database, its handle and its descriptive data.
#include "HYLNTool_Database.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "HYLNTool_HostInterface.h"
#include "HYLNTool_Log.h"

namespace {

const char* const EMPTY_NAME_MESSAGE = "Database name empty\\invalid";
const char* const INVALID_HANDLE_MESSAGE = "Invalid database handle";
const unsigned short NETWORK_PATH_SIZE = 1024;
const size_t MAIL_ADDRESS_SIZE = 1024;

// Status of an operation that needs an open database and found none.
HyLNError closedDatabaseError()
{
    HyLNError error;
    error.SetError(ERR_NULL_DBHANDLE);
    return error;
}

// The same situation for the operations that report it with a message of their own.
HyLNError invalidHandleError()
{
    HyLNError error;
    error.SetCustomMessage(std::string(INVALID_HANDLE_MESSAGE));
    return error;
}

// Status of a runtime call; empty (no error) when it succeeded.
HyLNError statusOf(STATUS status)
{
    HyLNError error;
    error.SetError(status);
    return error;
}

// Status of a runtime call that records the code only, without its text.
HyLNError codeOf(STATUS status)
{
    HyLNError error;
    error.SetErrorCode(status);
    return error;
}

// Both Open variants refuse an empty name the same way.
bool rejectEmptyName(const std::string& dbName, HyLNError& error)
{
    if (!dbName.empty())
        return false;
    HYLN_LOG_AS("Open", 0, "Error: invalid database name.");
    error.SetCustomMessage(std::string(EMPTY_NAME_MESSAGE));
    return true;
}

// `path` in the runtime's character set (LMBCS), at most NETWORK_PATH_SIZE bytes;
// false when the translation gave nothing.
bool translatedPath(const std::string& path, std::string& translated)
{
    // One spare byte keeps the text terminated whatever the translation writes.
    char buffer[NETWORK_PATH_SIZE + 1] = {};
    if (HyLNUtilities::NotesTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, path.c_str(),
                                      static_cast<unsigned short>(path.size()), buffer,
                                      NETWORK_PATH_SIZE) == 0)
        return false;
    translated = buffer;
    return true;
}

// The runtime's form of dbName (in LMBCS) for opening it; when the conversion fails
// the bare name is opened instead, as callers rely on for local databases.
HyLNError networkPathOf(const std::string& server, const std::string& dbName, std::string& path)
{
    std::string networkPath;
    HyLNError error = HyLNUtilities::MakeNetworkPath(server, dbName, networkPath, false);
    if (error.IsErrorSet()) {
        HYLN_LOG_AS("Open", 0, "Failed to fetch netwrok path of database %s, from server %s",
                    dbName.c_str(), server.c_str());
        return error;
    }
    path.clear();
    if (!networkPath.empty() && !translatedPath(networkPath, path)) {
        HYLN_LOG_AS("Open", 0, "NotesTranslate failed on db name: %s", dbName.c_str());
        path = dbName;
    }
    return error;
}

} // namespace

// ---------------------------------------------------------------------------
// Construction, copy and destruction
// ---------------------------------------------------------------------------

HyLNDatabase::HyLNDatabase() = default;

HyLNDatabase::HyLNDatabase(std::string name, std::string server)
    : name(std::move(name)), server(std::move(server))
{
}

HyLNDatabase::HyLNDatabase(std::string name, HyLNInstance& instance)
    : name(std::move(name)), server(instance.GetServerName())
{
    this->instance = instance;
}

HyLNDatabase::HyLNDatabase(const HyLNDatabase& other)
{
    copyIdentityFrom(other);
}

HyLNDatabase& HyLNDatabase::operator=(const HyLNDatabase& other)
{
    if (this == &other)
        return *this;
    if (handle != NULLHANDLE)
        Close();
    handle = NULLHANDLE;
    quotaCached = false;
    copyIdentityFrom(other);
    return *this;
}

HyLNDatabase::~HyLNDatabase()
{
    // A destructor has no one to report to, and an exception leaving it would end the host.
    try {
        if (handle != NULLHANDLE)
            Close();
    } catch (...) {
    }
    delete quotaInfo;
}

void HyLNDatabase::copyIdentityFrom(const HyLNDatabase& other)
{
    name = other.name;
    instance = other.instance;
    server = other.server;
    canonicalUserName = other.canonicalUserName;
    copiedText = other.copiedText;
    userName = other.userName;
}

// ---------------------------------------------------------------------------
// Handle: create, open, close, accessors
// ---------------------------------------------------------------------------

HyLNError HyLNDatabase::Create()
{
    return statusOf(HY_NSFDbCreate(name.c_str(), DBCLASS_NOTEFILE, TRUE));
}

// The previous handle is released; on a failed reopen the stale value stays, so
// callers test the returned status, never the handle.
void HyLNDatabase::closeHandleBeforeReopen()
{
    if (handle != NULLHANDLE)
        HY_NSFDbClose(handle);
}

HyLNError HyLNDatabase::openPath(const std::string& path)
{
    HyLNError error = statusOf(HY_NSFDbOpen(path.c_str(), &handle));
    if (error.IsErrorSet())
        HYLN_LOG_AS("Open", 0, "Error: Failed to open db %s, %d - %s", path.c_str(),
                    error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

HyLNError HyLNDatabase::Open()
{
    HyLNError error;
    closeHandleBeforeReopen();
    if (rejectEmptyName(name, error))
        return error;
    return openPath(name);
}

HyLNError HyLNDatabase::Open(std::string dbName, bool useNetworkPath)
{
    HyLNError error;
    closeHandleBeforeReopen();
    if (rejectEmptyName(dbName, error))
        return error;
    std::string path = dbName;
    if (useNetworkPath) {
        error = networkPathOf(server, dbName, path);
        if (error.IsErrorSet())
            return error;
    }
    return openPath(path);
}

HyLNError HyLNDatabase::Close()
{
    HyLNError error = statusOf(HY_NSFDbClose(handle));
    if (!error.IsErrorSet())
        handle = NULLHANDLE;
    return error;
}

std::string HyLNDatabase::GetName() { return name; }

DBHANDLE HyLNDatabase::GetHandle() { return handle; }

unsigned int HyLNDatabase::GetQuotaUsage() { return quotaCached ? 1 : 0; }

// One-way: once a quota has been read, this object serves it from its cache.
void HyLNDatabase::SetQuotaUsage() { quotaCached = true; }

void HyLNDatabase::SetMigrationCriteria(DbMigrateCriteria migrateCriteria)
{
    criteria = migrateCriteria;
}

// ---------------------------------------------------------------------------
// Database information
// ---------------------------------------------------------------------------

// These four pass a closed database's handle 0 on to the runtime and report its answer.
HyLNError HyLNDatabase::GetSize(unsigned int& size)
{
    DWORD allocated = 0;
    DWORD unused = 0;
    HyLNError error = statusOf(HY_NSFDbSpaceUsage(handle, &allocated, &unused));
    if (!error.IsErrorSet())
        size = allocated;
    return error;
}

HyLNError HyLNDatabase::GetCreationTime(TIMEDATE& creationTime)
{
    DBID id{};
    HyLNError error = statusOf(HY_NSFDbIDGet(handle, &id));
    if (!error.IsErrorSet())
        creationTime = id;
    return error;
}

// The data modification time is the answer, whichever of the two times is later.
HyLNError HyLNDatabase::GetModifiedTime(TIMEDATE& modifiedTime)
{
    TIMEDATE dataModified{};
    TIMEDATE nonDataModified{};
    HyLNError error = statusOf(HY_NSFDbModifiedTime(handle, &dataModified, &nonDataModified));
    if (!error.IsErrorSet())
        modifiedTime = dataModified;
    return error;
}

HyLNError HyLNDatabase::ReadAcl(unsigned int* acl)
{
    HyLNError error = statusOf(HY_NSFDbReadACL(handle, acl));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Failed to read ACL information for database %s. NSFDbReadACL(...) returned %d - %s",
                 GetName().c_str(), error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

// Replica ID text: high-order word first, "XXXXXXXX:XXXXXXXX".
HyLNError HyLNDatabase::GetReplicaID(std::string& replicaId)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    DBREPLICAINFO info{};
    HyLNError error = statusOf(HY_NSFDbReplicaInfoGet(handle, &info));
    if (error.IsErrorSet()) {
        HYLN_LOG(-1, "Error: Failed to fetch replicaId information for DB %s, error (%d) %s",
                 GetName().c_str(), error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    char text[18] = {};
    std::snprintf(text, sizeof text, "%08X:%08X", info.ID.Innards[1], info.ID.Innards[0]);
    replicaId = text;
    return error;
}

HyLNError HyLNDatabase::GetReplicaInfo(DBREPLICAINFO* info)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error = statusOf(HY_NSFDbReplicaInfoGet(handle, info));
    if (error.IsErrorSet())
        HYLN_LOG(-1, "Error: Failed to fetch replica information for DB %s, error (%d) %s",
                 GetName().c_str(), error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

// The owner's hierarchical name: the mail address of userName up to its first '@'.
// Without a user name the caller gets an untouched output and no error.
HyLNError HyLNDatabase::GetCanonicalName(std::string& canonicalName)
{
    HyLNError error;
    if (userName.empty()) {
        HYLN_LOG(0, "Error: invalid database title");
        return error;
    }
    std::vector<char> user(userName.begin(), userName.end());
    user.push_back('\0');
    char address[MAIL_ADDRESS_SIZE] = {};
    error = statusOf(HY_MailLookupAddress(user.data(), address));
    if (error.IsErrorSet()) {
        HYLN_LOG(-1, "Failed to fetch Canonical name for database %s. error (%d) %s",
                 GetName().c_str(), error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    canonicalName.assign(address, std::strcspn(address, "@"));
    return error;
}

HyLNError HyLNDatabase::GetTitle(std::string& title)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    char info[NSF_INFO_SIZE] = {};
    HyLNError error = statusOf(HY_NSFDbInfoGet(handle, info));
    if (error.IsErrorSet()) {
        // An unnamed database is shown as "(null)", the text printf gives a null string.
        const char* shownName = name.empty() ? "(null)" : name.c_str();
        HYLN_LOG(0, "Error: unable to get database information for Db: [%s]. NSFDbInfoGet(...) "
                    "returned: [%d]. Resulting error string: [%s].",
                 shownName, error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    char parsed[NSF_INFO_SIZE] = {};
    HY_NSFDbInfoParse(info, INFOPARSE_TITLE, parsed, NSF_INFO_SIZE - 1);
    title = parsed;
    return error;
}

HyLNError HyLNDatabase::GetPaths(char* canonicalPath, char* expandedPath)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error = statusOf(HY_NSFDbPathGet(handle, canonicalPath, expandedPath));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Error: Failed to get database paths for %s. %d - %s", GetName().c_str(),
                 error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

HyLNError HyLNDatabase::GetMode(unsigned short* mode)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error = statusOf(HY_NSFDbModeGet(handle, mode));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Error: Failed to get database mode for %s, %d - %s", GetName().c_str(),
                 error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

// The first quota read is kept for the life of the object; later changes are not seen.
HyLNError HyLNDatabase::GetQuota(DBQUOTAINFOEXT* quota)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    if (quotaCached) {
        *quota = *quotaInfo;
        return HyLNError();
    }
    HyLNError error = statusOf(HY_NSFDbQuotaGethDB(handle, quota));
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Unalbe to determine quota for database %s. %d - %s", GetName().c_str(),
                 error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    *quotaInfo = *quota;
    SetQuotaUsage();
    return error;
}

HyLNError HyLNDatabase::GetSpaceUsage(unsigned int* allocated, unsigned int* free)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error = statusOf(HY_NSFDbSpaceUsage(handle, allocated, free));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Unable to determine space usage for database %s. %d - %s", GetName().c_str(),
                 error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

HyLNError HyLNDatabase::GetInfo(char* info)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error = statusOf(HY_NSFDbInfoGet(handle, info));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Failed to get database information for %s. NSFDbInfoGet(...) returned %d - %s",
                 GetName().c_str(), error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

// The three below report a closed database by message and a runtime failure by code only.
HyLNError HyLNDatabase::GetOptions(unsigned int* options)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbGetOptions(handle, options));
}

HyLNError HyLNDatabase::SetInfo(char* info)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbInfoSet(handle, info));
}

HyLNError HyLNDatabase::SetReplicaInfo(DBREPLICAINFO* info)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbReplicaInfoSet(handle, info));
}

// ---------------------------------------------------------------------------
// Database objects, runtime memory blocks, ACL and replica location
// ---------------------------------------------------------------------------

namespace {

const unsigned short MEMORY_BLOCK_TYPE = 0;
const size_t REPLICA_TEXT_SIZE = 1024;
const size_t REPLICA_WORD_DIGITS = 8;
const WORD LOCATED_PATH_SIZE = 256;

// The two hexadecimal words of "HHHHHHHH:LLLLLLLL" (at most eight digits of each
// are read), high-order word first; false when the text has no colon.
bool splitReplicaID(const std::string& replicaID, std::string& high, std::string& low)
{
    std::string text = replicaID.substr(0, REPLICA_TEXT_SIZE - 1);
    size_t colon = text.find(':');
    if (colon == std::string::npos)
        return false;
    high = text.substr(0, std::min(colon, REPLICA_WORD_DIGITS));
    low = text.substr(colon + 1, REPLICA_WORD_DIGITS);
    return true;
}

} // namespace

// The object operations pass a closed database on as a message and a runtime
// failure as its code alone; only ReadObject logs.
HyLNError HyLNDatabase::AllocObject(unsigned int size, unsigned short objectClass, unsigned short privileges,
                                    unsigned int* objectID)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbAllocObject(handle, size, objectClass, privileges, objectID));
}

HyLNError HyLNDatabase::WriteObject(unsigned int objectID, unsigned int memoryHandle, unsigned int offset,
                                    unsigned int length)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbWriteObject(handle, objectID, memoryHandle, offset, length));
}

HyLNError HyLNDatabase::FreeObject(unsigned int objectID)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbFreeObject(handle, objectID));
}

HyLNError HyLNDatabase::ReadObject(unsigned int objectID, unsigned int offset, unsigned int length,
                                   unsigned int* memoryHandle)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error = statusOf(HY_NSFDbReadObject(handle, objectID, offset, length, memoryHandle));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Error: Failed to read object. ObjectID - %lu, offset - %lu, size - %lu, Db - %s. "
                    "NSFDbReadObject(...) returned %d - %s",
                 static_cast<unsigned long>(objectID), static_cast<unsigned long>(offset),
                 static_cast<unsigned long>(length), name.c_str(), error.GetErrorCode(),
                 error.GetMessage().c_str());
    return error;
}

HyLNError HyLNDatabase::MemAllocObject(unsigned short type, unsigned int size, unsigned int* memoryHandle)
{
    return codeOf(HY_OSMemAlloc(type, size, memoryHandle));
}

// Succeeds on an open database whatever the runtime answers.
HyLNError HyLNDatabase::GetObjectSize(unsigned int& memoryHandle, unsigned int* size)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HY_OSMemGetSize(memoryHandle, size);
    return HyLNError();
}

void* HyLNDatabase::LockObject(unsigned int& memoryHandle) { return HY_OSLockObject(memoryHandle); }

bool HyLNDatabase::UnlockObject(unsigned int& memoryHandle) { return HY_OSUnlockObject(memoryHandle) != FALSE; }

unsigned short HyLNDatabase::MemFreeObject(unsigned int& memoryHandle) { return HY_OSMemFree(memoryHandle); }

// A failed allocation leaves code 0 with the error flag and the runtime's text.
HyLNError HyLNDatabase::StoreACL(unsigned int size, unsigned int objectID, unsigned short method, char* acl)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    DHANDLE block = NULLHANDLE;
    HyLNError error = MemAllocObject(MEMORY_BLOCK_TYPE, size, &block);
    if (error.GetErrorCode() != NOERROR) {
        error.SetError(error.GetErrorCode());
        error.SetErrorCode(0);
        HYLN_LOG(0, "OSMemAlloc() failed, %s", error.GetMessage().c_str());
        return error;
    }
    std::memcpy(LockObject(block), acl, size);
    UnlockObject(block);
    HYLN_LOG(2, "Setting ACL...");
    STATUS status = HY_NSFDbStoreACL(handle, block, objectID, method);
    if (status != NOERROR) {
        error = codeOf(status);
        HYLN_LOG(2, "Cannot store ACL information - %s", HyLNUtilities::GetNotesErrorMsg(status).c_str());
    }
    MemFreeObject(block);
    return error;
}

HyLNError HyLNDatabase::ExportACL(unsigned int& exporter, NoteExportRecord* record)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    HyLNError error;
    try {
        error = statusOf(HY_DXLExportACL(exporter, HyLNUtilities::DXLExportStreamFunc, handle, record));
    } catch (...) {
        error.SetCustomMessage("Caught exception in exporting ACL\n");
    }
    return error;
}

HyLNError HyLNDatabase::ExportACL() { return HyLNError(); }

HyLNError HyLNDatabase::ImportAllDataDocuments() { return HyLNError(); }

HyLNError HyLNDatabase::CheckDXLErrorLog(unsigned int) { return HyLNError(); }

// The database of the instance's data directory (or below it) whose replica ID is
// `replicaID`; `path` receives its path relative to the data directory.
HyLNError HyLNDatabase::LocateByReplicaID(std::string replicaID, std::string& path)
{
    HyLNError error;
    std::string high;
    std::string low;
    if (!splitReplicaID(replicaID, high, low)) {
        error.SetCustomMessage("Invalid replica ID [%s]: no colon between its two words", replicaID.c_str());
        HYLN_LOG(0, "%s", error.GetMessage().c_str());
        return error;
    }
    HYLN_LOG(0, "str time = %s, str date = %s", high.c_str(), low.c_str());
    DBID replica{};
    replica.Innards[0] = static_cast<DWORD>(std::strtoul(low.c_str(), nullptr, 16));
    replica.Innards[1] = static_cast<DWORD>(std::strtoul(high.c_str(), nullptr, 16));
    HYLN_LOG(0, "time = %lu, date = %lu", static_cast<unsigned long>(replica.Innards[1]),
             static_cast<unsigned long>(replica.Innards[0]));

    std::string dataDirectory = instance.GetDataDirectory();
    std::string directory;
    if (!translatedPath(dataDirectory, directory)) {
        HYLN_LOG(0, "OSTranslate failed on db name: %s", dataDirectory.c_str());
        directory = dataDirectory;
    }
    DBHANDLE directoryHandle = NULLHANDLE;
    error = HyLNUtilities::OpenDirectory(directory, directoryHandle);
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Unable to open data directory : [%s]. NSFDbOpen(...) returned: [%d]. Resulting error "
                    "string: [%s].",
                 directory.c_str(), 0, error.GetMessage().c_str());
        return error;
    }
    char found[LOCATED_PATH_SIZE] = {};
    STATUS status = HY_NSFDbLocateByReplicaID(directoryHandle, &replica, found, LOCATED_PATH_SIZE - 1);
    if (status != NOERROR) {
        error.SetError(status);
        HYLN_LOG(0, "Skipping database: unable to locate db using ReplicaId [%08x:%08x]. "
                    "NSFDbLocateByReplicaID(...) returned: [%d]. Resulting error string: [%s].",
                 replica.Innards[1], replica.Innards[0], status, error.GetMessage().c_str());
        HyLNUtilities::CloseDirectory(directoryHandle);
        return error;
    }
    path = found;
    HyLNUtilities::CloseDirectory(directoryHandle);
    return error;
}

// ---------------------------------------------------------------------------
// Transaction logging of this database
// ---------------------------------------------------------------------------

// A closed database's handle 0 goes to the runtime, which answers for it.
HyLNError HyLNDatabase::DbGetLogInfo(int& logged, UNIVERSALNOTEID& logId, UNIVERSALNOTEID& dbInstanceId,
                                     unsigned int& logExtent)
{
    return statusOf(HY_NSFDbGetLogInfo(handle, 0, &logged, &logId, &dbInstanceId, &logExtent));
}
