// HyLNDatabase note selection: modified and unread notes, ID walks, searches,
// profiles, lookups by UNID and the view names sent to the host.
#include <cstdio>
#include <string>
#include <vector>

#include "HYLNTool_Database.h"
#include "support/document_fixture.h"

using namespace hyln_test;

namespace {

const char* const kDatabaseSource = "HYLNTools/HYLNTool_Interface/HYLNTool_Database.cpp";
const char* const kJane = "CN=Jane Doe/O=HyOrg";
const STATUS kFault = 0x0103;
const int kReturn = 0; // fault modes of the runtime's control interface
const int kThrow = 1;

std::string messageOf(STATUS status)
{
    HyLNError error;
    error.SetError(status);
    return error.GetMessage();
}

void expectLine(size_t index, const std::string& function, int level, const std::string& text)
{
    ASSERT_GT(capturedLog().size(), index);
    const LogLine& line = capturedLog()[index];
    EXPECT_EQ(line.function, function);
    EXPECT_EQ(line.level, level);
    EXPECT_EQ(line.file, kDatabaseSource);
    EXPECT_EQ(line.text, text);
}

std::vector<DWORD> idsOf(HyLNDatabase& database, unsigned int table)
{
    std::vector<DWORD> ids;
    unsigned int id = 0;
    for (bool more = database.NoteIDScan(table, 1, &id); more; more = database.NoteIDScan(table, 0, &id))
        ids.push_back(id);
    return ids;
}

class Selection : public DocumentTest {
protected:
    void SetUp() override
    {
        DocumentTest::SetUp();
        first = saveNote("first");
        second = saveNote("second");
        ASSERT_FALSE(database.Open().IsErrorSet());
        captureLog();
        sim().traceClear();
    }
    void TearDown() override
    {
        for (unsigned int table : {database.unreadTable, modified})
            if (table != NULLHANDLE)
                HY_IDDestroyTable(table);
        database.Close();
        DocumentTest::TearDown();
    }
    // Whether the library calls the note unread (false when it leaves `unread` alone).
    bool unreadStatus(NOTEID id)
    {
        bool unread = false;
        EXPECT_FALSE(database.GetNoteUnreadStatus(id, unread).IsErrorSet());
        return unread;
    }

    HyLNDatabase database{"jdoe.nsf", "CN=HySrv01/O=HyOrg"};
    NOTEID first = 0;
    NOTEID second = 0;
    unsigned int modified = NULLHANDLE;
};

} // namespace

TEST_F(Selection, UnreadMarksOfTheOwnerNamedByTheTitle)
{
    bool unread = true;
    EXPECT_FALSE(database.GetNoteUnreadStatus(first, unread).IsErrorSet());
    EXPECT_TRUE(unread) << "left alone without a table";
    expectLine(0, "GetNoteUnreadStatus", 0, "Invalid UnreadNoteTable handle passed in");

    ASSERT_EQ(sim().setUnread(db, kJane, second, 1), NOERROR);
    ASSERT_FALSE(database.DiscoverUnReadDocuments().IsErrorSet());
    EXPECT_EQ(database.canonicalUserName, kJane);
    captureLog();
    EXPECT_FALSE(unreadStatus(first));
    EXPECT_TRUE(logTexts().empty());
    EXPECT_TRUE(unreadStatus(second));
    expectLine(0, "GetNoteUnreadStatus", 0,
               formatted("Found an unread note: [%d]. This note will not be archived", static_cast<int>(second)));
    // The deletion bit never names an unread note, and one lookup answers without a walk.
    EXPECT_FALSE(unreadStatus(second | RRV_DELETED));
    sim().traceClear();
    unreadStatus(first);
    EXPECT_EQ(sim().callCount("IDScan"), 0u);
    EXPECT_EQ(sim().callCount("IDIsPresent"), 1u);
}

