// $ViewFormat values as a view note stores them, read by HyLNView::GetCoulmnTitles:
// any bytes give titles and a column map without reading past the value (the value is
// the input itself, behind its type word), and the titles agree with the count.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

const char kDatabase[] = "views.nsf";
const char kItem[] = "$ViewFormat";
HyLNDatabase* database = nullptr;
NOTEID viewNote = 0;

void storeFormat(const uint8_t* data, size_t size)
{
    NOTEHANDLE note = NULLHANDLE;
    if (HY_NSFNoteOpen(database->GetHandle(), viewNote, 0, &note) != NOERROR)
        fail("cannot open the view note");
    HY_NSFItemDelete(note, kItem, sizeof kItem - 1);
    if (HY_NSFItemAppend(note, ITEM_SUMMARY, kItem, sizeof kItem - 1, TYPE_VIEW_FORMAT, data,
                         static_cast<DWORD>(size)) != NOERROR ||
        HY_NSFNoteUpdate(note, 0) != NOERROR)
        fail("cannot store the view format");
    HY_NSFNoteClose(note);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    loadRuntime();
    std::string dir = makeWorkDir("views");
    if (startRuntime(writeNotesIni(dir)) != NOERROR)
        fail("the runtime did not start");
    database = new HyLNDatabase(kDatabase, "");
    if (database->Create().IsErrorSet() || database->Open().IsErrorSet())
        fail("cannot create the view database");
    NOTEHANDLE note = NULLHANDLE;
    WORD viewClass = NOTE_CLASS_VIEW;
    if (HY_NSFNoteCreate(database->GetHandle(), &note) != NOERROR)
        fail("cannot create the view note");
    HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
    HY_NSFItemSetText(note, "$TITLE", "Fuzzed", MAXWORD);
    HY_NSFNoteUpdate(note, 0);
    HY_NSFNoteGetInfo(note, _NOTE_ID, &viewNote);
    HY_NSFNoteClose(note);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 0xFFF0)
        return 0;
    storeFormat(data, size);
    HyLNView view(*database, viewNote);
    std::string titles;
    if (view.GetCoulmnTitles(&titles).IsErrorSet())
        fail("a stored view format was not read");
    if (titles != view.columnTitles)
        fail("the titles handed out differ from the view's own");
    if (static_cast<size_t>(std::count(titles.begin(), titles.end(), '\x12')) != view.columnCount)
        fail("the title count differs from the titles");
    if (!titles.empty() && titles[0] != '\x12')
        fail("the titles do not begin with a separator");
    return 0;
}
