// Database files: creation, persistence, descriptive data, paths and bad input.
#include <sqlite3.h>
#include <unistd.h>

#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;
using storage_test::writeFile;

namespace {

std::string infoOf(DBHANDLE db)
{
    char buffer[NSF_INFO_SIZE] = {};
    EXPECT_EQ(NSFDbInfoGet(db, buffer), NOERROR);
    return buffer;
}

std::string parse(const char* info, WORD what, WORD length = NSF_INFO_SIZE - 1)
{
    char buffer[NSF_INFO_SIZE + 8];
    std::memset(buffer, 'x', sizeof buffer);
    NSFDbInfoParse(const_cast<char*>(info), what, buffer, length);
    return buffer;
}

std::string netPath(const char* server, const char* file)
{
    char buffer[1024];
    EXPECT_EQ(OSPathNetConstruct(nullptr, server, file, buffer), NOERROR);
    return buffer;
}

bool sameTime(const TIMEDATE& a, const TIMEDATE& b)
{
    return a.Innards[0] == b.Innards[0] && a.Innards[1] == b.Innards[1];
}

} // namespace

class StorageDatabase : public StorageTest {};

TEST_F(StorageDatabase, PropertiesSurviveCloseAndReopen)
{
    DBHANDLE db = createAndOpen("keep.nsf");
    char info[NSF_INFO_SIZE] = "Keeper\nFiling\n#1StdTemplate\n#2BaseTemplate";
    ASSERT_EQ(NSFDbInfoSet(db, info), NOERROR);
    DBREPLICAINFO replica{};
    replica.ID = {{0x0052A1C3, 0x8525721B}};
    replica.Flags = 0x0010;
    replica.CutoffInterval = 30;
    replica.Cutoff = {{100, 2459000}};
    ASSERT_EQ(NSFDbReplicaInfoSet(db, &replica), NOERROR);
    DBID created{};
    ASSERT_EQ(NSFDbIDGet(db, &created), NOERROR);
    NOTEID id = saveTextNote(db, "persisted");
    ASSERT_EQ(NSFDbClose(db), NOERROR);

    db = open("keep.nsf");
    EXPECT_EQ(infoOf(db), info);
    DBREPLICAINFO read{};
    ASSERT_EQ(NSFDbReplicaInfoGet(db, &read), NOERROR);
    EXPECT_EQ(std::memcmp(&read, &replica, sizeof read), 0);
    DBID again{};
    ASSERT_EQ(NSFDbIDGet(db, &again), NOERROR);
    EXPECT_TRUE(sameTime(created, again));
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
    EXPECT_EQ(text(note, "Subject"), "persisted");
    NSFNoteClose(note);
    EXPECT_EQ(NSFDbClose(db), NOERROR);
}

TEST_F(StorageDatabase, CreateRefusesAnExistingFileUnlessForced)
{
    DBHANDLE db = createAndOpen("twice.nsf");
    saveTextNote(db, "old");
    NSFDbClose(db);

    EXPECT_EQ(NSFDbCreate("twice.nsf", DBCLASS_NOTEFILE, FALSE), ERR_EXISTS);
    ASSERT_EQ(NSFDbCreate("twice.nsf", DBCLASS_NOTEFILE, TRUE), NOERROR);
    db = open("twice.nsf");
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db, 4, 0, &note), ERR_INVALID_NOTE) << "a forced creation starts empty";
    NSFDbClose(db);
}

