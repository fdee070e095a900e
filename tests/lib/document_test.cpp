// HyLNDocument: construction, the note handle it owns, guards, runtime failures and
// exceptions, each with its status and log line.
#include <functional>
#include <string>

#include "HYLNTool_Document.h"
#include "support/document_fixture.h"

using namespace hyln_test;

namespace {

const unsigned short kNoDb = 4996, kNoNote = 5051, kOwn = 0xFFFF, kThrew = 551;
const int kThrow = 1;

using Operation = std::function<HyLNError(HyLNDataDocument&)>;

struct Guard {
    const char* name;
    Operation run;
    unsigned short code;
    const char* logged; // "" when nothing is logged
};

HyLNError scanNothing(HyLNDataDocument& doc)
{
    return doc.ScanItems([](WORD, WORD, char*, WORD, void*, DWORD, void*) -> STATUS { return NOERROR; }, nullptr);
}

HyLNError appendNumber(HyLNDataDocument& doc)
{
    double value = 1;
    char name[] = "Number";
    return doc.AppendItem(ITEM_SUMMARY, name, 6, TYPE_NUMBER, &value, sizeof value);
}

HyLNError appendObject(HyLNDataDocument& doc)
{
    return doc.AppendObject(0, "Object", 6, BLOCKID{}, 8, FALSE);
}

STATUS collectName(WORD, WORD, char* name, WORD length, void*, DWORD, void* context)
{
    static_cast<std::vector<std::string>*>(context)->emplace_back(name, length);
    return NOERROR;
}

class Document : public DocumentTest {
protected:
    void SetUp() override
    {
        DocumentTest::SetUp();
        id = saveNote("Quarterly report");
        captureLog();
        sim().traceClear();
    }
    NOTEID id = 0;
};

} // namespace

TEST_F(Document, ConstructorsTakeTheDatabaseHandleFirst)
{
    static_assert(sizeof(HyLNDataDocument) == sizeof(HyLNDocument), "no data of its own");
    static_assert(sizeof(HyLNDesignDocument) == sizeof(HyLNDocument), "no data of its own");
    HyLNDocument empty;
    EXPECT_TRUE(empty.noteID == 0 && empty.noteHandle == 0 && empty.dbHandle == 0 && empty.text.empty());
    HyLNDocument pair(db, id);
    EXPECT_EQ(pair.dbHandle, db);
    EXPECT_EQ(pair.noteID, id);
    UNIVERSALNOTEID unid{{{1, 2}}, {{3, 4}}};
    HyLNDocument triple(db, id, unid);
    EXPECT_EQ(triple.unid.Note.Innards[1], 4u);
    HyLNDataDocument data(db, id);
    EXPECT_TRUE(data.dbHandle == db && data.noteID == id && data.noteHandle == 0);
    data.SetNoteID(77);
    EXPECT_EQ(data.noteID, 77u);
    HyLNDesignDocument design;
    EXPECT_EQ(design.noteHandle, 0u);
    EXPECT_EQ(sim().callCount("NSFNoteClose"), 0u); // nothing was open, nothing is closed
}

