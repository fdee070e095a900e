// Archiving a mail note: attachment records and lists, removals, stub marker, item
// text and attachments on restore, with their status codes and log lines.
#include <functional>
#include <string>

#include "HYLNTool_Document.h"
#include "support/document_fixture.h"

using namespace hyln_test;

namespace {

const int kThrow = 1;

class Archiving : public DocumentTest {
protected:
    // An open mail note with the given attachments (stored name, content) and text items.
    void openMail(HyLNDataDocument& doc, const std::vector<std::pair<std::string, std::string>>& files,
                  const std::vector<std::string>& items = {})
    {
        doc.dbHandle = db;
        doc.SetNoteID(saveNote("archive me"));
        ASSERT_FALSE(doc.Open(0).IsErrorSet());
        for (const auto& file : files)
            ASSERT_FALSE(doc.SetAttachment("$FILE", writeFile("upload", file.second), file.first, 0).IsErrorSet());
        for (const std::string& item : items)
            ASSERT_FALSE(doc.SetItemText(item, "x").IsErrorSet());
        captureLog();
        sim().traceClear();
    }
    static bool has(HyLNDataDocument& doc, const char* item)
    {
        bool found = false;
        itemData(doc.noteHandle, item, found);
        return found;
    }
};

} // namespace

TEST_F(Archiving, AttachmentNamesRecordedWithTheirZeroBytes)
{
    HyLNDataDocument doc;
    openMail(doc, {{"a.txt", "alpha"}, {"b", "beta"}, {"x.tar.gz", "gamma"}});
    ASSERT_FALSE(doc.AddAttachmentInfo().IsErrorSet());
    bool found = false;
    EXPECT_EQ(itemData(doc.noteHandle, "AttachmentData", found), std::string("a.txt\0b\0x.tar.gz\0", 17));
    std::vector<std::string> extensions{"kept"};
    ASSERT_FALSE(doc.GetAttachmentInfoList(extensions).IsErrorSet());
    EXPECT_EQ(extensions, (std::vector<std::string>{"kept", ".txt", ".gz"}));

    HyLNDataDocument none;
    openMail(none, {});
    ASSERT_FALSE(none.AddAttachmentInfo().IsErrorSet());
    EXPECT_EQ(itemData(none.noteHandle, "AttachmentData", found), "");
    EXPECT_TRUE(found);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Archiving, RemovingAttachmentsRecordsThemFirst)
{
    HyLNDataDocument plain;
    openMail(plain, {});
    bool removed = true;
    ASSERT_FALSE(plain.RemoveAttachments(removed).IsErrorSet());
    EXPECT_FALSE(removed);
    EXPECT_FALSE(has(plain, "AttachmentData"));

    HyLNDataDocument doc;
    openMail(doc, {{"a.txt", "alpha"}, {"b.pdf", "beta"}});
    ASSERT_FALSE(doc.RemoveAttachments(removed).IsErrorSet());
    EXPECT_TRUE(removed);
    EXPECT_FALSE(has(doc, "$FILE"));
    bool found = false;
    EXPECT_EQ(itemData(doc.noteHandle, "AttachmentData", found), std::string("a.txt\0b.pdf\0", 12));
    ASSERT_FALSE(doc.Update(0).IsErrorSet());
    std::vector<ATTACHMENT> left;
    ASSERT_FALSE(doc.GetAttachmentList(left).IsErrorSet());
    EXPECT_TRUE(left.empty());
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Archiving, RecordFailureDoesNotStopTheRemoval)
{
    HyLNDataDocument doc;
    openMail(doc, {{"a.txt", "alpha"}});
    sim().setFault("NSFItemSetText", kItemNotFound, 0, 0);
    bool removed = false;
    HyLNError status = doc.RemoveAttachments(removed);
    EXPECT_TRUE(removed);
    EXPECT_EQ(status.GetErrorCode(), kItemNotFound);
    EXPECT_FALSE(has(doc, "$FILE"));
    EXPECT_EQ(logTexts(),
              (std::vector<std::string>{
                  formatted("Warning: unable to add attachment info field to note: [%d]. NSFItemSetText(...) returned: "
                            "[546]. Resulting error string: [Note item not found].",
                            doc.noteID),
                  formatted("Warning: unable to add attachment information to note: [%d].", doc.noteID)}));
    EXPECT_EQ(capturedLog()[0].function, "AddAttachmentInfo");
    EXPECT_EQ(capturedLog()[1].function, "RemoveAttachments");
}

