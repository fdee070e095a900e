// Live handles as the control interface counts them.
#include "HySimControl.h"
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

TEST_F(StorageTest, LiveHandlesOfEveryKindAreCountedUntilReleased)
{
    size_t before = HySimLiveHandleCount();
    DHANDLE memory = NULLHANDLE;
    ASSERT_EQ(OSMemAlloc(0, 64, &memory), NOERROR);
    DHANDLE table = NULLHANDLE;
    ASSERT_EQ(IDCreateTable(0, &table), NOERROR);
    DBHANDLE db = createAndOpen("counted.nsf");
    DBHANDLE directory = open("");
    NOTEHANDLE note = newNote(db);
    EXPECT_EQ(HySimLiveHandleCount(), before + 5);
    setText(note, "Subject", "a value block of its own");
    EXPECT_EQ(HySimLiveHandleCount(), before + 6) << "item values are memory the note holds";

    EXPECT_EQ(NSFNoteClose(note), NOERROR);
    EXPECT_EQ(HySimLiveHandleCount(), before + 4) << "the note takes its items along";
    EXPECT_EQ(OSMemFree(memory), NOERROR);
    EXPECT_EQ(IDDestroyTable(table), NOERROR);
    EXPECT_EQ(NSFDbClose(directory), NOERROR);
    EXPECT_EQ(HySimLiveHandleCount(), before + 1);
    EXPECT_EQ(OSMemFree(memory), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(HySimLiveHandleCount(), before + 1) << "a failed release changes nothing";
    EXPECT_EQ(NSFDbClose(db), NOERROR);
    EXPECT_EQ(HySimLiveHandleCount(), before);
}
