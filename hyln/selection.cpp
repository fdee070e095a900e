#include "selection.h"

#include "host_callbacks.h"
#include "notes.h"
#include "output.h"

namespace hyln {
namespace {

// An ID table of the runtime, destroyed when the job is done with it.
struct IdTable {
    ~IdTable()
    {
        if (handle != NULLHANDLE)
            releaseInDestructor("freeing an ID table",
                                [this] { return !HyLNUtilities::MemFreeTable(handle).IsErrorSet(); });
    }
    unsigned int handle = NULLHANDLE;
};

int sinceTime(const Options& options, TIMEDATE& since)
{
    if (options.since.empty()) {
        HyLNUtilities::GetTimeDate(TIMEDATE_MINIMUM, &since);
        return kSuccess;
    }
    HyLNError status = HyLNUtilities::GetTimeDate(options.since, since);
    if (status.IsErrorSet()) {
        failWith("reading --since", options.since, "not a date and time the runtime understands");
        return kUsage;
    }
    return kSuccess;
}

std::vector<NOTEID> idsOf(HyLNDatabase& database, IdTable& table)
{
    std::vector<NOTEID> ids;
    unsigned int id = 0;
    for (int first = 1; database.NoteIDScan(table.handle, first, &id); first = 0)
        ids.push_back(id);
    return ids;
}

// Deletions and unread notes leave the table: an unread note is never archived.
int dropDeletedAndUnread(const Options& options, HyLNDatabase& database, IdTable& modified, Selection& selection)
{
    for (NOTEID id : idsOf(database, modified)) {
        bool unread = false;
        if ((id & RRV_DELETED) != 0) {
            ++selection.deleted;
        } else {
            ++selection.modified;
            HyLNError status = database.GetNoteUnreadStatus(id, unread);
            if (status.IsErrorSet())
                return fail(status, "checking whether note " + noteIdText(id) + " is unread", options.database);
            if (!unread)
                continue;
            ++selection.unreadSkipped;
        }
        HyLNError status = HyLNUtilities::DeleteID(modified.handle, id, nullptr);
        if (status.IsErrorSet())
            return fail(status, "dropping note " + noteIdText(id) + " from the selection", options.database);
    }
    return kSuccess;
}

void filterByFolders(const Options& options, HyLNDatabase& database, IdTable& modified, Selection& selection)
{
    unsigned int before = HyLNUtilities::CountTableEntries(modified.handle);
    std::string folders = options.folders; // the library cuts the list up in place
    HyLNError status = database.FilterDocumentsOfFolders(folders, modified.handle, options.folderMode);
    selection.removedByFolders = before - HyLNUtilities::CountTableEntries(modified.handle);
    // The filter ran to its end; an unknown folder or a failed subfolder search is reported with it.
    if (status.IsErrorSet())
        selection.folderWarning = "Domino code " + std::to_string(status.GetErrorCode()) + ": " + status.GetMessage();
}

} // namespace

int chooseNotes(const Options& options, HyLNDatabase& database, Selection& selection)
{
    TIMEDATE since{};
    if (int failed = sinceTime(options, since))
        return failed;
    database.userName = options.owner;
    IdTable modified;
    TIMEDATE until{};
    HyLNError status = database.DiscoverModifiedDocuments(since, &until, NOTE_CLASS_DOCUMENT, &modified.handle);
    if (status.IsErrorSet())
        return fail(status, "listing the modified notes", options.database);
    if (modified.handle == NULLHANDLE)
        return kSuccess; // nothing changed since then
    status = database.DiscoverUnReadDocuments();
    if (status.IsErrorSet())
        return fail(status, "reading the owner's unread marks", options.database);
    IdTable unread;
    unread.handle = database.unreadTable; // the host destroys it
    if (int failed = dropDeletedAndUnread(options, database, modified, selection))
        return failed;
    if (!options.folders.empty())
        filterByFolders(options, database, modified, selection);
    selection.notes = idsOf(database, modified);
    return kSuccess;
}

int selectNotes(const Options& options)
{
    DatabaseJob job;
    if (int failed = job.open(options))
        return failed;
    Selection selection;
    if (int failed = chooseNotes(options, job.database.get(), selection))
        return failed;
    if (!selection.folderWarning.empty())
        std::fprintf(stderr, "hyln: the folder filter reported %s\n", selection.folderWarning.c_str());
    for (NOTEID id : selection.notes)
        output().record(noteIdText(id), {{"note_id", noteIdText(id)}}, "note");
    char text[256];
    std::snprintf(text, sizeof text,
                  "\nselected %zu notes of %s: %zu modified, %zu deletions, %zu unread skipped, %zu removed by the "
                  "folder filter",
                  selection.notes.size(), options.database.c_str(), selection.modified, selection.deleted,
                  selection.unreadSkipped, selection.removedByFolders);
    output().summary(text, {{"notes", selection.notes.size()},
                            {"modified", selection.modified},
                            {"deleted", selection.deleted},
                            {"unread_skipped", selection.unreadSkipped},
                            {"folder_removed", selection.removedByFolders},
                            {"folder_warning", selection.folderWarning},
                            {"database", options.database},
                            {"interrupted", interrupted()}});
    return interrupted() ? kInterrupted : kSuccess;
}

} // namespace hyln
