// HyLNDocument and its two kinds: one note, its age and size, and the operations
// with which the host archives a mail note and leaves a stub behind.
#include "HYLNTool_Document.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "HYLNTool_HostInterface.h"
#include "HYLNTool_Log.h"

static_assert(sizeof(HyLNDataDocument) == sizeof(HyLNDocument) &&
                  sizeof(HyLNDesignDocument) == sizeof(HyLNDocument),
              "the document kinds add no data");

namespace {

// The runtime's code for a note that could not be opened or closed: used when the call threw.
const unsigned short kNoteCallThrew = ERR_INVALID_NOTE;
const WORD kSubjectItem = 3; // MAIL_SUBJECT_ITEM_NUM
const WORD kSubjectLength = 256;
const size_t kItemTextBuffer = 1024;
const size_t kAttachmentNameBuffer = MAXPATH + 1;
const size_t kAttachmentListStep = 65000;

const char* const kInvalidNoteIdMessage = "Note ID note set";

HyLNError nullDbHandle(const char* function, bool logIt)
{
    HyLNError status;
    if (logIt)
        HYLN_LOG_AS(function, 0, "Invalid db handle");
    status.SetError(ERR_NULL_DBHANDLE);
    return status;
}

HyLNError nullNoteHandle()
{
    HyLNError status;
    status.SetError(ERR_NULL_NOTEHANDLE);
    return status;
}

HyLNError invalidNoteId(const char* function)
{
    HyLNError status;
    HYLN_LOG_AS(function, 0, "Invalid note ID");
    status.SetCustomMessage(std::string(kInvalidNoteIdMessage));
    return status;
}

HyLNError statusOf(STATUS result)
{
    HyLNError status;
    status.SetError(result);
    return status;
}

// Guarded calls report an exception with a message and then whatever status came back.
HyLNError threw(const char* message, STATUS result)
{
    HyLNError status;
    status.SetCustomMessage(std::string(message));
    status.SetError(result);
    return status;
}

HyLNError customMessage(const char* message)
{
    HyLNError status;
    status.SetCustomMessage(std::string(message));
    return status;
}

// Both ways of opening by note ID behave alike, and both name NSFNoteOpen.
HyLNError openById(const char* function, DBHANDLE dbHandle, NOTEID noteID, DWORD flags, bool extended,
                   NOTEHANDLE& noteHandle)
{
    if (dbHandle == NULLHANDLE)
        return nullDbHandle(function, true);
    if (noteID == 0)
        return invalidNoteId(function);
    HyLNError status;
    try {
        STATUS result = extended ? HY_NSFNoteOpenExt(dbHandle, noteID, flags, &noteHandle)
                                 : HY_NSFNoteOpen(dbHandle, noteID, static_cast<WORD>(flags), &noteHandle);
        if (result != NOERROR) {
            HYLN_LOG_AS(function, 0, "Error: unable to open note: [%08x]. NSFNoteOpen(...) returned: [%d]. ", noteID,
                        result);
            status.SetError(result);
        }
    } catch (...) {
        HYLN_LOG_AS(function, 0,
                    "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteOpen(...)].");
        status.SetError(kNoteCallThrew);
    }
    return status;
}

// Whether the note holds an item of that name.
bool itemPresent(NOTEHANDLE noteHandle, const char* name, WORD length)
{
    return HY_NSFItemInfo(noteHandle, name, length, nullptr, nullptr, nullptr, nullptr) == NOERROR;
}

// Deletes one seal item if the note has it; false (status set, `failureLine` logged with
// note ID, status and text) when the delete fails.
bool removeSealItem(NOTEHANDLE noteHandle, NOTEID noteID, const char* name, const char* failureLine,
                    HyLNError& status)
{
    WORD length = static_cast<WORD>(std::strlen(name));
    if (!itemPresent(noteHandle, name, length))
        return true;
    STATUS result = HY_NSFItemDelete(noteHandle, name, length);
    if (result == NOERROR)
        return true;
    status.SetError(result);
    HYLN_LOG_AS("RemoveSealedFields", 0, failureLine, noteID, result, status.GetMessage().c_str());
    return false;
}

} // namespace

