// FolderDocAdd: documents filed in folders, as the folder's collection shows them.
#include "sim/nif/nif_support.h"

namespace {

using FolderDocAddTest = nif_test::CollectionTest;

TEST_F(FolderDocAddTest, FiledDocumentsAreTheFolderEntries)
{
    NOTEID folder = addFolder("Projects");
    NOTEID first = addMemo("one");
    addMemo("two");
    NOTEID third = addMemo("three");
    ASSERT_EQ(fileIn(folder, {third, first}), NOERROR);
    ASSERT_EQ(fileIn(folder, {first}), NOERROR) << "filing twice is harmless";
    HCOLLECTION collection = open(folder);
    std::vector<nif_test::Entry> entries = this->entries(collection);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].id, first);
    EXPECT_EQ(entries[1].id, third);
    EXPECT_EQ(entries[0].noteClass, NOTE_CLASS_DOCUMENT);
    EXPECT_EQ(NIFCloseCollection(collection), NOERROR);
}

TEST_F(FolderDocAddTest, DeletedMembersLeaveTheFolder)
{
    NOTEID folder = addFolder("Projects");
    NOTEID kept = addMemo("kept");
    NOTEID gone = addMemo("gone");
    ASSERT_EQ(fileIn(folder, {kept, gone}), NOERROR);
    ASSERT_EQ(NSFNoteDelete(db, gone, 0), NOERROR);
    HCOLLECTION collection = open(folder);
    EXPECT_EQ(ids(collection), std::vector<NOTEID>{kept});
    NIFCloseCollection(collection);
}

TEST_F(FolderDocAddTest, RefusesWhatIsNotAFolderOrNotADocument)
{
    NOTEID folder = addFolder("Projects");
    NOTEID view = addDesign("Memos", "", {nif_test::column("Subject", "Subject")});
    NOTEID memo = addMemo("memo");
    NOTEID stub = addMemo("stub");
    ASSERT_EQ(NSFNoteDelete(db, stub, 0), NOERROR);
    EXPECT_EQ(fileIn(view, {memo}), sim::STS_NOT_A_FOLDER);
    EXPECT_EQ(fileIn(memo, {memo}), sim::STS_NOT_A_FOLDER);
    EXPECT_EQ(fileIn(0x7FFC, {memo}), ERR_INVALID_NOTE);
    EXPECT_EQ(fileIn(folder, {memo, 0x7FFC}), ERR_INVALID_NOTE);
    EXPECT_EQ(fileIn(folder, {memo, view}), ERR_INVALID_NOTE) << "design notes are not filed";
    EXPECT_EQ(fileIn(folder, {memo, stub}), ERR_NOTE_DELETED);
    HCOLLECTION collection = open(folder);
    EXPECT_TRUE(ids(collection).empty()) << "a refused table files nothing";
    NIFCloseCollection(collection);
}

TEST_F(FolderDocAddTest, RefusesBadHandlesAndFlags)
{
    NOTEID folder = addFolder("Projects");
    DHANDLE table = NULLHANDLE;
    ASSERT_EQ(IDCreateTable(0, &table), NOERROR);
    EXPECT_EQ(FolderDocAdd(NULLHANDLE, NULLHANDLE, folder, table, 0), ERR_NULL_DBHANDLE);
    EXPECT_EQ(FolderDocAdd(db, NULLHANDLE, folder, 0x7FFFFFF0, 0), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(FolderDocAdd(db, NULLHANDLE, folder, table, 1), 0x0306);
    EXPECT_EQ(FolderDocAdd(db, db, folder, table, 0), NOERROR) << "the data database named twice";
    DBHANDLE other = createAndOpen("other.nsf");
    EXPECT_EQ(FolderDocAdd(db, other, folder, table, 0), sim::STS_UNSUPPORTED);
    NSFDbClose(other);
    IDDestroyTable(table);
}

} // namespace
