// The per-note jobs: DXL export and stubbing, as an archiving pass runs them.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

#include "commands.h"
#include "notes.h"
#include "host_callbacks.h"
#include "output.h"

namespace fs = std::filesystem;

namespace hyln {
namespace {
const unsigned int kFirstBufferSize = 64 * 1024;
} // namespace

// Writes beside the final name, flushes to disk and renames: a file that exists is complete
// and survives a crash.
bool writeWhole(const fs::path& target, const unsigned char* data, size_t size)
{
    fs::path partial = target;
    partial += ".part";
    int file = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0)
        return false;
    bool written = true;
    for (size_t done = 0; written && done < size;) {
        ssize_t step = ::write(file, data + done, size - done);
        written = step > 0;
        done += written ? static_cast<size_t>(step) : 0;
    }
    written = ::fsync(file) == 0 && written;
    written = ::close(file) == 0 && written;
    std::error_code error;
    if (written)
        fs::rename(partial, target, error);
    if (!written || error) {
        fs::remove(partial, error);
        return false;
    }
    int directory = ::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

std::string unanswered(const char* call, unsigned long value, const std::string& why)
{
    char text[64];
    std::snprintf(text, sizeof text, "%s returned: [%lX] ", call, value);
    return text + why;
}

void releaseInDestructor(const char* what, const std::function<bool()>& release) noexcept
{
    try {
        if (!release())
            release();
    } catch (...) {
        std::fprintf(stderr, "hyln: %s failed with an exception\n", what);
    }
}

bool readWholeFile(const fs::path& path, std::vector<unsigned char>& data)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return false;
    data.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

HyLNError exportToBuffer(HyLNDataDocument& note, unsigned int exporter, std::vector<unsigned char>& dxl)
{
    unsigned int capacity = kFirstBufferSize;
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(capacity));
    NoteExportRecord record{nullptr, &buffer, 0, &capacity, 0, false, true};
    HyLNError status = buffer == nullptr ? HyLNError(0xFFFF, "no memory for the DXL buffer")
                                         : note.Export(exporter, &record);
    if (!status.IsErrorSet() && !record.ok)
        status = HyLNError(0xFFFF, "the DXL buffer could not grow");
    if (!status.IsErrorSet())
        dxl.assign(buffer, buffer + record.position);
    std::free(buffer);
    return status;
}

bool failed(HyLNError status)
{
    return status.IsErrorSet() || status.GetErrorCode() != 0;
}

namespace {

// The removals take a failed look-up for an absent item; a note that still holds its
// attachments or body is not marked and not saved, so that it stays as it was.
int checkStripped(HyLNDataDocument& note, const std::string& name, const Options& options)
{
    for (const char* item : {"$FILE", "Body"}) {
        bool present = false;
        HyLNError status = note.HasItem(item, present);
        if (status.IsErrorSet())
            return fail(status, "checking " + name, options.database);
        if (present)
            return failWith("stubbing " + name, options.database,
                            std::string("the note still holds ") + item + " after its removal; it is left as it was");
    }
    return kSuccess;
}

} // namespace

int stubInPlace(HyLNDataDocument& note, NOTEID id, const Options& options)
{
    std::string name = "note " + noteIdText(id);
    HyLNError status;
    bool removed = false;
    // Every change stays in the note in memory until the one update: the stored note is
    // either untouched or fully stubbed.
    if (failed(status = note.AddAttachmentInfo()) || failed(status = note.RemoveAttachments(removed)) ||
        failed(status = note.RemoveMessageBody()) || failed(status = note.RemoveSealedFields()))
        return fail(status, "stubbing " + name, options.database);
    if (int failed = checkStripped(note, name, options))
        return failed;
    if (failed(status = note.SetItemText(kStubMarker, noteIdText(id))) || failed(status = note.Update(0)))
        return fail(status, "stubbing " + name, options.database);
    return kSuccess;
}

namespace {

// Note IDs as the user wrote them (decimal, or hex with 0x); false names the first bad one.
bool parseNoteIds(const std::vector<std::string>& words, std::vector<NOTEID>& ids, std::string& bad)
{
    for (const std::string& word : words) {
        char* end = nullptr;
        unsigned long value = std::strtoul(word.c_str(), &end, 0);
        if (word.empty() || *end != '\0' || value == 0 || value > 0xFFFFFFFFul) {
            bad = word;
            return false;
        }
        ids.push_back(static_cast<NOTEID>(value));
    }
    return true;
}

STATUS collectDataNote(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found); // may be unaligned
    if ((found.SERetFlags & SE_FMATCH) != 0)
        static_cast<std::vector<NOTEID>*>(context)->push_back(found.ID.NoteID);
    return interrupted() ? 1 : NOERROR;
}

// Every data note of the database, through the runtime's search as any host may run it.
STATUS listDataNotes(DBHANDLE database, std::vector<NOTEID>& ids)
{
    TIMEDATE until;
    return HY_NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collectDataNote, &ids,
                        &until);
}

int chooseNotes(const Options& options, DBHANDLE database, std::vector<NOTEID>& ids)
{
    std::string bad;
    if (!parseNoteIds(options.noteIds, ids, bad)) {
        failWith("reading the note IDs", bad, "not a note ID (decimal, or hex with 0x)");
        return kUsage;
    }
    if (options.allNotes) {
        STATUS error = listDataNotes(database, ids);
        if (error != NOERROR && !interrupted()) {
            HyLNError status;
            status.SetError(error);
            return fail(status, "listing the notes", options.database);
        }
    }
    return kSuccess;
}

