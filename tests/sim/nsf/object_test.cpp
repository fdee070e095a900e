// Database objects and file attachments.
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;
using storage_test::writeFile;

namespace {

DHANDLE memoryWith(const std::string& bytes)
{
    DHANDLE handle = NULLHANDLE;
    EXPECT_EQ(OSMemAlloc(0, static_cast<DWORD>(bytes.size()), &handle), NOERROR);
    std::memcpy(OSLockObject(handle), bytes.data(), bytes.size());
    OSUnlockObject(handle);
    return handle;
}

std::string memoryText(DHANDLE handle)
{
    DWORD size = 0;
    OSMemGetSize(handle, &size);
    std::string text(static_cast<const char*>(OSLockObject(handle)), size);
    OSUnlockObject(handle);
    OSMemFree(handle);
    return text;
}

template <class T>
T field(const std::vector<char>& value, size_t offset)
{
    T result{};
    std::memcpy(&result, value.data() + offset, sizeof result);
    return result;
}

} // namespace

class StorageObject : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("objects.nsf");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    std::string read(DWORD id, DWORD offset, DWORD length, STATUS expected = NOERROR)
    {
        DHANDLE buffer = NULLHANDLE;
        EXPECT_EQ(NSFDbReadObject(db, id, offset, length, &buffer), expected);
        return expected == NOERROR ? memoryText(buffer) : std::string();
    }
    DBHANDLE db = NULLHANDLE;
};

TEST_F(StorageObject, WrittenBytesReadBackInPiecesAndPersist)
{
    DWORD id = 0;
    ASSERT_EQ(NSFDbAllocObject(db, 10, NOTE_CLASS_DOCUMENT, 3, &id), NOERROR);
    EXPECT_EQ(id % 4, 0u);
    DHANDLE source = memoryWith("HELLO");
    ASSERT_EQ(NSFDbWriteObject(db, id, source, 2, 5), NOERROR);
    EXPECT_EQ(NSFDbWriteObject(db, id, source, 6, 5), sim::STS_BAD_ARGUMENT) << "past the end of the object";
    EXPECT_EQ(NSFDbWriteObject(db, id, source, 0, 6), sim::STS_BAD_ARGUMENT) << "more than the buffer holds";
    OSMemFree(source);
    EXPECT_EQ(read(id, 0, MAXDWORD), std::string("\0\0HELLO\0\0\0", 10));
    EXPECT_EQ(read(id, 3, 3), "ELL");
    read(id, 8, 5, 0x024F);
    read(id, 0, 0, sim::STS_BAD_ARGUMENT);
    DWORD size = 0;
    WORD objectClass = 0, privileges = 0;
    ASSERT_EQ(NSFDbGetObjectSize(db, id, OBJECT_UNKNOWN, &size, &objectClass, &privileges), NOERROR);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(objectClass, NOTE_CLASS_DOCUMENT);
    EXPECT_EQ(privileges, 3);

    NSFDbClose(db);
    db = open("objects.nsf");
    EXPECT_EQ(read(id, 2, 5), "HELLO");
    ASSERT_EQ(NSFDbFreeObject(db, id), NOERROR);
    EXPECT_EQ(NSFDbFreeObject(db, id), ERR_NOT_FOUND);
    read(id, 0, MAXDWORD, ERR_NOT_FOUND);
    EXPECT_EQ(NSFDbGetObjectSize(db, id, OBJECT_UNKNOWN, &size, nullptr, nullptr), ERR_NOT_FOUND);
}

TEST_F(StorageObject, NoteIdsAndObjectIdsNeverCollide)
{
    DWORD object = 0;
    ASSERT_EQ(NSFDbAllocObject(db, 1, NOTE_CLASS_DOCUMENT, 0, &object), NOERROR);
    NOTEID note = saveTextNote(db, "after");
    EXPECT_GT(note, object);
    NOTEHANDLE handle = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db, object, 0, &handle), ERR_INVALID_NOTE);
}

TEST_F(StorageObject, AttachmentRoundTripsThroughAnObject)
{
    std::string content;
    for (int i = 0; i < 70000; ++i)
        content += static_cast<char>(i * 31 % 256);
    std::string path = dataDir + "/report.bin";
    writeFile(path, content);
    NOTEHANDLE note = newNote(db);
    ASSERT_EQ(NSFNoteAttachFile(note, "$FILE", 5, path.c_str(), "Q3 report.bin", 0), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);

    ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
    BLOCKID value{};
    WORD type = 0;
    DWORD length = 0;
    ASSERT_EQ(NSFItemInfo(note, "$FILE", 5, nullptr, &type, &value, &length), NOERROR);
    EXPECT_EQ(type, TYPE_OBJECT);
    std::vector<char> bytes = itemBytes(note, "$FILE");
    ASSERT_EQ(bytes.size(), 2u + 36u + 13u);
    EXPECT_EQ(field<WORD>(bytes, 2), OBJECT_FILE);
    DWORD rrv = field<DWORD>(bytes, 4);
    EXPECT_EQ(field<WORD>(bytes, 8), 13) << "file name length";
    EXPECT_EQ(field<DWORD>(bytes, 18), content.size());
    TIMEDATE modified = field<TIMEDATE>(bytes, 30);
    EXPECT_NE(modified.Innards[1], 0u);
    EXPECT_EQ(std::string(bytes.data() + 38, 13), "Q3 report.bin");
    EXPECT_EQ(read(rrv, 0, MAXDWORD), content);
    WORD flags = 0;
    NSFItemScan(note, [](WORD, WORD itemFlags, char*, WORD, void*, DWORD, void* out) -> STATUS {
        *static_cast<WORD*>(out) = itemFlags;
        return NOERROR;
    }, &flags);
    EXPECT_EQ(flags, ITEM_SIGN | ITEM_SEAL | ITEM_SUMMARY);

    ASSERT_EQ(NSFItemDelete(note, "$FILE", 5), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    // A note that drops its attachment frees the object.
    read(rrv, 0, MAXDWORD, ERR_NOT_FOUND);
}

TEST_F(StorageObject, AttachmentNameLosesThePathAndMissingFilesFail)
{
    std::string path = dataDir + "/plain.txt";
    writeFile(path, "text");
    NOTEHANDLE note = newNote(db);
    ASSERT_EQ(NSFNoteAttachFile(note, "$FILE", 5, path.c_str(), nullptr, 0), NOERROR);
    std::vector<char> bytes = itemBytes(note, "$FILE");
    EXPECT_EQ(std::string(bytes.data() + 38, bytes.size() - 38), "plain.txt");
    EXPECT_EQ(NSFNoteAttachFile(note, "$FILE", 5, (dataDir + "/absent.txt").c_str(), nullptr, 0), ERR_NOEXIST);
    EXPECT_EQ(NSFNoteAttachFile(note, "$FILE", 5, dataDir.c_str(), nullptr, 0), ERR_DIRECTORY);
    NSFNoteClose(note);
}
