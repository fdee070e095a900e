// Mailbox discovery over person documents of the server's directory. The lookup
// parameters freeze on the first call in a process, so each scenario runs in a
// child process of its own.
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "exit_child.h"
#include "support/domino_fixture.h"
#include "support/raw_items.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

std::vector<std::string> sent;
int connectionChecks = 0;
bool lostAfter = false;

bool sendAccepted(char* message)
{
    sent.emplace_back(message);
    return false;
}
bool connectionLost()
{
    ++connectionChecks;
    return lostAfter;
}

// Runs `scenario` in a forked child; it returns "" on success or a description of what failed.
// The child ends through exitChild, so a leak in it fails the test as well.
#define EXPECT_IN_CHILD(...)                                                                      \
    EXPECT_EXIT(                                                                                  \
        {                                                                                         \
            startChildCoverage();                                                                 \
            std::string failure = (__VA_ARGS__)();                                                \
            if (!failure.empty())                                                                 \
                fprintf(stderr, "%s\n", failure.c_str());                                         \
            flushChildCoverage();                                                                 \
            process::exitChild(failure.empty() ? 0 : 1);                                          \
        },                                                                                        \
        ::testing::ExitedWithCode(0), "")

std::string expectEqual(const std::string& what, const std::string& actual, const std::string& expected)
{
    return actual == expected ? "" : what + ": got [" + actual + "] expected [" + expected + "]";
}

std::string joined(const std::set<std::string>& items)
{
    std::string text;
    for (const std::string& item : items)
        text += item + ";";
    return text;
}

// The library's NAMELookup2 pointer, redirected: one record that claims three matches
// but holds one, as a damaged buffer would.
STATUS damagedLookup(const char*, DWORD, WORD, const char*, WORD, const char*, WORD, const char*, DHANDLE* handle)
{
    std::string bytes;
    auto dword = [&](DWORD value) { bytes.append(reinterpret_cast<const char*>(&value), sizeof value); };
    const std::string mailFile = "mail/alice.nsf";
    const WORD type = TYPE_TEXT;
    const DWORD valueSize = sizeof type + mailFile.size();
    const DWORD matchSize = 16 + valueSize;
    dword(8 + 8 + matchSize); // buffer: length, records
    dword(1);
    dword(8 + matchSize); // record: length, claimed matches
    dword(3);
    dword(matchSize); // match: length, items, {offset, size}, value
    dword(1);
    dword(16);
    dword(valueSize);
    bytes.append(reinterpret_cast<const char*>(&type), sizeof type);
    bytes += mailFile;
    if (HY_OSMemAlloc(0, static_cast<DWORD>(bytes.size()), handle) != NOERROR)
        return ERR_MEMORY;
    std::memcpy(HY_OSLockObject(*handle), bytes.data(), bytes.size());
    HY_OSUnlockObject(*handle);
    return NOERROR;
}

class MailboxDiscovery : public RuntimeTest {
protected:
    void SetUp() override
    {
        ::testing::FLAGS_gtest_death_test_style = "fast";
        RuntimeTest::SetUp();
        std::filesystem::create_directories(dataDir + "/mail");
        createDatabase("mail/alice.nsf", "Alice Able", 0x1, 0x2);
        createDatabase("mail/bob.nsf", "Bob Baker", 0x3, 0x4);
        addPeople({
            {{"CN=Alice Able/O=HyOrg", "Alice Able"}, "mail/alice.nsf", MailFileForm::Text},
            {{"CN=Bob Baker/O=HyOrg"}, "mail\\bob.nsf", MailFileForm::Text},
            {{"CN=Carl Cole/O=HyOrg"}, "mail/carl.nsf", MailFileForm::TextList},
            {{"CN=Dora Dunn/O=HyOrg"}, "", MailFileForm::Number},
            {{"CN=Eve East/O=HyOrg"}, "", MailFileForm::Absent},
            {{"CN=Alice Shared/O=HyOrg"}, "mail/alice.nsf", MailFileForm::Text},
            {{"CN=Ext Ernal/O=HyOrg"}, "C:\\mail\\ext.nsf", MailFileForm::Text},
        });
        sent.clear();
        connectionChecks = 0;
        lostAfter = false;
        SetSendMsgCallback(sendAccepted);
        SetCheckConnectionCallback(connectionLost);
        captureLog();
    }
};

} // namespace

