// PutNotesInFolders over folder-information buffers from outside. The input is a
// 32-bit length, then the buffer's bytes; the length is cut to the bytes given and
// the buffer copied into a heap block of exactly that length, so AddressSanitizer
// reports any read past it. The database holds a folder and memos whose UNIDs are
// fixed, so the seeds (and what grows from them) name notes that exist.
#include <algorithm>
#include <cstring>
#include <memory>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

const DWORD kFileWords[2] = {0x11111111, 0x22222222};
const DWORD kCreationDay = 0x00256F3E; // a valid day, so the time text of a UNID is real
const int kMemos = 4;

UNID fixedUnid(DWORD ticks)
{
    UNID unid;
    unid.File.Innards[0] = kFileWords[0];
    unid.File.Innards[1] = kFileWords[1];
    unid.Note.Innards[0] = ticks;
    unid.Note.Innards[1] = kCreationDay;
    return unid;
}

void save(DBHANDLE db, DWORD ticks, bool folder)
{
    NOTEHANDLE note = NULLHANDLE;
    if (HY_NSFNoteCreate(db, &note) != NOERROR)
        fail("cannot create a note");
    ORIGINATORID oid{};
    UNID unid = fixedUnid(ticks);
    std::memcpy(&oid, &unid, sizeof unid);
    HY_NSFNoteSetInfo(note, _NOTE_OID, &oid);
    if (folder) {
        const char format[10] = {1, 0}; // a table-style $ViewFormat without columns
        WORD viewClass = NOTE_CLASS_VIEW;
        HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
        HY_NSFItemSetText(note, "$TITLE", "Restored", MAXWORD);
        HY_NSFItemSetText(note, "$Flags", "F", MAXWORD);
        HY_NSFItemAppend(note, ITEM_SUMMARY, "$ViewFormat", 11, TYPE_VIEW_FORMAT, format, sizeof format);
    } else {
        HY_NSFItemSetText(note, "Subject", "memo", MAXWORD);
    }
    if (HY_NSFNoteUpdate(note, 0) != NOERROR)
        fail("cannot save a note");
    HY_NSFNoteClose(note);
}

HyLNDatabase* database = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string dir = makeWorkDir("restore");
    if (startRuntime(writeNotesIni(dir)) != NOERROR)
        fail("the runtime did not start");
    if (HY_NSFDbCreate("restore.nsf", DBCLASS_NOTEFILE, TRUE) != NOERROR)
        fail("cannot create restore.nsf");
    database = new HyLNDatabase("restore.nsf", "");
    if (database->Open().IsErrorSet())
        fail("cannot open restore.nsf");
    // The folder's UNID has ticks 100, the memos' 1 to kMemos.
    save(database->GetHandle(), 100, true);
    for (int i = 1; i <= kMemos; ++i)
        save(database->GetHandle(), static_cast<DWORD>(i), false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < sizeof(DWORD))
        return 0;
    DWORD announced = 0;
    std::memcpy(&announced, data, sizeof announced);
    const size_t length = std::min<size_t>(announced, size - sizeof announced);
    std::unique_ptr<char[]> buffer(new char[length]);
    std::memcpy(buffer.get(), data + sizeof announced, length);
    database->PutNotesInFolders(buffer.get(), static_cast<unsigned int>(length), nullptr);
    return 0;
}
