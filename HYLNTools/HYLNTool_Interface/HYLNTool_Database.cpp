// HyLNDatabase: one Domino database, its handle and its descriptive data.
#include "HYLNTool_Database.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
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

// ---------------------------------------------------------------------------
// Note selection
// ---------------------------------------------------------------------------

namespace {

const WORD CANONICAL_NAME_SIZE = 256;
const WORD TITLE_SIZE = 1024;
const WORD DESIGN_FLAGS_SIZE = 128;

// The host sees titles in UTF-8; a title that does not translate is sent as stored.
void sendTitleToHost(const char* title, WORD length)
{
    char translated[TITLE_SIZE + 1] = {};
    if (HyLNUtilities::NotesTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, title, length, translated, TITLE_SIZE) == 0)
        SendDBMessage(const_cast<char*>(title));
    else
        SendDBMessage(translated);
}

// Navigators (the G flag) are design notes of class view that the host must not see.
bool isNavigator(NOTEHANDLE note)
{
    char flags[DESIGN_FLAGS_SIZE] = {};
    HY_NSFItemGetText(note, "$Flags", flags, DESIGN_FLAGS_SIZE);
    return std::strchr(flags, 'G') != nullptr;
}

} // namespace

HyLNError HyLNDatabase::DiscoverUnReadDocuments()
{
    HyLNError error;
    std::string owner = userName;
    if (owner.empty()) {
        error = GetTitle(owner);
        if (error.IsErrorSet()) {
            HYLN_LOG(0, "Failed to fetch database title for db %s", name.c_str());
            return error;
        }
    }
    // The slash asks for the missing hierarchy to be taken from the server's own name.
    owner += "/";
    char canonical[CANONICAL_NAME_SIZE] = {};
    WORD canonicalLength = 0;
    error = statusOf(HY_DNCanonicalize(0, nullptr, owner.c_str(), canonical, CANONICAL_NAME_SIZE, &canonicalLength));
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Error: unable to get a canonical name for user [%s]. DNCanonicalize(...) returned: [%d]. "
                    "Resulting error string: [%s].",
                 owner.c_str(), error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    canonicalUserName = canonical;
    error = statusOf(HY_NSFDbGetUnreadNoteTable(handle, canonical, static_cast<WORD>(canonicalUserName.size()), TRUE,
                                                &unreadTable));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Error: unable to determine if any notes are unread. NSFDbGetUnreadNoteTable(...) returned: [%d]. "
                    "Resulting error string: [%s].",
                 error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

// "Nothing modified since then" is an answer, not a failure: the table stays unwritten.
HyLNError HyLNDatabase::DiscoverModifiedDocuments(TIMEDATE since, TIMEDATE* until, unsigned short noteClassMask,
                                                  unsigned int* table)
{
    STATUS status = HY_NSFDbGetModifiedNoteTable(handle, noteClassMask, since, until, table);
    if (status == NOERROR || ERR(status) == ERR_NO_MODIFIED_NOTES)
        return HyLNError();
    HyLNError error = statusOf(status);
    HYLN_LOG(0, "Cannot get Modified note ID list, since %x:%xNSFDbGetModifiedNoteTable(...) returned: [%d]. "
                "Resulting error string: [%s].",
             since.Innards[0], since.Innards[1], error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

bool HyLNDatabase::NoteIDScan(unsigned int& table, int first, unsigned int* noteID)
{
    return HY_IDScan(table, first, noteID) != FALSE;
}

// One lookup instead of a walk of the table: IDs with the top bit set are never
// unread, so a note ID carrying that bit cannot match.
HyLNError HyLNDatabase::GetNoteUnreadStatus(unsigned int noteID, bool& unread)
{
    HyLNError error;
    if (unreadTable == NULLHANDLE) {
        error.SetError(NOERROR);
        HYLN_LOG(0, "Invalid UnreadNoteTable handle passed in");
        return error;
    }
    if ((noteID & RRV_DELETED) == 0 && HY_IDIsPresent(unreadTable, noteID)) {
        HYLN_LOG(0, "Found an unread note: [%d]. This note will not be archived", static_cast<int>(noteID));
        unread = true;
    }
    return error;
}

// An exception from the search is reported in the log only: the caller gets a clear status.
HyLNError HyLNDatabase::Search(unsigned int formula, char* viewTitle, unsigned short searchFlags,
                               unsigned short noteClassMask, TIMEDATE* since, NSFSEARCHPROC* action, void* context,
                               TIMEDATE* until)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    STATUS status = NOERROR;
    try {
        status = HY_NSFSearch(handle, formula, viewTitle, searchFlags, noteClassMask, since,
                              action != nullptr ? *action : nullptr, context, until);
    } catch (...) {
        HYLN_LOG(0, "Error: caught an exception of unknown type thrown by Domino API :[NSFSearch(...)].");
        return HyLNError();
    }
    return codeOf(status);
}

HyLNError HyLNDatabase::ProfileEnum(const char* profileName, unsigned short nameLength,
                                    NSFPROFILEENUMPROC enumerator, void* context, unsigned int flags)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    STATUS status = HY_NSFProfileEnum(handle, profileName, nameLength, enumerator, context, flags);
    HyLNError error = codeOf(status);
    if (status != NOERROR)
        HYLN_LOG(-1, "Error: NSFProfileEnum returned %d - %s", error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

HyLNError HyLNDatabase::GetNoteInfoByUNID(UNIVERSALNOTEID* unid, unsigned int* noteID, ORIGINATORID* oid,
                                          TIMEDATE* modified, unsigned short* noteClass)
{
    if (handle == NULLHANDLE)
        return invalidHandleError();
    return codeOf(HY_NSFDbGetNoteInfoByUNID(handle, unid, noteID, oid, modified, noteClass));
}

// A closed database is left to the runtime to refuse.
HyLNError HyLNDatabase::GetViews()
{
    return codeOf(HY_NSFSearch(handle, NULLHANDLE, nullptr, 0, NOTE_CLASS_VIEW, nullptr, ForEachViewName, &handle,
                               nullptr));
}

unsigned short ForEachViewName(void* context, SEARCH_MATCH* match, ITEM_TABLE* summary)
{
    (void)summary;
    // The runtime does not promise an aligned match.
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if ((found.SERetFlags & SE_FMATCH) == 0)
        return NOERROR;
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = HY_NSFNoteOpen(*static_cast<DBHANDLE*>(context), found.ID.NoteID, OPEN_SUMMARY, &note);
    if (status != NOERROR)
        return status;
    char title[TITLE_SIZE] = {};
    WORD length = HY_NSFItemGetText(note, "$TITLE", title, TITLE_SIZE);
    if (length > 0 && !isNavigator(note))
        sendTitleToHost(title, length);
    HY_NSFNoteClose(note);
    return NOERROR;
}

// ---------------------------------------------------------------------------
// Folder filtering
// ---------------------------------------------------------------------------

namespace {

const char* const INVALID_PARAMETERS_MESSAGE = "Invalid parameters passed in.";
const char* const FOLDER_SEPARATORS = ";";
const char* const VIEWS_AND_FOLDERS = "-G40n^";
const NOTEID DESIGN_COLLECTION = NOTE_ID_SPECIAL | NOTE_CLASS_DESIGN;
// Reopened with a rebuilt index, so the folder is read as it is now.
const WORD FOLDER_OPEN_FLAGS = 0x29;
const DWORD ID_AND_CLASS = READ_MASK_NOTEID | READ_MASK_NOTECLASS;
const DWORD FOLDER_BLOCK_ENTRIES = 0xFFFF;
const DWORD ALL_ENTRIES = 0xFFFFFFFF;
const size_t FOLDER_LIST_SIZE = 1024;
const unsigned long KEEP_FOLDER_DOCUMENTS = 1;
const unsigned long DROP_FOLDER_DOCUMENTS = 2;

HyLNError invalidParametersError()
{
    HyLNError error;
    error.SetCustomMessage(std::string(INVALID_PARAMETERS_MESSAGE));
    return error;
}

// Cleanup on a path that already ends the operation: a failure to release is
// nothing the caller could act on, and must not replace an exception under way.
template <class Release>
void releaseQuietly(Release release) noexcept
{
    try {
        release();
    } catch (...) {
    }
}

// An ID table the operation makes for itself; destroyed on every path.
class ScratchTable {
public:
    ScratchTable() = default;
    ScratchTable(const ScratchTable&) = delete;
    ScratchTable& operator=(const ScratchTable&) = delete;
    ~ScratchTable()
    {
        releaseQuietly([this] { destroy(); });
    }
    // The handle is kept only when the runtime made the table.
    STATUS create(DWORD alignment) { return keep(HY_IDCreateTable(alignment, &made_)); }
    STATUS copyOf(DHANDLE table) { return keep(HY_IDTableCopy(table, &made_)); }
    void destroy()
    {
        DHANDLE table = handle;
        handle = NULLHANDLE;
        if (table != NULLHANDLE)
            HY_IDDestroyTable(table);
    }
    DHANDLE handle = NULLHANDLE;

private:
    STATUS keep(STATUS status)
    {
        if (status == NOERROR)
            handle = made_;
        return status;
    }
    DHANDLE made_ = NULLHANDLE;
};

// A collection the operation opens for itself; closed on every path.
class OpenedCollection {
public:
    OpenedCollection() = default;
    OpenedCollection(const OpenedCollection&) = delete;
    OpenedCollection& operator=(const OpenedCollection&) = delete;
    ~OpenedCollection()
    {
        releaseQuietly([this] { close(); });
    }
    STATUS open(DBHANDLE db, NOTEID viewId, WORD flags)
    {
        HCOLLECTION opened = 0;
        STATUS status = HY_NIFOpenCollection(db, db, viewId, flags, NULLHANDLE, &opened, nullptr, nullptr, nullptr,
                                             nullptr);
        if (status == NOERROR)
            handle = opened;
        return status;
    }
    STATUS close()
    {
        HCOLLECTION collection = handle;
        handle = 0;
        return collection != 0 ? HY_NIFCloseCollection(collection) : NOERROR;
    }
    HCOLLECTION handle = 0;
};

// One read's block of entries, each a note ID and a note class, packed (6 bytes).
class EntryBlock {
public:
    struct Entry {
        NOTEID id;
        WORD noteClass;
    };
    EntryBlock() = default;
    EntryBlock(const EntryBlock&) = delete;
    EntryBlock& operator=(const EntryBlock&) = delete;
    ~EntryBlock()
    {
        releaseQuietly([this] { release(); });
    }
    bool lock()
    {
        entries_ = static_cast<const char*>(HY_OSLockObject(handle));
        return entries_ != nullptr;
    }
    Entry at(DWORD index) const
    {
        const char* packed = entries_ + static_cast<size_t>(index) * (sizeof(NOTEID) + sizeof(WORD));
        Entry entry;
        std::memcpy(&entry.id, packed, sizeof entry.id);
        std::memcpy(&entry.noteClass, packed + sizeof entry.id, sizeof entry.noteClass);
        return entry;
    }
    void release()
    {
        if (entries_ != nullptr) {
            entries_ = nullptr;
            HY_OSUnlockObject(handle);
        }
        DHANDLE buffer = handle;
        handle = NULLHANDLE;
        if (buffer != NULLHANDLE)
            HY_OSMemFree(buffer);
    }
    DHANDLE handle = NULLHANDLE;

private:
    const char* entries_ = nullptr;
};

HyLNError readViewTitle(DBHANDLE db, NOTEID viewId, char* title, WORD& length)
{
    NOTEHANDLE note = NULLHANDLE;
    HyLNError error = statusOf(HY_NSFNoteOpen(db, viewId, 0, &note));
    if (error.IsErrorSet()) {
        HYLN_LOG_AS("AddSubFolders", 0, "Error: unable to open note: [%d] while getting subfolders. NSFNoteOpen(...) "
                                        "returned: [%d]. Resulting error string is: [%s].",
                    static_cast<int>(viewId), error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    length = HY_NSFItemGetText(note, "$TITLE", title, TITLE_SIZE);
    HY_NSFNoteClose(note);
    return error;
}

// A title below a named folder ("Name\..."), added once for each name it is below.
void addIfSubfolder(const char* title, const std::string& folders, std::string& additions)
{
    char names[FOLDER_LIST_SIZE] = {};
    folders.copy(names, FOLDER_LIST_SIZE - 1);
    char* rest = nullptr;
    for (char* name = strtok_r(names, FOLDER_SEPARATORS, &rest); name != nullptr;
         name = strtok_r(nullptr, FOLDER_SEPARATORS, &rest)) {
        std::string parent = std::string(name) + "\\";
        if (std::strncmp(title, parent.c_str(), parent.size()) == 0)
            additions.append(";").append(title);
    }
}

// False when a design note could not be opened: the operation ends with that status.
bool addSubfoldersOfBlock(DBHANDLE db, const EntryBlock& block, DWORD count, const std::string& folders,
                          std::string& additions, HyLNError& error)
{
    for (DWORD i = 0; i < count && !QuitJob(); ++i) {
        EntryBlock::Entry entry = block.at(i);
        if (entry.noteClass != NOTE_CLASS_VIEW)
            continue;
        char title[TITLE_SIZE] = {};
        WORD length = 0;
        error = readViewTitle(db, entry.id, title, length);
        if (error.IsErrorSet())
            return false;
        if (length == 0) {
            HYLN_LOG_AS("AddSubFolders", 3, "Warning: found a view/folder without a title.");
            continue;
        }
        addIfSubfolder(title, folders, additions);
    }
    return true;
}

// False when an insert failed: the operation ends with that status.
bool addDocumentsOfBlock(const EntryBlock& block, DWORD count, DHANDLE folderTable, HyLNError& error)
{
    for (DWORD i = 0; i < count && !QuitJob(); ++i) {
        EntryBlock::Entry entry = block.at(i);
        if (entry.noteClass != NOTE_CLASS_DOCUMENT)
            continue;
        HyLNError inserted = statusOf(HY_IDInsert(folderTable, entry.id, nullptr));
        if (inserted.IsErrorSet()) {
            error = inserted;
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "Error: unable to insert note ID into document table. "
                                                       "NIFReadEntries(...) returned: [%d]. Resulting error string: [%s].",
                        error.GetErrorCode(), error.GetMessage().c_str());
            return false;
        }
    }
    return true;
}

// Every document of the folder into folderTable. False when the operation ends here;
// `error` then holds what it returns (unchanged when the entries could not be locked).
bool addFolderDocuments(const char* name, OpenedCollection& folder, DHANDLE folderTable, HyLNError& error)
{
    COLLECTIONPOSITION position{};
    WORD signals = 0;
    do {
        EntryBlock block;
        DWORD count = 0;
        HyLNError read = statusOf(HY_NIFReadEntries(folder.handle, &position, NAVIGATE_NEXT, 1, NAVIGATE_NEXT,
                                                    FOLDER_BLOCK_ENTRIES, ID_AND_CLASS, &block.handle, nullptr,
                                                    nullptr, &count, &signals));
        if (read.IsErrorSet()) {
            error = read;
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "Error: unable to read entries in view/folder: [%s]. "
                                                       "NIFReadEntries(...) returned: [%d]. Resulting error string: [%s].",
                        name, error.GetErrorCode(), error.GetMessage().c_str());
            return false;
        }
        if (block.handle == NULLHANDLE || count == 0) {
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "No entries in folder/view: [%s].", name);
            return true;
        }
        if (!block.lock()) {
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0,
                        "Error: OSLockObject(...) returned a NULL buffer during folder filetering.");
            return false;
        }
        if (!addDocumentsOfBlock(block, count, folderTable, error))
            return false;
        block.release();
    } while ((signals & SIGNAL_MORE_TO_DO) && !QuitJob());
    return true;
}

// Cuts `folders` in place (a zero byte for each separator reached) and collects the
// documents of each named folder. False when the operation ends here.
bool collectFolderDocuments(DBHANDLE db, std::string& folders, DHANDLE folderTable, HyLNError& error)
{
    char* rest = nullptr;
    char* name = strtok_r(&folders[0], FOLDER_SEPARATORS, &rest);
    std::printf("\n FolderName in Interface = %s\n ", name != nullptr ? name : "(null)");
    while (name != nullptr) {
        NOTEID viewId = 0;
        HyLNError found = statusOf(HY_NIFFindDesignNoteExt(db, name, NOTE_CLASS_VIEW, VIEWS_AND_FOLDERS, &viewId, 0));
        if (found.IsErrorSet()) {
            error = found;
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "Warning: unable to find a folder/view. NIFFindView(...) "
                                                       "returned: [%d]. Resulting error string: [%s].",
                        error.GetErrorCode(), error.GetMessage().c_str());
            name = strtok_r(nullptr, FOLDER_SEPARATORS, &rest);
            continue;
        }
        OpenedCollection folder;
        HyLNError opened = statusOf(folder.open(db, viewId, FOLDER_OPEN_FLAGS));
        if (opened.IsErrorSet()) {
            error = opened;
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "Error: unable to open collection for folder/view: [%s]. "
                                                       "NIFOpenCollection(...) returned: [%d]. Resulting error string: [%s].",
                        name, error.GetErrorCode(), error.GetMessage().c_str());
            return false;
        }
        if (!addFolderDocuments(name, folder, folderTable, error))
            return false;
        name = strtok_r(nullptr, FOLDER_SEPARATORS, &rest);
        HyLNError closed = statusOf(folder.close());
        if (closed.IsErrorSet()) {
            error = closed;
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "Error: unable to close collection during folder/view "
                                                       "filtering. NIFCloseCollection(...) returned: [%d]. Resulting "
                                                       "error string: [%s].",
                        error.GetErrorCode(), error.GetMessage().c_str());
            return false;
        }
    }
    return true;
}