TEST_F(Document, GuardsCallNoRuntimeFunction)
{
    const Guard withoutDatabase[] = {
        {"Create", [](HyLNDataDocument& d) { return d.Create(); }, kNoDb, "Invalid db handle"},
        {"Open", [](HyLNDataDocument& d) { return d.Open(0); }, kNoDb, "Invalid db handle"},
        {"OpenExt", [](HyLNDataDocument& d) { return d.OpenExt(0); }, kNoDb, "Invalid db handle"},
        {"OpenByUNID", [](HyLNDataDocument& d) { return d.OpenByUNID(0); }, kNoDb, "Invalid db handle"},
        {"HardDelete", [](HyLNDataDocument& d) { return d.HardDelete(); }, kNoDb, "Invalid db handle"},
        {"Delete", [](HyLNDataDocument& d) { return d.Delete(0); }, kNoDb, "Invalid db handle"},
        {"GetInfoExtended", [](HyLNDataDocument& d) { return d.GetInfoExtended(nullptr, nullptr, nullptr); }, kNoDb,
         ""},
    };
    const Guard withoutNoteId[] = {
        {"Open", [](HyLNDataDocument& d) { return d.Open(0); }, kOwn, "Invalid note ID"},
        {"OpenExt", [](HyLNDataDocument& d) { return d.OpenExt(0); }, kOwn, "Invalid note ID"},
        {"HardDelete", [](HyLNDataDocument& d) { return d.HardDelete(); }, kOwn, "Invalid note ID"},
        {"Delete", [](HyLNDataDocument& d) { return d.Delete(0); }, kOwn, "Invalid note ID"},
    };
    TIMEDATE time{};
    std::string text = "kept?";
    unsigned int size = 0;
    unsigned long age = 0;
    bool flag = false;
    DbMigrateCriteria details;
    std::vector<ATTACHMENT> attachments;
    std::vector<std::string> extensions{"old"};
    const Guard withoutNote[] = {
        {"Close", [](HyLNDataDocument& d) { return d.Close(); }, kNoNote, ""},
        {"GetCreationTime", [&](HyLNDataDocument& d) { return d.GetCreationTime(time); }, kNoNote, ""},
        {"GetModifiedTime", [&](HyLNDataDocument& d) { return d.GetModifiedTime(time); }, kNoNote, ""},
        {"GetLastAccessedTime", [&](HyLNDataDocument& d) { return d.GetLastAccessedTime(time); }, kNoNote, ""},
        {"GetInfo", [&](HyLNDataDocument& d) { return d.GetInfo(_NOTE_MODIFIED, &time); }, kNoNote, ""},
        {"SetInfo", [&](HyLNDataDocument& d) { return d.SetInfo(_NOTE_MODIFIED, &time); }, kNoNote, ""},
        {"GetSubject", [&](HyLNDataDocument& d) { return d.GetSubject(text); }, kNoNote, ""},
        {"ScanItems", scanNothing, kNoNote, ""},
        {"Update", [](HyLNDataDocument& d) { return d.Update(0); }, kNoNote, ""},
        {"AppendItem", appendNumber, kNoNote, ""},
        {"AppendObject", appendObject, kNoNote, ""},
        {"GetSize", [&](HyLNDataDocument& d) { return d.GetSize(size, &size); }, kNoNote, ""},
        {"GetAgeInSeconds", [&](HyLNDataDocument& d) { return d.GetAgeInSeconds(age, 1); }, kNoNote, ""},
        {"GetSentRecievedTime", [&](HyLNDataDocument& d) { return d.GetSentRecievedTime(time); }, kNoNote, ""},
        {"IsMigratedMessage", [&](HyLNDataDocument& d) { return d.IsMigratedMessage(flag); }, kNoNote, ""},
        {"GetMigrationDetails", [&](HyLNDataDocument& d) { return d.GetMigrationDetails(details); }, kNoNote, ""},
        {"GetAttachmentList", [&](HyLNDataDocument& d) { return d.GetAttachmentList(attachments); }, kNoNote, ""},
        {"GetAttachmentInfoList", [&](HyLNDataDocument& d) { return d.GetAttachmentInfoList(extensions); }, kNoNote,
         ""},
        {"HasItem", [&](HyLNDataDocument& d) { return d.HasItem("Body", flag); }, kNoNote, ""},
        {"RemoveAttachments", [&](HyLNDataDocument& d) { return d.RemoveAttachments(flag); }, kNoNote, ""},
        {"RemoveMessageBody", [](HyLNDataDocument& d) { return d.RemoveMessageBody(); }, kNoNote, ""},
        {"RemoveSealedFields", [](HyLNDataDocument& d) { return d.RemoveSealedFields(); }, kNoNote, ""},
        {"SetItemText", [](HyLNDataDocument& d) { return d.SetItemText("StubData", "1"); }, kNoNote, ""},
        {"SetAttachment", [](HyLNDataDocument& d) { return d.SetAttachment("$FILE", "/tmp/x", "x", 0); }, kNoNote,
         ""},
    };
    HyLNDataDocument noDatabase(0, id), noNoteId(db, 0), noNote(db, id);
    auto check = [](const Guard* table, size_t count, HyLNDataDocument& doc) {
        for (size_t i = 0; i < count; ++i) {
            const Guard& guard = table[i];
            captureLog();
            HyLNError status = guard.run(doc);
            EXPECT_TRUE(status.IsErrorSet()) << guard.name;
            EXPECT_EQ(status.GetErrorCode(), guard.code) << guard.name;
            if (guard.code == kOwn) {
                EXPECT_EQ(status.GetMessage(), "Note ID note set");
            }
            if (*guard.logged == '\0') {
                EXPECT_TRUE(capturedLog().empty()) << guard.name;
            } else {
                expectOnlyLine(guard.name, 0, guard.logged);
            }
        }
    };
    sim().traceEnable(1);
    check(withoutDatabase, std::size(withoutDatabase), noDatabase);
    check(withoutNoteId, std::size(withoutNoteId), noNoteId);
    check(withoutNote, std::size(withoutNote), noNote);
    for (const std::string& call : simTrace())
        EXPECT_EQ(call.rfind("OSLoadString(", 0), 0u) << call; // the texts of the status codes only
    EXPECT_TRUE(text.empty() && extensions.empty()); // cleared on the way out
}

