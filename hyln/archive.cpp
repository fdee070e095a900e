// The archiving pass of a backup agent: select, export, record, stub; one database
// after the other. A note's DXL and record are on disk before the note is stubbed, and a
// note whose export fails is never stubbed, so a pass killed at any point loses nothing
// and the next pass completes it.
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>

#include "archive_store.h"
#include "commands.h"
#include "host_callbacks.h"
#include "notes.h"
#include "output.h"
#include "selection.h"
#include "version_stamp.h"
#include "views.h"

namespace fs = std::filesystem;

namespace hyln {
namespace {

const unsigned long kPreferSentOrReceived = 1;

struct NoteOutcome {
    NOTEID noteId = 0;
    std::string unid;
    std::string outcome; // archived, already_stubbed, too_recent or failed
    size_t dxlBytes = 0;
    int attachments = 0;
    std::string message;
    unsigned short code = 0; // the Domino status of a failure, when there is one
};

struct PassTotals {
    size_t databases = 0;
    size_t archived = 0;
    size_t alreadyStubbed = 0;
    size_t tooRecent = 0;
    size_t failed = 0;
    size_t dxlBytes = 0;
};

// What the whole database contributes to each note's archive: its folders and index line.
struct DatabaseContext {
    fs::path archive;
    std::map<NOTEID, std::vector<std::string>> foldersOf;
    std::map<NOTEID, std::string> indexLines;
    unsigned int exporter = 0;
};

std::string isoTime(std::time_t when)
{
    char text[32];
    std::tm parts{};
    gmtime_r(&when, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

int gatherFolders(const Options& options, DBHANDLE database, DatabaseContext& context)
{
    std::vector<Folder> folders;
    if (int failed = readFolders(options, database, folders))
        return failed;
    for (const Folder& folder : folders)
        for (NOTEID member : folder.members)
            context.foldersOf[member].push_back(unidText(folder.unid));
    return kSuccess;
}

int gatherIndexLines(const Options& options, HyLNDatabase& database, DatabaseContext& context)
{
    HyLNView view(database, options.viewName);
    return readIndexLines(options.viewName, view, [](const std::string&) {},
                          [&](NOTEID noteId, const std::string& line) { context.indexLines[noteId] = line; });
}

// Saves the ACL image as the runtime gives it, for a restore that asks for it.
int saveAcl(const Options& options, HyLNDatabase& database, const fs::path& archive)
{
    unsigned int acl = NULLHANDLE;
    HyLNError status = database.ReadAcl(&acl);
    if (status.IsErrorSet())
        return fail(status, "reading the ACL", options.database);
    DWORD size = 0;
    STATUS measured = HY_OSMemGetSize(acl, &size);
    const unsigned char* image =
        measured != NOERROR ? nullptr : static_cast<const unsigned char*>(HY_OSLockObject(acl));
    bool written = image != nullptr && writeWhole(archive / "acl.bin", image, size);
    if (image != nullptr)
        HY_OSUnlockObject(acl);
    HY_OSMemFree(acl);
    if (measured != NOERROR) {
        status.SetError(measured);
        return fail(status, "measuring the ACL", options.database);
    }
    if (image == nullptr)
        return failWith("reading the ACL", options.database, unanswered("OSLockObject", 0, "for its image"));
    return written ? kSuccess : failWith("saving the ACL", (archive / "acl.bin").string(), "it could not be written");
}

NoteOutcome failedNote(NoteOutcome outcome, HyLNError status, const std::string& what)
{
    outcome.outcome = "failed";
    outcome.code = status.GetErrorCode();
    outcome.message = what + ": Domino code " + std::to_string(outcome.code) + ": " + status.GetMessage();
    return outcome;
}

// Export and record first, stub last: the stored note changes only once its archive is whole.
NoteOutcome archiveOpenNote(const Options& options, DatabaseContext& context, HyLNDataDocument& note,
                            NoteOutcome outcome)
{
    DbMigrateCriteria details;
    HyLNError status = note.GetMigrationDetails(details);
    if (failed(status))
        return failedNote(outcome, status, "gathering its details");
    std::vector<unsigned char> dxl;
    status = exportToBuffer(note, context.exporter, dxl);
    if (status.IsErrorSet())
        return failedNote(outcome, status, "exporting its DXL");
    ArchivedNote record;
    record.unid = outcome.unid;
    record.noteId = outcome.noteId;
    record.folders = context.foldersOf[outcome.noteId];
    record.indexLine = context.indexLines[outcome.noteId];
    record.attachments = details.AttachmentNumbers;
    record.dxlBytes = dxl.size();
    if (!writeWhole(dxlPathOf(context.archive, record.unid), dxl.data(), dxl.size()) ||
        !writeRecord(context.archive, record)) {
        outcome.outcome = "failed";
        outcome.message = "its archive files could not be written";
        return outcome;
    }
    outcome.dxlBytes = dxl.size();
    outcome.attachments = details.AttachmentNumbers;
    if (options.deleteArchived) {
        status = note.Delete(0);
        if (status.IsErrorSet())
            return failedNote(outcome, status, "deleting it (its archive is whole; the note is as it was)");
    } else if (stubInPlace(note, outcome.noteId, options) != kSuccess) {
        outcome.outcome = "failed";
        outcome.message = "stubbing it failed (its archive is whole; the note is as it was)";
        return outcome;
    }
    outcome.outcome = "archived";
    return outcome;
}

NoteOutcome archiveNote(const Options& options, DBHANDLE database, DatabaseContext& context, NOTEID id)
{
    NoteOutcome outcome;
    outcome.noteId = id;
    HyLNDataDocument note(database, id);
    HyLNError status = note.Open(0);
    if (status.IsErrorSet())
        return failedNote(outcome, status, "opening it");
    ORIGINATORID oid{};
    status = note.GetInfoExtended(&oid, nullptr, nullptr);
    if (failed(status))
        return failedNote(outcome, status, "reading its identity");
    outcome.unid = unidText(UNIVERSALNOTEID{oid.File, oid.Note});
    bool migrated = false;
    note.IsMigratedMessage(migrated);
    if (migrated) {
        outcome.outcome = "already_stubbed";
        return outcome;
    }
    if (options.olderThanSeconds > 0) {
        unsigned long age = 0;
        status = note.GetAgeInSeconds(age, kPreferSentOrReceived);
        if (status.IsErrorSet())
            return failedNote(outcome, status, "reading its age");
        if (age < options.olderThanSeconds) {
            outcome.outcome = "too_recent";
            return outcome;
        }
    }
    outcome = archiveOpenNote(options, context, note, outcome);
    note.Close();
    return outcome;
}

void count(PassTotals& totals, const NoteOutcome& outcome)
{
    if (outcome.outcome == "archived")
        ++totals.archived;
    else if (outcome.outcome == "already_stubbed")
        ++totals.alreadyStubbed;
    else if (outcome.outcome == "too_recent")
        ++totals.tooRecent;
    else
        ++totals.failed;
    totals.dxlBytes += outcome.dxlBytes;
}

// A note that failed fails the run too: its line on standard error names the cause.
void reportFailure(const std::string& database, const NoteOutcome& outcome)
{
    std::string what = "archiving note " + noteIdText(outcome.noteId);
    nlohmann::json fields = {{"operation", what}, {"subject", database}, {"message", outcome.message}};
    if (outcome.code != 0)
        fields["code"] = outcome.code;
    output().failure(what + " failed for " + database + ": " + outcome.message, fields);
}

void report(const std::string& database, const NoteOutcome& outcome)
{
    if (outcome.outcome == "failed")
        reportFailure(database, outcome);
    std::string text = noteIdText(outcome.noteId) + " " + outcome.unid + ": " + outcome.outcome;
    if (!outcome.message.empty())
        text += " (" + outcome.message + ")";
    output().record(text,
                    {{"note_id", noteIdText(outcome.noteId)},
                     {"unid", outcome.unid},
                     {"outcome", outcome.outcome},
                     {"bytes", outcome.dxlBytes},
                     {"attachments", outcome.attachments},
                     {"message", outcome.message}},
                    "note");
}

nlohmann::json manifestOf(const Options& options, const Selection& selection, const std::vector<NoteOutcome>& notes,
                          std::time_t started)
{
    nlohmann::json list = nlohmann::json::array();
    PassTotals totals;
    for (const NoteOutcome& outcome : notes) {
        count(totals, outcome);
        list.push_back({{"note_id", noteIdText(outcome.noteId)},
                        {"unid", outcome.unid},
                        {"outcome", outcome.outcome},
                        {"bytes", outcome.dxlBytes},
                        {"attachments", outcome.attachments},
                        {"message", outcome.message}});
    }
    std::time_t finished = std::time(nullptr);
    return {{"database", options.database},
            {"runtime", readVersionStamp(options.dominoDir + "/notes/latest/linux/libnotes.so")},
            {"started", isoTime(started)},
            {"finished", isoTime(finished)},
            {"seconds", static_cast<long>(finished - started)},
            {"since", options.since},
            {"older_than_seconds", options.olderThanSeconds},
            {"archived_notes", options.deleteArchived ? "deleted" : "stubbed"},
            {"folders", options.folders},
            {"folder_mode", options.folderMode == 2 ? "exclude" : "include"},
            {"counts",
             {{"selected", selection.notes.size()},
              {"unread_skipped", selection.unreadSkipped},
              {"folder_removed", selection.removedByFolders},
              {"archived", totals.archived},
              {"already_stubbed", totals.alreadyStubbed},
              {"too_recent", totals.tooRecent},
              {"failed", totals.failed}}},
            {"dxl_bytes", totals.dxlBytes},
            {"interrupted", interrupted()},
            {"notes", list}};
}

// The folder information covers every note archived by any run, so a restore after a
// pass that was cut short and completed later still rebuilds every folder.
bool writeFolderInformation(const fs::path& archive)
{
    std::vector<unsigned char> buffer =
        folderInformation(readRecords(archive), HyLNUtilities::GetDSLength(_UNIVERSALNOTEID));
    return writeWhole(archive / "folders.bin", buffer.data(), buffer.size());
}

int prepareDatabase(const Options& options, HyLNDatabase& database, DatabaseContext& context)
{
    context.archive = archiveDirOf(options.outDir, options.database);
    std::error_code error;
    fs::create_directories(context.archive / "notes", error);
    if (error)
        return failWith("creating the archive directory", context.archive.string(), error.message());
    if (int failed = gatherFolders(options, database.GetHandle(), context))
        return failed;
    if (int failed = gatherIndexLines(options, database, context))
        return failed;
    return saveAcl(options, database, context.archive);
}

int archiveDatabase(const Options& options, Runtime& runtime, PassTotals& totals)
{
    std::time_t started = std::time(nullptr);
    OpenDatabase database;
    if (int failed = database.open(options, runtime))
        return failed;
    Selection selection;
    if (int failed = chooseNotes(options, database.get(), selection))
        return failed;
    DatabaseContext context;
    if (int failed = prepareDatabase(options, database.get(), context))
        return failed;
    std::map<DXL_EXPORT_PROPERTY, void*> properties;
    HyLNError status = HyLNUtilities::CreateDXLExporter(context.exporter, properties);
    if (status.IsErrorSet())
        return fail(status, "creating the DXL exporter", options.database);
    std::vector<NoteOutcome> outcomes;
    for (NOTEID id : selection.notes) {
        if (interrupted())
            break;
        outcomes.push_back(archiveNote(options, database.handle(), context, id));
        report(options.database, outcomes.back());
        count(totals, outcomes.back());
        output().progress(outcomes.size(), "notes archived");
    }
    HyLNUtilities::DeleteDXLExporter(context.exporter);
    ++totals.databases;
    if (!writeFolderInformation(context.archive) ||
        !writeJsonFile(context.archive / "manifest.json", manifestOf(options, selection, outcomes, started)))
        return failWith("writing the manifest", context.archive.string(), "it could not be written");
    return kSuccess;
}

} // namespace

int archivePass(const Options& options)
{
    return withRuntime(options, [&](Runtime& runtime) { return archiveIn(options, runtime); });
}

int archiveIn(const Options& options, Runtime& runtime)
{
    std::vector<std::string> databases{options.database};
    if (options.allMailboxes) {
        databases.clear();
        if (int failed = listMailFiles(options, databases))
            return failed;
    }
    PassTotals totals;
    int result = kSuccess;
    for (const std::string& path : databases) {
        if (interrupted())
            break;
        Options one = options;
        one.database = path;
        if (int failed = archiveDatabase(one, runtime, totals))
            result = failed;
    }
    char text[256];
    std::snprintf(text, sizeof text,
                  "\narchived %zu notes (%zu bytes of DXL) of %zu databases; %zu already stubbed, %zu too recent, "
                  "%zu failed%s",
                  totals.archived, totals.dxlBytes, totals.databases, totals.alreadyStubbed, totals.tooRecent,
                  totals.failed, interrupted() ? " (interrupted)" : "");
    output().summary(text, {{"databases", totals.databases},
                            {"archived", totals.archived},
                            {"already_stubbed", totals.alreadyStubbed},
                            {"too_recent", totals.tooRecent},
                            {"failed", totals.failed},
                            {"dxl_bytes", totals.dxlBytes},
                            {"interrupted", interrupted()}});
    if (interrupted())
        return kInterrupted;
    return totals.failed > 0 && result == kSuccess ? kFailure : result;
}

} // namespace hyln
