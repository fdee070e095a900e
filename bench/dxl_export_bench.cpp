// DXL export of memos with 100 KB attachments: HyLNDocument::Export in memory mode
// (the library's growing stream callback) against DXLExportNote called directly with a
// plain callback that appends to a reused buffer. Bytes per second are of DXL written.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "HYLNTool.h"

namespace {

const size_t kAttachmentSize = 100 * 1024;
const char kDatabase[] = "bench/memos.nsf";

size_t memoCount()
{
    const char* value = std::getenv("HYLN_BENCH_MEMOS");
    return value != nullptr && std::atol(value) > 0 ? static_cast<size_t>(std::atol(value)) : 1000;
}

void discardLog(const char*, int, const char*, int, const char*, ...) {}

void check(STATUS status, const char* what)
{
    if (status != NOERROR)
        throw std::runtime_error(std::string(what) + " failed with status " + std::to_string(status));
}

std::string dataDir()
{
    return std::filesystem::temp_directory_path().string() + "/hyln-bench-dxl-" + std::to_string(memoCount());
}

void writeMemos(const std::string& attachment)
{
    check(HY_NSFDbCreate(kDatabase, DBCLASS_NOTEFILE, FALSE), "NSFDbCreate");
    DBHANDLE database = NULLHANDLE;
    check(HY_NSFDbOpen(kDatabase, &database), "NSFDbOpen");
    for (size_t i = 0; i < memoCount(); ++i) {
        NOTEHANDLE note = NULLHANDLE;
        check(HY_NSFNoteCreate(database, &note), "NSFNoteCreate");
        std::string subject = "Quarterly figures " + std::to_string(i);
        check(HY_NSFItemSetText(note, "Form", "Memo", 4), "NSFItemSetText");
        check(HY_NSFItemSetText(note, "Subject", subject.c_str(), static_cast<WORD>(subject.size())), "NSFItemSetText");
        check(HY_NSFNoteAttachFile(note, "$FILE", 5, attachment.c_str(), "figures.bin", 0), "NSFNoteAttachFile");
        check(HY_NSFNoteUpdate(note, 0), "NSFNoteUpdate");
        HY_NSFNoteClose(note);
    }
    HY_NSFDbClose(database);
}

STATUS collectNote(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if ((found.SERetFlags & SE_FMATCH) != 0)
        static_cast<std::vector<NOTEID>*>(context)->push_back(found.ID.NoteID);
    return NOERROR;
}

struct Memos {
    DBHANDLE database = NULLHANDLE;
    std::vector<NOTEID> notes;
    unsigned int exporter = 0;
};

// Creates the memos once per machine (kept in the temporary directory) and opens them.
Memos& memos()
{
    static Memos prepared;
    if (prepared.database != NULLHANDLE)
        return prepared;
    std::string dir = dataDir();
    bool exists = std::filesystem::exists(dir + "/" + kDatabase);
    std::filesystem::create_directories(dir + "/bench");
    std::ofstream(dir + "/notes.ini") << "Directory=" << dir << "\n";
    std::string program = HYLN_TEST_DOMINO_DIR;
    std::string ini = "=" + dir + "/notes.ini";
    char* argv[] = {program.data(), ini.data(), nullptr};
    SetLogCallback(discardLog);
    if (!loadNotesFunctions(program) || HY_NotesInitExtended(3, argv) != NOERROR)
        throw std::runtime_error("cannot start the simulated runtime");
    if (!exists) {
        std::string attachment = dir + "/attachment.bin";
        std::vector<char> bytes(kAttachmentSize);
        std::mt19937 random(7);
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        std::ofstream(attachment, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        writeMemos(attachment);
    }
    check(HY_NSFDbOpen(kDatabase, &prepared.database), "NSFDbOpen");
    TIMEDATE until;
    check(HY_NSFSearch(prepared.database, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collectNote,
                       &prepared.notes, &until),
          "NSFSearch");
    std::map<DXL_EXPORT_PROPERTY, void*> properties;
    if (HyLNUtilities::CreateDXLExporter(prepared.exporter, properties).IsErrorSet())
        throw std::runtime_error("cannot create the DXL exporter");
    return prepared;
}

void BM_ExportLibraryMemoryMode(benchmark::State& state)
{
    Memos& prepared = memos();
    unsigned int capacity = 256 * 1024;
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(capacity));
    size_t bytes = 0;
    for (auto _ : state) {
        for (NOTEID id : prepared.notes) {
            HyLNDataDocument note(prepared.database, id);
            NoteExportRecord record{nullptr, &buffer, 0, &capacity, 0, false, true};
            if (note.Open(0).IsErrorSet() || note.Export(prepared.exporter, &record).IsErrorSet() || !record.ok) {
                state.SkipWithError("export failed");
                break;
            }
            bytes += record.position;
        }
    }
    std::free(buffer);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters["notes"] = static_cast<double>(prepared.notes.size());
}

void appendTo(const BYTE* data, DWORD length, void* context)
{
    auto* out = static_cast<std::vector<unsigned char>*>(context);
    out->insert(out->end(), data, data + length);
}

void BM_ExportDirect(benchmark::State& state)
{
    Memos& prepared = memos();
    std::vector<unsigned char> out;
    out.reserve(256 * 1024);
    size_t bytes = 0;
    for (auto _ : state) {
        for (NOTEID id : prepared.notes) {
            NOTEHANDLE note = NULLHANDLE;
            out.clear();
            if (HY_NSFNoteOpen(prepared.database, id, 0, &note) != NOERROR ||
                HY_DXLExportNote(prepared.exporter, appendTo, note, &out) != NOERROR) {
                state.SkipWithError("export failed");
                break;
            }
            HY_NSFNoteClose(note);
            bytes += out.size();
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters["notes"] = static_cast<double>(prepared.notes.size());
}

} // namespace

BENCHMARK(BM_ExportLibraryMemoryMode)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK(BM_ExportDirect)->Unit(benchmark::kMillisecond)->MinTime(3.0);
