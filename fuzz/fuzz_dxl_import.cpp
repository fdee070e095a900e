// DXL as the importer reads it through the library's import stream callback: any
// bytes give a status, never a crash or a hang, and a failed import leaves the
// database as it was (its data notes counted before and after).
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

const char kDatabase[] = "import.nsf";
const int kDocumentsOptionProperty = 3;
const int kCreateDocuments = 2;
DBHANDLE database = NULLHANDLE;

STATUS collect(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if ((found.SERetFlags & SE_FMATCH) != 0)
        static_cast<std::vector<NOTEID>*>(context)->push_back(found.ID.NoteID);
    return NOERROR;
}

std::vector<NOTEID> dataNotes()
{
    std::vector<NOTEID> notes;
    TIMEDATE until;
    if (HY_NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, collect, &notes, &until) != NOERROR)
        fail("the search over the import database failed");
    return notes;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string dir = makeWorkDir("dxl");
    if (startRuntime(writeNotesIni(dir)) != NOERROR)
        fail("the runtime did not start");
    if (HY_NSFDbCreate(kDatabase, DBCLASS_NOTEFILE, FALSE) != NOERROR || HY_NSFDbOpen(kDatabase, &database) != NOERROR)
        fail("cannot create the import database");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    DXLIMPORTHANDLE importer = NULLHANDLE;
    if (HY_DXLCreateImporter(&importer) != NOERROR)
        fail("cannot create an importer");
    int create = kCreateDocuments;
    HY_DXLSetImporterProperty(importer, kDocumentsOptionProperty, &create);
    std::vector<NOTEID> before = dataNotes();
    NoteImportRecord record{nullptr, data, static_cast<unsigned int>(size), 0, 0};
    STATUS status = HY_DXLImport(importer, HyLNUtilities::DXLImportStreamFunc, database, &record);
    HY_DXLDeleteImporter(importer);
    std::vector<NOTEID> after = dataNotes();
    if (status != NOERROR && after != before)
        fail("a failed import changed the database");
    // Back to the empty database, so that every input meets the same one.
    for (NOTEID id : after)
        if (HY_NSFNoteHardDelete(database, id, 0) != NOERROR)
            fail("an imported note could not be removed");
    return 0;
}