TEST_F(StorageDatabase, CreateChecksClassAndParentDirectory)
{
    EXPECT_EQ(NSFDbCreate("missing/sub.nsf", DBCLASS_NOTEFILE, TRUE), ERR_NOEXIST);
    EXPECT_EQ(NSFDbCreate("odd.nsf", 0x1234, FALSE), 0x0232);
    EXPECT_EQ(NSFDbCreate("", DBCLASS_NOTEFILE, TRUE), ERR_DIRECTORY);
    std::filesystem::create_directory(dataDir + "/mail");
    EXPECT_EQ(NSFDbCreate("mail/jdoe", DBCLASS_NOTEFILE, FALSE), NOERROR);
    EXPECT_TRUE(std::filesystem::exists(dataDir + "/mail/jdoe.nsf")) << "a name without extension gets .nsf";
    EXPECT_EQ(NSFDbCreate("pubnames.ntf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    DBHANDLE db = open("mail/jdoe");
    EXPECT_NE(db, NULLHANDLE);
    NSFDbClose(db);
}

TEST_F(StorageDatabase, InfoBufferIsParsedIntoItsPieces)
{
    const char* info = "Mail of Jane\nPersonal\n#1StdR85Mail\n#2StdR9Mail";
    EXPECT_EQ(parse(info, INFOPARSE_TITLE), "Mail of Jane");
    EXPECT_EQ(parse(info, INFOPARSE_CATEGORIES), "Personal");
    EXPECT_EQ(parse(info, INFOPARSE_CLASS), "StdR85Mail");
    EXPECT_EQ(parse(info, INFOPARSE_DESIGN_CLASS), "StdR9Mail");
    EXPECT_EQ(parse(info, INFOPARSE_TITLE, 4), "Mail");
    EXPECT_EQ(parse("Only title\n#2Base", INFOPARSE_CATEGORIES), "");
    EXPECT_EQ(parse("Only title\n#2Base", INFOPARSE_CLASS), "");
    EXPECT_EQ(parse("Only title\n#2Base", INFOPARSE_DESIGN_CLASS), "Base");
    EXPECT_EQ(parse("", INFOPARSE_TITLE), "");
}

TEST_F(StorageDatabase, InfoSetRejectsAnUnterminatedBufferAndStampsNonDataTime)
{
    DBHANDLE db = createAndOpen("info.nsf");
    TIMEDATE dataBefore{}, nonDataBefore{};
    ASSERT_EQ(NSFDbModifiedTime(db, &dataBefore, &nonDataBefore), NOERROR);
    char full[NSF_INFO_SIZE];
    std::memset(full, 'T', sizeof full);
    EXPECT_EQ(NSFDbInfoSet(db, full), 0x022D);
    char title[NSF_INFO_SIZE] = "A title";
    usleep(20000);
    ASSERT_EQ(NSFDbInfoSet(db, title), NOERROR);
    TIMEDATE dataAfter{}, nonDataAfter{};
    ASSERT_EQ(NSFDbModifiedTime(db, &dataAfter, &nonDataAfter), NOERROR);
    EXPECT_TRUE(sameTime(dataBefore, dataAfter));
    EXPECT_EQ(TimeDateCompare(&nonDataAfter, &nonDataBefore), 1);
    usleep(20000);
    saveTextNote(db, "data");
    ASSERT_EQ(NSFDbModifiedTime(db, &dataAfter, nullptr), NOERROR);
    EXPECT_EQ(TimeDateCompare(&dataAfter, &nonDataAfter), 1);
    NSFDbClose(db);
}

TEST_F(StorageDatabase, QuotaReportsTheFileSizeInKilobytesAndAclIsACopy)
{
    DBHANDLE db = createAndOpen("size.nsf");
    DWORD allocated = 0, unused = 0;
    ASSERT_EQ(NSFDbSpaceUsage(db, &allocated, &unused), NOERROR);
    EXPECT_GT(allocated, 0u);
    EXPECT_LE(unused, allocated);
    DBQUOTAINFOEXT quota{};
    ASSERT_EQ(NSFDbQuotaGethDB(db, &quota), NOERROR);
    EXPECT_EQ(quota.SizeLimit, 0u);
    EXPECT_EQ(quota.CurrentDbSize, (allocated + 1023) / 1024);
    EXPECT_GT(quota.MaxDbSize, quota.CurrentDbSize);
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
    EXPECT_EQ(std::string(static_cast<const char*>(OSLockObject(acl)), 4), "HACL");
    OSUnlockObject(acl);
    EXPECT_EQ(OSMemFree(acl), NOERROR) << "the caller owns the ACL copy";
    NSFDbClose(db);
}

TEST_F(StorageDatabase, ModeAndPathsOfDatabasesAndDirectories)
{
    std::filesystem::create_directory(dataDir + "/mail");
    DBHANDLE db = createAndOpen("mail/user.nsf");
    USHORT mode = 0;
    ASSERT_EQ(NSFDbModeGet(db, &mode), NOERROR);
    EXPECT_EQ(mode, DB_LOADED);
    char canonical[MAXPATH] = {}, expanded[MAXPATH] = {};
    ASSERT_EQ(NSFDbPathGet(db, canonical, expanded), NOERROR);
    EXPECT_STREQ(canonical, "mail/user.nsf");
    EXPECT_EQ(std::string(expanded), dataDir + "/mail/user.nsf");
    NSFDbClose(db);

    DBHANDLE dir = open("mail");
    ASSERT_EQ(NSFDbModeGet(dir, &mode), NOERROR);
    EXPECT_EQ(mode, DB_DIRECTORY);
    ASSERT_EQ(NSFDbPathGet(dir, canonical, nullptr), NOERROR);
    EXPECT_STREQ(canonical, "mail");
    char info[NSF_INFO_SIZE];
    EXPECT_EQ(NSFDbInfoGet(dir, info), ERR_DIRECTORY);
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(dir, &note), ERR_DIRECTORY);
    EXPECT_EQ(NSFDbClose(dir), NOERROR);

    DBHANDLE data = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(nullptr, &data), NOERROR);
    ASSERT_EQ(NSFDbPathGet(data, canonical, expanded), NOERROR);
    EXPECT_STREQ(canonical, "");
    EXPECT_EQ(std::string(expanded), dataDir);
    NSFDbClose(data);
}

