// The seeding tool: what a seeded data directory holds, read back through the
// C API, and that one seed always gives the same directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "sim/nif/nif_support.h"
#include "sim/support/seed_support.h"

namespace {

namespace fs = std::filesystem;

WORD wordAt(const void* at)
{
    WORD value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

STATUS collectIds(void* parameter, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    static_cast<std::vector<NOTEID>*>(parameter)->push_back(copy.ID.NoteID);
    return NOERROR;
}

std::vector<NOTEID> noteIds(DBHANDLE db, WORD classMask)
{
    std::vector<NOTEID> ids;
    EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, classMask, nullptr, collectIds, &ids, nullptr), NOERROR);
    return ids;
}

std::string itemText(NOTEHANDLE note, const char* name)
{
    char buffer[1024] = {};
    WORD length = NSFItemGetText(note, name, buffer, sizeof buffer);
    return std::string(buffer, length);
}

WORD itemType(NOTEHANDLE note, const char* name)
{
    WORD type = 0;
    NSFItemInfo(note, name, static_cast<WORD>(std::strlen(name)), nullptr, &type, nullptr, nullptr);
    return type;
}

// A $FILE value (type word, then the file object of the published layout):
// its FileSize and FileCreated fields.
constexpr size_t kFileSizeAt = 18;
constexpr size_t kFileCreatedAt = 22;
constexpr size_t kFileObjectEnd = 38;

// Item names, flags and values of a note. The creation time of an attached
// file is the scratch file's birth and is left out.
STATUS dumpItem(WORD, WORD flags, char* name, WORD nameLength, void* value, DWORD valueLength, void* parameter)
{
    std::string bytes(static_cast<char*>(value), valueLength);
    if (valueLength >= kFileObjectEnd && wordAt(value) == TYPE_OBJECT)
        bytes.replace(kFileCreatedAt, sizeof(TIMEDATE), sizeof(TIMEDATE), '\0');
    *static_cast<std::string*>(parameter) += std::string(name, nameLength) + "/" + std::to_string(flags) + "=" + bytes + ";";
    return NOERROR;
}

STATUS collectFileSizes(WORD, WORD, char* name, WORD nameLength, void* value, DWORD valueLength, void* parameter)
{
    if (std::string(name, nameLength) == "$FILE" && valueLength >= kFileObjectEnd) {
        DWORD size = 0;
        std::memcpy(&size, static_cast<char*>(value) + kFileSizeAt, sizeof size);
        static_cast<std::vector<DWORD>*>(parameter)->push_back(size);
    }
    return NOERROR;
}

std::string dumpDatabase(const std::string& path)
{
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR) << path;
    char info[NSF_INFO_SIZE] = {};
    DBREPLICAINFO replica{};
    EXPECT_EQ(NSFDbInfoGet(db, info), NOERROR);
    EXPECT_EQ(NSFDbReplicaInfoGet(db, &replica), NOERROR);
    std::string out = std::string(info) + "|" + std::to_string(replica.ID.Innards[0]) + "\n";
    for (NOTEID id : noteIds(db, NOTE_CLASS_ALL)) {
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
        WORD noteClass = 0;
        NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
        out += std::to_string(noteClass) + ":";
        EXPECT_EQ(NSFItemScan(note, dumpItem, &out), NOERROR);
        out += "\n";
        NSFNoteClose(note);
    }
    NSFDbClose(db);
    return out;
}

// Every file of the directory but notes.ini, by path, with its databases' contents.
std::map<std::string, std::string> dumpDirectory(const std::string& dir)
{
    EXPECT_EQ(seed_test::startRuntimeOn(dir), NOERROR);
    std::map<std::string, std::string> dump;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        if (entry.is_regular_file() && entry.path().filename() != "notes.ini")
            dump[fs::relative(entry.path(), dir).string()] = dumpDatabase(entry.path().string());
    NotesTerm();
    return dump;
}

struct Entry {
    WORD mailType = 0; // 0 = no MailFile
    std::string mailFile;
    std::string canonicalName;
    std::string commonName;
};

