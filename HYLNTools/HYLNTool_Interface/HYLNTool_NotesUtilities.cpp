#include "HYLNTool_NotesUtilities.h"

#include <cctype>
#include <cstring>
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
    return HY_OSGetEnvironmentString(name, value, kEnvironmentValueLength);
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
