// Data-directory discovery, the restore-view search callback and additional scan directories.
#include <cstring>
#include <filesystem>
#include <fstream>
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

unsigned short collectPath(void* context, SEARCH_MATCH*, ITEM_TABLE* summary)
{
    std::string path;
    if (HyLNUtilities::GetSummaryValue(summary, "$Path", path))
        static_cast<std::set<std::string>*>(context)->insert(path);
    return 0;
}

class DatabaseDiscovery : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        for (const char* dir : {"/mail", "/apps/sub", "/extra1", "/extra2"})
            std::filesystem::create_directories(dataDir + dir);
        createDatabase("mail/alice.nsf", "Alice Able", 1, 2);
        createDatabase("apps/sub/tracker.nsf", "Tracker", 3, 4);
        createDatabase("extra1/one.nsf", "One", 5, 6);
        createDatabase("extra2/two.nsf", "Two", 7, 8);
        createDatabase("extra2/three.nsf", "Three", 9, 10);
        sent.clear();
        SetSendMsgCallback(sendAccepted);
        captureLog();
        sim().traceClear(); // call counts start after the databases were made
    }
    void TearDown() override
    {
        SetSendMsgCallback(nullptr);
        RuntimeTest::TearDown();
    }
};

} // namespace

TEST_F(DatabaseDiscovery, WalksTheWholeTreeThroughTheCallersCallback)
{
    std::set<std::string> found;
    HyLNError status = HyLNUtilities::DiscoverDatabases(dataDir, &found, collectPath);
    ASSERT_FALSE(status.IsErrorSet()) << status.GetMessage();
    EXPECT_EQ(found, (std::set<std::string>{"apps/sub/tracker.nsf", "extra1/one.nsf", "extra2/three.nsf",
                                            "extra2/two.nsf", "mail/alice.nsf"}));
}

TEST_F(DatabaseDiscovery, EmptyDirectoryIsOnlyLogged)
{
    std::set<std::string> found;
    sim().traceClear();
    HyLNError status = HyLNUtilities::DiscoverDatabases("", &found, collectPath);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_TRUE(logged("DiscoverDatabases", 0, "DiscoverDatabases() - Error: empty or NULL Notes Data path.\n"));
    EXPECT_EQ(sim().callCount("OSTranslate") + sim().callCount("NSFDbOpen"), 0u);
}

TEST_F(DatabaseDiscovery, OpenAndSearchFailuresAreReturned)
{
    std::set<std::string> found;
    sim().setFault("NSFDbOpen", ERR_NOEXIST, 0, 0);
    HyLNError status = HyLNUtilities::DiscoverDatabases(dataDir, &found, collectPath);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_TRUE(logged("DiscoverDatabases", 0,
                       "DiscoverDatabases() - Error: Unable to open database: [] error (0) " + status.GetMessage()));

    sim().clearFaults();
    sim().traceClear();
    sim().setFault("NSFSearch", ERR_NOACCESS, 0, 0);
    status = HyLNUtilities::DiscoverDatabases(dataDir, &found, collectPath);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOACCESS);
    EXPECT_EQ(sim().callCount("NSFDbClose"), 1u) << "the directory is closed after a failed search";
}

namespace {
STATUS searchViews(DBHANDLE database, HyLNRestoreViewSearch& search)
{
    return HY_NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_VIEW, nullptr, FindAView, &search, nullptr);
}
} // namespace

TEST_F(DatabaseDiscovery, FindAViewTakesTheFirstTitleContainingTheText)
{
    addView("mail/alice.nsf", "");
    addView("mail/alice.nsf", "($Inbox)");
    addView("mail/alice.nsf", "Restore View|restore");
    addView("mail/alice.nsf", "Restore Later");
    DBHANDLE database = NULLHANDLE;
    ASSERT_EQ(HY_NSFDbOpen("mail/alice.nsf", &database), NOERROR);
    HyLNRestoreViewSearch search{};
    search.databaseHandle = database;
    std::strcpy(search.wantedText, "Restore");
    captureLog();
    EXPECT_EQ(searchViews(database, search), NOERROR);
    EXPECT_EQ(search.state, 0xFFFFFFFFu);
    EXPECT_STREQ(search.foundViewName, "Restore View|restore");
    size_t opened = 0;
    for (const std::string& text : logTexts())
        opened += text == "Note opened.";
    EXPECT_EQ(opened, 3u) << "views after the match are not opened";

    HyLNRestoreViewSearch failing{};
    failing.databaseHandle = database;
    std::strcpy(failing.wantedText, "x");
    sim().setFault("NSFNoteOpenExt", ERR_NOACCESS, 0, 0);
    EXPECT_EQ(searchViews(database, failing), ERR_NOACCESS);
    EXPECT_EQ(capturedLog().back().level, -1);
    EXPECT_EQ(capturedLog().back().text.rfind("Could not open note 0x", 0), 0u);
    HY_NSFDbClose(database);
}