// ---------------------------------------------------------------------------
// Construction
// ---------------------------------------------------------------------------

HyLNDocument::HyLNDocument() : noteID(0), unid(), noteHandle(NULLHANDLE), text(""), dbHandle(NULLHANDLE) {}

HyLNDocument::HyLNDocument(unsigned int dbHandle, unsigned int noteID)
    : noteID(noteID), unid(), noteHandle(NULLHANDLE), dbHandle(dbHandle)
{
}

HyLNDocument::HyLNDocument(unsigned int dbHandle, unsigned int noteID, UNIVERSALNOTEID unid)
    : noteID(noteID), unid(unid), noteHandle(NULLHANDLE), dbHandle(dbHandle)
{
}

HyLNDocument::~HyLNDocument()
{
    if (noteHandle != NULLHANDLE)
        Close();
}

void HyLNDocument::SetNoteHandle(unsigned int handle)
{
    noteHandle = handle;
}

HyLNDataDocument::HyLNDataDocument() : HyLNDocument() {}

HyLNDataDocument::HyLNDataDocument(unsigned int dbHandle, unsigned int noteID) : HyLNDocument()
{
    this->dbHandle = dbHandle;
    this->noteID = noteID;
}

HyLNDataDocument::~HyLNDataDocument() {}

void HyLNDataDocument::SetNoteID(unsigned int id)
{
    noteID = id;
}

HyLNDesignDocument::HyLNDesignDocument() : HyLNDocument() {}

HyLNDesignDocument::~HyLNDesignDocument() {}

// ---------------------------------------------------------------------------
// Note handle
// ---------------------------------------------------------------------------

HyLNError HyLNDocument::Create()
{
    if (dbHandle == NULLHANDLE)
        return nullDbHandle("Create", true);
    HyLNError status;
    STATUS result = NOERROR;
    try {
        result = HY_NSFNoteCreate(dbHandle, &noteHandle);
        if (result != NOERROR) {
            // The note ID fills the one slot; the status is a surplus value and never shows.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
            HYLN_LOG_AS("Create", 0, "Error: unable to create note: NSFNoteCreate(...) returned: [%d]. ", noteID,
                        result);
#pragma GCC diagnostic pop
            status.SetError(result);
        }
    } catch (...) {
        return threw("Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteCreate(\t...)].",
                     result);
    }
    return status;
}

HyLNError HyLNDocument::Open(unsigned short flags)
{
    return openById("Open", dbHandle, noteID, flags, false, noteHandle);
}

HyLNError HyLNDocument::OpenExt(unsigned int flags)
{
    return openById("OpenExt", dbHandle, noteID, flags, true, noteHandle);
}

HyLNError HyLNDocument::OpenByUNID(unsigned short flags)
{
    if (dbHandle == NULLHANDLE)
        return nullDbHandle("OpenByUNID", true);
    HyLNError status;
    try {
        STATUS result = HY_NSFNoteOpenByUNID(dbHandle, &unid, flags, &noteHandle);
        if (result != NOERROR) {
            HYLN_LOG_AS("OpenByUNID", 0, "Error: unable to open note: NSFNoteOpenByUNID(...) returned: [%d]. ", result);
            status.SetError(result);
        }
    } catch (...) {
        HYLN_LOG_AS("OpenByUNID", 0,
                    "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteOpen(...)].");
        status.SetError(kNoteCallThrew);
    }
    return status;
}

