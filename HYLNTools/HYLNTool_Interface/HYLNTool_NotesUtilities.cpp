#include "HYLNTool_NotesUtilities.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "HYLNTool_HostInterface.h"
#include "HYLNTool_Log.h"

namespace {

const unsigned short kNullDbHandleStatus = 4996;
const unsigned short kMaxTimeText = 80;
const unsigned short kEnvironmentValueLength = 256;
const unsigned short kSummaryValueLength = 1024;
const unsigned short kOdsObjectDescriptor = 27;
// The object descriptor of an object item follows the item's 2-byte data type.
const size_t kObjectItemTypeLength = 2;

HyLNError buildNetworkPath(const char* function, const std::string& server, const std::string& file,
                           std::string& path, bool useServer)
{
    HyLNError status;
    char buffer[1024] = {};
    STATUS result = HY_OSPathNetConstruct(nullptr, useServer ? server.c_str() : nullptr, file.c_str(), buffer);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG_AS(function, 0, "database %s, error (%d) %s", file.c_str(), result, status.GetMessage().c_str());
        return status;
    }
    path = buffer;
    return status;
}

} // namespace

HyLNUtilities::HyLNUtilities() : computeHandle(nullptr), formulaHandle(NULLHANDLE) {}

HyLNUtilities::~HyLNUtilities() {}

// ---- Note-size formula ----

HyLNError HyLNUtilities::InitializeFormulaComputation()
{
    HyLNError status;
    // Also after a shutdown or a failed start: the handles are never reset.
    if (computeHandle != nullptr || formulaHandle != NULLHANDLE) {
        status.SetCustomMessage(std::string("Formula already initialized"));
        return status;
    }
    static const char kSizeFormula[] = "@DocLength";
    WORD formulaLength = 0;
    WORD ignored = 0; // every compile-error detail lands here and is not read
    STATUS result = HY_NSFFormulaCompile(nullptr, 0, kSizeFormula, sizeof kSizeFormula - 1, &formulaHandle,
                                         &formulaLength, &ignored, &ignored, &ignored, &ignored, &ignored);
    if (result != NOERROR) {
        status.SetError(result);
        return status;
    }
    void* formula = HY_OSLockObject(formulaHandle);
    result = HY_NSFComputeStart(0, formula, &computeHandle);
    if (result != NOERROR) {
        status.SetError(result);
        HY_OSUnlockObject(formulaHandle);
        HY_OSMemFree(formulaHandle);
    }
    // On success the formula stays locked for as long as the computation runs.
    return status;
}

HyLNError HyLNUtilities::ShutdownFormulaComputation()
{
    HyLNError status;
    if (computeHandle == nullptr || formulaHandle == NULLHANDLE) {
        status.SetCustomMessage(std::string("Note Size Formula is not initialized"));
        return status;
    }
    HY_OSUnlockObject(formulaHandle);
    HY_OSMemFree(formulaHandle);
    status.SetError(HY_NSFComputeStop(computeHandle));
    return status;
}

HCOMPUTE HyLNUtilities::GetSizeFormulaHandle()
{
    return computeHandle;
}

std::string HyLNUtilities::GetNotesErrorMsg(unsigned short code)
{
    char buffer[1024] = {};
    WORD length = 0;
    // A failed load may leave the table without OSLoadString; such a code then has no text.
    if (HY_OSLoadString != nullptr)
        length = HY_OSLoadString(NULLHANDLE, ERR(code), buffer, sizeof buffer - 1);
    if (length == 0) {
        HYLN_LOG(0, "Failed to fetch Notes Error Message, errorCode %d", code);
        return std::string();
    }
    return buffer;
}

// ---- Time and date ----

HyLNError HyLNUtilities::GetTimeDate(std::string text, TIMEDATE& value)
{
    HyLNError status;
    TIMEDATE converted = {};
    char* cursor = text.data();
    STATUS result = HY_ConvertTextToTIMEDATE(nullptr, nullptr, &cursor, static_cast<WORD>(text.size()), &converted);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG(0, "Failed to convert time string %s to TIMEDATE format. error (%d) %s", text.c_str(), result,
                 status.GetMessage().c_str());
        return status;
    }
    value = converted;
    return status;
}

HyLNError HyLNUtilities::GetTimeString(TIMEDATE value, std::string& text)
{
    HyLNError status;
    char buffer[kMaxTimeText + 1] = {};
    WORD length = 0;
    STATUS result = HY_ConvertTIMEDATEToText(nullptr, nullptr, &value, buffer, kMaxTimeText, &length);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG(0, "failed to convert TimeDate to Text error - (%d) %s", result, status.GetMessage().c_str());
        return status;
    }
    buffer[length < kMaxTimeText ? length : kMaxTimeText] = '\0';
    text = buffer;
    return status;
}

void HyLNUtilities::GetIntlDateTimeFormat(INTLFORMAT* format) { HY_OSGetIntlSettings(format, sizeof(INTLFORMAT)); }

void HyLNUtilities::GetTimeDate(unsigned short constant, TIMEDATE* value) { HY_TimeConstant(constant, value); }

void HyLNUtilities::GetDominoTimeZone(int* zone, int* daylightSaving) { HY_OSCurrentTimeZone(zone, daylightSaving); }

int HyLNUtilities::GetTimeLocalToGM(TIME* time) { return HY_TimeLocalToGM(time); }

unsigned int HyLNUtilities::ExtractJulianDate(const TIMEDATE* value) { return HY_TimeExtractJulianDate(value); }

void HyLNUtilities::GetCurrentTimeDate(TIMEDATE* value) { HY_OSCurrentTIMEDATE(value); }

long HyLNUtilities::GetTimeDateDifference(const TIMEDATE* later, const TIMEDATE* earlier)
{
    return HY_TimeDateDifference(later, earlier);
}

int HyLNUtilities::CompareTimeDate(TIMEDATE* first, TIMEDATE* second) { return HY_TimeDateCompare(first, second); }

// ---- Text, settings and translation ----

char* HyLNUtilities::StrLwr(char* text)
{
    for (char* c = text; *c != '\0'; ++c)
        if (isupper(static_cast<unsigned char>(*c)))
            *c = static_cast<char>(tolower(static_cast<unsigned char>(*c)));
    return text;
}

long HyLNUtilities::GetNotesINIvarLong(const char* name) { return HY_OSGetEnvironmentLong(name); }