// Deletes from `table` each candidate whose membership of folderTable equals
// `removeMembers`. False when a delete failed.
bool removeByMembership(DHANDLE table, DHANDLE candidates, DHANDLE folderTable, bool removeMembers, HyLNError& error)
{
    DWORD id = 0;
    for (BOOL more = HY_IDScan(candidates, TRUE, &id); more && !QuitJob(); more = HY_IDScan(candidates, FALSE, &id)) {
        if ((HY_IDIsPresent(folderTable, id) != FALSE) != removeMembers)
            continue;
        HyLNError deleted = statusOf(HY_IDDelete(table, id, nullptr));
        if (deleted.IsErrorSet()) {
            error = deleted;
            HYLN_LOG_AS("FilterDocumentsOfFolders", 0, "Error: unable to delete note: [%d] from ID table during "
                                                       "folder filtering. IDDelete(...) returned: [%d]. Resulting "
                                                       "error string is: [%s].",
                        static_cast<int>(id), error.GetErrorCode(), error.GetMessage().c_str());
            return false;
        }
    }
    return true;
}

} // namespace

HyLNError HyLNDatabase::FilterDocumentsOfFolders(std::string& folders, unsigned int& table, unsigned long mode)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    if (table == NULLHANDLE || folders.empty())
        return invalidParametersError();
    ScratchTable inFolders;
    HyLNError error = statusOf(inFolders.create(0));
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Error: unable to create a temporary document table for folder/view filtering. IDCreateTable(...) "
                    "returned: [%d]. Resulting error string: [%s].",
                 error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    // Filtering goes on without the subfolders; the status keeps the failure.
    error = AddSubFolders(folders);
    if (error.IsErrorSet())
        HYLN_LOG(0, "Error: unable to find subfolders for folder filtering.");
    if (!collectFolderDocuments(handle, folders, inFolders.handle, error))
        return error;
    // The host table changes under the walk, so the walk goes over a copy.
    ScratchTable candidates;
    HyLNError copied = statusOf(candidates.copyOf(table));
    if (copied.IsErrorSet()) {
        HYLN_LOG(0, "Error: unable to create a temporary working copy of the note table. IDTableCopy(...) returned: "
                    "[%d]. Resulting error string: [%s].",
                 copied.GetErrorCode(), copied.GetMessage().c_str());
        return copied;
    }
    bool filters = mode == KEEP_FOLDER_DOCUMENTS || mode == DROP_FOLDER_DOCUMENTS;
    if (filters && !removeByMembership(table, candidates.handle, inFolders.handle, mode == DROP_FOLDER_DOCUMENTS, error))
        return error;
    // Hosts expect this line after an including run as well: only excluding ends without it.
    if (mode != DROP_FOLDER_DOCUMENTS)
        HYLN_LOG(0, "Warning: folder filter function called without filter mode set to false.");
    candidates.destroy();
    inFolders.destroy();
    return error;
}

