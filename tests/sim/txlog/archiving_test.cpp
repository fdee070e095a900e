// Transaction logs: extents written as notes change, and the archiving walk over them.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "exit_child.h"
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;
using storage_test::writeFile;

namespace {

const STATUS kNotArchiveStyle = 0x0EA1;
const STATUS kArchiveInProgress = 0x0EAE;
// Room for the 32-byte header and three 56-byte records.
const char* const kArchiveStyle = "TRANSLOG_Status=1\nTRANSLOG_Style=1\nTRANSLOG_Path=logs\nTRANSLOG_ExtentSize=200\n";

struct Offer {
    STATUS status;
    UNID logId;
    DWORD number;
    std::string path;
};

Offer offer(bool first)
{
    Offer result{};
    char path[MAXPATH + 1] = {};
    result.status = first ? NSFGetFirstLogToArchive(&result.logId, &result.number, path)
                          : NSFGetNextLogToArchive(&result.logId, &result.number, path);
    result.path = path;
    return result;
}

// The numbers of the extents a whole walk offers.
std::vector<DWORD> walk()
{
    std::vector<DWORD> numbers;
    for (Offer next = offer(true); next.status == NOERROR; next = offer(false))
        numbers.push_back(next.number);
    return numbers;
}

std::vector<char> fileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

template <class T>
T at(const std::vector<char>& bytes, size_t offset)
{
    T value{};
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

bool sameUnid(const UNID& a, const UNID& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

} // namespace

class TransactionLog : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        restart(kArchiveStyle);
        db = createAndOpen("logged.nsf");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        NSFEndArchivingLogs();
        StorageTest::TearDown();
    }
    // Stops and starts the runtime on a notes.ini with these transaction-log settings.
    void restart(const std::string& settings)
    {
        NotesTerm();
        writeFile(dataDir + "/notes.ini",
                  "[Notes]\nDirectory=" + dataDir + "\nServerName=CN=HySrv01/O=HyOrg\n" + settings);
        std::string program = dataDir;
        std::string ini = "=" + dataDir + "/notes.ini";
        char* argv[] = {program.data(), ini.data(), nullptr};
        ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    }
    std::string extent(DWORD number)
    {
        char name[32];
        std::snprintf(name, sizeof name, "/logs/extent-%07u.txn", number);
        return dataDir + name;
    }
    DBHANDLE db = NULLHANDLE;
};

TEST_F(TransactionLog, EveryNoteChangeIsARecordAndFullExtentsAreFollowedByNewOnes)
{
    std::vector<NOTEID> ids;
    for (const char* subject : {"one", "two", "three", "four"})
        ids.push_back(saveTextNote(db, subject));
    EXPECT_EQ(std::filesystem::file_size(extent(1)), 200u);
    EXPECT_EQ(std::filesystem::file_size(extent(2)), 32u + 56u);
    ASSERT_EQ(NSFNoteDelete(db, ids[0], 0), NOERROR);
    EXPECT_EQ(std::filesystem::file_size(extent(2)), 32u + 2 * 56u);

    BOOL logged = FALSE;
    UNID logId{}, instance{};
    DWORD current = 0;
    ASSERT_EQ(NSFDbGetLogInfo(db, 0, &logged, &logId, &instance, &current), NOERROR);
    EXPECT_TRUE(logged);
    EXPECT_EQ(current, 2u);
    DBREPLICAINFO replica{};
    ASSERT_EQ(NSFDbReplicaInfoGet(db, &replica), NOERROR);
    EXPECT_EQ(std::memcmp(&instance.File, &replica.ID, sizeof replica.ID), 0);

    std::vector<char> first = fileBytes(extent(1));
    EXPECT_EQ(at<DWORD>(first, 24), 1u) << "extent number in the header";
    EXPECT_TRUE(sameUnid(at<UNID>(first, 8), logId));
    std::vector<char> second = fileBytes(extent(2));
    size_t deletion = 32 + 56;
    EXPECT_EQ(at<WORD>(second, 32 + 4), 0) << "a save";
    EXPECT_EQ(at<WORD>(second, deletion + 4), 1) << "a removal";
    EXPECT_TRUE(sameUnid(at<UNID>(second, deletion + 8), instance));
    EXPECT_EQ(at<NOTEID>(second, deletion + 40), ids[0]);
}

TEST_F(TransactionLog, WalkOffersWaitingExtentsUntilTheEndStatusAndTheOpenExtentAgainWhenItGrew)
{
    for (const char* subject : {"one", "two", "three", "four"})
        saveTextNote(db, subject);
    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR);
    Offer first = offer(true);
    ASSERT_EQ(first.status, NOERROR);
    EXPECT_EQ(first.number, 1u);
    EXPECT_EQ(first.path, extent(1));
    Offer partial = offer(false);
    ASSERT_EQ(partial.status, NOERROR);
    EXPECT_EQ(partial.number, 2u) << "the extent still being written is offered too";
    EXPECT_TRUE(sameUnid(first.logId, partial.logId));
    EXPECT_EQ(offer(false).status, ERR_NO_TRANSLOGS_TO_ARCHIVE);
    EXPECT_EQ(offer(false).status, ERR_NO_TRANSLOGS_TO_ARCHIVE);
    EXPECT_EQ(walk(), (std::vector<DWORD>{1, 2})) << "the first call starts the list again";
    ASSERT_EQ(NSFEndArchivingLogs(), NOERROR);

    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR);
    EXPECT_EQ(offer(true).status, ERR_NO_TRANSLOGS_TO_ARCHIVE) << "everything offered was confirmed";
    saveTextNote(db, "five");
    EXPECT_EQ(std::filesystem::file_size(extent(2)), 32u + 2 * 56u) << "the offered extent stays open";
    EXPECT_EQ(walk(), std::vector<DWORD>{2});
    ASSERT_EQ(NSFEndArchivingLogs(), NOERROR);
}