int HyLNUtilities::GetNotesINIvarString(const char* name, char* value)
{
    // The length counts the characters the runtime may write before its terminator.
    return HY_OSGetEnvironmentString(name, value, kEnvironmentValueLength - 1);
}

unsigned short HyLNUtilities::NotesTranslate(unsigned short mode, const char* in, unsigned short inLength, char* out,
                                             unsigned short outLength)
{
    return HY_OSTranslate(mode, in, inLength, out, outLength);
}

bool HyLNUtilities::ConvertUtf8ToNative(char* in, char* out, int size)
{
    std::vector<char> lmbcs(size + 1, '\0');
    WORD outLength = static_cast<WORD>(size);
    if (NotesTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, in, static_cast<WORD>(strlen(in)), lmbcs.data(), outLength) == 0)
        return false;
    return NotesTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs.data(), static_cast<WORD>(strlen(lmbcs.data())), out,
                          outLength) != 0;
}

// Index texts become fields of host records and parts of file names, so the field
// separators, control bytes and characters a path cannot hold are blanked.
void HyLNUtilities::NormalizeText(char* text)
{
    if (text == nullptr)
        return;
    static const char kUnsafe[] = "\\/:*?\"<>|%";
    for (char* at = text; *at != '\0'; ++at) {
        unsigned char byte = static_cast<unsigned char>(*at);
        if (byte < 32 || byte == 255 || std::strchr(kUnsafe, byte) != nullptr)
            *at = ' ';
    }
}

// ---- Runtime memory and ODS records ----

HyLNError HyLNUtilities::AllocMem(unsigned short type, unsigned int size, unsigned int& handle)
{
    HyLNError status;
    STATUS result = HY_OSMemAlloc(type, size, &handle);
    if (result != NOERROR)
        status.SetError(result);
    return status;
}

HyLNError HyLNUtilities::FreeMem(unsigned int handle)
{
    HyLNError status;
    STATUS result = HY_OSMemFree(handle);
    if (result != NOERROR)
        status.SetError(result);
    return status;
}

void HyLNUtilities::CopyObject(unsigned int handle, unsigned short*, const void* source, unsigned int,
                               unsigned short count)
{
    void* target = HY_OSLockObject(handle);
    HY_ODSWriteMemory(&target, kOdsObjectDescriptor, &source, count);
    HY_OSUnlockObject(handle);
}

// The element type is the host's way of naming the call; the copy is byte-wise.
template <typename T>
void HyLNUtilities::CopyBlock(void*, const void* source, unsigned int length, BLOCKID& block)
{
    block.block = 0;
    void* target = HY_OSLockObject(block.pool);
    memcpy(target, source, length);
    HY_OSUnlockObject(block.pool);
}
template void HyLNUtilities::CopyBlock<unsigned short>(void*, const void*, unsigned int, BLOCKID&);

unsigned short HyLNUtilities::GetDSLength(unsigned short odsType) { return HY_ODSLength(odsType); }

void HyLNUtilities::ConvertODToCanonical(void** record, unsigned int value)
{
    OBJECT_DESCRIPTOR descriptor;
    char* cursor = static_cast<char*>(*record) + kObjectItemTypeLength;
    HY_ODSReadMemory(&cursor, kOdsObjectDescriptor, &descriptor, 1);
    descriptor.RRV = value;
    cursor = static_cast<char*>(*record) + kObjectItemTypeLength;
    HY_ODSWriteMemory(&cursor, kOdsObjectDescriptor, &descriptor, 1);
}

// Hook for reporting the runtime library's file time and version; nothing is reported.
void HyLNUtilities::DumpFileTimeAndVer(const char*, int) {}

// ---- ID tables ----

HyLNError HyLNUtilities::DeleteID(unsigned int table, unsigned int id, int* found)
{
    HyLNError status;
    STATUS result = HY_IDDelete(table, id, found);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG(0, "Failed to delete id %lu from idtable. error: %d - %s", static_cast<unsigned long>(id), result,
                 status.GetMessage().c_str());
    }
    return status;
}

HyLNError HyLNUtilities::MemFreeTable(unsigned int& table)
{
    HyLNError status;
    STATUS result = HY_IDDestroyTable(table);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG(0, "Unalbe to destroy ID table. error %d - %s", result, status.GetMessage().c_str());
    }
    return status;
}

unsigned int HyLNUtilities::CountTableEntries(unsigned int& table) { return HY_IDEntries(table); }

unsigned short HyLNUtilities::CreateTable(unsigned int alignment, unsigned int* table)
{
    return HY_IDCreateTable(alignment, table);
}

unsigned short HyLNUtilities::InsertIntoTable(unsigned int table, unsigned int id, int* inserted)
{
    return HY_IDInsert(table, id, inserted);
}

// ---- Database objects and summary buffers ----

HyLNError HyLNUtilities::DBGetObjectDetails(unsigned int db, OBJECT_DESCRIPTOR& object, unsigned int* size,
                                            unsigned short* objectClass, unsigned short* privileges)
{
    HyLNError status;
    if (db == NULLHANDLE) {
        status.SetError(kNullDbHandleStatus);
        return status;
    }
    STATUS result = HY_NSFDbGetObjectSize(db, object.RRV, object.ObjectType, size, objectClass, privileges);
    // Only the code is kept: callers test the code, not IsErrorSet().
    if (result != NOERROR)
        status.SetErrorCode(result);
    return status;
}

int HyLNUtilities::GetSummaryValue(const void* summary, const char* name, std::string& value)
{
    char buffer[kSummaryValueLength] = {};
    BOOL found = HY_NSFGetSummaryValue(summary, name, buffer, kSummaryValueLength);
    value.assign(buffer, strnlen(buffer, sizeof buffer));
    return found;
}

int HyLNUtilities::LocateSummaryValue(const void* summary, const char* name, void* value, unsigned short* length,
                                      unsigned short* type)
{
    return HY_NSFLocateSummaryValue(summary, name, static_cast<void**>(value), length, type);
}

// ---- Network paths and directory handles ----

HyLNError HyLNUtilities::MakeNetworkPath(std::string server, std::string file, std::string& path, bool useServer)
{
    return buildNetworkPath(__func__, server, file, path, useServer);
}

HyLNError HyLNUtilities::MakeProxyPath(std::string server, std::string file, std::string& path, bool useServer)
{
    return buildNetworkPath(__func__, server, file, path, useServer);
}