class SeededContent : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dataDir = seed_test::seededDirectory("content", "--users 4 --messages 40 --attachment-size 1500 --seed 7 "
                                                        "--extra-dirs 2 --domain TestDom --server CN=TestSrv/O=TestOrg");
    }
    void SetUp() override { ASSERT_EQ(seed_test::startRuntimeOn(dataDir), NOERROR); }
    void TearDown() override { NotesTerm(); }

    // The $PEOPLE entries with their mail file and names.
    static std::vector<Entry> directory()
    {
        DHANDLE handle = NULLHANDLE;
        const std::string items("MailFile\0FullName", 18);
        EXPECT_EQ(NAMELookup2(nullptr, 0x0121, 1, "$PEOPLE", 1, "", 2, items.c_str(), &handle), NOERROR);
        void* buffer = OSLockObject(handle);
        DWORD count = 0;
        void* name = NAMELocateNextName2(buffer, nullptr, &count);
        std::vector<Entry> entries;
        void* match = nullptr;
        for (DWORD i = 0; i < count; ++i) {
            match = NAMELocateNextMatch2(buffer, name, match);
            Entry entry;
            WORD size = 0;
            const char* value = static_cast<const char*>(NAMELocateItem2(match, 0, &entry.mailType, &size));
            if (value != nullptr && entry.mailType == TYPE_TEXT)
                entry.mailFile.assign(value + 2, size - 2);
            char text[MAXUSERNAME] = {};
            EXPECT_EQ(NAMEGetTextItem2(match, 1, 0, text, sizeof text), NOERROR);
            entry.canonicalName = text;
            EXPECT_EQ(NAMEGetTextItem2(match, 1, 1, text, sizeof text), NOERROR);
            entry.commonName = text;
            entries.push_back(entry);
        }
        OSUnlockObject(handle);
        OSMemFree(handle);
        return entries;
    }

    // The mail files of regular people: text, local, not a left-over copy.
    static std::vector<Entry> regularPeople()
    {
        std::vector<Entry> entries = directory();
        std::map<std::string, int> uses;
        for (const auto& e : entries)
            ++uses[e.mailFile];
        std::vector<Entry> regular;
        for (const auto& e : entries)
            if (e.mailType == TYPE_TEXT && e.mailFile.find(':') == std::string::npos &&
                e.mailFile.find(".bak") == std::string::npos && uses[e.mailFile] == 1)
                regular.push_back(e);
        return regular;
    }

    static std::string dataDir;
};

std::string SeededContent::dataDir;

} // namespace

TEST_F(SeededContent, IniNamesDirectoryServerAndDomain)
{
    char value[MAXENVVALUE + 1] = {};
    ASSERT_TRUE(OSGetEnvironmentString("ServerName", value, MAXENVVALUE));
    EXPECT_STREQ(value, "CN=TestSrv/O=TestOrg");
    ASSERT_TRUE(OSGetEnvironmentString("Domain", value, MAXENVVALUE));
    EXPECT_STREQ(value, "TestDom");
    ASSERT_TRUE(OSGetEnvironmentString("Directory", value, MAXENVVALUE));
    EXPECT_EQ(fs::canonical(value), fs::canonical(dataDir));
    EXPECT_EQ(OSGetEnvironmentLong("HySimTimeZone"), 0);
}

