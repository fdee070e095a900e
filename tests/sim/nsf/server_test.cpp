// Databases taken offline and back online, the extended open, and the console.
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {
const STATUS kDatabaseInUse = 0x13EA;
}

TEST_F(StorageTest, ADatabaseInUseStaysOnlineAndAnOfflineOneCannotBeOpened)
{
    DBHANDLE db = createAndOpen("shelf.nsf");
    EXPECT_EQ(NSFTakeDatabaseOffline("shelf.nsf", 0, 0), kDatabaseInUse);
    NSFDbClose(db);
    ASSERT_EQ(NSFTakeDatabaseOffline("shelf", 0, 1), NOERROR) << "the name may omit .nsf";
    EXPECT_EQ(NSFDbOpen("shelf.nsf", &db), sim::STS_DATABASE_OFFLINE);
    ASSERT_EQ(NSFBringDatabaseOnline("shelf.nsf", 0), NOERROR);
    db = open("shelf.nsf");
    NSFDbClose(db);

    EXPECT_EQ(NSFTakeDatabaseOffline("missing.nsf", 0, 0), ERR_NOEXIST);
    EXPECT_EQ(NSFBringDatabaseOnline("missing.nsf", 0), ERR_NOEXIST);
    EXPECT_EQ(NSFTakeDatabaseOffline("", 0, 0), sim::STS_BAD_ARGUMENT);
    EXPECT_EQ(NSFTakeDatabaseOffline("shelf.nsf", 0, 2), sim::STS_UNSUPPORTED);
    EXPECT_EQ(NSFBringDatabaseOnline("shelf.nsf", 1), sim::STS_UNSUPPORTED);
}

TEST_F(StorageTest, ARestartBringsOfflineDatabasesBackOnline)
{
    NSFDbClose(createAndOpen("shelf.nsf"));
    ASSERT_EQ(NSFTakeDatabaseOffline("shelf.nsf", 0, 0), NOERROR);
    NotesTerm();
    std::string program = dataDir;
    std::string ini = "=" + dataDir + "/notes.ini";
    char* argv[] = {program.data(), ini.data(), nullptr};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    NSFDbClose(open("shelf.nsf"));
}

TEST_F(StorageTest, ExtendedOpenGivesTheModifiedTimesAndRefusesWhatItDoesNotSimulate)
{
    DBHANDLE plain = createAndOpen("ext.nsf");
    saveTextNote(plain, "one");
    TIMEDATE expectedData{}, expectedNonData{};
    ASSERT_EQ(NSFDbModifiedTime(plain, &expectedData, &expectedNonData), NOERROR);

    DBHANDLE db = NULLHANDLE;
    TIMEDATE data{}, nonData{};
    ASSERT_EQ(NSFDbOpenExtended("ext.nsf", 0, NULLHANDLE, nullptr, &db, &data, &nonData), NOERROR);
    EXPECT_NE(db, plain);
    EXPECT_EQ(std::memcmp(&data, &expectedData, sizeof data), 0);
    EXPECT_EQ(std::memcmp(&nonData, &expectedNonData, sizeof nonData), 0);
    NSFDbClose(db);
    TIMEDATE since{};
    EXPECT_EQ(NSFDbOpenExtended("ext.nsf", 0, NULLHANDLE, &since, &db, &data, &nonData), sim::STS_UNSUPPORTED);
    EXPECT_EQ(NSFDbOpenExtended("ext.nsf", 1, NULLHANDLE, nullptr, &db, &data, &nonData), sim::STS_UNSUPPORTED);
    EXPECT_EQ(NSFDbOpenExtended("missing.nsf", 0, NULLHANDLE, nullptr, &db, nullptr, nullptr), ERR_NOEXIST);
    NSFDbClose(plain);
}

TEST_F(StorageTest, ConsoleCommandsAreNotSimulated)
{
    char local[] = "CN=HySrv01/O=HyOrg";
    char other[] = "CN=Elsewhere/O=HyOrg";
    char command[] = "show server";
    DHANDLE response = NULLHANDLE;
    EXPECT_EQ(NSFRemoteConsole(local, command, &response), sim::STS_UNSUPPORTED);
    EXPECT_EQ(NSFRemoteConsole(other, command, &response), sim::STS_SERVER_NOT_RESPONDING);
    EXPECT_EQ(NSFRemoteConsole(local, nullptr, &response), sim::STS_BAD_ARGUMENT);
    EXPECT_EQ(response, NULLHANDLE);
}