HyLNError HyLNUtilities::OpenDirectory(std::string directory, unsigned int& handle)
{
    HyLNError status;
    if (directory.empty())
        return status;
    DBHANDLE opened = NULLHANDLE;
    STATUS result = HY_NSFDbOpen(directory.c_str(), &opened);
    if (result != NOERROR)
        status.SetError(result);
    else
        handle = opened;
    return status;
}

HyLNError HyLNUtilities::CloseDirectory(unsigned int& handle)
{
    HyLNError status;
    STATUS result = HY_NSFDbClose(handle);
    if (result != NOERROR)
        status.SetError(result);
    return status;
}

// ---- Transaction-log archiving ----

namespace {

HyLNError archivingStatus(STATUS result)
{
    HyLNError status;
    if (result != NOERROR)
        status.SetError(result);
    return status;
}

// The extent walk and the style read share one failure line, word for word.
HyLNError logStatus(const char* function, STATUS result)
{
    HyLNError status = archivingStatus(result);
    if (result != NOERROR)
        HYLN_LOG_AS(function, 0, "error in getting trnasactional log style error %s", status.GetMessage().c_str());
    return status;
}

} // namespace

HyLNError HyLNUtilities::beginArchivinglogs() { return archivingStatus(HY_NSFBeginArchivingLogs()); }

HyLNError HyLNUtilities::endArchivinglogs() { return archivingStatus(HY_NSFEndArchivingLogs()); }

// The end of the walk comes back as a failure like any other; the host tells them apart by the code.
HyLNError HyLNUtilities::getTransactionExtent(UNIVERSALNOTEID& logId, unsigned int& logNumber, char* logPath,
                                             bool first)
{
    STATUS result = first ? HY_NSFGetFirstLogToArchive(&logId, &logNumber, logPath)
                          : HY_NSFGetNextLogToArchive(&logId, &logNumber, logPath);
    return logStatus(__func__, result);
}

HyLNError HyLNUtilities::getTransLogStyle(unsigned short& style)
{
    return logStatus(__func__, HY_NSFGetTransLogStyle(&style));
}

// ---- Archiving records ----

DbMigrateCriteria HyLNUtilities::getMigrateCriteria(std::string)
{
    return DbMigrateCriteria();
}

ATTACHMENT::ATTACHMENT() : CreationTime(), ModifiedTime(), Size(0), Reserved(0) {}

ATTACHMENT::ATTACHMENT(const ATTACHMENT& other)
    : CreationTime(other.CreationTime), ModifiedTime(other.ModifiedTime), Size(other.Size), Name(other.Name),
      Reserved(other.Reserved)
{
}

ATTACHMENT::~ATTACHMENT() {}

ATTACHMENT& ATTACHMENT::operator=(const ATTACHMENT& other)
{
    CreationTime = other.CreationTime;
    ModifiedTime = other.ModifiedTime;
    Size = other.Size;
    Name = other.Name;
    Reserved = other.Reserved;
    return *this;
}

bool ATTACHMENT::operator==(ATTACHMENT other)
{
    return HY_TimeDateCompare(&CreationTime, &other.CreationTime) == 0 &&
           HY_TimeDateCompare(&ModifiedTime, &other.ModifiedTime) == 0 && Size == other.Size && Name == other.Name &&
           Reserved == other.Reserved;
}

DbMigrateCriteria::DbMigrateCriteria()
    : CreationTime(), ModifiedTime(), LastAccessedTime(), MessageBodySize(0), AttachmentSize(0), AttachmentNumbers(0)
{
}

DbMigrateCriteria::~DbMigrateCriteria() {}

DbMigrateCriteria& DbMigrateCriteria::operator=(DbMigrateCriteria& other)
{
    CreationTime = other.CreationTime;
    ModifiedTime = other.ModifiedTime;
    LastAccessedTime = other.LastAccessedTime;
    MessageBodySize = other.MessageBodySize;
    size_t count = other.Attachments.size();
    Attachments.clear();
    for (size_t i = 0; i < count; ++i)
        Attachments.push_back(other.Attachments.at(i));
    AttachmentSize = other.AttachmentSize;
    AttachmentNumbers = other.AttachmentNumbers;
    return *this;
}

bool DbMigrateCriteria::operator==(DbMigrateCriteria other)
{
    return HY_TimeDateCompare(&CreationTime, &other.CreationTime) == 0 &&
           HY_TimeDateCompare(&ModifiedTime, &other.ModifiedTime) == 0 &&
           HY_TimeDateCompare(&LastAccessedTime, &other.LastAccessedTime) == 0 &&
           MessageBodySize == other.MessageBodySize && AttachmentSize == other.AttachmentSize &&
           AttachmentNumbers == other.AttachmentNumbers;
}

void DbMigrateCriteria::dumpMigrationCriteria()
{
    std::string created;
    HyLNUtilities::GetTimeString(CreationTime, created);
    HYLN_LOG(0, "CreationTime = %s", created.c_str());
    std::string modified;
    HyLNUtilities::GetTimeString(ModifiedTime, modified);
    HYLN_LOG(0, "ModifiedTime = %s", modified.c_str());
    HYLN_LOG(0, "MessageBodySize = %d", MessageBodySize);
    HYLN_LOG(0, "AttachmentSize = %d", AttachmentSize);
    HYLN_LOG(0, "AttachmentNumbers = %d", AttachmentNumbers);
}

// ---------------------------------------------------------------------------
// Mailbox discovery
// ---------------------------------------------------------------------------