HyLNError HyLNDatabase::AddSubFolders(std::string& folders)
{
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    if (folders.empty())
        return invalidParametersError();
    OpenedCollection design;
    HyLNError error = statusOf(design.open(handle, DESIGN_COLLECTION, 0));
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Error: unable to open collection to get subfolders. NIFOpenCollection(...) returned: [%d]. "
                    "Resulting error string: [%s].",
                 error.GetErrorCode(), error.GetMessage().c_str());
        return error;
    }
    std::string additions;
    COLLECTIONPOSITION position{};
    position.Tumbler[0] = 1;
    WORD signals = 0;
    do {
        EntryBlock block;
        DWORD count = 0;
        error = statusOf(HY_NIFReadEntries(design.handle, &position, NAVIGATE_CURRENT, 1, NAVIGATE_NEXT, ALL_ENTRIES,
                                           ID_AND_CLASS, &block.handle, nullptr, nullptr, &count, &signals));
        if (error.IsErrorSet()) {
            HYLN_LOG(0, "Error: unable to read entries while getting subfolders. NIFReadEntries(...) returned: [%d]. "
                        "Resulting error string: [%s].",
                     error.GetErrorCode(), error.GetMessage().c_str());
            return error;
        }
        if (block.handle == NULLHANDLE || count == 0) {
            HYLN_LOG(0, "Warning: no design entries found.");
            break;
        }
        if (!block.lock()) {
            HYLN_LOG(0, "Error: OSLockObject(...) returned a NULL buffer while getting subfolders.");
            return error;
        }
        if (!addSubfoldersOfBlock(handle, block, count, folders, additions, error))
            return error;
        block.release();
    } while ((signals & SIGNAL_MORE_TO_DO) && !QuitJob());
    if (!additions.empty())
        folders += additions;
    return error;
}