TEST_F(Selection, TheHostsOwnerNameWinsAndAnOwnerWithoutMarksHasReadNothing)
{
    database.userName = "John Roe";
    ASSERT_EQ(sim().setUnread(db, "CN=John Roe/O=HyOrg", first, 1), NOERROR);
    ASSERT_FALSE(database.DiscoverUnReadDocuments().IsErrorSet());
    EXPECT_EQ(database.canonicalUserName, "CN=John Roe/O=HyOrg");
    EXPECT_TRUE(unreadStatus(first));
    EXPECT_FALSE(unreadStatus(second));

    HY_IDDestroyTable(database.unreadTable);
    database.userName = "Nora Newcomer";
    ASSERT_FALSE(database.DiscoverUnReadDocuments().IsErrorSet());
    EXPECT_EQ(idsOf(database, database.unreadTable), (std::vector<DWORD>{first, second}));
}

TEST_F(Selection, EachFailureOfTheUnreadDiscoveryHasItsLine)
{
    sim().setFault("NSFDbInfoGet", kFault, 0, kReturn);
    HyLNError error = database.DiscoverUnReadDocuments();
    EXPECT_EQ(error.GetErrorCode(), kFault);
    ASSERT_EQ(capturedLog().size(), 2u) << "the title read logs first";
    expectLine(1, "DiscoverUnReadDocuments", 0, "Failed to fetch database title for db jdoe.nsf");
    sim().clearFaults();

    captureLog();
    sim().setFault("DNCanonicalize", kFault, 0, kReturn);
    EXPECT_EQ(database.DiscoverUnReadDocuments().GetErrorCode(), kFault);
    expectLine(0, "DiscoverUnReadDocuments", 0,
               formatted("Error: unable to get a canonical name for user [Jane Doe/]. DNCanonicalize(...) returned: "
                         "[%d]. Resulting error string: [%s].",
                         kFault, messageOf(kFault).c_str()));
    EXPECT_EQ(database.canonicalUserName, "");
    sim().clearFaults();

    captureLog();
    sim().setFault("NSFDbGetUnreadNoteTable", kFault, 0, kReturn);
    EXPECT_EQ(database.DiscoverUnReadDocuments().GetErrorCode(), kFault);
    expectLine(0, "DiscoverUnReadDocuments", 0,
               formatted("Error: unable to determine if any notes are unread. NSFDbGetUnreadNoteTable(...) returned: "
                         "[%d]. Resulting error string: [%s].",
                         kFault, messageOf(kFault).c_str()));
    EXPECT_EQ(database.canonicalUserName, kJane);
}

TEST_F(Selection, ModifiedNotesSinceTheLastPass)
{
    TIMEDATE until{};
    ASSERT_FALSE(database.DiscoverModifiedDocuments(TIMEDATE{}, &until, NOTE_CLASS_DOCUMENT, &modified).IsErrorSet());
    EXPECT_EQ(idsOf(database, modified), (std::vector<DWORD>{first, second}));

    // Nothing changed since: success, and the caller's table variable is not written.
    unsigned int untouched = 0x4711;
    TIMEDATE next{};
    HyLNError error = database.DiscoverModifiedDocuments(until, &next, NOTE_CLASS_DOCUMENT, &untouched);
    EXPECT_FALSE(error.IsErrorSet());
    EXPECT_EQ(untouched, 0x4711u);
    EXPECT_TRUE(logTexts().empty());

    // The code counts with either of the two top flag bits set.
    for (STATUS flagged : {0x423C, 0x823C}) {
        sim().setFault("NSFDbGetModifiedNoteTable", flagged, 1, kReturn);
        EXPECT_FALSE(database.DiscoverModifiedDocuments(until, &next, NOTE_CLASS_DOCUMENT, &untouched).IsErrorSet());
    }
    EXPECT_EQ(untouched, 0x4711u);
    EXPECT_TRUE(logTexts().empty());
}