namespace {

const char kPeopleNameSpace[] = "$PEOPLE";
// Two NUL-terminated item names back to back; item 0 is always MailFile.
const char kMailFileAndFullName[] = "MailFile\0FullName";
const char kMailFileOnly[] = "MailFile";
const DWORD kLookupAllExhaustiveUpdate = 0x0121;
const size_t kMailFilePathBuffer = 513;
const size_t kFullNameBuffer = 1024;

// The directory query one overload froze on its first call.
struct FrozenLookup {
    WORD numNameSpaces;
    WORD numNames;
    WORD numLookupItems;
    const char* nameSpaces;
    const char* lookupItems;
};

// Calls `onEntry(path, fullName)` for every person entry with a text MailFile;
// stops early when it returns false. Lookup failures are stored in `status`.
template <class EntryHandler>
void walkMailboxes(const std::string& server, const FrozenLookup& query, bool fetchFullName,
                   HyLNError& status, EntryHandler onEntry)
{
    HYLN_LOG_AS("DiscoverMailboxes", 0, "Discovering databases for server = %s\n", server.c_str());
    DHANDLE lookupHandle = NULLHANDLE;
    STATUS error = HY_NAMELookup2(server.c_str(), kLookupAllExhaustiveUpdate, query.numNameSpaces,
                                  query.nameSpaces, query.numNames, "", query.numLookupItems,
                                  query.lookupItems, &lookupHandle);
    if (error != NOERROR) {
        status.SetError(error);
        HYLN_LOG_AS("DiscoverMailboxes", 0, "NameLokup failed for Instance %s, error (%d) %s", server.c_str(),
                    error, status.GetMessage().c_str());
        return;
    }
    void* lookup = HY_OSLockObject(lookupHandle);
    // The match count is written as a DWORD.
    DWORD matchCount = 0;
    void* name = HY_NAMELocateNextName2(lookup, nullptr, &matchCount);
    HYLN_LOG_AS("DiscoverMailboxes", 0,
                "Found [%d] users (each will usually have one corresponding mail database file.)",
                static_cast<int>(matchCount));
    void* match = nullptr;
    for (DWORD index = 0; index < matchCount; ++index) {
        match = HY_NAMELocateNextMatch2(lookup, name, match);
        WORD dataType = 0;
        WORD size = 0;
        const char* value = static_cast<const char*>(HY_NAMELocateItem2(match, 0, &dataType, &size));
        if (value == nullptr) {
            HYLN_LOG_AS("DiscoverMailboxes", 0, "Warning: found a mail file equal to NULL. Entry will be skipped.\n");
            continue;
        }
        if (dataType != TYPE_TEXT) {
            HYLN_LOG_AS("DiscoverMailboxes", 0,
                        "Warning: unrecognized data type for a mail file entry. Entry will be skipped.");
            continue;
        }
        char path[kMailFilePathBuffer] = {0};
        // Values longer than the buffer are cut; everything that fits is copied as it is.
        size_t length = size >= sizeof(WORD) ? std::min<size_t>(size - sizeof(WORD), sizeof path - 1) : 0;
        std::memcpy(path, value + sizeof(WORD), length);
        char fullName[kFullNameBuffer] = {0};
        if (fetchFullName && HY_NAMEGetTextItem2(match, 1, 0, fullName, kFullNameBuffer - 1) != NOERROR) {
            HYLN_LOG_AS("DiscoverMailboxes", 0, "Failed to get Canonical Name for the mail database %s", path);
            fullName[0] = '\0';
        }
        if (!onEntry(path, fullName))
            break;
    }
    HY_OSUnlockObject(lookupHandle);
    HY_OSMemFree(lookupHandle);
}

} // namespace

void HyLNUtilities::InitializeMBLookup(MailboxLookupStruct& lookup, bool fetchFullName)
{
    lookup.NumNameSpaces = 1;
    lookup.NumNames = 1;
    lookup.NumLookupItems = fetchFullName ? 2 : 1;
    lookup.NameSpaces = kPeopleNameSpace;
    lookup.LookupItems = fetchFullName ? kMailFileAndFullName : kMailFileOnly;
    lookup.FetchFullName = fetchFullName;
}

HyLNError HyLNUtilities::DiscoverMailboxes(std::string server, void* result, MailboxLookupStruct& lookup)
{
    // Frozen by the first call of this overload for the life of the process.
    static const WORD NUM_NAMESPACES = static_cast<WORD>(lookup.NumNameSpaces);
    static const WORD NUM_NAMES = static_cast<WORD>(lookup.NumNames);
    static const WORD NUM_LOOKUPITEMS = static_cast<WORD>(lookup.NumLookupItems);
    static const char* const USER_NAMESSPACE = lookup.NameSpaces;
    static const char* const MAIL_LOOKUPITEMS = lookup.LookupItems;
    const FrozenLookup query{NUM_NAMESPACES, NUM_NAMES, NUM_LOOKUPITEMS, USER_NAMESSPACE, MAIL_LOOKUPITEMS};

    HyLNError status;
    const bool fetchFullName = lookup.FetchFullName;
    walkMailboxes(server, query, fetchFullName, status, [&](const char* path, const char* fullName) {
        if (fetchFullName)
            static_cast<std::map<std::string, std::string>*>(result)->emplace(path, fullName);
        else
            static_cast<std::set<std::string>*>(result)->insert(path);
        return true;
    });
    return status;
}

HyLNError HyLNUtilities::DiscoverMailboxes(std::string server, void* result, MailboxLookupStruct& lookup,
                                           bool quickList)
{
    // Frozen by the first call of this overload for the life of the process.
    static const WORD NUM_NAMESPACES = static_cast<WORD>(lookup.NumNameSpaces);
    static const WORD NUM_NAMES = static_cast<WORD>(lookup.NumNames);
    static const WORD NUM_LOOKUPITEMS = static_cast<WORD>(lookup.NumLookupItems);
    static const char* const USER_NAMESSPACE = lookup.NameSpaces;
    static const char* const MAIL_LOOKUPITEMS = lookup.LookupItems;
    const FrozenLookup query{NUM_NAMESPACES, NUM_NAMES, NUM_LOOKUPITEMS, USER_NAMESSPACE, MAIL_LOOKUPITEMS};

    HyLNError status;
    auto* reported = static_cast<std::set<std::string>*>(result);
    walkMailboxes(server, query, lookup.FetchFullName, status, [&](char* path, const char* fullName) {
        HYLN_LOG_AS("DiscoverMailboxes", 4, "Checking session status....");
        if (!quickList && CheckConnection()) {
            HYLN_LOG_AS("DiscoverMailboxes", 0,
                        "Warning: detected a session disconnection (e.g. user may have hit cancel during "
                        "discovery.) Aborting discovery.");
            return false;
        }
        // The host learns of single failures from the log; the result is the last entry's.
        status = ProcessDatabase(path, std::string(fullName), reported, quickList);
        if (status.IsErrorSet())
            HYLN_LOG_AS("DiscoverMailboxes", 0, "Database [%s] will be skipped. reason %d - %s", path,
                        status.GetErrorCode(), status.GetMessage().c_str());
        return true;
    });
    return status;
}

// ---------------------------------------------------------------------------
// Database record and reporting
// ---------------------------------------------------------------------------