TEST_F(Document, OpenReadAndClose)
{
    {
        HyLNDataDocument doc(db, id);
        ASSERT_FALSE(doc.Open(0).IsErrorSet());
        ASSERT_NE(doc.noteHandle, 0u);
        std::string subject;
        ASSERT_FALSE(doc.GetSubject(subject).IsErrorSet());
        EXPECT_EQ(subject, "Quarterly report");
        std::string value;
        EXPECT_EQ(doc.GetItem("Subject", value), 16);
        EXPECT_EQ(value, "Quarterly report");
        EXPECT_EQ(doc.GetItem("Missing", value), 0);
        EXPECT_EQ(value, "");

        ORIGINATORID oid{};
        TIMEDATE modified{}, created{}, viaNote{};
        WORD noteClass = 0;
        ASSERT_FALSE(doc.GetInfoExtended(&oid, &modified, &noteClass).IsErrorSet());
        EXPECT_EQ(noteClass, NOTE_CLASS_DOCUMENT);
        ASSERT_FALSE(doc.GetCreationTime(created).IsErrorSet());
        ASSERT_FALSE(doc.GetModifiedTime(viaNote).IsErrorSet());
        EXPECT_EQ(std::memcmp(&created, &oid.Note, sizeof created), 0);
        EXPECT_EQ(std::memcmp(&viaNote, &modified, sizeof modified), 0);

        std::vector<std::string> names;
        ASSERT_FALSE(doc.ScanItems(collectName, &names).IsErrorSet());
        EXPECT_EQ(names, std::vector<std::string>{"Subject"});
    }
    EXPECT_EQ(sim().callCount("NSFNoteClose"), 1u); // by the destructor
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Document, OpenByUnidAndByExtendedFlags)
{
    ORIGINATORID oid{};
    ASSERT_EQ(HY_NSFDbGetNoteInfo(db, id, &oid, nullptr, nullptr), NOERROR);
    UNIVERSALNOTEID unid;
    std::memcpy(&unid, &oid, sizeof unid);
    HyLNDocument byUnid(db, 0, unid);
    ASSERT_FALSE(byUnid.OpenByUNID(0).IsErrorSet());
    HyLNDocument extended(db, id);
    ASSERT_FALSE(extended.OpenExt(OPEN_SUMMARY).IsErrorSet());
    std::string a, b;
    byUnid.GetItem("Subject", a);
    extended.GetItem("Subject", b);
    EXPECT_EQ(a, b);
    EXPECT_FALSE(byUnid.Close().IsErrorSet());
    EXPECT_EQ(byUnid.noteHandle, 0u);
    EXPECT_EQ(byUnid.Close().GetErrorCode(), kNoNote);
}