// ---------------------------------------------------------------------------
// Folder reconstruction on restore
// ---------------------------------------------------------------------------

namespace {

// A folder record: the folder note's identity (its UNID in the first 16 bytes), the
// count of entries, then the entries, each beginning with a note's UNID.
const DWORD FOLDER_IDENTITY_SIZE = 28;
const DWORD FOLDER_HEADER_SIZE = FOLDER_IDENTITY_SIZE + sizeof(DWORD);

enum class RecordOutcome {
    Done,        // go on with the next record
    BufferEnds,  // the rest of the buffer does not hold a whole entry
    Failed,      // the operation ends with the status as it is
};

bool fitsIn(DWORD offset, DWORD size, DWORD length)
{
    return size <= length && offset <= length - size;
}

UNID unidAt(const char* at)
{
    UNID unid;
    std::memcpy(&unid, at, sizeof unid);
    return unid;
}

std::string timeText(const TIMEDATE& time)
{
    std::string text;
    HyLNUtilities::GetTimeString(time, text);
    return text;
}

// The folder's note ID, or 0 when it is not in this database: its notes are then
// looked up but added nowhere.
NOTEID folderNoteId(DBHANDLE db, UNID unid, HyLNError& error)
{
    NOTEID folderId = 0;
    ORIGINATORID oid{};
    TIMEDATE modified{};
    WORD noteClass = 0;
    HyLNError found = statusOf(HY_NSFDbGetNoteInfoByUNID(db, &unid, &folderId, &oid, &modified, &noteClass));
    if (!found.IsErrorSet())
        return folderId;
    error = found;
    HYLN_LOG_AS("PutNotesInFolders", 0,
                "Could not get noteID from UNID DBID=%8x:%8x Creation Time=%s for folder reconstruction - %s",
                unid.File.Innards[0], unid.File.Innards[1], timeText(unid.Note).c_str(), error.GetMessage().c_str());
    return 0;
}

// False when the note could not be put into the table: the operation ends.
bool addRestoredNote(DBHANDLE db, UNID unid, NOTEID folderId, DHANDLE notes, HyLNError& error)
{
    NOTEID noteId = 0;
    ORIGINATORID oid{};
    TIMEDATE modified{};
    WORD noteClass = 0;
    STATUS status = HY_NSFDbGetNoteInfoByUNID(db, &unid, &noteId, &oid, &modified, &noteClass);
    if (status != NOERROR) {
        error = statusOf(status);
        // Mail deleted since the backup is expected to be missing: no line for it.
        if (status != ERR_NOT_FOUND)
            HYLN_LOG_AS("PutNotesInFolders", 0,
                        "Could not get noteID from UNID DBID=%8x:%8x Creation Time=%s to insert into folder noteID %d "
                        "- %s",
                        unid.File.Innards[0], unid.File.Innards[1], timeText(unid.Note).c_str(),
                        static_cast<int>(folderId), error.GetMessage().c_str());
        return true;
    }
    HyLNError inserted = statusOf(HY_IDInsert(notes, noteId, nullptr));
    if (inserted.IsErrorSet()) {
        error = inserted;
        HYLN_LOG_AS("PutNotesInFolders", 0, "Could not insert noteID %d into IDTable for folder reconstruction - %s.",
                    static_cast<int>(noteId), error.GetMessage().c_str());
        return false;
    }
    return true;
}

void addToFolder(DBHANDLE db, NOTEID folderId, DHANDLE notes, HyLNError& error)
{
    HyLNError added = statusOf(HY_FolderDocAdd(db, NULLHANDLE, folderId, notes, 0));
    if (added.IsErrorSet()) {
        error = added;
        HYLN_LOG_AS("PutNotesInFolders", 0, "Could not add IDTable to folder note %d - %s", static_cast<int>(folderId),
                    error.GetMessage().c_str());
    }
}

// The record at `offset`, whose header the caller has found within `length`; moves
// `offset` past what it read. An entry shorter than a UNID cannot name a note, so
// with such a stride no entry fits.
RecordOutcome restoreFolderRecord(DBHANDLE db, const char* buffer, DWORD length, DWORD entrySize, DWORD& offset,
                                  HyLNError& error)
{
    const DWORD recordStart = offset;
    const UNID folderUnid = unidAt(buffer + offset);
    NOTEID folderId = folderNoteId(db, folderUnid, error);
    DWORD count = 0;
    std::memcpy(&count, buffer + offset + FOLDER_IDENTITY_SIZE, sizeof count);
    offset += FOLDER_HEADER_SIZE;
    if (count == 0)
        return RecordOutcome::Done;
    HYLN_LOG_AS("PutNotesInFolders", 2,
                "Processing folder (UNID %08x%08x:%08x%08x) info with %d items (size=%d, at offset %d/%d).",
                folderUnid.File.Innards[1], folderUnid.File.Innards[0], folderUnid.Note.Innards[1],
                folderUnid.Note.Innards[0], static_cast<int>(count), static_cast<int>(entrySize * count + 4),
                static_cast<int>(recordStart), static_cast<int>(length));
    ScratchTable notes;
    HyLNError created = statusOf(notes.create(sizeof(NOTEID)));
    if (created.IsErrorSet()) {
        error = created;
        HYLN_LOG_AS("PutNotesInFolders", 0, "Could not allocate IDTable for folder reconstruction - %s",
                    error.GetMessage().c_str());
        return RecordOutcome::Failed;
    }
    RecordOutcome outcome = RecordOutcome::Done;
    for (DWORD i = 0; i < count && offset < length; ++i) {
        if (entrySize < sizeof(UNID) || !fitsIn(offset, entrySize, length)) {
            outcome = RecordOutcome::BufferEnds;
            break;
        }
        if (!addRestoredNote(db, unidAt(buffer + offset), folderId, notes.handle, error)) {
            notes.destroy();
            return RecordOutcome::Failed;
        }
        offset += entrySize;
    }
    if (folderId != 0)
        addToFolder(db, folderId, notes.handle, error);
    notes.destroy();
    return outcome;
}

} // namespace

