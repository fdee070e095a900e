// NSFSearch over a directory handle, on a seeded data directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "HySimControl.h"
#include "sim/support/seed_support.h"
#include "sim/support/storage_fixture.h"

namespace {

struct Found {
    SEARCH_MATCH match;
    bool hasSummary = false;
    std::string title, path, type, info;
    bool hasInfo = false;
    double length = -1;
    TIMEDATE modified{};
};

std::string summaryText(ITEM_TABLE* summary, const char* name, bool& present)
{
    char buffer[NSF_INFO_SIZE * 2] = {};
    present = NSFGetSummaryValue(summary, name, buffer, sizeof buffer) == TRUE;
    return buffer;
}

STATUS collect(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary)
{
    Found found;
    std::memcpy(&found.match, match, sizeof found.match);
    found.hasSummary = summary != nullptr;
    if (summary != nullptr) {
        bool present = false;
        found.title = summaryText(summary, "$TITLE", present);
        found.path = summaryText(summary, "$Path", present);
        found.type = summaryText(summary, "$Type", present);
        found.info = summaryText(summary, "$Info", found.hasInfo);
        void* value = nullptr;
        WORD length = 0, type = 0;
        if (NSFLocateSummaryValue(summary, "$Length", &value, &length, &type) && type == TYPE_NUMBER)
            std::memcpy(&found.length, value, sizeof found.length);
        if (NSFLocateSummaryValue(summary, "$Modified", &value, &length, &type) && type == TYPE_TIME)
            std::memcpy(&found.modified, value, sizeof found.modified);
    }
    static_cast<std::vector<Found>*>(parameter)->push_back(found);
    return NOERROR;
}

class DirectorySearch : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dataDir = seed_test::seededDirectory("dirsearch", "--users 2 --messages 0 --extra-dirs 1 --seed 3");
        std::ofstream(dataDir + "/apps/readme.txt") << "not a database";
        std::ofstream(dataDir + "/apps/broken.nsf") << "not a database either";
    }
    void SetUp() override { ASSERT_EQ(seed_test::startRuntimeOn(dataDir), NOERROR); }
    void TearDown() override
    {
        HySimUseRealClock();
        NotesTerm();
    }

    static std::vector<Found> search(const char* directory, WORD flags, WORD mask, STATUS* result = nullptr)
    {
        std::vector<Found> found;
        DBHANDLE dir = NULLHANDLE;
        EXPECT_EQ(NSFDbOpen(directory, &dir), NOERROR);
        STATUS status = NSFSearch(dir, NULLHANDLE, nullptr, flags, mask, nullptr, collect, &found, nullptr);
        if (result != nullptr)
            *result = status;
        else
            EXPECT_EQ(status, NOERROR);
        NSFDbClose(dir);
        return found;
    }
    static std::vector<std::string> paths(const std::vector<Found>& found)
    {
        std::vector<std::string> result;
        for (const auto& f : found)
            result.push_back(f.path);
        return result;
    }

    static std::string dataDir;
};

std::string DirectorySearch::dataDir;

bool contains(const std::vector<std::string>& list, const std::string& item)
{
    return std::find(list.begin(), list.end(), item) != list.end();
}

} // namespace

TEST_F(DirectorySearch, EveryNoteFileOfTheTreeInPathOrder)
{
    std::vector<Found> found = search("", SEARCH_SUMMARY | SEARCH_FILETYPE, 0x600A);
    std::vector<std::string> all = paths(found);
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    for (const char* expected : {"names.nsf", "mail.box", "apps/discussion.ntf", "apps/archive/projects-2019.nsf",
                                 "extra1/old/archive-c.nsf", "apps/broken.nsf"})
        EXPECT_TRUE(contains(all, expected)) << expected;
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const std::string& p) { return p.rfind("mail/", 0) == 0; }), 2)
        << "two mail files; the .bak copy is no note file";
    EXPECT_FALSE(contains(all, "apps/readme.txt"));
    EXPECT_FALSE(contains(all, "notes.ini"));
    EXPECT_FALSE(contains(all, "apps")) << "directories only with FILE_DIRS";
}