HyLNError HyLNDocument::Close()
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    HyLNError status;
    try {
        STATUS result = HY_NSFNoteClose(noteHandle);
        if (result != NOERROR) {
            // The open failure's wording, with the status where the note ID would go;
            // the handle is kept so that a later Close can try again.
            HYLN_LOG_AS("Close", 0, "Error: unable to open note: [%08x]. NSFNoteOpen(...) returned: [%d]. ", result,
                        result);
            status.SetError(result);
            return status;
        }
        noteHandle = NULLHANDLE;
    } catch (...) {
        HYLN_LOG_AS("Close", 0,
                    "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteClose(\t...)].");
        status.SetError(kNoteCallThrew);
        noteHandle = NULLHANDLE;
    }
    return status;
}

// ---------------------------------------------------------------------------
// Note information
// ---------------------------------------------------------------------------

namespace {
const char* const kGetInfoThrew =
    "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteGetInfo(\t...)].";
}

HyLNError HyLNDocument::GetCreationTime(TIMEDATE& creationTime)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        ORIGINATORID oid;
        HY_NSFNoteGetInfo(noteHandle, _NOTE_OID, &oid);
        creationTime = oid.Note;
    } catch (...) {
        return threw(kGetInfoThrew, NOERROR);
    }
    return HyLNError();
}

HyLNError HyLNDocument::GetModifiedTime(TIMEDATE& modifiedTime)
{
    return GetInfo(_NOTE_MODIFIED, &modifiedTime);
}

HyLNError HyLNDocument::GetLastAccessedTime(TIMEDATE& accessedTime)
{
    return GetInfo(_NOTE_ACCESSED, &accessedTime);
}

HyLNError HyLNDocument::GetInfo(unsigned short what, void* value)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        HY_NSFNoteGetInfo(noteHandle, what, value);
    } catch (...) {
        return threw(kGetInfoThrew, NOERROR);
    }
    return HyLNError();
}

HyLNError HyLNDocument::SetInfo(unsigned short what, void* value)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        HY_NSFNoteSetInfo(noteHandle, what, value);
    } catch (...) {
        return threw("Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteSetInfo(\t...)].",
                     NOERROR);
    }
    return HyLNError();
}

HyLNError HyLNDocument::GetInfoExtended(ORIGINATORID* oid, TIMEDATE* modified, unsigned short* noteClass)
{
    if (dbHandle == NULLHANDLE)
        return nullDbHandle("GetInfoExtended", false);
    STATUS result = NOERROR;
    try {
        result = HY_NSFDbGetNoteInfo(dbHandle, noteID, oid, modified, noteClass);
    } catch (...) {
        // Named after the note-handle variant, like the other information calls.
        return threw(kGetInfoThrew, result);
    }
    return statusOf(result);
}

HyLNError HyLNDocument::GetSubject(std::string& subject)
{
    if (noteHandle == NULLHANDLE) {
        subject.clear();
        return nullNoteHandle();
    }
    STATUS result = NOERROR;
    try {
        char buffer[kSubjectLength + 1] = {};
        WORD length = 0;
        result = HY_MailGetMessageItem(noteHandle, kSubjectItem, buffer, kSubjectLength, &length);
        if (result != NOERROR) {
            subject.clear();
            return statusOf(result);
        }
        buffer[length < kSubjectLength ? length : kSubjectLength] = '\0';
        subject = buffer;
    } catch (...) {
        return threw(
            "Error: caught an exception of unknown type thrown by Domino API function: [MailGetMessageItem(\t...)].",
            result);
    }
    return HyLNError();
}

HyLNError HyLNDocument::ScanItems(NSFITEMSCANPROC callback, void* context)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    return statusOf(HY_NSFItemScan(noteHandle, callback, context));
}

unsigned short HyLNDocument::GetItem(const char* itemName, std::string& value)
{
    char buffer[kItemTextBuffer];
    std::memset(buffer, 0, sizeof buffer);
    WORD length = HY_NSFItemGetText(noteHandle, itemName, buffer, sizeof buffer);
    value = buffer;
    return length;
}

// ---------------------------------------------------------------------------
// Deleting and writing
// ---------------------------------------------------------------------------