TEST_F(SeededContent, DirectoryHoldsThePeopleAndTheOddEntries)
{
    std::vector<Entry> entries = directory();
    ASSERT_EQ(entries.size(), 10u) << "four people and six odd entries";
    std::map<WORD, int> byType;
    std::map<std::string, int> uses;
    for (const auto& e : entries) {
        ++byType[e.mailType];
        ++uses[e.mailFile];
        EXPECT_EQ(e.canonicalName, "CN=" + e.commonName + "/O=TestOrg");
    }
    EXPECT_EQ(byType[0], 1) << "one person without a mail file";
    EXPECT_EQ(byType[TYPE_TEXT_LIST], 1);
    EXPECT_EQ(byType[TYPE_NUMBER], 1);
    EXPECT_EQ(byType[TYPE_TEXT], 7);
    EXPECT_EQ(uses["C:\\mail\\ext.nsf"], 1);
    EXPECT_EQ(std::count_if(uses.begin(), uses.end(), [](const auto& u) { return u.second == 2; }), 1)
        << "two people share one mail file";
    EXPECT_EQ(std::count_if(entries.begin(), entries.end(),
                            [](const Entry& e) { return e.mailFile.size() > 8 && e.mailFile.find(".nsf.bak") != std::string::npos; }),
              1);

    const Entry someone = regularPeople().at(0);
    char address[MAXRECIPIENTNAME + 1];
    std::string name = someone.commonName;
    ASSERT_EQ(MailLookupAddress(name.data(), address), NOERROR);
    EXPECT_EQ(std::string(address), someone.canonicalName + "@TestDom");
}

TEST_F(SeededContent, MailFilesHoldViewsAndMemos)
{
    std::vector<Entry> people = regularPeople();
    ASSERT_EQ(people.size(), 3u) << "the fourth person shares a mail file";
    int attachments = 0, sealed = 0;
    for (const auto& person : people) {
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(person.mailFile.c_str(), &db), NOERROR) << person.mailFile;
        char info[NSF_INFO_SIZE] = {}, title[NSF_INFO_SIZE] = {};
        ASSERT_EQ(NSFDbInfoGet(db, info), NOERROR);
        NSFDbInfoParse(info, INFOPARSE_TITLE, title, NSF_INFO_SIZE - 1);
        EXPECT_EQ(title, person.commonName);

        std::set<std::string> views;
        for (NOTEID id : noteIds(db, NOTE_CLASS_VIEW)) {
            NOTEHANDLE note = NULLHANDLE;
            ASSERT_EQ(NSFNoteOpen(db, id, OPEN_SUMMARY, &note), NOERROR);
            views.insert(itemText(note, "$TITLE"));
            NSFNoteClose(note);
        }
        for (const char* view : {"($All)", "($Inbox)|$Inbox", "Restore View|restore"})
            EXPECT_EQ(views.count(view), 1u) << view;

        std::vector<NOTEID> memos = noteIds(db, NOTE_CLASS_DOCUMENT);
        EXPECT_EQ(memos.size(), 40u);
        for (NOTEID id : memos) {
            NOTEHANDLE note = NULLHANDLE;
            ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
            EXPECT_EQ(itemText(note, "Form"), "Memo");
            EXPECT_FALSE(itemText(note, "Subject").empty());
            EXPECT_EQ(itemType(note, "SendTo"), TYPE_TEXT_LIST);
            TIMEDATE posted{}, delivered{};
            ASSERT_TRUE(NSFItemGetTime(note, "PostedDate", &posted));
            ASSERT_TRUE(NSFItemGetTime(note, "DeliveredDate", &delivered));
            EXPECT_LT(TimeDateCompare(&posted, &delivered), 0);
            std::vector<DWORD> sizes;
            ASSERT_EQ(NSFItemScan(note, collectFileSizes, &sizes), NOERROR);
            for (DWORD size : sizes)
                EXPECT_EQ(size, 1500u);
            attachments += static_cast<int>(sizes.size());
            if (itemType(note, "$Seal") != 0) {
                ++sealed;
                EXPECT_EQ(itemType(note, "$Seal"), TYPE_SEAL);
                EXPECT_EQ(itemType(note, "$SealData"), TYPE_SEALDATA);
            }
            NSFNoteClose(note);
        }
        NSFDbClose(db);
    }
    EXPECT_GT(attachments, 0);
    EXPECT_GT(sealed, 0);
}