TEST_F(TransactionLog, NextBeforeFirstStartsAtTheBeginning)
{
    saveTextNote(db, "one");
    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR);
    Offer next = offer(false);
    ASSERT_EQ(next.status, NOERROR);
    EXPECT_EQ(next.number, 1u);
}

TEST_F(TransactionLog, OffersNotConfirmedComeAgainAfterARestart)
{
    for (const char* subject : {"one", "two", "three", "four"})
        saveTextNote(db, subject);
    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR);
    EXPECT_EQ(walk(), (std::vector<DWORD>{1, 2}));
    NSFDbClose(db);
    restart(kArchiveStyle);
    db = open("logged.nsf");

    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR) << "the session of the earlier run is gone";
    EXPECT_EQ(walk(), (std::vector<DWORD>{1, 2}));
    ASSERT_EQ(NSFEndArchivingLogs(), NOERROR);
    restart(kArchiveStyle);
    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR);
    EXPECT_EQ(offer(true).status, ERR_NO_TRANSLOGS_TO_ARCHIVE) << "confirmed offers stay archived";
}

TEST_F(TransactionLog, ASecondArchiverIsRefusedInThisProcessAndInAnother)
{
    saveTextNote(db, "one");
    ASSERT_EQ(NSFBeginArchivingLogs(), NOERROR);
    EXPECT_EQ(NSFBeginArchivingLogs(), kArchiveInProgress);

    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // A restart drops the session this child inherited, but not the parent's lock.
        NotesTerm();
        std::string program = dataDir;
        std::string ini = "=" + dataDir + "/notes.ini";
        char* argv[] = {program.data(), ini.data(), nullptr};
        STATUS status = NotesInitExtended(2, argv);
        if (status == NOERROR)
            status = NSFBeginArchivingLogs();
        process::exitChild(status == kArchiveInProgress ? 0 : 1);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    EXPECT_TRUE(WIFEXITED(result) && WEXITSTATUS(result) == 0);

    ASSERT_EQ(NSFEndArchivingLogs(), NOERROR);
    EXPECT_EQ(NSFBeginArchivingLogs(), NOERROR) << "free again once the session ended";
}

TEST_F(TransactionLog, CallsOutOfOrderOrOnOtherLoggingStylesFail)
{
    UNID logId{};
    DWORD number = 0;
    char path[MAXPATH + 1] = {};
    EXPECT_EQ(NSFGetFirstLogToArchive(&logId, &number, path), sim::STS_NO_ARCHIVING_SESSION);
    EXPECT_EQ(NSFEndArchivingLogs(), sim::STS_NO_ARCHIVING_SESSION);
    WORD style = 9;
    ASSERT_EQ(NSFGetTransLogStyle(&style), NOERROR);
    EXPECT_EQ(style, 1);

    restart("TRANSLOG_Status=1\nTRANSLOG_Style=0\n");
    ASSERT_EQ(NSFGetTransLogStyle(&style), NOERROR);
    EXPECT_EQ(style, 0);
    EXPECT_EQ(NSFBeginArchivingLogs(), kNotArchiveStyle);
    EXPECT_EQ(NSFGetFirstLogToArchive(&logId, &number, path), kNotArchiveStyle);

    restart("TRANSLOG_Status=1\nTRANSLOG_Style=7\n");
    EXPECT_EQ(NSFGetTransLogStyle(&style), sim::STS_UNSUPPORTED);
}

TEST_F(TransactionLog, AServerWithoutLoggingWritesNoLog)
{
    restart("");
    saveTextNote(db, "one");
    EXPECT_FALSE(std::filesystem::exists(dataDir + "/logdir"));
    EXPECT_FALSE(std::filesystem::exists(extent(1)));
    WORD style = 0;
    EXPECT_EQ(NSFGetTransLogStyle(&style), ERR_SERVER_NOT_TRANSLOGGED);
    EXPECT_EQ(NSFBeginArchivingLogs(), ERR_SERVER_NOT_TRANSLOGGED);
    BOOL logged = TRUE;
    UNID logId{}, instance{};
    DWORD current = 7;
    ASSERT_EQ(NSFDbGetLogInfo(db, 0, &logged, &logId, &instance, &current), NOERROR);
    EXPECT_FALSE(logged);
    EXPECT_EQ(current, 0u);
    EXPECT_NE(instance.Note.Innards[1], 0u) << "the instance ID is the database's even when unlogged";
    EXPECT_EQ(NSFDbGetLogInfo(NULLHANDLE, 0, &logged, &logId, &instance, &current), ERR_NULL_DBHANDLE);
    EXPECT_EQ(NSFDbGetLogInfo(db, 1, &logged, &logId, &instance, &current), sim::STS_UNSUPPORTED);
}