HyLNError HyLNDocument::HardDelete()
{
    if (dbHandle == NULLHANDLE)
        return nullDbHandle("HardDelete", true);
    if (noteID == 0)
        return invalidNoteId("HardDelete");
    HyLNError status;
    STATUS result = NOERROR;
    try {
        result = HY_NSFNoteHardDelete(dbHandle, noteID, 0);
        if (result != NOERROR) {
            status.SetError(result);
            HYLN_LOG_AS("HardDelete", 0,
                        "Error: NSFNoteHardDelete(...)of Note [%d] returned: [%d]. Resulting error string: [%s].",
                        noteID, result, status.GetMessage().c_str());
            return status;
        }
        // The in-memory note is forgotten, not closed: it no longer exists in the file.
        noteID = 0;
        noteHandle = NULLHANDLE;
    } catch (...) {
        return threw(
            "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteHardDelete(\t...)].",
            result);
    }
    return status;
}

HyLNError HyLNDocument::Delete(unsigned short flags)
{
    if (dbHandle == NULLHANDLE)
        return nullDbHandle("Delete", true);
    if (noteID == 0)
        return invalidNoteId("Delete");
    HyLNError status;
    STATUS result = NOERROR;
    try {
        result = HY_NSFNoteDelete(dbHandle, noteID, flags);
        if (result != NOERROR) {
            status.SetError(result);
            HYLN_LOG_AS("Delete", 0,
                        "Error: NSFNoteDelete(...)of Note [%d] returned: [%d]. Resulting error string: [%s].", noteID,
                        result, status.GetMessage().c_str());
            return status;
        }
        noteID = 0;
    } catch (...) {
        return threw("Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteDelete(\t...)].",
                     result);
    }
    return status;
}

HyLNError HyLNDocument::Update(unsigned short flags)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        return statusOf(HY_NSFNoteUpdate(noteHandle, flags));
    } catch (...) {
        return customMessage("Caught and exception during NoteUpdate");
    }
}

HyLNError HyLNDocument::AppendItem(unsigned short itemFlags, char* name, unsigned short nameLength,
                                   unsigned short dataType, void* value, unsigned int valueLength)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        return statusOf(HY_NSFItemAppend(noteHandle, itemFlags, name, nameLength, dataType, value, valueLength));
    } catch (...) {
        return customMessage("Caught and exception during NSFItemAppend");
    }
}

HyLNError HyLNDocument::AppendObject(unsigned short itemFlags, const char* name, unsigned short nameLength,
                                     BLOCKID value, unsigned int valueLength, int deallocate)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        return statusOf(
            HY_NSFItemAppendObject(noteHandle, itemFlags, name, nameLength, value, valueLength, deallocate));
    } catch (...) {
        return customMessage("Caught and exception during NSFItemAppendObject");
    }
}

// ---------------------------------------------------------------------------
// Age and size
// ---------------------------------------------------------------------------

namespace {

// The number a formula result starts with, for a number or a number list.
bool firstNumberOf(const char* result, double& value)
{
    if (result == nullptr)
        return false;
    WORD type = 0;
    std::memcpy(&type, result, sizeof type);
    if (type == TYPE_NUMBER) {
        std::memcpy(&value, result + sizeof type, sizeof value);
        return true;
    }
    if (type == TYPE_NUMBER_RANGE) {
        std::memcpy(&value, result + sizeof type + sizeof(RANGE), sizeof value);
        return true;
    }
    return false;
}

// Truncation toward zero into 32 bits; values no integer type can hold give 0.
unsigned int truncatedSize(double value)
{
    if (!std::isfinite(value) || std::fabs(value) >= 9.0e18)
        return 0;
    return static_cast<unsigned int>(static_cast<long long>(value));
}

} // namespace