HyLNError HyLNDatabase::PutNotesInFolders(char* buffer, unsigned int length, const char* text)
{
    (void)text;
    if (handle == NULLHANDLE)
        return closedDatabaseError();
    const DWORD entrySize = HY_ODSLength(_UNIVERSALNOTEID);
    HyLNError error;
    DWORD offset = 0;
    RecordOutcome outcome = RecordOutcome::Done;
    while (outcome == RecordOutcome::Done && fitsIn(offset, FOLDER_HEADER_SIZE, length))
        outcome = restoreFolderRecord(handle, buffer, length, entrySize, offset, error);
    return error;
}

// ---------------------------------------------------------------------------
// Views: the design note, its collection, column titles and index lines
// ---------------------------------------------------------------------------

namespace {

const size_t kViewNameSize = 1024;
const char* const kNoViewSelected = "No View Selected";
const char* const kViewDesignFlags = "-G40n^";
const STATUS kViewOpenThrew = 0x0227;
const char* const kViewFormatItem = "$ViewFormat";
const WORD kViewFormatVersion = 1;
const BYTE kViewClassMask = 0xF0;
const size_t kColumnNameSize = 128;   // item names and titles are cut to one less
const size_t kTitleTextSize = 1024;
const size_t kTitlesLimit = 200;
const size_t kTitleReserve = 8;
const char kFieldSeparator = 0x12;

const size_t kColumnTextLimit = 80;   // raw column texts are cut to this
const size_t kTextListLimit = 79;
const size_t kNumberRangeLimit = 65;
const size_t kLineLimit = 240;
const size_t kTranslatedSize = 240;
const size_t kTimeTextSize = 80;
const size_t kTimeRangeListLimit = 56;
const size_t kTimeRangeRangeLimit = 55;
// Each conversion may add 79 bytes behind a written length below 57, plus " ; ".
const size_t kTimeRangeTextSize = 144;
const double kFractionEpsilon = 1e-6;

// Reads a buffer front to back within a known number of bytes; a read that would
// pass the end fails and leaves the position where it was, a skip stops at the end.
class BoundedReader {
public:
    BoundedReader(const unsigned char* at, size_t available) : at_(at), left_(available) {}

