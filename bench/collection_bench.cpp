// Reading a view collection with summaries: open (the index is built) and read every
// entry with its note ID and summary, at 10,000 and 1,000,000 documents. The counter
// "per_entry" is the cost of one entry, index building included.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "collections.h"
#include "sim_core.h"
#include "storage.h"
#include "view_format.h"

namespace {

std::vector<char> typed(WORD type, const std::string& data)
{
    std::vector<char> value(sizeof type + data.size());
    std::memcpy(value.data(), &type, sizeof type);
    if (!data.empty())
        std::memcpy(value.data() + sizeof type, data.data(), data.size());
    return value;
}

std::vector<char> compiled(const std::string& text)
{
    FORMULAHANDLE handle = NULLHANDLE;
    WORD length = 0;
    NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &handle, &length, nullptr, nullptr,
                      nullptr, nullptr, nullptr);
    const char* bytes = static_cast<const char*>(OSLockObject(handle));
    std::vector<char> out(bytes, bytes + length);
    OSUnlockObject(handle);
    OSMemFree(handle);
    return out;
}

// A runtime on a scratch data directory holding one view and `documents` memos.
class ViewDatabase {
public:
    explicit ViewDatabase(size_t documents)
    {
        char pattern[] = "/tmp/hysim-collection-bench-XXXXXX";
        dir_ = mkdtemp(pattern);
        std::ofstream(dir_ + "/notes.ini") << "[Notes]\nDirectory=" << dir_ << "\n";
        std::string ini = "=" + dir_ + "/notes.ini";
        char* argv[] = {dir_.data(), ini.data(), nullptr};
        NotesInitExtended(2, argv);
        NSFDbCreate("bench.nsf", DBCLASS_NOTEFILE, FALSE);
        NSFDbOpen("bench.nsf", &db_);
        writeView();
        writeMemos(documents);
    }
    ~ViewDatabase()
    {
        NSFDbClose(db_);
        NotesTerm();
        std::filesystem::remove_all(dir_);
    }
    DBHANDLE db() const { return db_; }
    NOTEID view() const { return view_; }

private:
    void writeView()
    {
        sim::viewformat::Format format;
        for (const char* item : {"From", "Subject", "Size"}) {
            sim::viewformat::Column column;
            column.itemName = column.title = item;
            format.columns.push_back(column);
        }
        std::vector<char> value = sim::viewformat::encode(format);
        std::vector<char> selection = compiled("Form = \"Memo\"");
        NOTEHANDLE note = NULLHANDLE;
        NSFNoteCreate(db_, &note);
        WORD viewClass = NOTE_CLASS_VIEW;
        NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
        NSFItemSetText(note, "$TITLE", "Memos", 5);
        NSFItemAppend(note, ITEM_SUMMARY, "$ViewFormat", 11, TYPE_VIEW_FORMAT, value.data(), value.size());
        NSFItemAppend(note, ITEM_SUMMARY, "$FORMULA", 8, TYPE_FORMULA, selection.data(), selection.size());
        NSFNoteUpdate(note, 0);
        NSFNoteGetInfo(note, _NOTE_ID, &view_);
        NSFNoteClose(note);
    }
    // Written in batches straight into storage: the API would take hours for a million.
    void writeMemos(size_t documents)
    {
        std::shared_ptr<sim::Storage> storage;
        sim::lookupStorage(db_, storage);
        DatabaseProperties properties;
        storage->readProperties(properties);
        std::vector<sim::NoteBatchEntry> batch;
        for (size_t i = 0; i < documents; ++i) {
            sim::NoteBatchEntry entry;
            UNID unid = sim::makeUnid(properties.replica.ID);
            unid.File.Innards[0] = static_cast<DWORD>(i); // random words may repeat among a million
            std::memcpy(&entry.record.oid, &unid, sizeof unid);
            double size = static_cast<double>(1000 + i % 5000);
            std::string number(reinterpret_cast<const char*>(&size), sizeof size);
            entry.items = {{"Form", ITEM_SUMMARY, typed(TYPE_TEXT, "Memo")},
                           {"From", ITEM_SUMMARY, typed(TYPE_TEXT, "CN=Sender " + std::to_string(i % 97) + "/O=HyOrg")},
                           {"Subject", ITEM_SUMMARY, typed(TYPE_TEXT, "Subject of memo " + std::to_string(i))},
                           {"Size", ITEM_SUMMARY, typed(TYPE_NUMBER, number)}};
            entry.itemObject.assign(entry.items.size(), -1);
            entry.how.force = true;
            batch.push_back(std::move(entry));
            if (batch.size() == 10000 || i + 1 == documents) {
                storage->saveNotes(batch);
                batch.clear();
            }
        }
    }
    using DatabaseProperties = sim::DatabaseProperties;
    std::string dir_;
    DBHANDLE db_ = NULLHANDLE;
    NOTEID view_ = 0;
};

STATUS readEverything(DBHANDLE db, NOTEID view, size_t& total)
{
    HCOLLECTION collection = 0;
    STATUS status = NIFOpenCollection(db, db, view, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr);
    COLLECTIONPOSITION position{};
    total = 0;
    WORD signals = sim::nif::kSignalMoreToDo;
    while (status == NOERROR && (signals & sim::nif::kSignalMoreToDo)) {
        DHANDLE buffer = NULLHANDLE;
        DWORD returned = 0;
        status = NIFReadEntries(collection, &position, sim::nif::kNavigateNext, 1, sim::nif::kNavigateNext, 0xFFFFFFFF,
                       sim::nif::kReadNoteId | sim::nif::kReadSummary, &buffer, nullptr, nullptr, &returned, &signals);
        total += returned;
        if (buffer != NULLHANDLE)
            OSMemFree(buffer);
    }
    NIFCloseCollection(collection);
    return status;
}

void BM_ReadViewWithSummaries(benchmark::State& state)
{
    size_t documents = static_cast<size_t>(state.range(0));
    ViewDatabase database(documents);
    size_t entries = 0;
    STATUS status = NOERROR;
    for (auto _ : state)
        status = readEverything(database.db(), database.view(), entries);
    if (status != NOERROR || entries != documents) {
        std::string error = "status " + std::to_string(status) + ", " + std::to_string(entries) + " entries";
        state.SkipWithError(error.c_str());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries));
    state.counters["per_entry"] = benchmark::Counter(static_cast<double>(state.iterations() * entries),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ReadViewWithSummaries)->Arg(10000)->Arg(200000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