TEST_F(Archiving, RemovalFailuresAndTheirLines)
{
    const struct {
        const char* name;
        std::function<HyLNError(HyLNDataDocument&)> run;
        std::vector<std::string> items;
        unsigned int faultCall; // which NSFItemDelete call fails
        const char* line;
        std::vector<const char*> kept;
    } cases[] = {
        {"RemoveAttachments",
         [](HyLNDataDocument& d) {
             bool removed = true;
             HyLNError status = d.RemoveAttachments(removed);
             EXPECT_FALSE(removed);
             return status;
         },
         {}, 1,
         "Error: unable to remove attachment for note: [%d]. NSFItemDelete(...) returned: [546]. Resulting error "
         "string: [Note item not found].",
         {"$FILE", "AttachmentData"}},
        {"RemoveMessageBody", [](HyLNDataDocument& d) { return d.RemoveMessageBody(); }, {"Body"}, 1,
         "Error: unable to remove body for note [%d]. NSFItemDelete(...) returned: [546]. Resulting error string: "
         "[Note item not found].",
         {"Body"}},
        {"RemoveSealedFields", [](HyLNDataDocument& d) { return d.RemoveSealedFields(); }, {"$Seal", "$SealData"}, 1,
         "Error: unable to remove $Seal field for note [%d]. NSFItemDelete(...) returned: [546]. Resulting error "
         "string: [Note item not found].",
         {"$Seal", "$SealData"}},
        {"RemoveSealedFields", [](HyLNDataDocument& d) { return d.RemoveSealedFields(); }, {"$Seal", "$SealData"}, 2,
         "Error: unable to remove $SealData field for note [%d]. NSFItemDelete(...) returned: [546]. Resulting error "
         "string: [Note item not found].",
         {"$SealData"}},
    };
    for (const auto& c : cases) {
        HyLNDataDocument doc;
        openMail(doc, {{"a.txt", "alpha"}}, c.items);
        sim().setFault("NSFItemDelete", kItemNotFound, c.faultCall, 0);
        HyLNError status = c.run(doc);
        sim().clearFaults();
        EXPECT_EQ(status.GetErrorCode(), kItemNotFound) << c.name;
        expectOnlyLine(c.name, 0, formatted(c.line, doc.noteID));
        for (const char* item : c.kept)
            EXPECT_TRUE(has(doc, item)) << c.name << " " << item;
    }
}

TEST_F(Archiving, BodyAndSealsRemovedWhenPresent)
{
    HyLNDataDocument doc;
    openMail(doc, {}, {"Body", "$SealData", "Subject2"});
    ASSERT_FALSE(doc.RemoveMessageBody().IsErrorSet());
    ASSERT_FALSE(doc.RemoveMessageBody().IsErrorSet()); // an absent body is no error
    ASSERT_FALSE(doc.RemoveSealedFields().IsErrorSet()); // no $Seal: only $SealData goes
    EXPECT_FALSE(has(doc, "Body"));
    EXPECT_FALSE(has(doc, "$SealData"));
    EXPECT_TRUE(has(doc, "Subject2"));
    EXPECT_EQ(sim().callCount("NSFItemDelete"), 2u);
}

TEST_F(Archiving, StubMarkerItemsAndTheDecisionLeftToTheHost)
{
    HyLNDataDocument doc;
    openMail(doc, {});
    bool migrated = true, present = true, required = true;
    ASSERT_FALSE(doc.IsMigratedMessage(migrated).IsErrorSet());
    EXPECT_FALSE(migrated);
    ASSERT_FALSE(doc.SetItemText("StubData", "archived").IsErrorSet());
    ASSERT_FALSE(doc.IsMigratedMessage(migrated).IsErrorSet());
    EXPECT_TRUE(migrated);
    ASSERT_FALSE(doc.HasItem("Subject", present).IsErrorSet());
    EXPECT_TRUE(present);
    ASSERT_FALSE(doc.HasItem("Missing", present).IsErrorSet());
    EXPECT_FALSE(present);

    EXPECT_FALSE(doc.IsMigrationRequired(DbMigrateCriteria(), required).IsErrorSet());
    EXPECT_TRUE(required);
    std::string details = "as given";
    unsigned char data[] = "x";
    for (HyLNError status : {doc.StubNote(), doc.PruneStub(), doc.GetStubDetails(details), doc.SetStubDetails(data, 1)})
        EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(details, "as given");

    doc.SetNoteID(doc.noteID | RRV_DELETED);
    sim().traceClear();
    EXPECT_EQ(doc.HasItem("Subject", present).GetMessage(), "HasAttachment request for deleted note");
    EXPECT_FALSE(present);
    EXPECT_EQ(sim().callCount("NSFItemInfo"), 0u);
}