TEST_F(MailboxDiscovery, CollectsPathsAndSkipsUnusableEntries)
{
    EXPECT_IN_CHILD([] {
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, false);
        std::set<std::string> paths;
        HyLNError status = HyLNUtilities::DiscoverMailboxes("", &paths, lookup);
        std::string failure = status.IsErrorSet() ? "status set: " + status.GetMessage() : "";
        failure += expectEqual("paths", joined(paths), "C:\\mail\\ext.nsf;mail/alice.nsf;mail\\bob.nsf;");
        if (!logged("DiscoverMailboxes", 0, "Discovering databases for server = \n"))
            failure += " no start line;";
        if (!logged("DiscoverMailboxes", 0,
                    "Found [7] users (each will usually have one corresponding mail database file.)"))
            failure += " no count line;";
        if (!logged("DiscoverMailboxes", 0, "Warning: found a mail file equal to NULL. Entry will be skipped.\n"))
            failure += " no NULL warning;";
        size_t typeWarnings = 0;
        for (const std::string& text : logTexts())
            typeWarnings += text == "Warning: unrecognized data type for a mail file entry. Entry will be skipped.";
        if (typeWarnings != 2)
            failure += " type warnings: " + std::to_string(typeWarnings);
        if (sim().callCount("OSUnlockObject") != 1 || sim().callCount("OSMemFree") != 1)
            failure += " lookup buffer not released once;";
        return failure;
    });
}

TEST_F(MailboxDiscovery, CollectsFullNamesFirstEntryWins)
{
    EXPECT_IN_CHILD([] {
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, true);
        std::map<std::string, std::string> names;
        HyLNUtilities::DiscoverMailboxes("", &names, lookup);
        std::string failure = expectEqual("alice", names["mail/alice.nsf"], "CN=Alice Able/O=HyOrg");
        failure += expectEqual("bob", names["mail\\bob.nsf"], "CN=Bob Baker/O=HyOrg");
        return failure + expectEqual("count", std::to_string(names.size()), "3");
    });
}

TEST_F(MailboxDiscovery, LookupParametersFreezeOnTheFirstCall)
{
    EXPECT_IN_CHILD([] {
        MailboxLookupStruct first;
        HyLNUtilities::InitializeMBLookup(first, false);
        std::set<std::string> paths;
        HyLNUtilities::DiscoverMailboxes("", &paths, first);
        captureLog();
        MailboxLookupStruct second;
        HyLNUtilities::InitializeMBLookup(second, true);
        std::map<std::string, std::string> names;
        HyLNUtilities::DiscoverMailboxes("", &names, second);
        std::string failure = expectEqual("alice name", names["mail/alice.nsf"], "");
        if (!logged("DiscoverMailboxes", 0, "Failed to get Canonical Name for the mail database mail/alice.nsf"))
            failure += " no canonical-name failure line;";
        return failure + expectEqual("count", std::to_string(names.size()), "3");
    });
}

TEST_F(MailboxDiscovery, ReportsEveryMailFileAndReturnsTheLastEntrysStatus)
{
    EXPECT_IN_CHILD([] {
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, true);
        std::set<std::string> reported;
        HyLNError status = HyLNUtilities::DiscoverMailboxes("", &reported, lookup, false);
        std::string failure;
        failure += expectEqual("records", std::to_string(sent.size()), "2");
        if (sent.size() == 2) {
            failure += expectEqual("alice", sent[0],
                                   std::string("mail/alice.nsf\x12" "Alice Able\x12($All)\x15" "1:00000002\x15"
                                               "CN=Alice Able/O=HyOrg"));
            failure += expectEqual("bob", sent[1],
                                   std::string("mail/bob.nsf\x12" "Bob Baker\x12($All)\x15" "3:00000004\x15"
                                               "CN=Bob Baker/O=HyOrg"));
        }
        failure += expectEqual("checks", std::to_string(connectionChecks), "4");
        size_t sessionLines = 0;
        for (const LogLine& line : capturedLog())
            sessionLines += line.level == 4 && line.text == "Checking session status....";
        failure += expectEqual("session lines", std::to_string(sessionLines), "4");
        // The last entry (the external mailbox) is filtered with a clear status.
        if (status.IsErrorSet())
            failure += " status set: " + status.GetMessage();
        return failure;
    });
}

TEST_F(MailboxDiscovery, QuickListSkipsTheSessionCheckAndSendsShortRecords)
{
    EXPECT_IN_CHILD([] {
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, false);
        std::set<std::string> reported;
        HyLNUtilities::DiscoverMailboxes("", &reported, lookup, true);
        std::string failure = expectEqual("checks", std::to_string(connectionChecks), "0");
        failure += expectEqual("records", std::to_string(sent.size()), "2");
        if (!sent.empty())
            failure += expectEqual("first", sent[0], std::string("mail/alice.nsf\x12" "Alice Able"));
        return failure;
    });
}