TEST_F(Document, CreateAppendUpdateAndItemText)
{
    HyLNDataDocument doc(db, 0);
    ASSERT_FALSE(doc.Create().IsErrorSet());
    std::string longText(1500, 'z');
    ASSERT_FALSE(doc.SetItemText("Body", longText).IsErrorSet());
    ASSERT_FALSE(appendNumber(doc).IsErrorSet());
    ASSERT_FALSE(doc.Update(0).IsErrorSet());
    std::string value;
    EXPECT_EQ(doc.GetItem("Body", value), 1023);
    EXPECT_EQ(value, std::string(1023, 'z'));
    NOTEID created = 0;
    ASSERT_FALSE(doc.GetInfo(_NOTE_ID, &created).IsErrorSet());
    EXPECT_NE(created, 0u);
    EXPECT_EQ(doc.noteID, 0u); // the document keeps the ID it was given
    TIMEDATE zero{};
    ASSERT_FALSE(doc.SetInfo(_NOTE_ACCESSED, &zero).IsErrorSet());
    TIMEDATE accessed{{9, 9}};
    ASSERT_FALSE(doc.GetLastAccessedTime(accessed).IsErrorSet());
    EXPECT_EQ(accessed.Innards[0], 0u);
}

TEST_F(Document, DeleteKeepsTheHandleAndHardDeleteForgetsIt)
{
    NOTEID second = saveNote("second");
    sim().traceClear();
    {
        HyLNDataDocument doc(db, id);
        ASSERT_FALSE(doc.Open(0).IsErrorSet());
        NOTEHANDLE open = doc.noteHandle;
        ASSERT_FALSE(doc.Delete(0).IsErrorSet());
        EXPECT_EQ(doc.noteID, 0u);
        EXPECT_EQ(doc.noteHandle, open);
    }
    EXPECT_EQ(sim().callCount("NSFNoteClose"), 1u);
    {
        HyLNDataDocument doc(db, second);
        ASSERT_FALSE(doc.Open(0).IsErrorSet());
        ASSERT_FALSE(doc.HardDelete().IsErrorSet());
        EXPECT_EQ(doc.noteID, 0u);
        EXPECT_EQ(doc.noteHandle, 0u);
    }
    EXPECT_EQ(sim().callCount("NSFNoteClose"), 1u); // the forgotten handle is not closed
    EXPECT_EQ(HY_NSFDbGetNoteInfo(db, id, nullptr, nullptr, nullptr), ERR_NOTE_DELETED);
    EXPECT_EQ(HY_NSFDbGetNoteInfo(db, second, nullptr, nullptr, nullptr), ERR_INVALID_NOTE);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Document, RuntimeFailuresAndTheirLines)
{
    std::string subject = "before";
    const struct {
        const char* api;
        const char* name;
        Operation run;
        bool needsNote;
        std::string line; // "" when nothing is logged
    } cases[] = {
        {"NSFNoteCreate", "Create", [](HyLNDataDocument& d) { return d.Create(); }, false,
         formatted("Error: unable to create note: NSFNoteCreate(...) returned: [%d]. ", id)},
        {"NSFNoteOpen", "Open", [](HyLNDataDocument& d) { return d.Open(0); }, false,
         formatted("Error: unable to open note: [%08x]. NSFNoteOpen(...) returned: [546]. ", id)},
        {"NSFNoteOpenExt", "OpenExt", [](HyLNDataDocument& d) { return d.OpenExt(0); }, false,
         formatted("Error: unable to open note: [%08x]. NSFNoteOpen(...) returned: [546]. ", id)},
        {"NSFNoteOpenByUNID", "OpenByUNID", [](HyLNDataDocument& d) { return d.OpenByUNID(0); }, false,
         "Error: unable to open note: NSFNoteOpenByUNID(...) returned: [546]. "},
        {"NSFNoteClose", "Close", [](HyLNDataDocument& d) { return d.Close(); }, true,
         "Error: unable to open note: [00000222]. NSFNoteOpen(...) returned: [546]. "},
        {"NSFNoteHardDelete", "HardDelete", [](HyLNDataDocument& d) { return d.HardDelete(); }, false,
         formatted("Error: NSFNoteHardDelete(...)of Note [%d] returned: [546]. Resulting error string: [Note item not "
                   "found].",
                   id)},
        {"NSFNoteDelete", "Delete", [](HyLNDataDocument& d) { return d.Delete(0); }, false,
         formatted("Error: NSFNoteDelete(...)of Note [%d] returned: [546]. Resulting error string: [Note item not "
                   "found].",
                   id)},
        {"MailGetMessageItem", "GetSubject", [&](HyLNDataDocument& d) { return d.GetSubject(subject); }, true, ""},
        {"NSFDbGetNoteInfo", "GetInfoExtended",
         [](HyLNDataDocument& d) { return d.GetInfoExtended(nullptr, nullptr, nullptr); }, false, ""},
        {"NSFItemScan", "ScanItems", scanNothing, true, ""},
        {"NSFNoteUpdate", "Update", [](HyLNDataDocument& d) { return d.Update(0); }, true, ""},
        {"NSFItemAppend", "AppendItem", appendNumber, true, ""},
        {"NSFItemAppendObject", "AppendObject", appendObject, true, ""},
    };
    for (const auto& c : cases) {
        HyLNDataDocument doc(db, id);
        if (c.needsNote) {
            ASSERT_FALSE(doc.Open(0).IsErrorSet());
        }
        NOTEHANDLE before = doc.noteHandle;
        captureLog();
        sim().setFault(c.api, kItemNotFound, 0, 0);
        HyLNError status = c.run(doc);
        sim().clearFaults();
        EXPECT_EQ(status.GetErrorCode(), kItemNotFound) << c.name;
        EXPECT_EQ(status.GetMessage(), "Note item not found") << c.name;
        if (c.line.empty()) {
            EXPECT_TRUE(capturedLog().empty()) << c.name;
        } else {
            expectOnlyLine(c.name, 0, c.line);
        }
        if (c.needsNote) {
            EXPECT_EQ(doc.noteHandle, before) << c.name; // a failed Close keeps the handle
        }
    }
    EXPECT_EQ(subject, "");
    EXPECT_EQ(HY_NSFDbGetNoteInfo(db, id, nullptr, nullptr, nullptr), NOERROR);
}