TEST_F(DatabaseDiscovery, CountsAndListsAdditionalDirectories)
{
    unsigned long count = 99;
    HyLNError status = HyLNUtilities::CountAdditionalDatabases("", dataDir + "/extra2", &count, false);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(count, 2u);

    std::set<std::string> names;
    std::string directories = dataDir + "/extra1??" + dataDir + "/extra2";
    EXPECT_TRUE(HyLNUtilities::GetAdditionalDatabases(&names, &directories, false, false));
    EXPECT_EQ(names, (std::set<std::string>{"extra1/one", "extra2/three", "extra2/two"}));
    EXPECT_TRUE(sent.empty());

    std::set<std::string> reported;
    EXPECT_TRUE(HyLNUtilities::GetAdditionalDatabases(&reported, &directories, true, true));
    EXPECT_EQ(sent, (std::vector<std::string>{std::string("extra1/one.nsf\x12One"),
                                               std::string("extra2/three.nsf\x12Three"),
                                               std::string("extra2/two.nsf\x12Two")}));
}

TEST_F(DatabaseDiscovery, AdditionalScanFailuresAreLogged)
{
    unsigned long count = 0;
    HyLNError status = HyLNUtilities::CountAdditionalDatabases("", dataDir + "/missing", &count, false);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_TRUE(logged("CountAdditionalDatabases", 0,
                       "Unable to open the scan directory: [" + dataDir + "/missing]. NSFDbOpen() returned: 259. (" +
                           status.GetMessage() + ")\n"));

    std::set<std::string> names;
    std::string directories = dataDir + "/extra1?" + dataDir + "/missing";
    EXPECT_FALSE(HyLNUtilities::GetAdditionalDatabases(&names, &directories, false, false));
    EXPECT_EQ(names.size(), 1u) << "the first directory was searched before the failure";
}

TEST_F(DatabaseDiscovery, AssociatesFoundDatabasesWithTableElements)
{
    DBNAME table[4];
    table[0].firstText = "host-a";
    table[0].secondText = "host-b";
    table[0].databasePath = "/somewhere/extra2";
    table[0].sixthText = "host-f";
    int index = 0;
    std::string directory = dataDir;
    EXPECT_EQ(HyLNUtilities::AssociateAdditionalDBs("", &directory, table, &index), 0);
    ASSERT_EQ(index, 2);
    EXPECT_EQ(table[1].foundPath, "extra2/three.nsf");
    EXPECT_EQ(table[2].foundPath, "extra2/two.nsf");
    EXPECT_EQ(table[2].firstText, "host-a");
    EXPECT_EQ(table[2].databasePath, "/somewhere/extra2");
    EXPECT_EQ(table[2].sixthText, "host-f");
    EXPECT_TRUE(logged("AssociateAdditionalDBs", 0, "get path for db " + dataDir + "/extra2"));

    captureLog();
    table[3].databasePath = "/elsewhere/nothing-here";
    index = 3;
    EXPECT_EQ(HyLNUtilities::AssociateAdditionalDBs("", &directory, table, &index), 0);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"get path for db " + dataDir + "/nothing-here"});

    table[3].databasePath = "no-separator";
    EXPECT_EQ(HyLNUtilities::AssociateAdditionalDBs("", &directory, table, &index), -1);
    EXPECT_TRUE(logged("AssociateAdditionalDBs", 0,
                       "Error: invalid path: [no-separator] enountered while scanning for additional databases."));
}

