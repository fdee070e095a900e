// The view jobs: the names of a database's views and folders, and the note index
// lines of one view, as a backup agent builds its index from view entries.
#include <cstring>
#include <string>
#include <vector>

#include "views.h"

#include "commands.h"
#include "host_callbacks.h"
#include "notes.h"
#include "output.h"

namespace hyln {
namespace {

const char kFieldSeparator = '\x12';
// What each entry of the index read carries, packed in this order.
const DWORD kIndexReadMask = READ_MASK_NOTEID | READ_MASK_INDEXSIBLINGS | READ_MASK_INDEXCHILDREN |
                             READ_MASK_INDEXDESCENDANTS | READ_MASK_INDEXANYUNREAD | READ_MASK_INDEXPOSITION |
                             READ_MASK_SUMMARY;
// The library's index line stops before 240 bytes of column text; a translated column may
// add up to 239 more.
const size_t kIndexLineSize = 1024;

std::vector<std::string> splitFields(const std::string& text)
{
    std::vector<std::string> fields;
    std::string field;
    for (char c : text) {
        if (c == kFieldSeparator) {
            fields.push_back(field);
            field.clear();
        } else {
            field += c;
        }
    }
    if (!field.empty())
        fields.push_back(field);
    return fields;
}

// Each title comes behind its separator.
std::vector<std::string> titleList(const std::string& titles)
{
    std::vector<std::string> list = splitFields(titles);
    if (!list.empty() && list.front().empty())
        list.erase(list.begin());
    return list;
}

// The separators shown as '|', which the index text never holds itself.
std::string visible(const std::string& text)
{
    std::string shown = text;
    for (char& c : shown)
        if (c == kFieldSeparator)
            c = '|';
    return shown;
}

// One entry of a locked read buffer; every read is bounded by the buffer's end.
class EntryReader {
public:
    EntryReader(const unsigned char* start, const unsigned char* end) : at(start), end(end) {}

    template <class T>
    bool read(T& value)
    {
        return take(&value, sizeof value);
    }

    bool readPosition(COLLECTIONPOSITION& position)
    {
        position = COLLECTIONPOSITION{};
        WORD level = 0;
        if (static_cast<size_t>(end - at) < sizeof level)
            return false;
        std::memcpy(&level, at, sizeof level);
        size_t size = 4 * (static_cast<size_t>(level) + 2);
        return level < MAXTUMBLERLEVELS && take(&position, size);
    }

    // The summary stays in the buffer; its Length word gives its size.
    bool readSummary(const unsigned char*& summary)
    {
        ITEM_TABLE table;
        if (static_cast<size_t>(end - at) < sizeof table)
            return false;
        std::memcpy(&table, at, sizeof table);
        if (table.Length < sizeof table || table.Length > end - at)
            return false;
        summary = at;
        at += table.Length;
        return true;
    }

private:
    bool take(void* value, size_t size)
    {
        if (static_cast<size_t>(end - at) < size)
            return false;
        std::memcpy(value, at, size);
        at += size;
        return true;
    }

