// Mail items by number and the attachments of a message.
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {

const WORD kSendTo = 0, kSubject = 3, kPostedDate = 5, kDeliveredDate = 16, kJournalFlag = 45, kMailItems = 46;

class Mail : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("mail.nsf");
        note = newNote(db);
    }
    void TearDown() override
    {
        NSFNoteClose(note);
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    // Attaches a file of `bytes` under the stored name.
    void attach(const std::string& storedName, const std::string& bytes)
    {
        std::string path = dataDir + "/upload.bin";
        storage_test::writeFile(path, bytes);
        ASSERT_EQ(NSFNoteAttachFile(note, "$FILE", 5, path.c_str(), storedName.c_str(), 0), NOERROR);
    }
    std::string item(WORD code, WORD size = 256, STATUS expected = NOERROR)
    {
        char buffer[300];
        std::memset(buffer, 'x', sizeof buffer);
        WORD length = 999;
        EXPECT_EQ(MailGetMessageItem(note, code, buffer, size, &length), expected);
        if (expected != NOERROR)
            return "<failed>";
        EXPECT_EQ(buffer[length], '\0');
        return std::string(buffer, length);
    }
    DBHANDLE db = NULLHANDLE;
    NOTEHANDLE note = NULLHANDLE;
};

} // namespace

TEST_F(Mail, ItemsByNumber)
{
    setText(note, "Subject", "Quarterly report");
    std::string recipients = std::string("\x02\x00\x04\x00\x03\x00", 6) + "Anneeve";
    append(note, "SendTo", TYPE_TEXT_LIST, recipients.data(), static_cast<DWORD>(recipients.size()));
    TIMEDATE posted{{1, 2}};
    append(note, "PostedDate", TYPE_TIME, &posted, sizeof posted);

    EXPECT_EQ(item(kSubject), "Quarterly report");
    EXPECT_EQ(item(kSendTo), "Anne,eve");
    EXPECT_EQ(item(kPostedDate), "");    // not a text
    EXPECT_EQ(item(kDeliveredDate), ""); // absent
    EXPECT_EQ(item(kSubject, 8), "Quarter");
}

TEST_F(Mail, ItemRefusals)
{
    EXPECT_EQ(item(kMailItems, 256, sim::STS_BAD_ARGUMENT), "<failed>");
    EXPECT_EQ(item(kJournalFlag, 256, sim::STS_UNSUPPORTED), "<failed>");
    char buffer[16];
    EXPECT_EQ(MailGetMessageItem(NULLHANDLE, kSubject, buffer, sizeof buffer, nullptr), ERR_NULL_NOTEHANDLE);
    EXPECT_EQ(MailGetMessageItem(note, kSubject, nullptr, 16, nullptr), sim::STS_BAD_ARGUMENT);
}

TEST_F(Mail, AttachmentsInItemOrder)
{
    attach("a.txt", "12345");
    setText(note, "Body", "see attached");
    const char notAFile[] = "text named $FILE";
    append(note, "$FILE", TYPE_TEXT, notAFile, sizeof notAFile - 1);
    attach("nested/b", std::string(70000, 'b'));

    std::vector<std::pair<std::string, DWORD>> found;
    for (WORD n = 0;; ++n) {
        BLOCKID item{};
        char name[MAXPATH + 1];
        DWORD size = 0;
        WORD attributes = 9, host = 9;
        TIMEDATE created{}, modified{};
        if (!MailGetMessageAttachmentInfo(note, n, &item, name, &size, &attributes, &host, &created, &modified))
            break;
        found.emplace_back(name, size);
        EXPECT_EQ(host, 0);
        EXPECT_EQ(attributes, 0);
        EXPECT_NE(modified.Innards[1], 0u);
        // The item block is the $FILE item's header: flags, name length, type, value length, name.
        const char* header = static_cast<const char*>(OSLockObject(item.pool)) + item.block;
        WORD type = 0;
        std::memcpy(&type, header + 4, sizeof type);
        EXPECT_EQ(type, TYPE_OBJECT);
        EXPECT_EQ(std::string(header + 10, 5), "$FILE");
        OSUnlockObject(item.pool);
    }
    std::vector<std::pair<std::string, DWORD>> expected = {{"a.txt", 5}, {"b", 70000}};
    EXPECT_EQ(found, expected);
}

TEST_F(Mail, AttachmentOptionalOutputsAndRefusals)
{
    attach("only.pdf", "%PDF");
    BLOCKID item{};
    EXPECT_TRUE(MailGetMessageAttachmentInfo(note, 0, &item, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(MailGetMessageAttachmentInfo(note, 1, &item, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(MailGetMessageAttachmentInfo(note, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(MailGetMessageAttachmentInfo(NULLHANDLE, 0, &item, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
}