TEST_F(DatabaseDiscovery, UntranslatableDirectoryIsSearchedAsGiven)
{
    std::set<std::string> found;
    sim().setFault("OSTranslate", 0, 1, 0);
    HyLNError status = HyLNUtilities::DiscoverDatabases(dataDir, &found, collectPath);
    ASSERT_FALSE(status.IsErrorSet()) << status.GetMessage();
    EXPECT_EQ(found.size(), 5u);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"OSTranslate failed on dir: " + dataDir});
    EXPECT_EQ(capturedLog()[0].function, "DiscoverDatabases");
}

TEST_F(DatabaseDiscovery, NetworkPathFailureEndsDiscoveryBeforeOpening)
{
    std::set<std::string> found;
    sim().setFault("OSPathNetConstruct", ERR_NOEXIST, 0, 0);
    HyLNError status = HyLNUtilities::DiscoverDatabases(dataDir, &found, collectPath);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(status.GetMessage(), "File does not exist");
    EXPECT_EQ(logTexts(), std::vector<std::string>{"database " + dataDir + ", error (259) File does not exist"});
    EXPECT_EQ(capturedLog()[0].function, "MakeNetworkPath");
    EXPECT_EQ(sim().callCount("NSFDbOpen"), 0u);
    EXPECT_TRUE(found.empty());
}

TEST_F(DatabaseDiscovery, FindAViewMatchesUntranslatedTitlesAndSurvivesExceptions)
{
    addView("mail/alice.nsf", "($Inbox)");
    addView("mail/alice.nsf", "Restore View");
    DBHANDLE database = NULLHANDLE;
    ASSERT_EQ(HY_NSFDbOpen("mail/alice.nsf", &database), NOERROR);

    // Without translation the stored title is compared as it is.
    HyLNRestoreViewSearch search{};
    search.databaseHandle = database;
    std::strcpy(search.wantedText, "Restore");
    captureLog();
    sim().setFault("OSTranslate", 0, 0, 0);
    EXPECT_EQ(searchViews(database, search), NOERROR);
    EXPECT_STREQ(search.foundViewName, "Restore View");
    std::vector<std::string> fallbacks;
    for (const LogLine& line : capturedLog())
        if (line.level == 2 && line.text.rfind("OSTranslate failed", 0) == 0)
            fallbacks.push_back(line.text);
    EXPECT_EQ(fallbacks, (std::vector<std::string>{"OSTranslate failed to translate view name [($Inbox)]",
                                                   "OSTranslate failed to translate view name [Restore View]"}));

    // An exception on one view is logged with its title; the search goes on to the next.
    HyLNRestoreViewSearch again{};
    again.databaseHandle = database;
    std::strcpy(again.wantedText, "Restore");
    captureLog();
    sim().clearFaults();
    sim().traceClear();
    sim().setFault("OSTranslate", 0, 1, 1 /* throw */);
    EXPECT_EQ(searchViews(database, again), NOERROR);
    EXPECT_STREQ(again.foundViewName, "Restore View");
    EXPECT_TRUE(logged("FindAView", -1, "Warning: an exception was found while processing view: [($Inbox)]."));
    EXPECT_EQ(sim().callCount("NSFNoteClose"), sim().callCount("NSFNoteOpenExt"));

    // An exception while the note is open still leaves no note open.
    HyLNRestoreViewSearch third{};
    third.databaseHandle = database;
    std::strcpy(third.wantedText, "Restore");
    sim().clearFaults();
    sim().traceClear();
    sim().setFault("NSFItemGetText", 0, 1, 1 /* throw */);
    EXPECT_EQ(searchViews(database, third), NOERROR);
    EXPECT_STREQ(third.foundViewName, "Restore View");
    EXPECT_EQ(sim().callCount("NSFNoteClose"), sim().callCount("NSFNoteOpenExt"));
    HY_NSFDbClose(database);
}