namespace {

const size_t kRecordBuffer = 3072;
const size_t kTranslatedBuffer = 513;
const char kFieldSeparator = 0x12;
const char kTailSeparator = 0x15;

void formatRecord(char (&record)[kRecordBuffer], const char* path, const char* title, const TIMEDATE& replicaId,
                  const std::string& ownerName, bool quickList)
{
    if (quickList)
        snprintf(record, sizeof record, "%s%c%s", path, kFieldSeparator, title);
    else
        snprintf(record, sizeof record, "%s%c%s%c%s%c%X:%08X%c%s", path, kFieldSeparator, title, kFieldSeparator,
                 "($All)", kTailSeparator, replicaId.Innards[1], replicaId.Innards[0], kTailSeparator,
                 ownerName.c_str());
}

// The path as far as its first ".nsf": mail/a.nsf and mail/a.nsf.bak are one database.
std::string deduplicationKey(const char* translatedPath)
{
    std::string key(translatedPath, strnlen(translatedPath, kTranslatedBuffer - 1));
    return key.substr(0, key.find(".nsf"));
}

} // namespace

HyLNError HyLNUtilities::ProcessDatabase(char const* path, std::string ownerName, std::set<std::string>* reported,
                                         bool quickList)
{
    HyLNError status;
    if (path == nullptr || reported == nullptr) {
        HYLN_LOG(0, "Error: invalid parameters passed in.");
        status.SetCustomMessage(std::string("invalid parameters passed to ProcessDatabase()"));
        return status;
    }
    // The caller's buffer is rewritten in place and sees the change.
    char* dbPath = const_cast<char*>(path);
    std::replace(dbPath, dbPath + std::strlen(dbPath), '\\', '/');
    if (std::strstr(dbPath, "\\\\") != nullptr || std::strchr(dbPath, ':') != nullptr) {
        HYLN_LOG(0, "Filtering non-linked, external mailbox: [%s].", dbPath);
        return status;
    }
    // This handle stays open on every path.
    DBHANDLE database = NULLHANDLE;
    STATUS error = HY_NSFDbOpen(dbPath, &database);
    if (error != NOERROR) {
        status.SetError(error);
        HYLN_LOG(0,
                 "Error: unable to get mail file handle for: [%s]. NSFDbOpen(...) returned: [%d]. Resulting error "
                 "string: [%s].",
                 dbPath, error, status.GetMessage().c_str());
        return status;
    }
    HYLN_LOG(3, "Retrieving mailfile database information buffer for [%s] from Domino....", dbPath);
    char info[NSF_INFO_SIZE] = {0};
    error = HY_NSFDbInfoGet(database, info);
    if (error != NOERROR) {
        status.SetError(error);
        HYLN_LOG(0,
                 "Error: unable to get database information for: [%s]. NSFDbInfoGet(...) returned: [%d]. Resulting "
                 "error string: [%s].",
                 dbPath, error, status.GetMessage().c_str());
        return status;
    }
    HYLN_LOG(3, "Retrieving mailfile database title for [%s]....", dbPath);
    char title[NSF_INFO_SIZE] = {0};
    HY_NSFDbInfoParse(info, INFOPARSE_TITLE, title, NSF_INFO_SIZE - 1);
    char translatedTitle[kTranslatedBuffer] = {0};
    // Each translation leaves the last byte of its zero-filled buffer as the terminator:
    // the runtime does not terminate an output that fills the length it is given.
    if (HY_OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, title, static_cast<WORD>(std::strlen(title)), translatedTitle,
                       kTranslatedBuffer - 1) == 0) {
        HYLN_LOG(0, "DBTitle OSTranslate failed on: [%s]", title);
        status.SetCustomMessage(std::string("OSTranslate failed on DBTitle"));
        return status;
    }
    char translatedPath[kTranslatedBuffer] = {0};
    if (HY_OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, dbPath, static_cast<WORD>(std::strlen(dbPath)), translatedPath,
                       kTranslatedBuffer - 1) == 0) {
        HYLN_LOG(0, "DBName OSTranslate failed on: [%s]", dbPath);
        status.SetCustomMessage(std::string("OSTranslate failed on DBName"));
        return status;
    }
    auto replicaInfo = std::make_unique<DBREPLICAINFO>();
    error = HY_NSFDbReplicaInfoGet(database, replicaInfo.get());
    if (error != NOERROR) {
        status.SetError(error);
        HYLN_LOG(0, "Failed to fetch ReplicaID for database %s. error %d - %s", translatedPath, error,
                 status.GetMessage().c_str());
        return status;
    }
    // Named by its title, not its path.
    HYLN_LOG(3, "Replica ID of database %s is %X:%08X", translatedTitle, replicaInfo->ID.Innards[1],
             replicaInfo->ID.Innards[0]);
    char record[kRecordBuffer] = {0};
    formatRecord(record, translatedPath, translatedTitle, replicaInfo->ID, ownerName, quickList);
    HYLN_LOG(3, "Sending = %s", record);
    replicaInfo.reset();
    if (!reported->insert(deduplicationKey(translatedPath)).second)
        return status;
    if (SendDBMessage(record)) {
        HYLN_LOG(0, "Error: failure in sending database information to HyServer.");
        status.SetCustomMessage(std::string("Failed to send DB information to HS"));
    } else {
        HYLN_LOG(3, "Returned database: [%s] to HyServer.", record);
    }
    return status;
}

// ---------------------------------------------------------------------------
// Database discovery in a data directory
// ---------------------------------------------------------------------------

namespace {

const WORD kFileSearchFlags = SEARCH_SUMMARY | SEARCH_FILETYPE;
// Every database, template and mailbox file of the tree (FILE_NOUPDIRS | FILE_RECURSE | FILE_ANYNOTEFILE).
const WORD kAnyNoteFileRecursive = 0x600A;
const size_t kPathBuffer = 1024;

// Translates `text` with `mode` into `out`, terminated; false when the runtime reports
// failure, which includes an output that would leave no room for the terminator.
bool translateInto(WORD mode, const std::string& text, char (&out)[kPathBuffer])
{
    return HY_OSTranslate(mode, text.c_str(), static_cast<WORD>(text.size()), out, kPathBuffer - 1) != 0;
}

void copyInto(const std::string& text, char (&out)[kPathBuffer])
{
    std::memset(out, 0, sizeof out);
    std::strncpy(out, text.c_str(), sizeof out - 1);
}

STATUS searchFiles(DBHANDLE directory, TIMEDATE* since, NSFSEARCHPROC routine, void* context)
{
    TIMEDATE until;
    return HY_NSFSearch(directory, NULLHANDLE, nullptr, kFileSearchFlags, kAnyNoteFileRecursive, since, routine,
                        context, &until);
}

} // namespace

