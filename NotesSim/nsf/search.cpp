// NSFSearch over the notes of a database; directory handles go to the directory search.
#include <cstring>

#include "dirsearch.h"
#include "sim_core.h"
#include "storage.h"
#include "summary.h"

namespace sim {
namespace {

struct NoteSearch {
    std::shared_ptr<Storage> storage;
    DBID dbid{};
    WORD flags = 0;
    NSFSEARCHPROC routine = nullptr;
    void* parameter = nullptr;
};

std::vector<char> summaryOf(Storage& storage, NOTEID id)
{
    std::vector<ItemRecord> items;
    storage.readItems(id, true, items); // a note deleted meanwhile simply has no summary
    SummaryBuilder builder;
    for (const ItemRecord& item : items) {
        WORD type = 0;
        if (item.value.size() < sizeof type) {
            builder.addEmpty(item.name);
            continue;
        }
        std::memcpy(&type, item.value.data(), sizeof type);
        builder.addRaw(item.name, type, item.value.data() + sizeof type, item.value.size() - sizeof type);
    }
    return builder.build();
}

STATUS deliver(const NoteSearch& search, const NoteRecord& note)
{
    SEARCH_MATCH match{};
    match.ID.File = search.dbid;
    match.ID.Note = note.modified;
    match.ID.NoteID = note.id;
    match.OriginatorID = note.oid;
    match.NoteClass = note.noteClass;
    if (note.deleted && (search.flags & SEARCH_NOTIFYDELETIONS))
        match.NoteClass |= NOTE_CLASS_NOTIFYDELETION;
    // Stubs and notes passed only because of a time limit do not match.
    match.SERetFlags = note.deleted ? SE_FNOMATCH : SE_FMATCH;
    std::vector<char> summary;
    if (search.flags & SEARCH_SUMMARY) {
        summary = summaryOf(*search.storage, note.id);
        match.SummaryLength = static_cast<WORD>(summary.size());
    }
    ITEM_TABLE* table = summary.empty() ? nullptr : reinterpret_cast<ITEM_TABLE*>(summary.data());
    return search.routine(search.parameter, &match, table);
}

} // namespace
} // namespace sim

STATUS impl::NSFSearch(DBHANDLE hDB, FORMULAHANDLE hFormula, char* ViewTitle, WORD SearchFlags, WORD NoteClassMask,
                       TIMEDATE* Since, NSFSEARCHPROC EnumRoutine, void* EnumRoutineParameter, TIMEDATE* retUntil)
{
    (void)ViewTitle; // only formulas such as @ViewTitle read it
    std::shared_ptr<sim::DatabaseObject> database;
    STATUS status = sim::lookupDatabase(hDB, database);
    if (status != NOERROR)
        return status;
    if (EnumRoutine == nullptr)
        return sim::STS_BAD_ARGUMENT;
    if (database->isDirectory)
        return sim::searchDirectory(database->absolutePath, SearchFlags, NoteClassMask, EnumRoutine,
                                    EnumRoutineParameter, retUntil);
    if (SearchFlags & SEARCH_FILETYPE)
        return ERR_NOT_DIRECTORY;
    if (hFormula != NULLHANDLE)
        return sim::STS_UNSUPPORTED;

    sim::NoteSearch search;
    search.storage = database->storage;
    search.flags = SearchFlags;
    search.routine = EnumRoutine;
    search.parameter = EnumRoutineParameter;
    sim::DatabaseProperties properties;
    TIMEDATE until{};
    bool timed = Since != nullptr && !sim::isWildcardTime(*Since);
    std::vector<sim::NoteRecord> notes;
    status = search.storage->readProperties(properties);
    if (status == NOERROR)
        status = search.storage->listNotes(NoteClassMask, timed || (SearchFlags & SEARCH_ALL_VERSIONS),
                                           timed ? Since : nullptr, notes, until);
    if (status != NOERROR)
        return status;
    search.dbid = properties.dbid;
    if (retUntil != nullptr)
        *retUntil = until;
    for (const sim::NoteRecord& note : notes) {
        status = sim::deliver(search, note);
        if (status != NOERROR)
            return status;
    }
    return NOERROR;
}