TEST_F(Selection, AFailedModifiedReadingRunsTheTimeIntoTheCallName)
{
    sim().setFault("NSFDbGetModifiedNoteTable", kFault, 0, kReturn);
    TIMEDATE since{{0x0012ABCD, 0x00256F3E}};
    HyLNError error = database.DiscoverModifiedDocuments(since, nullptr, NOTE_CLASS_DOCUMENT, &modified);
    EXPECT_TRUE(error.IsErrorSet());
    EXPECT_EQ(error.GetErrorCode(), kFault);
    expectLine(0, "DiscoverModifiedDocuments", 0,
               formatted("Cannot get Modified note ID list, since 12abcd:256f3eNSFDbGetModifiedNoteTable(...) "
                         "returned: [%d]. Resulting error string: [%s].",
                         kFault, messageOf(kFault).c_str()));
}

namespace {

struct SearchSeen {
    std::vector<NOTEID> ids;
};

STATUS collectMatch(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    static_cast<SearchSeen*>(context)->ids.push_back(copy.ID.NoteID);
    return NOERROR;
}

STATUS stopSearch(void*, SEARCH_MATCH*, ITEM_TABLE*)
{
    return 0x1234;
}

} // namespace

TEST_F(Selection, SearchReportsCodesOnlyAndSwallowsExceptions)
{
    SearchSeen seen;
    NSFSEARCHPROC routine = collectMatch;
    ASSERT_FALSE(database.Search(0, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, &routine, &seen, nullptr).IsErrorSet());
    EXPECT_EQ(seen.ids, (std::vector<NOTEID>{first, second}));

    routine = stopSearch;
    HyLNError stopped = database.Search(0, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, &routine, &seen, nullptr);
    EXPECT_EQ(stopped.GetErrorCode(), 0x1234);
    EXPECT_FALSE(stopped.IsErrorSet());
    EXPECT_EQ(stopped.GetMessage(), "");

    sim().setFault("NSFSearch", 0, 0, kThrow);
    HyLNError thrown = database.Search(0, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, &routine, &seen, nullptr);
    EXPECT_FALSE(thrown.IsErrorSet());
    EXPECT_EQ(thrown.GetErrorCode(), 0);
    ASSERT_EQ(capturedLog().size(), 1u);
    expectLine(0, "Search", 0, "Error: caught an exception of unknown type thrown by Domino API :[NSFSearch(...)].");
}

TEST_F(Selection, ClosedDatabaseIsRefusedByMessage)
{
    HyLNDatabase closed("jdoe.nsf", "");
    NSFSEARCHPROC routine = stopSearch;
    UNID unid{};
    NOTEID id = 0;
    for (HyLNError error : {closed.Search(0, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, &routine, nullptr, nullptr),
                            closed.ProfileEnum(nullptr, 0, nullptr, nullptr, 0),
                            closed.GetNoteInfoByUNID(&unid, &id, nullptr, nullptr, nullptr)}) {
        EXPECT_EQ(error.GetMessage(), "Invalid database handle");
        EXPECT_EQ(error.GetErrorCode(), 0xFFFF);
    }
    EXPECT_EQ(sim().callCount("NSFSearch") + sim().callCount("NSFProfileEnum") +
                  sim().callCount("NSFDbGetNoteInfoByUNID"),
              0u);
    EXPECT_TRUE(logTexts().empty());
}

namespace {

STATUS countProfile(DBHANDLE, void* context, char*, WORD, char* user, WORD userLength, NOTEID)
{
    static_cast<std::vector<std::string>*>(context)->emplace_back(user, userLength);
    return NOERROR;
}

STATUS refuseProfile(DBHANDLE, void*, char*, WORD, char*, WORD, NOTEID)
{
    return 0x1234;
}

} // namespace

TEST_F(Selection, ProfilesAndTheirFailureLine)
{
    saveNote("calendar", {{"$Name", "$profile_015calendarprofile_"}});
    saveNote("delegate", {{"$Name", "$profile_008delegate_CN=Jane Doe/O=HyOrg"}});
    std::vector<std::string> users;
    ASSERT_FALSE(database.ProfileEnum("delegate", 8, countProfile, &users, 0).IsErrorSet());
    EXPECT_EQ(users, std::vector<std::string>{kJane});

    HyLNError error = database.ProfileEnum(nullptr, 0, refuseProfile, nullptr, 0);
    EXPECT_EQ(error.GetErrorCode(), 0x1234);
    EXPECT_FALSE(error.IsErrorSet());
    expectLine(0, "ProfileEnum", -1, "Error: NSFProfileEnum returned 4660 - ");
}