TEST_F(DirectorySearch, EachDatabaseCarriesItsIdentityAndSummary)
{
    std::vector<Found> found = search("", SEARCH_SUMMARY | SEARCH_FILETYPE, 0x600A);
    auto names = std::find_if(found.begin(), found.end(), [](const Found& f) { return f.path == "names.nsf"; });
    ASSERT_NE(names, found.end());
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("names.nsf", &db), NOERROR);
    DBID id{};
    DBREPLICAINFO replica{};
    char info[NSF_INFO_SIZE] = {};
    ASSERT_EQ(NSFDbIDGet(db, &id), NOERROR);
    ASSERT_EQ(NSFDbReplicaInfoGet(db, &replica), NOERROR);
    ASSERT_EQ(NSFDbInfoGet(db, info), NOERROR);
    NSFDbClose(db);

    const SEARCH_MATCH& match = names->match;
    EXPECT_EQ(std::memcmp(&match.ID.File, &id, sizeof id), 0);
    EXPECT_EQ(std::memcmp(&match.ID.Note, &replica.ID, sizeof replica.ID), 0);
    EXPECT_EQ(std::memcmp(&match.OriginatorID.SequenceTime, &replica.ID, sizeof replica.ID), 0);
    EXPECT_EQ(std::memcmp(&match.OriginatorID.File, &names->modified, sizeof names->modified), 0);
    EXPECT_EQ(match.SERetFlags & SE_FMATCH, SE_FMATCH);
    EXPECT_EQ(match.NoteClass, 0);
    EXPECT_EQ(names->title, "names.nsf");
    EXPECT_EQ(names->type, "$NOTEFILE");
    EXPECT_TRUE(names->hasInfo);
    EXPECT_EQ(names->info, info);
    EXPECT_EQ(names->length, static_cast<double>(std::filesystem::file_size(dataDir + "/names.nsf")));

    auto broken = std::find_if(found.begin(), found.end(), [](const Found& f) { return f.path == "apps/broken.nsf"; });
    ASSERT_NE(broken, found.end());
    EXPECT_FALSE(broken->hasInfo) << "a file that is no database has no $Info";
    EXPECT_EQ(broken->match.ID.File.Innards[1], 0u);
}

TEST_F(DirectorySearch, FileTypesAndRecursionSelectTheFiles)
{
    std::vector<std::string> topLevel = paths(search("", SEARCH_SUMMARY | SEARCH_FILETYPE, FILE_ANYNOTEFILE));
    EXPECT_EQ(topLevel, (std::vector<std::string>{"mail.box", "names.nsf"}));
    std::vector<std::string> apps = paths(search("apps", SEARCH_SUMMARY | SEARCH_FILETYPE, FILE_DBANY | FILE_RECURSE));
    EXPECT_EQ(apps, (std::vector<std::string>{"apps/archive/projects-2019.nsf", "apps/broken.nsf",
                                              "apps/discussion.nsf", "apps/projects.nsf"}))
        << "paths stay relative to the data directory";
    std::vector<std::string> templates = paths(search("", SEARCH_SUMMARY | SEARCH_FILETYPE, FILE_FTANY | FILE_RECURSE));
    EXPECT_EQ(templates, (std::vector<std::string>{"apps/discussion.ntf"}));
    std::vector<Found> withDirs =
        search("extra1", SEARCH_SUMMARY | SEARCH_FILETYPE, FILE_DBANY | FILE_DIRS | FILE_RECURSE);
    ASSERT_EQ(paths(withDirs), (std::vector<std::string>{"extra1/archive-a.nsf", "extra1/archive-b.nsf",
                                                         "extra1/old", "extra1/old/archive-c.nsf"}));
    EXPECT_EQ(withDirs[2].type, "$DIR");
    EXPECT_FALSE(withDirs[2].hasInfo);
}

TEST_F(DirectorySearch, CallbackStatusStopsTheSearch)
{
    struct Counter {
        int calls = 0;
    } counter;
    auto stopAtSecond = [](void* parameter, SEARCH_MATCH*, ITEM_TABLE* summary) -> STATUS {
        EXPECT_EQ(summary, nullptr) << "no summary without SEARCH_SUMMARY";
        return ++static_cast<Counter*>(parameter)->calls == 2 ? 0x1234 : NOERROR;
    };
    DBHANDLE dir = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(nullptr, &dir), NOERROR);
    HySimSetClock(1700000000, 0);
    TIMEDATE until{};
    EXPECT_EQ(NSFSearch(dir, NULLHANDLE, nullptr, SEARCH_FILETYPE, 0x600A, nullptr, stopAtSecond, &counter, &until),
              0x1234);
    EXPECT_EQ(counter.calls, 2);

    counter.calls = -100;
    ASSERT_EQ(NSFSearch(dir, NULLHANDLE, nullptr, SEARCH_FILETYPE, 0x600A, nullptr, stopAtSecond, &counter, &until),
              NOERROR);
    TIMEDATE now{};
    OSCurrentTIMEDATE(&now);
    EXPECT_EQ(TimeDateCompare(&until, &now), 0) << "retUntil is the time of the search";
    EXPECT_EQ(NSFSearch(dir, NULLHANDLE, nullptr, SEARCH_FILETYPE, 0x0006, nullptr, stopAtSecond, &counter, nullptr),
              sim::STS_UNSUPPORTED);
    NSFDbClose(dir);
}