TEST_F(SeededContent, EveryThirdMemoIsUnreadForItsOwnerAlone)
{
    std::vector<Entry> people = regularPeople();
    ASSERT_FALSE(people.empty());
    for (const auto& person : people) {
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(person.mailFile.c_str(), &db), NOERROR) << person.mailFile;
        std::vector<NOTEID> memos = noteIds(db, NOTE_CLASS_DOCUMENT);
        std::vector<DWORD> expected;
        for (size_t i = 0; i < memos.size(); i += 3)
            expected.push_back(memos[i]);
        std::string owner = person.canonicalName;
        DHANDLE table = NULLHANDLE;
        ASSERT_EQ(NSFDbGetUnreadNoteTable(db, owner.data(), static_cast<WORD>(owner.size()), FALSE, &table), NOERROR);
        ASSERT_NE(table, NULLHANDLE) << person.mailFile;
        std::vector<DWORD> unread;
        DWORD id = 0;
        for (BOOL more = IDScan(table, TRUE, &id); more; more = IDScan(table, FALSE, &id))
            unread.push_back(id);
        EXPECT_EQ(unread, expected) << person.mailFile;
        IDDestroyTable(table);

        std::string stranger = "CN=Outside Contact/O=Partner";
        ASSERT_EQ(NSFDbGetUnreadNoteTable(db, stranger.data(), static_cast<WORD>(stranger.size()), FALSE, &table),
                  NOERROR);
        EXPECT_EQ(table, NULLHANDLE);
        NSFDbClose(db);
    }
}

TEST_F(SeededContent, MailFilesHaveTheFoldersAndViewsOfAMailbox)
{
    for (const auto& person : regularPeople()) {
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(person.mailFile.c_str(), &db), NOERROR) << person.mailFile;
        auto entriesOf = [db](NOTEID view) {
            HCOLLECTION collection = 0;
            EXPECT_EQ(NIFOpenCollection(db, db, view, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr),
                      NOERROR);
            std::vector<nif_test::Entry> entries = nif_test::readEntries(collection);
            NIFCloseCollection(collection);
            return entries;
        };
        auto find = [db](const char* name) {
            NOTEID id = 0;
            EXPECT_EQ(NIFFindDesignNoteExt(db, name, NOTE_CLASS_VIEW, "-G40n^", &id, 0), NOERROR) << name;
            return id;
        };
        std::vector<NOTEID> memos = noteIds(db, NOTE_CLASS_DOCUMENT);
        EXPECT_EQ(find("$Inbox"), find("($Inbox)"));
        EXPECT_EQ(entriesOf(find("($Inbox)")).size(), memos.size()) << "every memo is in the Inbox";
        EXPECT_EQ(entriesOf(find("($All)")).size(), memos.size());
        size_t sent = 0;
        for (NOTEID id : memos) {
            NOTEHANDLE note = NULLHANDLE;
            ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
            sent += itemText(note, "From") == person.canonicalName ? 1 : 0;
            NSFNoteClose(note);
        }
        EXPECT_EQ(entriesOf(find("($Sent)")).size(), sent) << "the memos the owner wrote";
        EXPECT_TRUE(entriesOf(find("($Drafts)")).empty()) << "every memo was posted";
        size_t filed = 0;
        for (const char* folder : {"Projects", "Projects\\Alpha", "Projects\\Alpha\\Old", "Customers"})
            for (const nif_test::Entry& entry : entriesOf(find(folder))) {
                EXPECT_NE(std::find(memos.begin(), memos.end(), entry.id), memos.end());
                ++filed;
            }
        EXPECT_GT(filed, 0u);
        EXPECT_LT(filed, memos.size());
        size_t categories = 0;
        for (const nif_test::Entry& entry : entriesOf(find("By Sender")))
            categories += (entry.id & NOTEID_CATEGORY) ? 1 : 0;
        EXPECT_GT(categories, 0u);
        size_t designs = 0;
        for (const nif_test::Entry& entry : entriesOf(nif_test::kDesignCollection))
            designs += entry.noteClass == NOTE_CLASS_VIEW ? 1 : 0;
        EXPECT_EQ(designs, 11u);
        NSFDbClose(db);
    }
}

