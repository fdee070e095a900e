// Deleting notes: a deletion stub, no stub, and the hard delete that takes either for good.
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {

class NoteDeletion : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("delete.nsf");
        id = saveTextNote(db, "to be deleted");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    STATUS noteInfo(OID* oid = nullptr)
    {
        return NSFDbGetNoteInfo(db, id, oid, nullptr, nullptr);
    }
    DBHANDLE db = NULLHANDLE;
    NOTEID id = 0;
};

} // namespace

TEST_F(NoteDeletion, StubKeepsIdentityWithANewRevision)
{
    OID before{}, after{};
    ASSERT_EQ(noteInfo(&before), NOERROR);
    ASSERT_EQ(NSFNoteDelete(db, id, 0), NOERROR);
    EXPECT_EQ(noteInfo(&after), ERR_NOTE_DELETED);
    EXPECT_EQ(std::memcmp(&after, &before, sizeof(UNID)), 0);
    EXPECT_EQ(after.Sequence, before.Sequence + 1);
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db, id, 0, &note), ERR_NOTE_DELETED);
    EXPECT_EQ(NSFNoteDelete(db, id, 0), ERR_NOTE_DELETED);
    EXPECT_EQ(NSFNoteDelete(db, id, UPDATE_NOSTUB), ERR_NOTE_DELETED);

    ASSERT_EQ(NSFNoteHardDelete(db, id, 0), NOERROR);
    EXPECT_EQ(noteInfo(), ERR_INVALID_NOTE);
}

TEST_F(NoteDeletion, WithoutStubOrHardDeletedNothingRemains)
{
    NOTEID second = saveTextNote(db, "another");
    ASSERT_EQ(NSFNoteDelete(db, id, UPDATE_NOSTUB), NOERROR);
    ASSERT_EQ(NSFNoteHardDelete(db, second, 0), NOERROR);
    for (NOTEID gone : {id, second}) {
        EXPECT_EQ(NSFDbGetNoteInfo(db, gone, nullptr, nullptr, nullptr), ERR_INVALID_NOTE);
        EXPECT_EQ(NSFNoteDelete(db, gone, 0), ERR_INVALID_NOTE);
        EXPECT_EQ(NSFNoteHardDelete(db, gone, 0), ERR_INVALID_NOTE);
    }
}

TEST_F(NoteDeletion, RefusalsByHandleAndNoteID)
{
    EXPECT_EQ(NSFNoteDelete(NULLHANDLE, id, 0), ERR_NULL_DBHANDLE);
    EXPECT_EQ(NSFNoteHardDelete(NULLHANDLE, id, 0), ERR_NULL_DBHANDLE);
    EXPECT_EQ(NSFNoteDelete(db, id + 400, 0), ERR_INVALID_NOTE);
    DBHANDLE directory = open("");
    EXPECT_EQ(NSFNoteDelete(directory, id, 0), ERR_DIRECTORY);
    NSFDbClose(directory);
    EXPECT_EQ(noteInfo(), NOERROR);
}

TEST_F(NoteDeletion, NoteStillOpenCannotBeSavedOverTheDeletion)
{
    NOTEHANDLE stubbed = NULLHANDLE, purged = NULLHANDLE;
    NOTEID other = saveTextNote(db, "other");
    ASSERT_EQ(NSFNoteOpen(db, id, 0, &stubbed), NOERROR);
    ASSERT_EQ(NSFNoteOpen(db, other, 0, &purged), NOERROR);
    ASSERT_EQ(NSFNoteDelete(db, id, 0), NOERROR);
    ASSERT_EQ(NSFNoteHardDelete(db, other, 0), NOERROR);
    EXPECT_EQ(NSFNoteUpdate(stubbed, 0), ERR_NOTE_DELETED);
    EXPECT_EQ(NSFNoteUpdate(purged, 0), ERR_INVALID_NOTE);
    EXPECT_EQ(text(stubbed, "Subject"), "to be deleted"); // the copy in memory is untouched
    NSFNoteClose(stubbed);
    NSFNoteClose(purged);
}

TEST_F(NoteDeletion, AttachedFileObjectGoesWithTheNote)
{
    std::string file = dataDir + "/report.txt";
    storage_test::writeFile(file, "quarterly numbers");
    NOTEHANDLE note = newNote(db);
    ASSERT_EQ(NSFNoteAttachFile(note, "$FILE", 5, file.c_str(), "report.txt", 0), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID withFile = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &withFile);
    std::vector<char> value = itemBytes(note, "$FILE");
    NSFNoteClose(note);
    DWORD rrv = 0;
    std::memcpy(&rrv, value.data() + 4, sizeof rrv); // type word, object type, then the object's ID
    DWORD size = 0;
    ASSERT_EQ(NSFDbGetObjectSize(db, rrv, OBJECT_FILE, &size, nullptr, nullptr), NOERROR);
    EXPECT_EQ(size, 17u);

    ASSERT_EQ(NSFNoteDelete(db, withFile, 0), NOERROR);
    EXPECT_EQ(NSFDbGetObjectSize(db, rrv, OBJECT_FILE, &size, nullptr, nullptr), ERR_NOT_FOUND);
}