    const unsigned char* at;
    const unsigned char* end;
};

struct IndexEntry {
    NOTEID noteId = 0;
    INDEXSPECIALINFO special{};
    COLLECTIONPOSITION position{};
    const unsigned char* summary = nullptr;
};

bool readEntry(EntryReader& reader, IndexEntry& entry)
{
    return reader.read(entry.noteId) && reader.read(entry.special.IndexSiblings) &&
           reader.read(entry.special.IndexChildren) && reader.read(entry.special.IndexDescendants) &&
           reader.read(entry.special.IndexAnyUnread) && reader.readPosition(entry.position) &&
           reader.readSummary(entry.summary);
}

std::string indexLineOf(HyLNView& view, const IndexEntry& entry)
{
    // The summary may sit at any offset of the buffer: the library gets an aligned copy.
    ITEM_TABLE table;
    std::memcpy(&table, entry.summary, sizeof table);
    std::vector<unsigned char> summary(entry.summary, entry.summary + table.Length);
    std::vector<char> line(kIndexLineSize, '\0');
    view.AddEntryToNoteIndex(line.data(), summary.data(), entry.noteId, entry.special, entry.position, 0);
    return line.data();
}

void writeIndexLine(NOTEID noteId, const std::string& line)
{
    std::vector<std::string> fields = splitFields(line);
    if (!fields.empty())
        fields.erase(fields.begin()); // the note ID, given on its own
    output().record(visible(line),
                    {{"note_id", noteIdText(noteId)}, {"category", (noteId & NOTEID_CATEGORY) != 0}, {"fields", fields}},
                    "entry");
}

// Turns one read buffer into index lines; returns what went wrong, or nothing.
std::string passIndexLines(HyLNView& view, DHANDLE buffer, WORD length, DWORD count, const IndexLineSink& sink)
{
    const unsigned char* start = static_cast<const unsigned char*>(HY_OSLockObject(buffer));
    if (start == nullptr)
        return unanswered("OSLockObject", 0, "for the read buffer");
    EntryReader reader(start, start + length);
    bool whole = true;
    for (DWORD i = 0; i < count && whole; ++i) {
        IndexEntry entry;
        whole = readEntry(reader, entry);
        if (whole)
            sink(entry.noteId, indexLineOf(view, entry));
    }
    HY_OSUnlockObject(buffer);
    return whole ? "" : "an entry does not fit its read buffer";
}

} // namespace

int forEachIndexLine(const std::string& viewName, HyLNView& view, HCOLLECTION collection, const IndexLineSink& sink)
{
    COLLECTIONPOSITION position{};
    WORD signals = 0;
    do {
        DHANDLE buffer = NULLHANDLE;
        WORD length = 0;
        DWORD returned = 0;
        signals = 0;
        HyLNError status = view.ReadColection(&collection, &position, NAVIGATE_NEXT, 1, NAVIGATE_NEXT, 0xFFFFFFFF,
                                              kIndexReadMask, &buffer, &length, nullptr, &returned, &signals);
        if (status.IsErrorSet())
            return fail(status, "reading the view", viewName);
        if (buffer == NULLHANDLE)
            break;
        std::string problem = passIndexLines(view, buffer, length, returned, sink);
        HY_OSMemFree(buffer);
        if (!problem.empty())
            return failWith("reading the view", viewName, problem);
    } while ((signals & SIGNAL_MORE_TO_DO) != 0 && !interrupted());
    return kSuccess;
}

int readIndexLines(const std::string& viewName, HyLNView& view, const TitlesSink& onTitles, const IndexLineSink& sink)
{
    unsigned int noteId = 0;
    HyLNError status = view.FindID(noteId);
    if (status.IsErrorSet())
        return fail(status, "finding the view", viewName);
    std::string titles;
    status = view.GetCoulmnTitles(&titles);
    if (status.IsErrorSet())
        return fail(status, "reading the column titles", viewName);
    onTitles(titles);
    HCOLLECTION collection = 0;
    status = view.OpenCollection(0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr);
    if (status.IsErrorSet())
        return fail(status, "opening the view", viewName);
    int result = forEachIndexLine(viewName, view, collection, sink);
    status = view.CloseCollection(collection);
    if (status.IsErrorSet() && result == kSuccess)
        result = fail(status, "closing the view", viewName);
    return result;
}

int listViews(const Options& options)
{
    DatabaseJob job;
    if (int failed = job.open(options))
        return failed;
    std::vector<std::string> names;
    host().messages = &names;
    HyLNError status = job.database.get().GetViews();
    host().messages = nullptr;
    if (status.GetErrorCode() != 0)
        return fail(status, "listing the views", options.database);
    for (const std::string& name : names)
        output().record(name, {{"name", name}, {"database", options.database}}, "view");
    output().summary(std::to_string(names.size()) + " views and folders in " + options.database,
                     {{"views", names.size()}, {"database", options.database}, {"interrupted", interrupted()}});
    return interrupted() ? kInterrupted : kSuccess;
}

int indexView(const Options& options)
{
    DatabaseJob job;
    if (int failed = job.open(options))
        return failed;
    size_t written = 0;
    int result;
    {
        HyLNView view(job.database.get(), options.viewName);
        auto showTitles = [&](const std::string& titles) {
            output().record("columns: " + visible(titles), {{"view", options.viewName}, {"titles", titleList(titles)}},
                            "columns");
        };
        result = readIndexLines(options.viewName, view, showTitles, [&](NOTEID noteId, const std::string& line) {
            writeIndexLine(noteId, line);
            output().progress(++written, "index lines");
        });
    }
    output().summary("\n" + std::to_string(written) + " index lines of " + options.viewName +
                         (interrupted() ? " (interrupted)" : ""),
                     {{"entries", written},
                      {"view", options.viewName},
                      {"database", options.database},
                      {"interrupted", interrupted()}});
    return interrupted() ? kInterrupted : result;
}

} // namespace hyln