TEST_F(DatabaseDiscovery, CountingFallsBackToTheDirectoryAsGiven)
{
    const std::string directory = dataDir + "/extra2";
    unsigned long count = 0;
    sim().setFault("OSPathNetConstruct", ERR_NOEXIST, 0, 0);
    EXPECT_FALSE(HyLNUtilities::CountAdditionalDatabases("", directory, &count, false).IsErrorSet());
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(logTexts(), (std::vector<std::string>{
                              "database " + directory + ", error (259) File does not exist",
                              "Failed to get fully qualified name for additional scan directory [" + directory + "]"}));

    captureLog();
    sim().clearFaults();
    sim().setFault("OSTranslate", 0, 1, 0);
    EXPECT_FALSE(HyLNUtilities::CountAdditionalDatabases("", directory, &count, false).IsErrorSet());
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"OSTranslate failed on database: [" + directory + "]."});
    EXPECT_EQ(capturedLog()[0].function, "CountAdditionalDatabases");
}

TEST_F(DatabaseDiscovery, CountingSearchFailureIsLoggedWithTheClearStatus)
{
    const std::string directory = dataDir + "/extra2";
    unsigned long count = 99;
    sim().setFault("NSFSearch", ERR_NOACCESS, 0, 0);
    HyLNError status = HyLNUtilities::CountAdditionalDatabases("", directory, &count, false);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"A general scan failure occured while scanning: [" + directory +
                                                   "] to get a count of additional databases. NSFSearch() "
                                                   "returned: 0.\n"});
    EXPECT_EQ(sim().callCount("NSFDbClose"), 1u);
}

TEST_F(DatabaseDiscovery, AdditionalListTranslationAndSearchFailuresEndTheWalk)
{
    std::set<std::string> names;
    std::string directories = dataDir + "/extra1?" + dataDir + "/extra2";
    sim().setFault("OSTranslate", 0, 1, 0);
    EXPECT_FALSE(HyLNUtilities::GetAdditionalDatabases(&names, &directories, false, false));
    EXPECT_EQ(logTexts(), std::vector<std::string>{"OSTranslate failed on database: [" + directories + "]."});
    EXPECT_EQ(sim().callCount("NSFDbOpen"), 0u);

    for (bool process : {false, true}) {
        SCOPED_TRACE(process ? "reporting" : "listing");
        captureLog();
        sim().clearFaults();
        sim().traceClear();
        sim().setFault("NSFSearch", ERR_NOACCESS, 0, 0);
        EXPECT_FALSE(HyLNUtilities::GetAdditionalDatabases(&names, &directories, process, true));
        EXPECT_EQ(logTexts(), std::vector<std::string>{
                                  "Error: a failure occured while searching for databases. NSFSearch(...) returned: "
                                  "[00000246]. Resulting error string: [You are not authorized to perform that "
                                  "operation]."});
        EXPECT_EQ(sim().callCount("NSFDbOpen"), 1u) << "the second directory is not opened";
        EXPECT_EQ(sim().callCount("NSFDbClose"), 1u);
    }
    EXPECT_TRUE(names.empty());
    EXPECT_TRUE(sent.empty());
}

TEST_F(DatabaseDiscovery, EntriesWithoutPathAreSkippedByTheListingCallbacks)
{
    const WORD emptyTable[] = {sizeof(ITEM_TABLE), 0};
    ITEM_TABLE* summary = reinterpret_cast<ITEM_TABLE*>(const_cast<WORD*>(emptyTable));
    const std::string line = "OSTranslate failed on database: [Error: path information not found in the index record.].";
    std::set<std::string> names{"kept"};
    EXPECT_EQ(HyLNUtilities::FetchAdditionalDatabaseCallback(&names, nullptr, summary), NOERROR);
    EXPECT_EQ(names, std::set<std::string>{"kept"});
    // The reporting callback gives up before it looks at its context.
    EXPECT_EQ(HyLNUtilities::ProcessAdditionalDatabaseCallback(nullptr, nullptr, summary), NOERROR);
    ASSERT_EQ(capturedLog().size(), 2u);
    EXPECT_EQ(capturedLog()[0].function, "FetchAdditionalDatabaseCallback");
    EXPECT_EQ(capturedLog()[1].function, "ProcessAdditionalDatabaseCallback");
    EXPECT_EQ(logTexts(), std::vector<std::string>(2, line));
    EXPECT_TRUE(sent.empty());
}