TEST_F(SeededContent, LeftOverCopyIsAReplicaOfItsMailFile)
{
    std::vector<Entry> entries = directory();
    auto copy = std::find_if(entries.begin(), entries.end(),
                             [](const Entry& e) { return e.mailFile.find(".nsf.bak") != std::string::npos; });
    ASSERT_NE(copy, entries.end());
    std::string original = copy->mailFile.substr(0, copy->mailFile.size() - 4);
    DBREPLICAINFO replicas[2] = {};
    char infos[2][NSF_INFO_SIZE] = {};
    const std::string paths[2] = {original, copy->mailFile};
    for (int i = 0; i < 2; ++i) {
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(paths[i].c_str(), &db), NOERROR) << paths[i];
        ASSERT_EQ(NSFDbReplicaInfoGet(db, &replicas[i]), NOERROR);
        ASSERT_EQ(NSFDbInfoGet(db, infos[i]), NOERROR);
        NSFDbClose(db);
    }
    EXPECT_EQ(std::memcmp(&replicas[0].ID, &replicas[1].ID, sizeof(TIMEDATE)), 0);
    EXPECT_STREQ(infos[0], infos[1]);
}

TEST_F(SeededContent, ApplicationsTemplateAndExtraDirectories)
{
    DBHANDLE db = NULLHANDLE;
    char info[NSF_INFO_SIZE] = {}, part[NSF_INFO_SIZE] = {};
    ASSERT_EQ(NSFDbOpen("apps/discussion.ntf", &db), NOERROR);
    ASSERT_EQ(NSFDbInfoGet(db, info), NOERROR);
    NSFDbInfoParse(info, INFOPARSE_CLASS, part, NSF_INFO_SIZE - 1);
    EXPECT_STREQ(part, "StdDiscussion");
    NSFDbClose(db);
    for (const char* path : {"apps/discussion", "apps/archive/projects-2019.nsf", "extra1/archive-a.nsf",
                             "extra2/old/archive-c.nsf", "mail.box"}) {
        ASSERT_EQ(NSFDbOpen(path, &db), NOERROR) << path;
        EXPECT_FALSE(noteIds(db, NOTE_CLASS_VIEW).empty()) << path;
        NSFDbClose(db);
    }
    EXPECT_FALSE(fs::exists(dataDir + "/extra3"));
}

TEST(SeedTool, OneSeedAlwaysGivesTheSameDirectory)
{
    const std::string arguments = "--users 3 --messages 6 --attachment-size 100 --extra-dirs 1 --seed ";
    auto first = dumpDirectory(seed_test::seededDirectory("same-a", arguments + "11"));
    auto second = dumpDirectory(seed_test::seededDirectory("same-b", arguments + "11"));
    auto other = dumpDirectory(seed_test::seededDirectory("other", arguments + "12"));
    EXPECT_GT(first.size(), 10u);
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first == other);
}

TEST(SeedTool, ReportsItsWorkAndRefusesBadInvocations)
{
    std::string dir = seed_test::freshDirectory("cli");
    seed_test::SeedRun run = seed_test::runSeeder("--dir " + dir + " --users 1 --messages 2");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    // 1 directory + 1 mail file + its copy + 4 application databases and the mailbox.
    EXPECT_NE(run.output.find(": 8 files, "), std::string::npos) << run.output;

    run = seed_test::runSeeder("--dir " + dir + " --users 1");
    EXPECT_EQ(run.exitCode, 2) << "an existing directory needs --force";
    EXPECT_NE(run.output.find("--force"), std::string::npos);
    EXPECT_EQ(seed_test::runSeeder("--dir " + dir + " --users 1 --messages 0 --force").exitCode, 0);
    EXPECT_EQ(seed_test::runSeeder("--users 3").exitCode, 2);
    EXPECT_EQ(seed_test::runSeeder("--dir " + dir + " --users many").exitCode, 2);
    EXPECT_EQ(seed_test::runSeeder("--dir " + dir + " --messages").exitCode, 2);
    EXPECT_EQ(seed_test::runSeeder("--dir " + dir + " --bogus").exitCode, 2);
    run = seed_test::runSeeder("--help");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find("--attachment-size"), std::string::npos) << run.output;
}