HyLNError HyLNUtilities::DiscoverDatabases(std::string dataDirectory, std::set<std::string>* databases,
                                           unsigned short (*callback)(void*, SEARCH_MATCH*, ITEM_TABLE*))
{
    HyLNError status;
    if (dataDirectory.empty()) {
        HYLN_LOG(0, "%s() - Error: empty or NULL Notes Data path.\n", "DiscoverDatabases");
        return status;
    }
    char directory[kPathBuffer] = {0};
    if (!translateInto(OS_TRANSLATE_UTF8_TO_LMBCS, dataDirectory, directory)) {
        HYLN_LOG(0, "OSTranslate failed on dir: %s", dataDirectory.c_str());
        copyInto(dataDirectory, directory);
    }
    std::string networkPath;
    status = MakeNetworkPath("", directory, networkPath, false);
    if (status.IsErrorSet())
        return status;
    DBHANDLE directoryHandle = NULLHANDLE;
    status = OpenDirectory(networkPath, directoryHandle);
    if (status.IsErrorSet()) {
        // The name and code in this line are always empty and 0.
        HYLN_LOG(0, "%s() - Error: Unable to open database: [%s] error (%d) %s", "DiscoverDatabases", "", 0,
                 status.GetMessage().c_str());
        return status;
    }
    TIMEDATE since;
    HY_TimeConstant(TIMEDATE_WILDCARD, &since);
    STATUS error = searchFiles(directoryHandle, &since, callback, databases);
    if (error != NOERROR)
        status.SetError(error);
    CloseDirectory(directoryHandle);
    return status;
}

unsigned short FindAView(void* context, SEARCH_MATCH* match, ITEM_TABLE* summary)
{
    (void)summary;
    auto* search = static_cast<HyLNRestoreViewSearch*>(context);
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found); // may be unaligned
    if ((found.SERetFlags & SE_FMATCH) == 0 || search->state == 0xFFFFFFFF)
        return NOERROR;
    char title[kPathBuffer] = {0};
    NOTEHANDLE note = NULLHANDLE;
    try {
        HYLN_LOG(2, "Finding restore view, opening Note ID 0x%x ...", found.ID.NoteID);
        STATUS error = HY_NSFNoteOpenExt(search->databaseHandle, found.ID.NoteID, OPEN_SUMMARY, &note);
        if (error != NOERROR) {
            HYLN_LOG(-1, "Could not open note 0x%x - %d", found.ID.NoteID, error);
            return error;
        }
        HYLN_LOG(2, "Note opened.");
        HY_NSFItemGetText(note, "$TITLE", title, sizeof title);
        NOTEHANDLE opened = note;
        note = NULLHANDLE;
        HY_NSFNoteClose(opened);
        if (title[0] == '\0')
            return NOERROR;
        HYLN_LOG(2, "Note closed.");
        char viewName[kPathBuffer] = {0};
        if (HY_OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, title, static_cast<WORD>(std::strlen(title)), viewName,
                           sizeof viewName - 1) == 0) {
            HYLN_LOG(2, "OSTranslate failed to translate view name [%s]", title);
            copyInto(title, viewName);
        }
        if (std::strstr(viewName, search->wantedText) != nullptr) {
            size_t length = strnlen(viewName, sizeof search->foundViewName - 1);
            std::memcpy(search->foundViewName, viewName, length);
            search->foundViewName[length] = '\0';
            search->state = 0xFFFFFFFF;
        }
    } catch (...) {
        HYLN_LOG(-1, "Warning: an exception was found while processing view: [%s].", title);
        // A note the exception left open is released; the search goes on as before.
        if (note != NULLHANDLE) {
            try {
                HY_NSFNoteClose(note);
            } catch (...) {
            }
        }
    }
    return NOERROR;
}

// ---------------------------------------------------------------------------
// Additional databases
// ---------------------------------------------------------------------------

namespace {

const char kScanListSeparator = '?';
const STATUS kDirectoryDoesNotExist = 0x0103;

struct ReportContext {
    std::set<std::string>* reported;
    bool quickList;
};

struct AssociationContext {
    DBNAME* table;
    int* index;
};

// Reads the $Path summary value; false when the entry has none.
bool summaryPath(ITEM_TABLE* summary, char (&path)[kPathBuffer])
{
    return HY_NSFGetSummaryValue(summary, "$Path", path, kPathBuffer) != FALSE;
}

// As summaryPath; an entry without one is logged under the calling callback's name.
bool reportedPath(ITEM_TABLE* summary, char (&path)[kPathBuffer], const char* callback)
{
    if (summaryPath(summary, path))
        return true;
    HYLN_LOG_AS(callback, 0, "OSTranslate failed on database: [%s].",
                "Error: path information not found in the index record.");
    return false;
}

} // namespace

HyLNError HyLNUtilities::CountAdditionalDatabases(std::string server, std::string directory, unsigned long* count,
                                                  bool flag)
{
    HyLNError status;
    *count = 0;
    std::string networkPath;
    MakeNetworkPath(server, directory, networkPath, flag);
    if (networkPath.empty()) {
        HYLN_LOG(0, "Failed to get fully qualified name for additional scan directory [%s]", directory.c_str());
        networkPath = directory;
    }
    char path[kPathBuffer] = {0};
    if (!translateInto(OS_TRANSLATE_UTF8_TO_LMBCS, networkPath, path)) {
        HYLN_LOG(0, "OSTranslate failed on database: [%s].", directory.c_str());
        copyInto(directory, path);
    }
    DBHANDLE directoryHandle = NULLHANDLE;
    status = OpenDirectory(path, directoryHandle);
    if (status.IsErrorSet()) {
        HYLN_LOG(0, "Unable to open the scan directory: [%s]. NSFDbOpen() returned: %d. (%s)\n", path,
                 status.GetErrorCode(), status.GetMessage().c_str());
        return status;
    }
    // The search's own status is not kept: the line shows the (clear) status code.
    if (searchFiles(directoryHandle, nullptr, CountAdditionalDBsCallbackFn, count) != NOERROR)
        HYLN_LOG(0,
                 "A general scan failure occured while scanning: [%s] to get a count of additional databases. "
                 "NSFSearch() returned: %d.\n",
                 path, status.GetErrorCode());
    CloseDirectory(directoryHandle);
    return status;
}