TEST_F(StorageDatabase, PathFormsReachTheSameFile)
{
    std::filesystem::create_directory(dataDir + "/apps");
    NSFDbClose(createAndOpen("apps/forms.nsf"));
    for (std::string name : {std::string("apps/forms"), dataDir + "/apps/forms.nsf", std::string("apps\\forms.nsf"),
                             std::string("apps/../apps/./forms.nsf"), std::string("CN=HySrv01/O=HyOrg!!apps/forms.nsf"),
                             std::string("hysrv01/hyorg!!apps/forms"), std::string("!!apps/forms.nsf")}) {
        DBHANDLE db = open(name);
        char expanded[MAXPATH] = {};
        NSFDbPathGet(db, nullptr, expanded);
        EXPECT_EQ(std::string(expanded), dataDir + "/apps/forms.nsf") << name;
        NSFDbClose(db);
    }
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen("CN=Other/O=HyOrg!!apps/forms.nsf", &db), sim::STS_SERVER_NOT_RESPONDING);
    EXPECT_EQ(NSFDbOpen("../outside.nsf", &db), sim::STS_PATH_OUTSIDE);
    EXPECT_EQ(NSFDbOpen("apps/../../outside.nsf", &db), sim::STS_PATH_OUTSIDE);
    EXPECT_EQ(NSFDbCreate("../outside.nsf", DBCLASS_NOTEFILE, TRUE), sim::STS_PATH_OUTSIDE);
}

TEST_F(StorageDatabase, NetworkPathConstruction)
{
    EXPECT_EQ(netPath("CN=Srv/O=Org", "mail/jdoe.nsf"), "CN=Srv/O=Org!!mail/jdoe.nsf");
    EXPECT_EQ(netPath("", "mail/jdoe.nsf"), "mail/jdoe.nsf");
    EXPECT_EQ(netPath(nullptr, "mail/jdoe.nsf"), "mail/jdoe.nsf");
    EXPECT_EQ(netPath("Srv", ""), "Srv!!");
    std::string longName(400, 'n');
    EXPECT_EQ(netPath("Srv", longName.c_str()), ("Srv!!" + longName).substr(0, MAXPATH - 1));
}

TEST_F(StorageDatabase, BadFilesAndHandlesGiveStatuses)
{
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen("absent.nsf", &db), ERR_NOEXIST);
    writeFile(dataDir + "/text.nsf", "this is not a database at all, just some text that is long enough");
    EXPECT_EQ(NSFDbOpen("text.nsf", &db), ERR_NOT_NSF);
    writeFile(dataDir + "/empty.nsf", "");
    EXPECT_EQ(NSFDbOpen("empty.nsf", &db), ERR_NOT_NSF);
    sqlite3* foreign = nullptr;
    ASSERT_EQ(sqlite3_open((dataDir + "/foreign.nsf").c_str(), &foreign), SQLITE_OK);
    sqlite3_exec(foreign, "CREATE TABLE t(x)", nullptr, nullptr, nullptr);
    sqlite3_close(foreign);
    EXPECT_EQ(NSFDbOpen("foreign.nsf", &db), ERR_NOT_NSF) << "an SQLite file that is not one of our databases";

    DBHANDLE live = createAndOpen("live.nsf");
    ASSERT_EQ(NSFDbClose(live), NOERROR);
    char info[NSF_INFO_SIZE];
    EXPECT_EQ(NSFDbInfoGet(live, info), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFDbClose(live), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFDbInfoGet(NULLHANDLE, info), ERR_NULL_DBHANDLE);
    DHANDLE memory = NULLHANDLE;
    ASSERT_EQ(OSMemAlloc(0, 16, &memory), NOERROR);
    EXPECT_EQ(NSFDbInfoGet(memory, info), sim::STS_INVALID_HANDLE) << "a handle of another kind";
    OSMemFree(memory);
}

TEST_F(StorageDatabase, CorruptFilesGiveStatusesNotCrashes)
{
    DBHANDLE db = createAndOpen("corrupt.nsf");
    for (int i = 0; i < 20; ++i)
        saveTextNote(db, std::string(500, 'a' + i % 26));
    NSFDbClose(db);
    std::string path = dataDir + "/corrupt.nsf";
    std::string bytes;
    {
        std::ifstream in(path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    ASSERT_GT(bytes.size(), 4096u);
    for (size_t i = 100; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7919 % 251);
    writeFile(path, bytes);
    EXPECT_NE(NSFDbOpen("corrupt.nsf", &db), NOERROR);

    writeFile(dataDir + "/truncated.nsf", bytes.substr(0, 200));
    EXPECT_NE(NSFDbOpen("truncated.nsf", &db), NOERROR);
}