TEST_F(Archiving, MigrationDetailsAddUpAcrossCalls)
{
    HyLNDataDocument doc;
    openMail(doc, {{"a.txt", "alpha"}, {"b.bin", std::string(300, 'b')}});
    DbMigrateCriteria details;
    details.AttachmentSize = 0;
    ASSERT_FALSE(doc.GetMigrationDetails(details).IsErrorSet());
    EXPECT_EQ(details.AttachmentNumbers, 2);
    EXPECT_EQ(details.AttachmentSize, 305);
    ASSERT_EQ(details.Attachments.size(), 2u);
    EXPECT_EQ(details.Attachments[1].Name, "b.bin");
    EXPECT_EQ(details.Attachments[1].Size, 300u);
    TIMEDATE created{};
    ASSERT_FALSE(doc.GetCreationTime(created).IsErrorSet());
    EXPECT_EQ(HY_TimeDateCompare(&created, &details.CreationTime), 0);

    ASSERT_FALSE(doc.GetMigrationDetails(details).IsErrorSet());
    EXPECT_EQ(details.AttachmentNumbers, 2);
    EXPECT_EQ(details.AttachmentSize, 610);
    EXPECT_EQ(details.Attachments.size(), 4u);
    EXPECT_EQ(details.MessageBodySize, 0);

    sim().setFault("NSFNoteGetInfo", 0, 0, kThrow);
    EXPECT_EQ(doc.GetMigrationDetails(details).GetMessage(),
              "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteGetInfo(\t...)].");
    EXPECT_EQ(details.AttachmentSize, 610);
}

TEST_F(Archiving, ItemTextAndAttachmentFailures)
{
    HyLNDataDocument doc;
    openMail(doc, {});
    sim().setFault("NSFItemSetText", kItemNotFound, 0, 0);
    HyLNError status = doc.SetItemText("StubData", "1");
    sim().clearFaults();
    // Only the code is kept, so the line ends without a text and no error counts as set.
    EXPECT_EQ(status.GetErrorCode(), kItemNotFound);
    EXPECT_FALSE(status.IsErrorSet());
    expectOnlyLine("SetItemText", 0,
                   formatted("Unable to set Item StubData to current Note %08x. NSFItemSetText(...) returned 546 - ",
                             doc.noteID));

    captureLog();
    status = doc.SetAttachment("$FILE", dataDir + "/no-such-file", "x", 0);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Archiving, ExceptionsBecomeMessages)
{
    HyLNDataDocument doc;
    openMail(doc, {{"a.txt", "alpha"}});
    bool flag = false;
    std::vector<std::string> extensions;
    std::vector<ATTACHMENT> attachments;
    const struct {
        const char* api;
        std::function<HyLNError()> run;
        const char* message;
    } cases[] = {
        {"NSFItemInfo", [&] { return doc.IsMigratedMessage(flag); },
         "Caught exception in [NSFItemIsPresent(\t...)] while checking for migration\t\n"},
        {"NSFItemInfo", [&] { return doc.HasItem("Body", flag); },
         "Caught exception in [NSFItemIsPresent(\t...)] while checking for attachment\t\n"},
        {"NSFItemSetText", [&] { return doc.SetItemText("StubData", "1"); }, "Caught an exception during SetItemText()"},
        {"NSFNoteAttachFile", [&] { return doc.SetAttachment("$FILE", "/nonexistent", "x", 0); },
         "Exception caught during SetAttachment()"},
        {"MailGetMessageAttachmentInfo", [&] { return doc.GetAttachmentList(attachments); },
         "Caught exception in [MailGetMessageAttachmentInfo(\t...)]\n"},
        {"MailGetMessageAttachmentInfo", [&] { return doc.GetAttachmentInfoList(extensions); },
         "Caught exception in [MailGetMessageAttachmentInfo(\t...)] \n"},
    };
    for (const auto& c : cases) {
        sim().setFault(c.api, 0, 0, kThrow);
        HyLNError status = c.run();
        sim().clearFaults();
        EXPECT_EQ(status.GetErrorCode(), 0xFFFF) << c.message;
        EXPECT_EQ(status.GetMessage(), c.message);
    }
    EXPECT_TRUE(capturedLog().empty());
    // The removals have no guard.
    sim().setFault("NSFItemInfo", 0, 0, kThrow);
    EXPECT_ANY_THROW(doc.RemoveMessageBody());
}