namespace {
// One host table element that points at the extra2 directory, with room for what is found.
struct AssociationTable {
    AssociationTable() { table[0].databasePath = "/somewhere/extra2"; }
    DBNAME table[4];
    int index = 0;
};
} // namespace

TEST_F(DatabaseDiscovery, AssociationFallsBackToTheScanPathWithoutANetworkPath)
{
    AssociationTable host;
    std::string directory = dataDir;
    sim().setFault("OSPathNetConstruct", ERR_NOEXIST, 0, 0);
    EXPECT_EQ(HyLNUtilities::AssociateAdditionalDBs("", &directory, host.table, &host.index), 0);
    EXPECT_EQ(host.index, 2);
    EXPECT_EQ(host.table[2].foundPath, "extra2/two.nsf");
    const std::string scanPath = dataDir + "/extra2";
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"get path for db " + scanPath,
                                                     "database " + scanPath + ", error (259) File does not exist",
                                                     "Warning: MakeNetworkPath failed on database: [" + scanPath + "]. "}));
}

TEST_F(DatabaseDiscovery, AssociationFailuresAreReturnedWithTheirLines)
{
    const std::string scanPath = dataDir + "/extra2";
    const std::string denied = "You are not authorized to perform that operation";
    struct Case {
        const char* entry;
        unsigned nth;
        STATUS status;
        int result;
        std::string line;
        unsigned long closes;
    };
    const Case cases[] = {
        {"OSTranslate", 1, 0, -1, "OSTranslate failed on directory: [" + scanPath + "].", 0},
        {"NSFDbOpen", 0, ERR_NOACCESS, ERR_NOACCESS,
         "Error: unable to open the scan directory: [" + scanPath + "]. NSFDbOpen() returned: 582 - " + denied + ".\n",
         0},
        {"NSFSearch", 0, ERR_NOACCESS, ERR_NOACCESS,
         "A general scan failure occured while scanning: [" + scanPath +
             "] for additional databases. NSFSearch() returned: 582 - " + denied + ".\n",
         1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.entry);
        AssociationTable host;
        std::string directory = dataDir;
        captureLog();
        sim().clearFaults();
        sim().traceClear();
        sim().setFault(c.entry, c.status, c.nth, 0);
        EXPECT_EQ(HyLNUtilities::AssociateAdditionalDBs("", &directory, host.table, &host.index), c.result);
        EXPECT_EQ(host.index, 0);
        EXPECT_EQ(logTexts(), (std::vector<std::string>{"get path for db " + scanPath, c.line}));
        EXPECT_EQ(sim().callCount("NSFDbClose"), c.closes);
    }
}

TEST_F(DatabaseDiscovery, UntranslatableFoundPathStopsTheAssociation)
{
    AssociationTable host;
    host.table[0].firstText = "host-a";
    std::string directory = dataDir;
    // The first translation is the scan directory's, the second the first database's.
    sim().setFault("OSTranslate", 0, 2, 0);
    EXPECT_EQ(HyLNUtilities::AssociateAdditionalDBs("", &directory, host.table, &host.index), 0xFFFF);
    // The element was claimed before its path was read.
    EXPECT_EQ(host.index, 1);
    EXPECT_EQ(host.table[1].firstText, "host-a");
    EXPECT_EQ(host.table[1].foundPath, "");
    const std::string scanPath = dataDir + "/extra2";
    EXPECT_EQ(logTexts(), (std::vector<std::string>{
                              "get path for db " + scanPath,
                              "OSTranslate failed on database: [extra2/three.nsf].",
                              "Failed to fetch Notes Error Message, errorCode 65535",
                              "A general scan failure occured while scanning: [" + scanPath +
                                  "] for additional databases. NSFSearch() returned: 65535 - .\n"}));
    EXPECT_EQ(capturedLog()[1].function, "AssociateAdditionalDBsCallback");
}

