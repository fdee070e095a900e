// Note ID tables a database hands out: the notes modified since a time (deletions
// included, marked RRV_DELETED) and the notes unread by a user.
#include <vector>

#include "HySimControl.h"
#include "idtables.h"
#include "sim_core.h"
#include "storage.h"

namespace sim {
namespace {

DHANDLE tableOf(const std::vector<NOTEID>& ids)
{
    DHANDLE table = createIdTable();
    for (NOTEID id : ids)
        idTableInsert(table, id);
    return table;
}

// A reading from the very start lists only what exists: deletions are news only
// to a caller who saw the note before.
bool fromTheStart(const TIMEDATE& since)
{
    return since.Innards[0] == 0 && since.Innards[1] == 0;
}

// Without a stored list every document counts as unread: the user has read nothing yet.
STATUS allDocuments(Storage& storage, std::vector<NOTEID>& ids)
{
    std::vector<NoteRecord> notes;
    TIMEDATE until{};
    STATUS status = storage.listNotes(NOTE_CLASS_DOCUMENT, false, nullptr, notes, until);
    ids.clear();
    for (const NoteRecord& note : notes)
        ids.push_back(note.id);
    return status;
}

} // namespace
} // namespace sim

STATUS impl::NSFDbGetModifiedNoteTable(DBHANDLE hDB, WORD NoteClassMask, TIMEDATE Since, TIMEDATE* retUntil,
                                       DHANDLE* rethTable)
{
    if (rethTable == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status != NOERROR)
        return status;
    std::vector<sim::NoteRecord> notes;
    TIMEDATE until{};
    bool withDeleted = !sim::fromTheStart(Since);
    status = storage->listNotes(NoteClassMask, withDeleted, &Since, notes, until);
    if (status != NOERROR)
        return status;
    if (retUntil != nullptr)
        *retUntil = until;
    if (notes.empty())
        return ERR_NO_MODIFIED_NOTES;
    std::vector<NOTEID> ids;
    for (const sim::NoteRecord& note : notes)
        ids.push_back(note.deleted ? (note.id | RRV_DELETED) : note.id);
    *rethTable = sim::tableOf(ids);
    return NOERROR;
}

STATUS impl::NSFDbGetUnreadNoteTable(DBHANDLE hDB, char* UserName, WORD UserNameLength, BOOL fCreateIfNotAvailable,
                                     DHANDLE* rethUnreadList)
{
    if (UserName == nullptr || rethUnreadList == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *rethUnreadList = NULLHANDLE;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status != NOERROR)
        return status;
    bool hasList = false;
    std::vector<NOTEID> ids;
    status = storage->unreadNotes(std::string(UserName, UserNameLength), hasList, ids);
    if (status != NOERROR)
        return status;
    if (!hasList && !fCreateIfNotAvailable)
        return NOERROR;
    if (!hasList && (status = sim::allDocuments(*storage, ids)) != NOERROR)
        return status;
    *rethUnreadList = sim::tableOf(ids);
    return NOERROR;
}

HYSIM_EXPORT unsigned short HySimSetUnread(unsigned int database, const char* userName, unsigned int noteId,
                                           int unread)
{
    std::lock_guard<std::recursive_mutex> lock(sim::apiMutex());
    if (userName == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(database, storage);
    return status != NOERROR ? status : storage->setUnread(userName, noteId, unread != 0);
}