HyLNError HyLNDocument::GetSize(unsigned int& size, void* computeHandle)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    if (computeHandle == nullptr)
        return customMessage("Null computation handle received. Probable cause, formula computation not initialized.");
    DHANDLE resultHandle = NULLHANDLE;
    WORD resultLength = 0;
    BOOL shouldBeDeleted = FALSE;
    BOOL modified = FALSE;
    STATUS result = HY_NSFComputeEvaluate(static_cast<HCOMPUTE>(computeHandle), noteHandle, &resultHandle,
                                          &resultLength, nullptr, &shouldBeDeleted, &modified);
    if (result != NOERROR)
        return statusOf(result);
    HyLNError status;
    double value = 0;
    if (firstNumberOf(static_cast<const char*>(HY_OSLockObject(resultHandle)), value))
        size = truncatedSize(value);
    else
        status.SetCustomMessage(std::string("Unknown type returned while evaluating note size."));
    HY_OSUnlockObject(resultHandle);
    HY_OSMemFree(resultHandle);
    return status;
}

HyLNError HyLNDocument::GetAgeInSeconds(unsigned long& age, unsigned long useSentReceived)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        TIMEDATE from;
        if (useSentReceived != 0) {
            if (!HY_NSFItemGetTime(noteHandle, "DeliveredDate", &from) &&
                !HY_NSFItemGetTime(noteHandle, "PostedDate", &from)) {
                HYLN_LOG_AS("GetAgeInSeconds", 2,
                            "Warning: unable to determine sent/received time for a note. Will use default age of 0 "
                            "seconds.");
                age = 0;
                return HyLNError();
            }
        } else {
            // The latest revision, not the creation: an edited note counts as young again.
            ORIGINATORID oid;
            HY_NSFNoteGetInfo(noteHandle, _NOTE_OID, &oid);
            from = oid.SequenceTime;
        }
        TIMEDATE now;
        HY_OSCurrentTIMEDATE(&now);
        // Sign-extended: a time in the future gives a huge age.
        age = static_cast<unsigned long>(static_cast<long>(HY_TimeDateDifference(&now, &from)));
    } catch (...) {
        return threw("Error: caught an exception of unknown type thrown by Domino API function: ", NOERROR);
    }
    return HyLNError();
}

HyLNError HyLNDocument::GetSentRecievedTime(TIMEDATE& time)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        if (HY_NSFItemGetTime(noteHandle, "DeliveredDate", &time) || HY_NSFItemGetTime(noteHandle, "PostedDate", &time))
            return HyLNError();
        ORIGINATORID oid;
        HY_NSFNoteGetInfo(noteHandle, _NOTE_OID, &oid);
        time = oid.Note;
    } catch (...) {
        return threw(
            "Error: caught an exception of unknown type thrown by Domino API function: [NSFItemGetTime(\t...)].",
            NOERROR);
    }
    return HyLNError();
}

// ---------------------------------------------------------------------------
// Archiving a mail note
// ---------------------------------------------------------------------------

HyLNError HyLNDataDocument::IsMigratedMessage(bool& migrated)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        migrated = itemPresent(noteHandle, "StubData", 8);
    } catch (...) {
        return customMessage("Caught exception in [NSFItemIsPresent(\t...)] while checking for migration\t\n");
    }
    return HyLNError();
}

HyLNError HyLNDataDocument::IsMigrationRequired(DbMigrateCriteria criteria, bool& required)
{
    (void)criteria;
    (void)required;
    return HyLNError();
}

HyLNError HyLNDataDocument::StubNote()
{
    return HyLNError();
}

HyLNError HyLNDataDocument::PruneStub()
{
    return HyLNError();
}

HyLNError HyLNDataDocument::GetStubDetails(std::string& details)
{
    (void)details;
    return HyLNError();
}

HyLNError HyLNDataDocument::SetStubDetails(unsigned char* data, int length)
{
    (void)data;
    (void)length;
    return HyLNError();
}