// A translated path or title that would fill its whole buffer leaves no room for the
// terminator; such a translation counts as failed instead of being read past its end.
TEST_F(DatabaseDiscovery, TranslationsThatFillTheirBufferCountAsFailed)
{
    std::string list = dataDir + "/extra1?";
    std::string fits = list + std::string(1023 - list.size(), '?');
    std::set<std::string> names;
    EXPECT_TRUE(HyLNUtilities::GetAdditionalDatabases(&names, &fits, false, false));
    EXPECT_EQ(names, std::set<std::string>{"extra1/one"});
    std::string full = list + std::string(1024 - list.size(), '?');
    names.clear();
    captureLog();
    EXPECT_FALSE(HyLNUtilities::GetAdditionalDatabases(&names, &full, false, false));
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(logTexts(), std::vector<std::string>{"OSTranslate failed on database: [" + full + "]."});

    // 1023 LMBCS bytes of $Path, one of them é (two bytes in UTF-8): 1024 bytes translated.
    std::string deep = "extra3";
    for (char c : {'a', 'b', 'c', 'd'})
        deep += "/" + std::string(200, c);
    std::filesystem::create_directories(dataDir + "/" + deep);
    std::string file = deep + "/\xC3\xA9" + std::string(1024 - deep.size() - 7, 'f') + ".nsf";
    ASSERT_EQ(file.size(), 1024u);
    // Reported by name: the storage engine cannot open a path this long, and need not.
    std::ofstream(dataDir + "/" + file) << "not a database";
    DBNAME table[2];
    table[0].databasePath = "/elsewhere/extra3";
    int index = 0;
    std::string directory = dataDir;
    captureLog();
    EXPECT_NE(HyLNUtilities::AssociateAdditionalDBs("", &directory, table, &index), 0);
    EXPECT_EQ(table[1].foundPath, "");
    std::string lmbcsPath = deep + "/\x82" + file.substr(deep.size() + 3);
    EXPECT_TRUE(logged("AssociateAdditionalDBsCallback", 0, "OSTranslate failed on database: [" + lmbcsPath + "]."));
}

TEST_F(DatabaseDiscovery, RecordPathsThatFillTheirBufferAreNotSent)
{
    std::set<std::string> reported;
    // "./" steps the runtime drops: 512 bytes, the most the record's path buffer holds.
    std::string longest;
    for (int i = 0; i < 249; ++i)
        longest += "./";
    longest += "mail/alice.nsf";
    ASSERT_EQ(longest.size(), 512u);
    std::string path = longest;
    EXPECT_FALSE(HyLNUtilities::ProcessDatabase(path.data(), "Owner", &reported, true).IsErrorSet());
    EXPECT_EQ(sent, std::vector<std::string>{longest + "\x12" + "Alice Able"});

    std::string tooLong = "." + longest.substr(0, 498) + "/mail/alice.nsf";
    ASSERT_EQ(tooLong.size(), 514u);
    tooLong.erase(0, 1); // 513 bytes
    path = tooLong;
    sent.clear();
    captureLog();
    HyLNError status = HyLNUtilities::ProcessDatabase(path.data(), "Owner", &reported, true);
    EXPECT_EQ(status.GetMessage(), "OSTranslate failed on DBName");
    EXPECT_TRUE(sent.empty());
    EXPECT_TRUE(logged("ProcessDatabase", 0, "DBName OSTranslate failed on: [" + tooLong + "]"));
}

TEST_F(DatabaseDiscovery, ViewTitlesThatFillTheirBufferAreMatchedUntranslated)
{
    // 1023 LMBCS bytes, the most NSFItemGetText gives; é makes the UTF-8 form 1024 bytes.
    std::string title = "\x82" + std::string(1022, 'v');
    addView("mail/alice.nsf", title);
    DBHANDLE database = NULLHANDLE;
    ASSERT_EQ(HY_NSFDbOpen("mail/alice.nsf", &database), NOERROR);
    HyLNRestoreViewSearch search{};
    search.databaseHandle = database;
    std::strcpy(search.wantedText, "vvv");
    captureLog();
    EXPECT_EQ(searchViews(database, search), NOERROR);
    EXPECT_EQ(search.state, 0xFFFFFFFFu);
    EXPECT_EQ(std::string(search.foundViewName), title.substr(0, sizeof search.foundViewName - 1))
        << "the untranslated title, cut to the buffer";
    EXPECT_TRUE(logged("FindAView", 2, "OSTranslate failed to translate view name [" + title + "]"));
    HY_NSFDbClose(database);
}