unsigned short HyLNUtilities::CountAdditionalDBsCallbackFn(void* context, SEARCH_MATCH* match, ITEM_TABLE* summary)
{
    (void)match;
    (void)summary;
    ++*static_cast<unsigned long*>(context);
    return NOERROR;
}

bool HyLNUtilities::GetAdditionalDatabases(std::set<std::string>* databases, std::string* directories, bool process,
                                           bool quickList)
{
    char list[kPathBuffer] = {0};
    if (!translateInto(OS_TRANSLATE_NATIVE_TO_LMBCS, *directories, list)) {
        HYLN_LOG(0, "OSTranslate failed on database: [%s].", directories->c_str());
        return false;
    }
    ReportContext report{databases, quickList};
    std::istringstream pieces(list);
    std::string directory;
    while (std::getline(pieces, directory, kScanListSeparator)) {
        if (directory.empty())
            continue;
        DBHANDLE directoryHandle = NULLHANDLE;
        HyLNError status = OpenDirectory(directory, directoryHandle);
        if (status.IsErrorSet()) {
            HYLN_LOG(0,
                     "Error: unable to open scan directory: [%s]. NSFDbOpen(...) returned: [%08x]. Resulting error "
                     "string: [%s].",
                     directory.c_str(), status.GetErrorCode(), status.GetMessage().c_str());
            return false;
        }
        STATUS error = process ? searchFiles(directoryHandle, nullptr, ProcessAdditionalDatabaseCallback, &report)
                               : searchFiles(directoryHandle, nullptr, FetchAdditionalDatabaseCallback, databases);
        if (error != NOERROR) {
            HYLN_LOG(0,
                     "Error: a failure occured while searching for databases. NSFSearch(...) returned: [%08x]. "
                     "Resulting error string: [%s].",
                     error, GetNotesErrorMsg(error).c_str());
            CloseDirectory(directoryHandle);
            return false;
        }
        CloseDirectory(directoryHandle);
    }
    return true;
}

unsigned short HyLNUtilities::FetchAdditionalDatabaseCallback(void* context, SEARCH_MATCH* match,
                                                              ITEM_TABLE* summary)
{
    (void)match;
    char path[kPathBuffer] = {0};
    if (!reportedPath(summary, path, __func__))
        return NOERROR;
    if (char* extension = std::strstr(path, ".nsf"))
        *extension = '\0';
    static_cast<std::set<std::string>*>(context)->insert(path);
    return NOERROR;
}

unsigned short HyLNUtilities::ProcessAdditionalDatabaseCallback(void* context, SEARCH_MATCH* match,
                                                                ITEM_TABLE* summary)
{
    (void)match;
    char path[kPathBuffer] = {0};
    if (!reportedPath(summary, path, __func__))
        return NOERROR;
    auto* report = static_cast<ReportContext*>(context);
    ProcessDatabase(path, std::string(), report->reported, report->quickList);
    return NOERROR;
}

int HyLNUtilities::AssociateAdditionalDBs(std::string server, std::string* directory, DBNAME* table, int* index)
{
    char scanPath[kPathBuffer] = {0};
    copyInto(*directory, scanPath);
    const std::string& databasePath = table[*index].databasePath;
    size_t separator = databasePath.rfind('\\');
    if (separator == std::string::npos)
        separator = databasePath.rfind('/');
    if (separator == std::string::npos) {
        HYLN_LOG(0, "Error: invalid path: [%s] enountered while scanning for additional databases.",
                 databasePath.c_str());
        return -1;
    }
    std::strncat(scanPath, databasePath.c_str() + separator, sizeof scanPath - std::strlen(scanPath) - 1);
    HYLN_LOG(0, "get path for db %s", scanPath);
    std::string networkPath;
    if (MakeNetworkPath(server, scanPath, networkPath, false).IsErrorSet()) {
        HYLN_LOG(0, "Warning: MakeNetworkPath failed on database: [%s]. ", scanPath);
        networkPath = scanPath;
    }
    char path[kPathBuffer] = {0};
    if (!translateInto(OS_TRANSLATE_UTF8_TO_LMBCS, networkPath, path)) {
        HYLN_LOG(0, "OSTranslate failed on directory: [%s].", networkPath.c_str());
        return -1;
    }
    DBHANDLE directoryHandle = NULLHANDLE;
    HyLNError status = OpenDirectory(path, directoryHandle);
    if (status.IsErrorSet()) {
        if (status.GetErrorCode() == kDirectoryDoesNotExist)
            return 0;
        HYLN_LOG(0, "Error: unable to open the scan directory: [%s]. NSFDbOpen() returned: %d - %s.\n", path,
                 status.GetErrorCode(), status.GetMessage().c_str());
        return status.GetErrorCode();
    }
    AssociationContext association{table, index};
    STATUS error = searchFiles(directoryHandle, nullptr, AssociateAdditionalDBsCallback, &association);
    if (error != NOERROR) {
        HYLN_LOG(0,
                 "A general scan failure occured while scanning: [%s] for additional databases. NSFSearch() "
                 "returned: %d - %s.\n",
                 path, error, GetNotesErrorMsg(error).c_str());
        CloseDirectory(directoryHandle);
        return error;
    }
    CloseDirectory(directoryHandle);
    return 0;
}

unsigned short HyLNUtilities::AssociateAdditionalDBsCallback(void* context, SEARCH_MATCH* match,
                                                             ITEM_TABLE* summary)
{
    (void)match;
    auto* association = static_cast<AssociationContext*>(context);
    const DBNAME& source = association->table[*association->index];
    DBNAME& element = association->table[++*association->index];
    element.firstText = source.firstText;
    element.secondText = source.secondText;
    element.databasePath = source.databasePath;
    element.sixthText = source.sixthText;
    char rawPath[kPathBuffer] = {0};
    if (!summaryPath(summary, rawPath)) {
        HYLN_LOG(0, "Path info cannot be found in the index record.");
        return 1;
    }
    char path[kPathBuffer] = {0};
    if (HY_OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, rawPath, static_cast<WORD>(std::strlen(rawPath)), path,
                       kPathBuffer - 1) == 0) {
        HYLN_LOG(0, "OSTranslate failed on database: [%s].", rawPath);
        return 0xFFFF;
    }
    element.foundPath = path;
    return NOERROR;
}