namespace {

// A data directory whose tree has symbolic links back into itself, to each other,
// and out of it, on a fresh data directory of its own.
class LinkedDirectorySearch : public storage_test::StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        outside = storage_test::makeDataDirectory();
        namespace fs = std::filesystem;
        for (const char* directory : {"tree/sub", "tree/x", "tree/y"})
            fs::create_directories(dataDir + "/" + directory);
        for (const std::string& file : {dataDir + "/names.nsf", dataDir + "/tree/a.nsf", dataDir + "/tree/sub/b.nsf",
                                        dataDir + "/tree/x/x.nsf", dataDir + "/tree/y/y.nsf", outside + "/o.nsf"})
            ASSERT_EQ(NSFDbCreate(file.c_str(), DBCLASS_NOTEFILE, FALSE), NOERROR) << file;
        fs::create_directory_symlink("..", dataDir + "/tree/sub/up");
        fs::create_directory_symlink("../..", dataDir + "/tree/sub/top");
        fs::create_directory_symlink(".", dataDir + "/tree/sub/again");
        fs::create_directory_symlink("../y", dataDir + "/tree/x/to-y");
        fs::create_directory_symlink("../x", dataDir + "/tree/y/to-x");
        fs::create_directory_symlink(outside, dataDir + "/tree/outside");
        fs::create_directory_symlink(outside, dataDir + "/tree/outside-too");
        fs::create_directory_symlink(dataDir, outside + "/back");
    }
    void TearDown() override
    {
        StorageTest::TearDown();
        std::error_code ignored;
        std::filesystem::remove_all(outside, ignored);
    }

    static std::vector<std::string> found(const char* directory, WORD mask)
    {
        std::vector<Found> all;
        DBHANDLE dir = NULLHANDLE;
        EXPECT_EQ(NSFDbOpen(directory, &dir), NOERROR);
        EXPECT_EQ(NSFSearch(dir, NULLHANDLE, nullptr, SEARCH_SUMMARY | SEARCH_FILETYPE, mask, nullptr, collect, &all,
                            nullptr),
                  NOERROR);
        NSFDbClose(dir);
        std::vector<std::string> paths;
        for (const Found& f : all)
            paths.push_back(f.path);
        return paths;
    }

    std::string outside;
};

} // namespace

TEST_F(LinkedDirectorySearch, EachDirectoryIsWalkedOnceWhateverLinksLeadToIt)
{
    EXPECT_EQ(found("", FILE_DBANY | FILE_RECURSE),
              (std::vector<std::string>{"names.nsf", "tree/a.nsf", "tree/outside/o.nsf", "tree/sub/b.nsf",
                                        "tree/x/x.nsf", "tree/y/y.nsf"}))
        << "links to a parent, to itself, to each other and back from outside are passed over; "
           "the outside directory is followed once, through the first of its two links";
    EXPECT_EQ(found("", FILE_DIRSONLY | FILE_RECURSE),
              (std::vector<std::string>{"tree", "tree/outside", "tree/sub", "tree/x", "tree/y"}));
}

TEST_F(LinkedDirectorySearch, ALinkLeavingTheSearchedTreeIsFollowedOnce)
{
    EXPECT_EQ(found("tree/sub", FILE_DBANY | FILE_RECURSE),
              (std::vector<std::string>{"tree/sub/b.nsf", "tree/sub/top/names.nsf", "tree/sub/top/tree/a.nsf",
                                        "tree/sub/top/tree/outside/o.nsf", "tree/sub/top/tree/x/x.nsf",
                                        "tree/sub/top/tree/y/y.nsf"}))
        << "links are followed in path order: top reaches the data directory and with it tree, so up (to tree) "
           "finds nothing new, and tree/sub itself is not walked again";
}