TEST_F(MailboxDiscovery, DisconnectionAbortsButStillReleasesTheBuffer)
{
    EXPECT_IN_CHILD([] {
        lostAfter = true;
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, false);
        std::set<std::string> reported;
        HyLNError status = HyLNUtilities::DiscoverMailboxes("", &reported, lookup, false);
        std::string failure = expectEqual("records", std::to_string(sent.size()), "0");
        failure += expectEqual("checks", std::to_string(connectionChecks), "1");
        if (!logged("DiscoverMailboxes", 0,
                    "Warning: detected a session disconnection (e.g. user may have hit cancel during discovery.) "
                    "Aborting discovery."))
            failure += " no abort line;";
        if (sim().callCount("OSUnlockObject") != 1 || sim().callCount("OSMemFree") != 1)
            failure += " lookup buffer not released;";
        if (status.IsErrorSet())
            failure += " status set;";
        return failure;
    });
}

TEST_F(MailboxDiscovery, FailedEntriesAreLoggedAndTheLastOneIsReturned)
{
    EXPECT_IN_CHILD([] {
        // Every database open fails: alice, bob and the shared alice entry.
        sim().setFault("NSFDbOpen", ERR_NOACCESS, 0, 0);
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, false);
        std::set<std::string> reported;
        HyLNError status = HyLNUtilities::DiscoverMailboxes("", &reported, lookup, true);
        HyLNError expected;
        expected.SetError(ERR_NOACCESS);
        std::string line = "Database [mail/bob.nsf] will be skipped. reason 582 - " + expected.GetMessage();
        std::string failure = logged("DiscoverMailboxes", 0, line) ? "" : "missing: " + line;
        // The external mailbox comes last and is filtered with a clear status.
        if (status.IsErrorSet())
            failure += " last status should be clear;";
        return failure;
    });
}

TEST_F(MailboxDiscovery, ADamagedLookupBufferIsWalkedOnlyAsFarAsItHolds)
{
    EXPECT_IN_CHILD([] {
        HY_NAMELookup2 = damagedLookup;
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, false);
        std::set<std::string> paths;
        HyLNUtilities::DiscoverMailboxes("", &paths, lookup);
        std::string failure = expectEqual("paths", joined(paths), "mail/alice.nsf;");
        if (!logged("DiscoverMailboxes", 0,
                    "Found [1] users (each will usually have one corresponding mail database file.)"))
            failure += " count is not the one match the record holds;";
        if (logged("DiscoverMailboxes", 0, "Warning: found a mail file equal to NULL. Entry will be skipped.\n"))
            failure += " walked past the last match;";
        return failure;
    });
}

TEST_F(MailboxDiscovery, LookupFailureIsReportedWithoutTouchingTheBuffer)
{
    EXPECT_IN_CHILD([] {
        sim().setFault("NAMELookup2", 0x030A, 0, 0);
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, false);
        std::set<std::string> paths;
        HyLNError status = HyLNUtilities::DiscoverMailboxes("CN=HySrv01/O=HyOrg", &paths, lookup);
        std::string failure = expectEqual("code", std::to_string(status.GetErrorCode()), "778");
        failure += expectEqual("line", capturedLog().empty() ? "" : capturedLog().back().text,
                               "NameLokup failed for Instance CN=HySrv01/O=HyOrg, error (778) " + status.GetMessage());
        if (sim().callCount("OSLockObject") != 0)
            failure += " buffer locked;";
        return failure;
    });
}

// A MailFile stored with a zero-length value has no value to report: the entry is
// passed over with the same line as one without a mail file, and every other entry
// is still discovered.
TEST_F(MailboxDiscovery, ZeroLengthMailFileIsSkippedLikeAMissingOne)
{
    addPeople({{{"CN=Zoe Zero/O=HyOrg"}, "to be emptied", MailFileForm::Text}});
    ASSERT_EQ(storeZeroLengthValue(dataDir + "/names.nsf", "MailFile", "to be emptied"), 1);
    EXPECT_IN_CHILD([] {
        MailboxLookupStruct lookup;
        HyLNUtilities::InitializeMBLookup(lookup, true);
        std::set<std::string> reported;
        HyLNError status = HyLNUtilities::DiscoverMailboxes("", &reported, lookup, false);
        std::string failure = status.IsErrorSet() ? "status set: " + status.GetMessage() + ";" : "";
        failure += expectEqual("records", std::to_string(sent.size()), "2");
        failure += expectEqual("reported", joined(reported), "mail/alice;mail/bob;");
        if (!logged("DiscoverMailboxes", 0,
                    "Found [8] users (each will usually have one corresponding mail database file.)"))
            failure += " no count line;";
        size_t nullWarnings = 0;
        for (const std::string& text : logTexts())
            nullWarnings += text == "Warning: found a mail file equal to NULL. Entry will be skipped.\n";
        return failure + expectEqual("NULL warnings", std::to_string(nullWarnings), "2");
    });
}