HyLNError HyLNDataDocument::HasItem(std::string itemName, bool& present)
{
    present = false;
    // The runtime marks the ID of a deleted note with the top bit.
    if (static_cast<int>(noteID) < 0)
        return customMessage("HasAttachment request for deleted note");
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        present = itemPresent(noteHandle, itemName.c_str(), static_cast<WORD>(std::strlen(itemName.c_str())));
    } catch (...) {
        return customMessage("Caught exception in [NSFItemIsPresent(\t...)] while checking for attachment\t\n");
    }
    return HyLNError();
}

HyLNError HyLNDataDocument::GetAttachmentInfoList(std::vector<std::string>& extensions)
{
    if (noteHandle == NULLHANDLE) {
        extensions.clear();
        return nullNoteHandle();
    }
    try {
        for (WORD n = 0;; ++n) {
            BLOCKID item;
            char fileName[kAttachmentNameBuffer] = {};
            if (!HY_MailGetMessageAttachmentInfo(noteHandle, n, &item, fileName, nullptr, nullptr, nullptr, nullptr,
                                                 nullptr))
                break;
            const char* dot = std::strrchr(fileName, '.');
            if (dot != nullptr)
                extensions.push_back(dot);
        }
    } catch (...) {
        return customMessage("Caught exception in [MailGetMessageAttachmentInfo(\t...)] \n");
    }
    return HyLNError();
}

HyLNError HyLNDataDocument::GetAttachmentList(std::vector<ATTACHMENT>& attachments)
{
    if (noteHandle == NULLHANDLE) {
        attachments.clear();
        return nullNoteHandle();
    }
    try {
        for (WORD n = 0;; ++n) {
            BLOCKID item;
            char fileName[kAttachmentNameBuffer] = {};
            DWORD fileSize = 0;
            TIMEDATE created{};
            TIMEDATE modified{};
            if (!HY_MailGetMessageAttachmentInfo(noteHandle, n, &item, fileName, &fileSize, nullptr, nullptr, &created,
                                                 &modified))
                break;
            ATTACHMENT attachment;
            attachment.CreationTime = created;
            attachment.ModifiedTime = modified;
            attachment.Name = fileName;
            attachment.Size = fileSize;
            attachments.push_back(attachment);
        }
    } catch (...) {
        return customMessage("Caught exception in [MailGetMessageAttachmentInfo(\t...)]\n");
    }
    return HyLNError();
}

HyLNError HyLNDataDocument::GetMigrationDetails(DbMigrateCriteria& details)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    HyLNError status = GetCreationTime(details.CreationTime);
    if (status.IsErrorSet())
        return status;
    status = GetModifiedTime(details.ModifiedTime);
    if (status.IsErrorSet())
        return status;
    status = GetLastAccessedTime(details.LastAccessedTime);
    if (status.IsErrorSet())
        return status;
    std::vector<ATTACHMENT> attachments;
    status = GetAttachmentList(attachments);
    if (status.IsErrorSet())
        return status;
    details.AttachmentNumbers = static_cast<int>(attachments.size());
    for (const ATTACHMENT& attachment : attachments) {
        details.AttachmentSize += static_cast<int>(attachment.Size);
        details.Attachments.push_back(attachment);
    }
    return status;
}