HyLNError exportToMemory(HyLNDataDocument& note, unsigned int exporter, const fs::path& target, size_t& bytes,
                         bool& written)
{
    std::vector<unsigned char> dxl;
    HyLNError status = exportToBuffer(note, exporter, dxl);
    bytes = dxl.size();
    written = !status.IsErrorSet() && writeWhole(target, dxl.data(), dxl.size());
    return status;
}

// Lets the exporter write the file through the library's callback in file mode.
HyLNError exportToFile(HyLNDataDocument& note, unsigned int exporter, const fs::path& target, size_t& bytes,
                       bool& written)
{
    fs::path partial = target;
    partial += ".part";
    FILE* file = std::fopen(partial.c_str(), "wb");
    if (file == nullptr)
        return HyLNError(0xFFFF, "cannot create " + partial.string());
    NoteExportRecord record{file, nullptr, 0, nullptr, 0, true, true};
    HyLNError status = note.Export(exporter, &record);
    bytes = record.total;
    bool closed = std::fclose(file) == 0;
    std::error_code error;
    written = !status.IsErrorSet() && closed;
    if (written)
        fs::rename(partial, target, error);
    if (!written || error)
        fs::remove(partial, error);
    written = written && !error;
    return status;
}

int exportOne(const Options& options, DBHANDLE database, unsigned int exporter, NOTEID id)
{
    HyLNDataDocument note(database, id);
    HyLNError status = note.Open(0);
    if (status.IsErrorSet())
        return fail(status, "opening note " + noteIdText(id), options.database);
    fs::path target = fs::path(options.outDir) / (noteIdText(id) + ".xml");
    size_t bytes = 0;
    bool written = false;
    status = options.fileMode ? exportToFile(note, exporter, target, bytes, written)
                              : exportToMemory(note, exporter, target, bytes, written);
    if (status.IsErrorSet())
        return fail(status, "exporting note " + noteIdText(id), options.database);
    if (!written)
        return failWith("writing note " + noteIdText(id), target.string(), "the DXL could not be written whole");
    output().record(target.string(), {{"note_id", noteIdText(id)}, {"path", target.string()}, {"bytes", bytes}},
                    "note");
    note.Close();
    return kSuccess;
}

struct Exporter {
    ~Exporter()
    {
        releaseInDestructor("deleting the DXL exporter", [this] {
            HyLNUtilities::DeleteDXLExporter(handle);
            return true;
        });
    }
    unsigned int handle = 0;
};

int stubOne(const Options& options, DBHANDLE database, NOTEID id)
{
    HyLNDataDocument note(database, id);
    std::string name = "note " + noteIdText(id);
    HyLNError status = note.Open(0);
    if (status.IsErrorSet())
        return fail(status, "opening " + name, options.database);
    bool migrated = false;
    note.IsMigratedMessage(migrated);
    DbMigrateCriteria details;
    if (!migrated) {
        if (failed(status = note.GetMigrationDetails(details)))
            return fail(status, "stubbing " + name, options.database);
        if (int failed = stubInPlace(note, id, options))
            return failed;
    }
    output().record(name + (migrated ? ": already stubbed" : ": stubbed, " + std::to_string(details.AttachmentNumbers) +
                                                                  " attachments removed"),
                    {{"note_id", noteIdText(id)},
                     {"stubbed", !migrated},
                     {"attachments", migrated ? 0 : details.AttachmentNumbers},
                     {"attachment_bytes", migrated ? 0 : details.AttachmentSize}},
                    "note");
    note.Close();
    return kSuccess;
}

// The runtime, the database and the chosen notes for one per-note job.
struct NoteJob : DatabaseJob {
    std::vector<NOTEID> ids;

    int open(const Options& options)
    {
        if (int failed = DatabaseJob::open(options))
            return failed;
        return chooseNotes(options, database.handle(), ids);
    }

    // Runs `perNote` for every chosen note, with progress, until one fails or Ctrl-C,
    // then writes the summary.
    template <class PerNote>
    int run(const Options& options, const char* verb, PerNote perNote)
    {
        size_t done = 0;
        int result = kSuccess;
        for (NOTEID id : ids) {
            if (interrupted() || (result = perNote(id)) != kSuccess)
                break;
            output().progress(++done, (std::string("notes ") + verb).c_str());
        }
        if (interrupted())
            result = kInterrupted;
        output().summary("\n" + std::string(verb) + " " + std::to_string(done) + " of " + std::to_string(ids.size()) +
                             " notes of " + options.database + (interrupted() ? " (interrupted)" : ""),
                         {{"notes", done},
                          {"chosen", ids.size()},
                          {"database", options.database},
                          {"interrupted", interrupted()}});
        return result;
    }
};

} // namespace

int exportNotes(const Options& options)
{
    NoteJob job;
    if (int failed = job.open(options))
        return failed;
    std::error_code error;
    fs::create_directories(options.outDir, error);
    if (error)
        return failWith("creating the output directory", options.outDir, error.message());
    Exporter exporter;
    std::map<DXL_EXPORT_PROPERTY, void*> properties;
    HyLNError status = HyLNUtilities::CreateDXLExporter(exporter.handle, properties);
    if (status.IsErrorSet())
        return fail(status, "creating the DXL exporter", options.database);
    return job.run(options, "exported",
                   [&](NOTEID id) { return exportOne(options, job.database.handle(), exporter.handle, id); });
}

int stubNotes(const Options& options)
{
    NoteJob job;
    if (int failed = job.open(options))
        return failed;
    return job.run(options, "stubbed", [&](NOTEID id) { return stubOne(options, job.database.handle(), id); });
}

} // namespace hyln