    bool read(void* out, size_t count)
    {
        if (count > left_)
            return false;
        std::memcpy(out, at_, count);
        skip(count);
        return true;
    }
    bool word(WORD& value) { return read(&value, sizeof value); }
    void skip(size_t count)
    {
        count = std::min(count, left_);
        at_ += count;
        left_ -= count;
    }
    const unsigned char* position() const { return at_; }

private:
    const unsigned char* at_;
    size_t left_;
};

// A column's raw text, as C text: whatever follows a zero byte is not part of it.
std::string asCText(const std::string& text) { return std::string(text.c_str()); }

void appendFormatted(std::string& text, const char* format, ...) __attribute__((format(printf, 2, 3)));
void appendFormatted(std::string& text, const char* format, ...)
{
    char buffer[512]; // "%f" of the largest double needs 317 bytes
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    text += buffer;
}

// Whole numbers print without decimals; those beyond an int keep all their digits.
void appendNumber(std::string& text, double value)
{
    double whole = std::trunc(value);
    if (!std::isfinite(value) || std::fabs(value - whole) > kFractionEpsilon)
        appendFormatted(text, "%f", value);
    else if (whole >= INT_MIN && whole <= INT_MAX)
        appendFormatted(text, "%d", static_cast<int>(whole));
    else
        appendFormatted(text, "%.0f", whole);
}

// Converts one time into out (80 bytes); a failure is logged for `function` and gives no text.
size_t writeTimeText(const char* function, const TIMEDATE& time, char* out)
{
    WORD length = 0;
    STATUS status = HY_ConvertTIMEDATEToText(nullptr, nullptr, &time, out, kTimeTextSize, &length);
    if (status != NOERROR) {
        HYLN_LOG_AS(function, -1,
                    "Error: unable to convert TIMEDATE to text. ConvertTIMEDATEToText(...) returned: [%d]. "
                    "Resulting error string: [%s].",
                    status, HyLNUtilities::GetNotesErrorMsg(status).c_str());
        length = 0;
    }
    length = std::min<WORD>(length, kTimeTextSize - 1);
    out[length] = '\0';
    return length;
}

// The list times, then " ; " and the ranges, until about 56 bytes are written. The
// reader stays behind the last time it rendered; false when a read passes its end.
bool renderTimeRange(BoundedReader& value, char* out)
{
    out[0] = '\0';
    WORD listCount = 0;
    WORD rangeCount = 0;
    if (!value.word(listCount) || !value.word(rangeCount))
        return false;
    size_t written = 0;
    for (WORD i = 0; i < listCount && written < kTimeRangeListLimit; ++i) {
        TIMEDATE time{};
        if (!value.read(&time, sizeof time))
            return false;
        if (i > 0)
            out[written++] = ',';
        written += writeTimeText("convertTimeRange", time, out + written);
    }
    if (rangeCount != 0) {
        std::memcpy(out + written, " ; ", 4);
        written += 3;
    }
    for (WORD i = 0; i < rangeCount && written < kTimeRangeListLimit; ++i) {
        BoundedReader pair = value;
        TIMEDATE_PAIR range{};
        if (!pair.read(&range.Lower, sizeof range.Lower))
            return false;
        if (i > 0)
            out[written++] = ',';
        written += writeTimeText("convertTimeRange", range.Lower, out + written);
        if (written > kTimeRangeRangeLimit)
            break;
        if (!pair.read(&range.Upper, sizeof range.Upper))
            return false;
        out[written++] = '-';
        written += writeTimeText("convertTimeRange", range.Upper, out + written);
        value = pair;
    }
    return true;
}

// What one index entry carries besides its summary, for resolving special text.
struct IndexEntry {
    NOTEID noteId;
    COLLECTIONPOSITION* position;
    INDEXSPECIALINFO* specialInfo;
};

bool renderNumberRange(BoundedReader& data, std::string& text)
{
    WORD listCount = 0;
    WORD rangeCount = 0;
    if (!data.word(listCount) || !data.word(rangeCount))
        return false;
    for (WORD i = 0; i < listCount && text.size() <= kNumberRangeLimit; ++i) {
        NUMBER number = 0;
        if (!data.read(&number, sizeof number))
            return false;
        appendFormatted(text, "%f", number);
    }
    for (WORD i = 0; i < rangeCount && text.size() <= kNumberRangeLimit; ++i) {
        NUMBER pair[2] = {};
        if (!data.read(pair, sizeof pair))
            return false;
        appendFormatted(text, "%f - %f", pair[0], pair[1]);
    }
    return true;
}

// Each text and a blank, while the text stays within 79 bytes; the reader stops
// behind the last text taken.
bool renderTextList(BoundedReader& data, std::string& text)
{
    WORD count = 0;
    if (!data.word(count))
        return false;
    std::vector<WORD> lengths(count);
    for (WORD& length : lengths)
        if (!data.word(length))
            return false;
    for (WORD length : lengths) {
        if (text.size() + length > kTextListLimit)
            break;
        std::string entry(length, '\0');
        if (!data.read(&entry[0], length))
            return false;
        text += entry;
        text += ' ';
    }
    return true;
}

bool renderText(BoundedReader& data, size_t dataLength, const IndexEntry& entry, std::string& text)
{
    char raw[kColumnTextLimit] = {};
    WORD rawLength = static_cast<WORD>(std::min(dataLength, kColumnTextLimit));
    if (!data.read(raw, rawLength))
        return false;
    data.skip(dataLength - rawLength);
    char resolved[kColumnTextLimit] = {};
    WORD length = 0;
    STATUS status = HY_NSFTranslateSpecial(raw, rawLength, resolved, kColumnTextLimit, entry.noteId, entry.position,
                                           entry.specialInfo, NULLHANDLE, NULLHANDLE, nullptr, nullptr, &length);
    if (status != NOERROR) {
        HYLN_LOG_AS("AddEntryToNoteIndex", -1,
                    "Error: unable to convert TYPE_TEXT to text. NSFTranslateSpecial(...) returned: [%d]. "
                    "Resulting error string: [%s].",
                    status, HyLNUtilities::GetNotesErrorMsg(status).c_str());
        return true;
    }
    text.assign(resolved, std::min<size_t>(length, kColumnTextLimit));
    return true;
}

// The raw text of one value (type word first); false when a read passes the summary's end.
bool renderValue(BoundedReader& data, WORD valueLength, const IndexEntry& entry, std::string& text)
{
    WORD type = 0;
    if (!data.word(type))
        return false;
    size_t dataLength = valueLength > sizeof type ? valueLength - sizeof type : 0;
    switch (type) {
    case TYPE_NUMBER: {
        NUMBER number = 0;
        if (!data.read(&number, sizeof number))
            return false;
        appendNumber(text, number);
        return true;
    }
    case TYPE_NUMBER_RANGE:
        return renderNumberRange(data, text);
    case TYPE_TIME: {
        TIMEDATE time{};
        if (!data.read(&time, sizeof time))
            return false;
        char buffer[kTimeTextSize];
        writeTimeText("AddEntryToNoteIndex", time, buffer);
        text = buffer;
        return true;
    }
    case TYPE_TIME_RANGE: {
        char buffer[kTimeRangeTextSize];
        bool complete = renderTimeRange(data, buffer);
        text = buffer;
        return complete;
    }
    case TYPE_TEXT:
        return renderText(data, dataLength, entry, text);
    case TYPE_TEXT_LIST:
        return renderTextList(data, text);
    default:
        data.skip(dataLength);
        return true;
    }
}

// The index line under construction in the caller's buffer.
class IndexLine {
public:
    IndexLine(char* buffer, NOTEID noteId) : buffer_(buffer)
    {
        length_ = static_cast<size_t>(std::sprintf(buffer_, "%08x%c", noteId, kFieldSeparator));
    }
    bool wouldPassLimit(size_t textLength) const { return length_ + textLength > kLineLimit; }
    void appendField(const char* text)
    {
        size_t textLength = std::strlen(text);
        std::memcpy(buffer_ + length_, text, textLength);
        length_ += textLength;
        buffer_[length_++] = kFieldSeparator;
        buffer_[length_] = '\0';
    }

private:
    char* buffer_;
    size_t length_;
};

// The column text as the host reads it: UTF-8 when the translation works, then blanked
// of unsafe characters. `out` holds kTranslatedSize bytes.
void translateColumnText(const std::string& text, char* out)
{
    std::memset(out, 0, kTranslatedSize);
    if (text.empty())
        return;
    WORD length = HyLNUtilities::NotesTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, text.c_str(),
                                                static_cast<WORD>(text.size()), out, kTranslatedSize);
    if (length == 0) {
        HYLN_LOG_AS("AddEntryToNoteIndex", -1, "OSTranslate failed on column string: %s", text.c_str());
        std::snprintf(out, kTranslatedSize, "%s", text.c_str());
    } else {
        out[std::min<size_t>(length, kTranslatedSize - 1)] = '\0';
    }
    HyLNUtilities::NormalizeText(out);
}

bool isBlankedColumn(unsigned short flags, NOTEID noteId)
{
    return (isCategory(flags) && (noteId & NOTEID_CATEGORY) == 0) || isResponse(flags);
}

} // namespace

bool isCategory(int flags) { return (flags & 0x0002) != 0; }

bool isIcon(int flags) { return (flags & 0x0040) != 0; }

bool isResponse(int flags) { return (flags & 0x0010) != 0; }

bool isHidden(int flags) { return (flags & 0x0008) != 0 || isCategory(flags) || isIcon(flags) || isResponse(flags); }

unsigned char* convertTimeRange(unsigned char* value, char* out)
{
    BoundedReader reader(value, SIZE_MAX);
    renderTimeRange(reader, out);
    return const_cast<unsigned char*>(reader.position());
}

HyLNView::HyLNView(HyLNDatabase& db, std::string name)
    : viewName(std::move(name)), dbName(db.GetName()), dbHandle(db.GetHandle()),
      columnIndex(new std::map<std::string, unsigned short>())
{
}

HyLNView::HyLNView(HyLNDatabase& db, unsigned int viewNoteId)
    : noteId(viewNoteId), dbName(db.GetName()), dbHandle(db.GetHandle()),
      columnIndex(new std::map<std::string, unsigned short>())
{
}

