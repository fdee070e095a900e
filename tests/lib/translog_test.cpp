// Transaction-log archiving through the library: the walk, its end, the log lines.
#include <string>
#include <vector>

#include "HYLNTool_Database.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

const char* const kServer = "CN=HySrv01/O=HyOrg";
const char* const kUtilitiesFile = "HYLNTools/HYLNTool_Interface/HYLNTool_NotesUtilities.cpp";

class TransactionLogs : public RuntimeTest {
protected:
    // Restarts the runtime on archive-style logging, extents of three records.
    void SetUp() override
    {
        RuntimeTest::SetUp();
        writeNotesIni(dataDir, kServer,
                      "TRANSLOG_Status=1\nTRANSLOG_Style=1\nTRANSLOG_Path=txn\nTRANSLOG_ExtentSize=200\n");
        startRuntime(dataDir);
        ASSERT_FALSE(db.Create().IsErrorSet());
        ASSERT_FALSE(db.Open().IsErrorSet());
        captureLog();
    }
    void TearDown() override
    {
        HyLNUtilities::endArchivinglogs();
        RuntimeTest::TearDown();
    }
    void saveNotes(int count)
    {
        for (int i = 0; i < count; ++i) {
            NOTEHANDLE note = NULLHANDLE;
            ASSERT_EQ(HY_NSFNoteCreate(db.GetHandle(), &note), NOERROR);
            ASSERT_EQ(HY_NSFItemSetText(note, "Subject", "logged", MAXWORD), NOERROR);
            ASSERT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
            HY_NSFNoteClose(note);
        }
    }
    // The extents one walk reports, and the status that ended it.
    std::vector<std::string> walk(HyLNError& end)
    {
        std::vector<std::string> paths;
        UNIVERSALNOTEID logId{};
        unsigned int number = 0;
        char path[MAXPATH + 1] = {};
        for (bool first = true;; first = false) {
            end = HyLNUtilities::getTransactionExtent(logId, number, path, first);
            if (end.IsErrorSet())
                return paths;
            paths.push_back(path);
        }
    }
    HyLNDatabase db{"logged.nsf", kServer};
};

TEST_F(TransactionLogs, WalkReportsEachExtentAndEndsWithTheEndOfListStatus)
{
    saveNotes(4);
    unsigned short style = 9;
    ASSERT_FALSE(HyLNUtilities::getTransLogStyle(style).IsErrorSet());
    EXPECT_EQ(style, 1);
    ASSERT_FALSE(HyLNUtilities::beginArchivinglogs().IsErrorSet());
    HyLNError end;
    EXPECT_EQ(walk(end), (std::vector<std::string>{dataDir + "/txn/extent-0000001.txn",
                                                   dataDir + "/txn/extent-0000002.txn"}));
    EXPECT_EQ(end.GetErrorCode(), ERR_NO_TRANSLOGS_TO_ARCHIVE);
    ASSERT_EQ(capturedLog().size(), 1u);
    const LogLine& line = capturedLog().front();
    EXPECT_EQ(line.function, "getTransactionExtent");
    EXPECT_EQ(line.level, 0);
    EXPECT_EQ(line.file, kUtilitiesFile);
    EXPECT_EQ(line.text, "error in getting trnasactional log style error No transaction log files are waiting to be "
                         "archived.");

    HyLNError second = HyLNUtilities::beginArchivinglogs();
    EXPECT_EQ(second.GetErrorCode(), 0x0EAE);
    EXPECT_EQ(second.GetMessage(), "Archiving of transaction logs already in progress.");
    ASSERT_FALSE(HyLNUtilities::endArchivinglogs().IsErrorSet());
    EXPECT_EQ(capturedLog().size(), 1u) << "begin and end log nothing";

    int logged = 0;
    UNIVERSALNOTEID logId{}, instance{};
    unsigned int extent = 0;
    ASSERT_FALSE(db.DbGetLogInfo(logged, logId, instance, extent).IsErrorSet());
    EXPECT_EQ(logged, 1);
    EXPECT_EQ(extent, 2u);
}

TEST_F(TransactionLogs, NextWithoutFirstGoesStraightToTheRuntime)
{
    saveNotes(1);
    ASSERT_FALSE(HyLNUtilities::beginArchivinglogs().IsErrorSet());
    UNIVERSALNOTEID logId{};
    unsigned int number = 0;
    char path[MAXPATH + 1] = {};
    ASSERT_FALSE(HyLNUtilities::getTransactionExtent(logId, number, path, false).IsErrorSet());
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(sim().callCount("NSFGetFirstLogToArchive"), 0u);
    EXPECT_EQ(sim().callCount("NSFGetNextLogToArchive"), 1u);
}

TEST_F(TransactionLogs, AServerWithoutLoggingAnswersWithItsStatusUnderBothNames)
{
    writeNotesIni(dataDir, kServer);
    startRuntime(dataDir);
    unsigned short style = 0;
    HyLNError error = HyLNUtilities::getTransLogStyle(style);
    EXPECT_EQ(error.GetErrorCode(), ERR_SERVER_NOT_TRANSLOGGED);
    EXPECT_TRUE(logged("getTransLogStyle", 0,
                       "error in getting trnasactional log style error Transactional Logging must be enabled for "
                       "this function."));
    EXPECT_EQ(HyLNUtilities::beginArchivinglogs().GetErrorCode(), ERR_SERVER_NOT_TRANSLOGGED);
    UNIVERSALNOTEID logId{};
    unsigned int number = 0;
    char path[MAXPATH + 1] = {};
    EXPECT_EQ(HyLNUtilities::getTransactionExtent(logId, number, path, true).GetErrorCode(),
              ERR_SERVER_NOT_TRANSLOGGED);
    EXPECT_EQ(capturedLog().back().function, "getTransactionExtent");
    EXPECT_EQ(capturedLog().size(), 2u);
}

TEST_F(TransactionLogs, LogInfoOfAClosedDatabaseIsTheRuntimesAnswerForHandleZero)
{
    ASSERT_FALSE(db.Close().IsErrorSet());
    int logged = 0;
    UNIVERSALNOTEID logId{}, instance{};
    unsigned int extent = 0;
    HyLNError error = db.DbGetLogInfo(logged, logId, instance, extent);
    EXPECT_EQ(error.GetErrorCode(), ERR_NULL_DBHANDLE);
    EXPECT_EQ(sim().callCount("NSFDbGetLogInfo"), 1u);
    EXPECT_TRUE(capturedLog().empty());
}

} // namespace
