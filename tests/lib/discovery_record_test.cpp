// The database record sent to the host for one discovered database.
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "support/domino_fixture.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

std::vector<std::string> sent;
bool sendAccepted(char* message)
{
    sent.emplace_back(message);
    return false;
}

const std::string kFull = std::string("mail/user01.nsf\x12User 01\x12($All)\x15") + "8525721B:0052A1C3\x15" +
                          "CN=User 01/O=Org1";

class ProcessDatabaseTest : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        std::filesystem::create_directories(dataDir + "/mail");
        createDatabase("mail/user01.nsf", "User 01");
        sent.clear();
        SetSendMsgCallback(sendAccepted);
        captureLog();
    }
    void TearDown() override
    {
        SetSendMsgCallback(nullptr);
        RuntimeTest::TearDown();
    }
    HyLNError process(const char* path, const std::string& owner = "CN=User 01/O=Org1", bool quick = false)
    {
        std::string buffer = path;
        return HyLNUtilities::ProcessDatabase(buffer.data(), owner, &reported, quick);
    }
    std::set<std::string> reported;
};

} // namespace

TEST_F(ProcessDatabaseTest, FullAndShortRecordsAreByteExact)
{
    EXPECT_FALSE(process("mail/user01.nsf").IsErrorSet());
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], kFull);
    EXPECT_TRUE(logged("ProcessDatabase", 3, "Replica ID of database User 01 is 8525721B:0052A1C3"));
    EXPECT_TRUE(logged("ProcessDatabase", 3, "Sending = " + kFull));
    EXPECT_TRUE(logged("ProcessDatabase", 3, "Returned database: [" + kFull + "] to HyServer."));
    EXPECT_EQ(reported, std::set<std::string>{"mail/user01"});

    reported.clear();
    EXPECT_FALSE(process("mail/user01.nsf", "ignored", true).IsErrorSet());
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1], std::string("mail/user01.nsf\x12User 01"));
}

TEST_F(ProcessDatabaseTest, EmptyOwnerAndShortUpperReplicaWord)
{
    createDatabase("mail/user02.nsf", "User 02", 0xA, 0x1);
    EXPECT_FALSE(process("mail/user02.nsf", "").IsErrorSet());
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], std::string("mail/user02.nsf\x12User 02\x12($All)\x15" "A:00000001\x15"));
}

TEST_F(ProcessDatabaseTest, BackslashesAreRewrittenInPlaceAndColonsFiltered)
{
    char path[] = "mail\\user01.nsf";
    EXPECT_FALSE(HyLNUtilities::ProcessDatabase(path, "CN=User 01/O=Org1", &reported, false).IsErrorSet());
    EXPECT_STREQ(path, "mail/user01.nsf");
    EXPECT_EQ(sent.size(), 1u);

    char external[] = "C:\\mail\\ext.nsf";
    EXPECT_FALSE(HyLNUtilities::ProcessDatabase(external, "", &reported, false).IsErrorSet());
    EXPECT_TRUE(logged("ProcessDatabase", 0, "Filtering non-linked, external mailbox: [C:/mail/ext.nsf]."));

    char share[] = "\\\\server\\mail\\x.nsf";
    HyLNError status = HyLNUtilities::ProcessDatabase(share, "", &reported, false);
    EXPECT_STREQ(share, "//server/mail/x.nsf");
    EXPECT_FALSE(logged("ProcessDatabase", 0, "Filtering non-linked, external mailbox: [//server/mail/x.nsf]."));
    EXPECT_EQ(sent.size(), 1u);
    (void)status; // whatever the runtime answers for that path, the filter let it through
}

TEST_F(ProcessDatabaseTest, SameDatabaseUnderTwoNamesIsReportedOnce)
{
    createDatabase("mail/user01.nsf.bak", "User 01 copy");
    EXPECT_FALSE(process("mail/user01.nsf").IsErrorSet());
    size_t linesAfterFirst = capturedLog().size();
    EXPECT_FALSE(process("mail/user01.nsf.bak").IsErrorSet());
    EXPECT_EQ(sent.size(), 1u);
    EXPECT_FALSE(logged("Returned database: [mail/user01.nsf.bak\x12User 01 copy\x12($All)\x15"
                        "8525721B:0052A1C3\x15" "CN=User 01/O=Org1] to HyServer."));
    EXPECT_GT(capturedLog().size(), linesAfterFirst) << "the record is still built and traced";
}

TEST_F(ProcessDatabaseTest, NoSendCallbackCountsAsAFailedDelivery)
{
    SetSendMsgCallback(nullptr);
    HyLNError status = process("mail/user01.nsf");
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_EQ(status.GetErrorCode(), 0xFFFF);
    EXPECT_EQ(status.GetMessage(), "Failed to send DB information to HS");
    EXPECT_TRUE(logged("ProcessDatabase", 0, "Error: failure in sending database information to HyServer."));
    EXPECT_EQ(reported.count("mail/user01"), 1u);
}

TEST_F(ProcessDatabaseTest, NullPathIsRefused)
{
    HyLNError status = HyLNUtilities::ProcessDatabase(nullptr, "", &reported, false);
    EXPECT_EQ(status.GetMessage(), "invalid parameters passed to ProcessDatabase()");
    EXPECT_TRUE(logged("ProcessDatabase", 0, "Error: invalid parameters passed in."));
}

TEST_F(ProcessDatabaseTest, RuntimeFailuresEndTheRecordWithTheirLine)
{
    struct Case {
        const char* entry;
        unsigned nth;
        STATUS status;
        std::string line;
        std::string message;
    };
    const std::string path = "mail/user01.nsf";
    const Case cases[] = {
        {"NSFDbOpen", 0, ERR_NOEXIST,
         "Error: unable to get mail file handle for: [mail/user01.nsf]. NSFDbOpen(...) returned: [259]. "
         "Resulting error string: [%s].",
         ""},
        {"NSFDbInfoGet", 0, ERR_NOACCESS,
         "Error: unable to get database information for: [mail/user01.nsf]. NSFDbInfoGet(...) returned: [582]. "
         "Resulting error string: [%s].",
         ""},
        {"OSTranslate", 1, 0, "DBTitle OSTranslate failed on: [User 01]", "OSTranslate failed on DBTitle"},
        {"OSTranslate", 2, 0, "DBName OSTranslate failed on: [mail/user01.nsf]", "OSTranslate failed on DBName"},
        {"NSFDbReplicaInfoGet", 0, ERR_NOACCESS,
         "Failed to fetch ReplicaID for database mail/user01.nsf. error 582 - %s", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.entry);
        captureLog();
        sim().clearFaults();
        sim().setFault(c.entry, c.status, c.nth, 0);
        HyLNError status = process(path.c_str());
        ASSERT_TRUE(status.IsErrorSet());
        std::string line = c.line;
        if (c.message.empty()) {
            EXPECT_EQ(status.GetErrorCode(), c.status);
            line.replace(line.find("%s"), 2, status.GetMessage());
            EXPECT_FALSE(status.GetMessage().empty());
        } else {
            EXPECT_EQ(status.GetMessage(), c.message);
        }
        EXPECT_TRUE(logged("ProcessDatabase", 0, line)) << line;
        EXPECT_TRUE(sent.empty());
    }
}