HyLNView::~HyLNView()
{
    // Closes even a note that was never opened; an exception leaving here would end the host.
    try {
        Close();
    } catch (...) {
    }
    delete columnIndex;
}

// The search name is the alias behind the last '|' when the view name has one.
HyLNError HyLNView::FindID(unsigned int& foundId)
{
    HyLNError error;
    if (viewName.empty() || dbHandle == NULLHANDLE) {
        error.SetCustomMessage(std::string("Invalid view name or database handle."));
        return error;
    }
    foundId = 0xFFFFFFFF;
    char name[kViewNameSize + 1] = {};
    WORD length = HyLNUtilities::NotesTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, viewName.c_str(),
                                                static_cast<WORD>(viewName.size()), name, kViewNameSize);
    if (length == 0) {
        HYLN_LOG(0, "OSTranslate failed on default view name: %s", viewName.c_str());
        std::snprintf(name, sizeof name, "%s", viewName.c_str());
    } else {
        name[std::min<size_t>(length, kViewNameSize)] = '\0';
    }
    if (name[0] == '\0' || std::strcmp(name, kNoViewSelected) == 0) {
        error.SetCustomMessage(std::string("Default view is NO VIEW SELECTED"));
        return error;
    }
    const char* searchName = name;
    if (const char* bar = std::strrchr(name, '|')) {
        searchName = bar + 1;
        while (*searchName == ' ')
            ++searchName;
    }
    HYLN_LOG(3, "Locating default view ..");
    NOTEID found = 0;
    error.SetError(HY_NIFFindDesignNoteExt(dbHandle, searchName, NOTE_CLASS_VIEW, kViewDesignFlags, &found, 0));
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Could not find view %s in database %s", searchName, dbName.c_str());
        return error;
    }
    noteId = found;
    foundId = found;
    return error;
}

HyLNError HyLNView::Open(unsigned short flags)
{
    HyLNError error;
    try {
        STATUS status = HY_NSFNoteOpen(dbHandle, noteId, flags, &noteHandle);
        if (status != NOERROR) {
            error.SetError(status);
            HYLN_LOG(0, "Error: unable to open view: [%08x]. NSFNoteOpen(...) returned: %d - %s", noteId, status,
                     error.GetMessage().c_str());
        }
    } catch (...) {
        HYLN_LOG(0, "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteOpen(...)].");
        error.SetError(kViewOpenThrew);
    }
    return error;
}

// The handle keeps its value: callers never reuse a closed view note.
HyLNError HyLNView::Close()
{
    HyLNError error = statusOf(HY_NSFNoteClose(noteHandle));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Unable to close view");
    return error;
}

// The last character of the name is left out of the lookup; callers allow for it.
HyLNError HyLNView::GetItemInfo(std::string itemName, unsigned short& dataType, BLOCKID& valueBlock,
                                unsigned int& valueLength)
{
    HyLNError error;
    if (noteHandle == NULLHANDLE) {
        error.SetCustomMessage(std::string("Invalid view handle."));
        return error;
    }
    WORD nameLength = static_cast<WORD>(itemName.empty() ? 0 : itemName.size() - 1);
    error.SetError(HY_NSFItemInfo(noteHandle, itemName.c_str(), nameLength, nullptr, &dataType, &valueBlock,
                                  &valueLength));
    if (error.IsErrorSet())
        HYLN_LOG(0, "Cannot get view format information for note 0x%x - %s", noteId, error.GetMessage().c_str());
    return error;
}

HyLNError HyLNView::OpenCollection(unsigned short openFlags, unsigned int unreadList, unsigned short* collection,
                                   unsigned int* viewNote, UNIVERSALNOTEID* viewUnid, unsigned int* collapsedList,
                                   unsigned int* selectedList)
{
    HyLNError error;
    if (dbHandle == NULLHANDLE || noteId == 0) {
        HYLN_LOG(-1, "Error: Invalid Database Handle");
        error.SetCustomMessage(std::string("Invalid database handle or viewId."));
        return error;
    }
    STATUS status = HY_NIFOpenCollection(dbHandle, dbHandle, noteId, openFlags, unreadList, collection, viewNote,
                                         viewUnid, collapsedList, selectedList);
    error.SetError(status);
    if (!error.IsErrorSet())
        return error;
    if (ERR(status) == ERR_NOTE_DELETED)
        HYLN_LOG(-1, "Error: Document has been deleted");
    else if (ERR(status) == ERR_ITEM_NOT_FOUND)
        HYLN_LOG(-1, "Error: Note item not found");
    else
        HYLN_LOG(-1, "Error: Failed to Open view Collection for db %s viewid %lu, NIFOpenCollection Returned... %d - %s",
                 dbName.c_str(), static_cast<unsigned long>(noteId), status, error.GetMessage().c_str());
    return error;
}

HyLNError HyLNView::ReadColection(unsigned short* collection, COLLECTIONPOSITION* position,
                                  unsigned short skipNavigator, unsigned int skipCount, unsigned short returnNavigator,
                                  unsigned int returnCount, unsigned int returnMask, unsigned int* buffer,
                                  unsigned short* bufferLength, unsigned int* skipped, unsigned int* returned,
                                  unsigned short* signalFlags)
{
    HyLNError error;
    if (collection == nullptr) {
        HYLN_LOG(-1, "Invalid view colelction handle passed in");
        error.SetCustomMessage(std::string("ReadColection() called with Invalid view colelction handle."));
        return error;
    }
    STATUS status = HY_NIFReadEntries(*collection, position, skipNavigator, skipCount, returnNavigator, returnCount,
                                      returnMask, buffer, bufferLength, skipped, returned, signalFlags);
    error.SetError(status);
    if (error.IsErrorSet())
        HYLN_LOG(-1, "Cannot read entries in view [%s] error: %d - %s.", viewName.c_str(), status,
                 error.GetMessage().c_str());
    return error;
}

// The caller's handle keeps its value.
HyLNError HyLNView::CloseCollection(unsigned short& collection)
{
    HyLNError error = statusOf(HY_NIFCloseCollection(collection));
    if (error.IsErrorSet())
        HYLN_LOG(-1, "Error: Failed to close view collection. NIFCloseCollection(...) returned %d - %s",
                 error.GetErrorCode(), error.GetMessage().c_str());
    return error;
}