// ---- DXL importer, exporter and their streams ----

namespace {

const DXL_IMPORT_PROPERTY kDocumentsImportOption = 3;
const DXL_IMPORT_PROPERTY kReplicaRequiredForReplaceOrUpdate = 7;

bool isSettableExportProperty(DXL_EXPORT_PROPERTY property)
{
    return (property >= 3 && property <= 7) || (property >= 30 && property <= 34);
}

// Creates an importer; on failure the status holds the code and `function`'s line is logged.
bool createImporter(const char* function, unsigned int& importer, HyLNError& status)
{
    STATUS result = HY_DXLCreateImporter(&importer);
    if (result == NOERROR)
        return true;
    status.SetError(result);
    HYLN_LOG_AS(function, 0, "Error: unable to create DXL importer. DXLCreateImporter(...) returned: [%d] %s\n",
                result, status.GetMessage().c_str());
    return false;
}

// Sets one property; a refused one deletes the importer (the caller's variable keeps its value).
bool setImporterProperty(unsigned int importer, DXL_IMPORT_PROPERTY key, void* value, HyLNError& status)
{
    STATUS result = HY_DXLSetImporterProperty(importer, key, value);
    if (result == NOERROR)
        return true;
    status.SetError(result);
    HY_DXLDeleteImporter(importer);
    return false;
}

} // namespace

HyLNError HyLNUtilities::CreateDXLImporter(unsigned int& importer, std::map<DXL_IMPORT_PROPERTY, void*>& properties)
{
    HyLNError status;
    try {
        if (!createImporter(__func__, importer, status))
            return status;
        for (auto& property : properties) {
            // Only these two reach the importer; the host's other options are not ours to pass on.
            if (property.first == kDocumentsImportOption) {
                HYLN_LOG(0, "setting import prop iDocumentsImportOption");
            } else if (property.first == kReplicaRequiredForReplaceOrUpdate) {
                HYLN_LOG(0, "setting import prop iReplicaRequiredForReplaceOrUpdate");
            } else {
                HYLN_LOG(0, "unknown import prop");
                continue;
            }
            if (!setImporterProperty(importer, property.first, property.second, status))
                return status;
        }
    } catch (...) {
        HYLN_LOG(0, "Caught exception in createDXLImporter\n");
    }
    return status;
}

HyLNError HyLNUtilities::CreateAclDXLImporter(unsigned int& importer, std::map<DXL_IMPORT_PROPERTY, void*>& properties)
{
    HyLNError status;
    try {
        if (!createImporter(__func__, importer, status))
            return status;
        for (auto& property : properties) {
            if (!setImporterProperty(importer, property.first, property.second, status))
                return status;
        }
    } catch (...) {
        HYLN_LOG(0, "Caught exception in createAclDXLImporter\n");
    }
    return status;
}

HyLNError HyLNUtilities::CreateDXLExporter(unsigned int& exporter, std::map<DXL_EXPORT_PROPERTY, void*>& properties)
{
    HyLNError status;
    try {
        STATUS result = HY_DXLCreateExporter(&exporter);
        if (result != NOERROR) {
            status.SetError(result);
            return status;
        }
        for (auto& property : properties) {
            if (!isSettableExportProperty(property.first))
                continue;
            result = HY_DXLSetExporterProperty(exporter, property.first, property.second);
            if (result != NOERROR) {
                status.SetError(result);
                HY_DXLDeleteExporter(exporter);
                return status;
            }
        }
    } catch (...) {
        HYLN_LOG(0, "Caught exception in createDXLExporter\n");
    }
    return status;
}

void HyLNUtilities::DeleteDXLExporter(unsigned int& exporter)
{
    if (exporter != NULLHANDLE)
        HY_DXLDeleteExporter(exporter);
}

void HyLNUtilities::DeleteDXLImporter(unsigned int& importer)
{
    if (importer != NULLHANDLE)
        HY_DXLDeleteImporter(importer);
}

void HyLNUtilities::DXLExportStreamFunc(const unsigned char* data, unsigned int length, void* record)
{
    NoteExportRecord* out = static_cast<NoteExportRecord*>(record);
    if (!out->ok)
        return;
    out->total += length;
    try {
        if (out->toFile) {
            if (out->file != nullptr)
                fwrite(data, 1, length, out->file);
            out->position += length;
            return;
        }
        // Growing when the total merely reaches the capacity keeps one spare byte.
        if (out->total >= *out->capacity) {
            unsigned int newSize = static_cast<unsigned int>(out->total * 1.5);
            while (newSize < out->total)
                newSize = static_cast<unsigned int>(newSize * 1.5);
            unsigned char* grown = static_cast<unsigned char*>(calloc(newSize, 1));
            if (grown != nullptr) {
                if (*out->capacity != 0)
                    std::memcpy(grown, *out->buffer, *out->capacity);
                free(*out->buffer);
                *out->buffer = grown;
                *out->capacity = newSize;
            } else {
                out->ok = false;
                HYLN_LOG(-1, "failed to allocate  %d memory", newSize);
            }
        }
        if (!out->ok) {
            HYLN_LOG(-1, "Insufficient memory");
            out->position += length;
            return;
        }
        if (length != 0)
            std::memcpy(*out->buffer + out->position, data, length);
        out->position += length;
    } catch (...) {
        printf("caught exception in dxlexport");
    }
}

unsigned int HyLNUtilities::DXLImportStreamFunc(unsigned char* buffer, unsigned int maxLength, void* record)
{
    NoteImportRecord* in = static_cast<NoteImportRecord*>(record);
    if (in->remaining == 0)
        return 0;
    unsigned int count = std::min(maxLength, in->remaining);
    try {
        if (in->buffer != nullptr) {
            std::memcpy(buffer, in->buffer + in->position, count);
        } else {
            fseek(in->file, static_cast<long>(in->fileOffset) + in->position, SEEK_SET);
            // A short read is not detected: the runtime gets the count asked for.
            size_t got = fread(buffer, 1, count, in->file);
            (void)got;
        }
    } catch (...) {
        HYLN_LOG(-1, "Caught exception in DXLImportStreamFunc\n");
        return 0;
    }
    in->position += count;
    in->remaining -= count;
    return count;
}