HyLNError HyLNDataDocument::AddAttachmentInfo()
{
    HyLNError status;
    size_t capacity = kAttachmentListStep;
    // Owned here, so that an exception from the runtime, which this operation lets through,
    // does not strand the list.
    std::unique_ptr<char, void (*)(void*)> buffer(static_cast<char*>(std::malloc(capacity)), std::free);
    if (buffer == nullptr) {
        HYLN_LOG_AS("AddAttachmentInfo", 0, "Error: unable to allocate memory for AttachmentList.");
        status.SetCustomMessage(std::string("Failed to allocate Memory for AttachmentList"));
        return status;
    }
    size_t used = 0;
    for (WORD n = 0;; ++n) {
        BLOCKID item;
        char fileName[kAttachmentNameBuffer] = {};
        if (!HY_MailGetMessageAttachmentInfo(noteHandle, n, &item, fileName, nullptr, nullptr, nullptr, nullptr,
                                             nullptr))
            break;
        size_t length = std::strlen(fileName);
        size_t start = used;
        used += length + 1;
        if (used >= capacity) {
            char* larger = static_cast<char*>(std::malloc(capacity + kAttachmentListStep));
            if (larger == nullptr) {
                HYLN_LOG_AS("AddAttachmentInfo", 0, "Error: unable to allocate memory for pNewBuffer.");
                status.SetCustomMessage(std::string("Failed to allocate Memory for AttachmentList"));
                return status;
            }
            std::memcpy(larger, buffer.get(), start);
            buffer.reset(larger);
            capacity += kAttachmentListStep;
        }
        std::memcpy(buffer.get() + start, fileName, length + 1);
    }
    // Each name ends in its zero byte; the count is a WORD, so a longer list keeps its low 16 bits.
    STATUS result = HY_NSFItemSetText(noteHandle, "AttachmentData", buffer.get(), static_cast<WORD>(used));
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG_AS("AddAttachmentInfo", 0,
                    "Warning: unable to add attachment info field to note: [%d]. NSFItemSetText(...) returned: [%d]. "
                    "Resulting error string: [%s].",
                    noteID, status.GetErrorCode(), status.GetMessage().c_str());
    }
    return status;
}

HyLNError HyLNDataDocument::RemoveAttachments(bool& removed)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    removed = false;
    if (!itemPresent(noteHandle, "$FILE", 5))
        return HyLNError();
    HyLNError status = AddAttachmentInfo();
    if (status.IsErrorSet())
        HYLN_LOG_AS("RemoveAttachments", 0, "Warning: unable to add attachment information to note: [%d].", noteID);
    STATUS result = HY_NSFItemDelete(noteHandle, "$FILE", 5);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG_AS("RemoveAttachments", 0,
                    "Error: unable to remove attachment for note: [%d]. NSFItemDelete(...) returned: [%d]. Resulting "
                    "error string: [%s].",
                    noteID, result, status.GetMessage().c_str());
        return status;
    }
    removed = true;
    return status;
}

HyLNError HyLNDataDocument::RemoveMessageBody()
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    HyLNError status;
    if (!itemPresent(noteHandle, "Body", 4))
        return status;
    STATUS result = HY_NSFItemDelete(noteHandle, "Body", 4);
    if (result != NOERROR) {
        status.SetError(result);
        HYLN_LOG_AS("RemoveMessageBody", 0,
                    "Error: unable to remove body for note [%d]. NSFItemDelete(...) returned: [%d]. Resulting error "
                    "string: [%s].",
                    noteID, status.GetErrorCode(), status.GetMessage().c_str());
    }
    return status;
}

HyLNError HyLNDataDocument::RemoveSealedFields()
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    HyLNError status;
    // $SealData is left alone when $Seal cannot be removed.
    if (removeSealItem(noteHandle, noteID, "$Seal",
                       "Error: unable to remove $Seal field for note [%d]. NSFItemDelete(...) returned: [%d]. "
                       "Resulting error string: [%s].",
                       status))
        removeSealItem(noteHandle, noteID, "$SealData",
                       "Error: unable to remove $SealData field for note [%d]. NSFItemDelete(...) returned: [%d]. "
                       "Resulting error string: [%s].",
                       status);
    return status;
}

HyLNError HyLNDataDocument::SetItemText(std::string itemName, std::string value)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    HyLNError status;
    try {
        STATUS result = HY_NSFItemSetText(noteHandle, itemName.c_str(), value.c_str(), static_cast<WORD>(value.size()));
        if (result != NOERROR) {
            // The code alone: the message stays empty in the line below.
            status.SetErrorCode(result);
            HYLN_LOG_AS("SetItemText", 0,
                        "Unable to set Item %s to current Note %08x. NSFItemSetText(...) returned %d - %s",
                        itemName.c_str(), noteID, result, status.GetMessage().c_str());
        }
    } catch (...) {
        return customMessage("Caught an exception during SetItemText()");
    }
    return status;
}

