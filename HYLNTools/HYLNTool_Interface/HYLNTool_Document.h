// One note of an open database: the note handle the document owns, the database
// handle it borrows, and what the host does to a mail note when it archives it.
#ifndef HYLNTOOL_DOCUMENT_H
#define HYLNTOOL_DOCUMENT_H

#include <string>
#include <vector>

#include "HYLNTool_Error.h"
#include "HYLNTool_Export.h"
#include "HYLNTool_NotesAPI.h"
#include "HYLNTool_NotesUtilities.h"

// Contexts of the DXL stream callbacks (defined with the DXL helpers).
struct NoteExportRecord;
struct NoteImportRecord;

class HYLN_EXPORT HyLNDocument {
public:
    HyLNDocument();
    // The note handle is left for Open/Create to fill.
    HyLNDocument(unsigned int dbHandle, unsigned int noteID);
    HyLNDocument(unsigned int dbHandle, unsigned int noteID, UNIVERSALNOTEID unid);
    // Closes the note if one is held; the database handle is never closed here.
    virtual ~HyLNDocument();

    // Takes the handle as given: a handle held before is not closed.
    void SetNoteHandle(unsigned int noteHandle);

    HyLNError Create();
    HyLNError Open(unsigned short flags);
    HyLNError OpenExt(unsigned int flags);
    HyLNError OpenByUNID(unsigned short flags);
    HyLNError Close();

    HyLNError GetCreationTime(TIMEDATE& creationTime);
    HyLNError GetModifiedTime(TIMEDATE& modifiedTime);
    HyLNError GetLastAccessedTime(TIMEDATE& accessedTime);
    HyLNError GetInfo(unsigned short what, void* value);
    HyLNError SetInfo(unsigned short what, void* value);
    // Reads from the database by note ID; no open note is needed.
    HyLNError GetInfoExtended(ORIGINATORID* oid, TIMEDATE* modified, unsigned short* noteClass);
    HyLNError GetSubject(std::string& subject);
    HyLNError ScanItems(NSFITEMSCANPROC callback, void* context);
    // Text of an item (at most 1023 bytes) and its length; 0 for a missing item.
    unsigned short GetItem(const char* itemName, std::string& value);

    HyLNError HardDelete();
    HyLNError Delete(unsigned short flags);
    HyLNError Update(unsigned short flags);
    HyLNError AppendItem(unsigned short itemFlags, char* name, unsigned short nameLength,
                         unsigned short dataType, void* value, unsigned int valueLength);
    HyLNError AppendObject(unsigned short itemFlags, const char* name, unsigned short nameLength,
                           BLOCKID value, unsigned int valueLength, int deallocate);

    // Age and size.
    // `computeHandle` is HyLNUtilities::GetSizeFormulaHandle() of an initialised object.
    HyLNError GetSize(unsigned int& size, void* computeHandle);
    // Non-zero `useSentReceived`: from delivery or posting (age 0 when neither is known);
    // zero: from the note's latest revision.
    HyLNError GetAgeInSeconds(unsigned long& age, unsigned long useSentReceived);
    HyLNError GetSentRecievedTime(TIMEDATE& time);

    // DXL of this note.
    HyLNError Export(unsigned int& exporter, NoteExportRecord* record);
    HyLNError Import(unsigned int importer, NoteImportRecord* record);
    HyLNError Export(std::string fileName);
    HyLNError Import(std::string fileName);
    HyLNError Import(unsigned int importer, std::string fileName);

    NOTEID noteID;
    UNIVERSALNOTEID unid;
    NOTEHANDLE noteHandle;
    std::string text; // kept for the host; the class itself never uses it
    DBHANDLE dbHandle;
};

// A mail or data note, with the operations that archive it and leave a stub.
class HYLN_EXPORT HyLNDataDocument : public HyLNDocument {
public:
    HyLNDataDocument();
    HyLNDataDocument(unsigned int dbHandle, unsigned int noteID);
    ~HyLNDataDocument() override;

    void SetNoteID(unsigned int noteID);

    // True when the note already carries the stub marker.
    HyLNError IsMigratedMessage(bool& migrated);
    // The decision is the host's: nothing is evaluated and `required` is not written.
    HyLNError IsMigrationRequired(DbMigrateCriteria criteria, bool& required);
    // Adds to the record's attachment sum and list: pass a fresh record.
    HyLNError GetMigrationDetails(DbMigrateCriteria& details);
    HyLNError StubNote();
    HyLNError PruneStub();
    HyLNError GetStubDetails(std::string& details);
    HyLNError SetStubDetails(unsigned char* data, int length);
    HyLNError HasItem(std::string itemName, bool& present);
    HyLNError GetAttachmentInfoList(std::vector<std::string>& extensions);
    HyLNError GetAttachmentList(std::vector<ATTACHMENT>& attachments);
    HyLNError AddAttachmentInfo();
    HyLNError RemoveAttachments(bool& removed);
    HyLNError RemoveMessageBody();
    HyLNError SetItemText(std::string itemName, std::string value);
    HyLNError SetAttachment(std::string itemName, std::string filePath, std::string attachmentName,
                            unsigned short encoding);
    HyLNError RemoveSealedFields();
};

// A design note; nothing beyond the document handle.
class HYLN_EXPORT HyLNDesignDocument : public HyLNDocument {
public:
    HyLNDesignDocument();
    ~HyLNDesignDocument() override;
};

#endif