TEST_F(Document, ExceptionsFromTheRuntime)
{
    const std::string prefix = "Error: caught an exception of unknown type thrown by Domino API function: ";
    TIMEDATE time{};
    std::string subject;
    const struct {
        const char* api;
        const char* name;
        Operation run;
        bool needsNote;
        unsigned short code;
        std::string message; // the custom message, or "" for the runtime's text of the code
        std::string line;    // "" when nothing is logged
    } cases[] = {
        {"NSFNoteCreate", "Create", [](HyLNDataDocument& d) { return d.Create(); }, false, 0,
         prefix + "[NSFNoteCreate(\t...)].", ""},
        {"NSFNoteOpen", "Open", [](HyLNDataDocument& d) { return d.Open(0); }, false, kThrew, "",
         prefix + "[NSFNoteOpen(...)]."},
        {"NSFNoteOpenExt", "OpenExt", [](HyLNDataDocument& d) { return d.OpenExt(0); }, false, kThrew, "",
         prefix + "[NSFNoteOpen(...)]."},
        {"NSFNoteOpenByUNID", "OpenByUNID", [](HyLNDataDocument& d) { return d.OpenByUNID(0); }, false, kThrew, "",
         prefix + "[NSFNoteOpen(...)]."},
        {"NSFNoteClose", "Close", [](HyLNDataDocument& d) { return d.Close(); }, true, kThrew, "",
         prefix + "[NSFNoteClose(\t...)]."},
        {"NSFNoteGetInfo", "GetCreationTime", [&](HyLNDataDocument& d) { return d.GetCreationTime(time); }, true, 0,
         prefix + "[NSFNoteGetInfo(\t...)].", ""},
        {"NSFNoteGetInfo", "GetModifiedTime", [&](HyLNDataDocument& d) { return d.GetModifiedTime(time); }, true, 0,
         prefix + "[NSFNoteGetInfo(\t...)].", ""},
        {"NSFNoteGetInfo", "GetLastAccessedTime", [&](HyLNDataDocument& d) { return d.GetLastAccessedTime(time); },
         true, 0, prefix + "[NSFNoteGetInfo(\t...)].", ""},
        {"NSFNoteGetInfo", "GetInfo", [&](HyLNDataDocument& d) { return d.GetInfo(_NOTE_MODIFIED, &time); }, true, 0,
         prefix + "[NSFNoteGetInfo(\t...)].", ""},
        {"NSFDbGetNoteInfo", "GetInfoExtended",
         [](HyLNDataDocument& d) { return d.GetInfoExtended(nullptr, nullptr, nullptr); }, false, 0,
         prefix + "[NSFNoteGetInfo(\t...)].", ""},
        {"NSFNoteSetInfo", "SetInfo", [&](HyLNDataDocument& d) { return d.SetInfo(_NOTE_ACCESSED, &time); }, true, 0,
         prefix + "[NSFNoteSetInfo(\t...)].", ""},
        {"MailGetMessageItem", "GetSubject", [&](HyLNDataDocument& d) { return d.GetSubject(subject); }, true, 0,
         prefix + "[MailGetMessageItem(\t...)].", ""},
        {"NSFNoteHardDelete", "HardDelete", [](HyLNDataDocument& d) { return d.HardDelete(); }, false, 0,
         prefix + "[NSFNoteHardDelete(\t...)].", ""},
        {"NSFNoteDelete", "Delete", [](HyLNDataDocument& d) { return d.Delete(0); }, false, 0,
         prefix + "[NSFNoteDelete(\t...)].", ""},
        {"NSFNoteUpdate", "Update", [](HyLNDataDocument& d) { return d.Update(0); }, true, kOwn,
         "Caught and exception during NoteUpdate", ""},
        {"NSFItemAppend", "AppendItem", appendNumber, true, kOwn, "Caught and exception during NSFItemAppend", ""},
        {"NSFItemAppendObject", "AppendObject", appendObject, true, kOwn,
         "Caught and exception during NSFItemAppendObject", ""},
    };
    for (const auto& c : cases) {
        HyLNDataDocument doc(db, id);
        if (c.needsNote) {
            ASSERT_FALSE(doc.Open(0).IsErrorSet());
        }
        captureLog();
        sim().setFault(c.api, 0, 0, kThrow);
        HyLNError status = c.run(doc);
        sim().clearFaults();
        EXPECT_TRUE(status.IsErrorSet()) << c.name;
        EXPECT_EQ(status.GetErrorCode(), c.code) << c.name;
        EXPECT_EQ(status.GetMessage(), c.message.empty() ? "Invalid or nonexistent document" : c.message) << c.name;
        if (c.line.empty()) {
            EXPECT_TRUE(capturedLog().empty()) << c.name;
        } else {
            expectOnlyLine(c.name, 0, c.line);
        }
        if (std::string(c.name) == "Close") {
            EXPECT_EQ(doc.noteHandle, 0u); // an interrupted close lets the handle go
        }
    }

    // Scanning has no guard: the exception reaches the caller.
    HyLNDataDocument doc(db, id);
    ASSERT_FALSE(doc.Open(0).IsErrorSet());
    sim().setFault("NSFItemScan", 0, 0, kThrow);
    EXPECT_ANY_THROW(scanNothing(doc));
}