HyLNError HyLNDataDocument::SetAttachment(std::string itemName, std::string filePath, std::string attachmentName,
                                          unsigned short encoding)
{
    if (noteHandle == NULLHANDLE)
        return nullNoteHandle();
    try {
        return statusOf(HY_NSFNoteAttachFile(noteHandle, itemName.c_str(),
                                             static_cast<WORD>(std::strlen(itemName.c_str())), filePath.c_str(),
                                             attachmentName.c_str(), encoding));
    } catch (...) {
        return customMessage("Exception caught during SetAttachment()");
    }
}

// ---- DXL export and import of one document ----

HyLNError HyLNDocument::Export(unsigned int& exporter, NoteExportRecord* record)
{
    HyLNError status;
    try {
        if (noteHandle == NULLHANDLE) {
            status.SetError(5051);
            return status;
        }
        STATUS result = HY_DXLExportNote(exporter, HyLNUtilities::DXLExportStreamFunc, noteHandle, record);
        if (result != NOERROR)
            status.SetError(result);
    } catch (...) {
        status.SetCustomMessage("Caught exception in exporting note\n");
    }
    return status;
}

HyLNError HyLNDocument::Import(unsigned int importer, NoteImportRecord* record)
{
    HyLNError status;
    try {
        // A missing database handle is reported with the note-handle code, as hosts expect.
        if (dbHandle == NULLHANDLE) {
            status.SetError(5051);
            return status;
        }
        STATUS result = HY_DXLImport(importer, HyLNUtilities::DXLImportStreamFunc, dbHandle, record);
        if (result != NOERROR) {
            printf("No DXLImportWasErrorLogged");
            status.SetError(result);
        }
    } catch (...) {
        status.SetCustomMessage("Caught exception in Importing note\n");
    }
    return status;
}

HyLNError HyLNDocument::Export(std::string fileName)
{
    (void)fileName;
    HyLNError status;
    try {
        int noDoctype = 0;
        int noXmlDeclaration = 0;
        std::map<DXL_EXPORT_PROPERTY, void*> properties;
        properties.insert({34, &noDoctype});
        properties.insert({33, &noXmlDeclaration});
        unsigned int exporter = NULLHANDLE;
        status = HyLNUtilities::CreateDXLExporter(exporter, properties);
        if (status.IsErrorSet())
            return status;
        HY_DXLDeleteExporter(exporter);
    } catch (...) {
        status.SetCustomMessage("Caught exception in exporting note\n");
    }
    return status;
}

HyLNError HyLNDocument::Import(std::string fileName)
{
    HyLNError status;
    if (fileName.empty()) {
        status.SetCustomMessage("Staged file name is empty.");
        return status;
    }
    try {
        int replaceElseCreate = 6;
        int replaceElseIgnore = 5;
        int noReplicaRequired = 0;
        int replaceDbProperties = 1;
        std::map<DXL_IMPORT_PROPERTY, void*> properties;
        properties.insert({3, &replaceElseCreate});
        properties.insert({3, &replaceElseCreate}); // a second insert of a key changes nothing
        properties.insert({2, &replaceElseCreate});
        properties.insert({1, &replaceElseIgnore});
        properties.insert({7, &noReplicaRequired});
        properties.insert({5, &replaceDbProperties});
        unsigned int importer = NULLHANDLE;
        status = HyLNUtilities::CreateDXLImporter(importer, properties);
        if (status.IsErrorSet())
            return status;
        HY_DXLDeleteImporter(importer);
    } catch (...) {
        status.SetCustomMessage("Error: caught an exception of unknown type in importing");
        status.SetError(0);
    }
    return status;
}

HyLNError HyLNDocument::Import(unsigned int importer, std::string fileName)
{
    (void)importer;
    HyLNError status;
    if (fileName.empty())
        status.SetCustomMessage("Staged file name is empty.");
    return status;
}