namespace {

// Where a $ViewFormat value lies once locked (behind its type word).
struct ViewFormatValue {
    const char* data;
    size_t size;
};

// A packed item name or title, cut to 127 bytes; false when it passes the value's end.
bool readPackedText(const ViewFormatValue& value, size_t offset, WORD size, std::string& text)
{
    size_t length = std::min<size_t>(size, kColumnNameSize - 1);
    if (offset > value.size || length > value.size - offset)
        return false;
    text = asCText(std::string(value.data + offset, length));
    return true;
}

// The title as the host shows it: UTF-8 when the translation works, then blanked of unsafe characters.
std::string shownTitle(const std::string& title)
{
    char buffer[kTitleTextSize + 1] = {};
    if (!title.empty()) {
        WORD length = HyLNUtilities::NotesTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, title.c_str(),
                                                    static_cast<WORD>(title.size()), buffer, kTitleTextSize);
        if (length == 0) {
            HYLN_LOG_AS("GetCoulmnTitles", 0, "OSTranslate failed on view title column: %s", title.c_str());
            std::snprintf(buffer, sizeof buffer, "%s", title.c_str());
        } else {
            buffer[std::min<size_t>(length, kTitleTextSize)] = '\0';
        }
    }
    HyLNUtilities::NormalizeText(buffer);
    return buffer;
}

// Collects the visible titles and enters every column read into `index`. Reading stops
// at the end of the value, or once the titles would pass 200 bytes. False when the format
// version is not one this code reads.
bool readColumnTitles(const ViewFormatValue& value, NOTEID noteId, std::map<std::string, unsigned short>& index,
                      std::string& titles, unsigned int& count)
{
    const char* at = value.data;
    VIEW_FORMAT_HEADER header{};
    if (value.size < HY_ODSLength(_VIEW_FORMAT_HEADER))
        return true;
    HY_ODSReadMemory(&at, _VIEW_FORMAT_HEADER, &header, 1);
    if (header.Version != kViewFormatVersion) {
        HYLN_LOG_AS("GetCoulmnTitles", 0, "View information format version for note %d is incompatible - %d", noteId,
                    header.Version);
        return false;
    }
    const size_t tableSize = HY_ODSLength(_VIEW_TABLE_FORMAT);
    if ((header.ViewStyle & kViewClassMask) != 0 || value.size < tableSize)
        return true;
    // The table format starts with the header just checked.
    VIEW_TABLE_FORMAT table{};
    at = value.data;
    HY_ODSReadMemory(&at, _VIEW_TABLE_FORMAT, &table, 1);
    const size_t columnSize = HY_ODSLength(_VIEW_COLUMN_FORMAT);
    size_t descriptor = tableSize;
    size_t packed = tableSize + table.Columns * columnSize;
    for (WORD i = 0; i < table.Columns; ++i, descriptor += columnSize) {
        if (descriptor + columnSize > value.size)
            break;
        VIEW_COLUMN_FORMAT column{};
        at = value.data + descriptor;
        HY_ODSReadMemory(&at, _VIEW_COLUMN_FORMAT, &column, 1);
        std::string name;
        std::string title;
        if (!readPackedText(value, packed, column.ItemNameSize, name) ||
            !readPackedText(value, packed + column.ItemNameSize, column.TitleSize, title))
            break;
        packed += size_t(column.ItemNameSize) + column.TitleSize + column.FormulaSize + column.ConstantValueSize;
        if (title.size() + titles.size() + kTitleReserve > kTitlesLimit)
            break;
        index.emplace(name, column.Flags1);
        if (isHidden(column.Flags1) || name == "$ThreadsEmbed")
            continue;
        titles += kFieldSeparator;
        titles += shownTitle(title);
        ++count;
    }
    return true;
}

// The first 127 bytes of an item name; the reader goes on behind the whole name.
bool readItemName(BoundedReader& data, WORD nameLength, std::string& name)
{
    size_t kept = std::min<size_t>(nameLength, kColumnNameSize - 1);
    name.assign(kept, '\0');
    if (!data.read(&name[0], kept))
        return false;
    data.skip(nameLength - kept);
    name = asCText(name);
    return true;
}

} // namespace

// Leaves the view note open: the caller's later item reads use it.
HyLNError HyLNView::GetCoulmnTitles(std::string* titles)
{
    HYLN_LOG(3, "Getting view title info ..");
    HyLNError error = Open(0);
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Cannot open view note 0x%x - %s", noteId, error.GetMessage().c_str());
        return error;
    }
    WORD dataType = 0;
    BLOCKID valueBlock{};
    DWORD valueLength = 0;
    error.SetError(HY_NSFItemInfo(noteHandle, kViewFormatItem, static_cast<WORD>(std::strlen(kViewFormatItem)), nullptr,
                                  &dataType, &valueBlock, &valueLength));
    if (!error.IsErrorSet() && dataType != TYPE_VIEW_FORMAT)
        error.SetCustomMessage(std::string("Not a View Type Format"));
    if (error.IsErrorSet()) {
        HYLN_LOG(0, "Cannot get view format information for note 0x%x - %s", noteId, error.GetMessage().c_str());
        return error;
    }
    const char* locked = static_cast<const char*>(HY_OSLockObject(valueBlock.pool));
    ViewFormatValue value{nullptr, 0};
    if (locked != nullptr && valueLength > sizeof(WORD))
        value = {locked + valueBlock.block + sizeof(WORD), valueLength - sizeof(WORD)};
    std::string text;
    unsigned int count = 0;
    bool readable = readColumnTitles(value, noteId, *columnIndex, text, count);
    HY_OSUnlockObject(valueBlock.pool);
    if (!readable)
        return error;
    columnTitles = text;
    if (titles != nullptr)
        *titles = text;
    columnCount = count;
    return error;
}

int HyLNView::AddEntryToNoteIndex(char* line, unsigned char* summary, unsigned int entryNoteId,
                                  INDEXSPECIALINFO specialInfo, COLLECTIONPOSITION position, unsigned short)
{
    IndexLine out(line, entryNoteId);
    WORD tableLength = 0;
    std::memcpy(&tableLength, summary, sizeof tableLength);
    BoundedReader table(summary, tableLength);
    table.skip(sizeof tableLength);
    WORD itemCount = 0;
    if (!table.word(itemCount))
        return 0;
    BoundedReader descriptors = table;
    BoundedReader data = table;
    data.skip(size_t(itemCount) * sizeof(ITEM));
    const IndexEntry entry{entryNoteId, &position, &specialInfo};
    for (WORD i = 0; i < itemCount; ++i) {
        ITEM item{};
        std::string name;
        if (!descriptors.read(&item, sizeof item) || !readItemName(data, item.NameLength, name))
            return 0;
        auto column = columnIndex->find(name);
        const unsigned short flags = column != columnIndex->end() ? column->second : 0;
        std::string text;
        if (item.ValueLength != 0 && !renderValue(data, item.ValueLength, entry, text))
            return 0;
        text = asCText(text);
        if (isBlankedColumn(flags, entryNoteId))
            text.clear();
        if (text.size() > kColumnTextLimit)
            text.resize(kColumnTextLimit);
        if (out.wouldPassLimit(text.size()))
            return 0;
        if (isHidden(flags))
            continue;
        char shown[kTranslatedSize];
        translateColumnText(text, shown);
        out.appendField(shown);
    }
    return 0;
}