TEST_F(Selection, NoteInfoByUniversalId)
{
    OID oid{};
    ASSERT_EQ(HY_NSFDbGetNoteInfo(db, second, &oid, nullptr, nullptr), NOERROR);
    UNID unid;
    std::memcpy(&unid, &oid, sizeof unid);
    NOTEID id = 0;
    WORD noteClass = 0;
    ASSERT_FALSE(database.GetNoteInfoByUNID(&unid, &id, nullptr, nullptr, &noteClass).IsErrorSet());
    EXPECT_EQ(id, second);
    EXPECT_EQ(noteClass, NOTE_CLASS_DOCUMENT);

    unid.Note.Innards[0] ^= 1;
    HyLNError missing = database.GetNoteInfoByUNID(&unid, &id, nullptr, nullptr, nullptr);
    EXPECT_EQ(missing.GetErrorCode(), ERR_NOT_FOUND);
    EXPECT_FALSE(missing.IsErrorSet());
    EXPECT_TRUE(logTexts().empty());
}

namespace {

std::vector<std::string>& sentTitles()
{
    static std::vector<std::string> titles;
    return titles;
}

bool receiveTitle(char* message)
{
    sentTitles().push_back(message);
    return false;
}

class Views : public Selection {
protected:
    void SetUp() override
    {
        Selection::SetUp();
        sentTitles().clear();
        SetSendMsgCallback(receiveTitle);
    }
    void TearDown() override
    {
        SetSendMsgCallback(nullptr);
        Selection::TearDown();
    }
    void addDesignNote(const std::string& title, const char* flags)
    {
        NOTEID id = addView("jdoe.nsf", title);
        if (flags == nullptr)
            return;
        NOTEHANDLE note = NULLHANDLE;
        ASSERT_EQ(HY_NSFNoteOpen(db, id, 0, &note), NOERROR);
        ASSERT_EQ(HY_NSFItemSetText(note, "$Flags", flags, MAXWORD), NOERROR);
        ASSERT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
        HY_NSFNoteClose(note);
    }
};

} // namespace

TEST_F(Views, EveryTitledViewAndFolderButNavigatorsReachesTheHost)
{
    addDesignNote("($All)", "");
    addDesignNote("Projects", "F");
    addDesignNote("", nullptr);
    addDesignNote("Map", "G");
    const std::string utf8Title = "Auswertung \xC3\xBC" "ber alles";
    char lmbcs[256] = {};
    ASSERT_GT(HY_OSTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, utf8Title.c_str(), static_cast<WORD>(utf8Title.size()), lmbcs,
                             sizeof lmbcs - 1),
              0);
    ASSERT_NE(std::string(lmbcs), utf8Title);
    addDesignNote(lmbcs, nullptr);
    sim().traceClear();
    ASSERT_FALSE(database.GetViews().IsErrorSet());
    EXPECT_EQ(sentTitles(), (std::vector<std::string>{"($All)", "Projects", utf8Title}));
    EXPECT_EQ(sim().callCount("NSFNoteOpen"), 5u);
    EXPECT_EQ(sim().callCount("NSFNoteClose"), 5u);
}

TEST_F(Views, AViewThatCannotBeOpenedEndsTheSearchWithItsCode)
{
    addDesignNote("($All)", "");
    addDesignNote("Projects", "F");
    sim().setFault("NSFNoteOpen", kFault, 2, kReturn);
    HyLNError error = database.GetViews();
    EXPECT_EQ(error.GetErrorCode(), kFault);
    EXPECT_FALSE(error.IsErrorSet());
    EXPECT_EQ(sentTitles(), std::vector<std::string>{"($All)"});

    HyLNDatabase closed("jdoe.nsf", "");
    EXPECT_EQ(closed.GetViews().GetErrorCode(), ERR_NULL_DBHANDLE);
}
