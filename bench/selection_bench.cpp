// Note selection at scale: folder filtering of a note table against 100 folders
// (10,000 and 1,000,000 notes, one in a hundred filed), and unread checks of every
// note of a table against an unread table of the same size. "per_note" is the time
// per note of the host's table.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "HYLNTool.h"
#include "support/domino_fixture.h"

namespace {

const int kFolders = 100;
const int kFiledPerFolder = 100;
const char* const kDatabase = "folders.nsf";
// Table IDs that name no note of the database, above every note it has.
const DWORD kFillerBase = 0x01000000;

bool neverQuit() { return false; }
void discardLog(const char*, int, const char*, int, const char*, ...) {}

std::string benchDataDir()
{
    return std::filesystem::temp_directory_path().string() + "/hyln-bench-folders-" + std::to_string(kFolders);
}

void check(STATUS status, const char* what)
{
    if (status != NOERROR) {
        std::fprintf(stderr, "%s failed with 0x%04X\n", what, status);
        std::exit(1);
    }
}

NOTEID saveFolder(DBHANDLE db, const std::string& title)
{
    const char format[10] = {1, 0}; // a table-style $ViewFormat without columns
    NOTEHANDLE note = NULLHANDLE;
    check(HY_NSFNoteCreate(db, &note), "NSFNoteCreate");
    WORD viewClass = NOTE_CLASS_VIEW;
    HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
    check(HY_NSFItemSetText(note, "$TITLE", title.data(), static_cast<WORD>(title.size())), "NSFItemSetText");
    check(HY_NSFItemSetText(note, "$Flags", "F", 1), "NSFItemSetText");
    check(HY_NSFItemAppend(note, ITEM_SUMMARY, "$ViewFormat", 11, TYPE_VIEW_FORMAT, format, sizeof format),
          "NSFItemAppend");
    check(HY_NSFNoteUpdate(note, 0), "NSFNoteUpdate");
    NOTEID id = 0;
    HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
    HY_NSFNoteClose(note);
    return id;
}

NOTEID saveMemo(DBHANDLE db)
{
    NOTEHANDLE note = NULLHANDLE;
    check(HY_NSFNoteCreate(db, &note), "NSFNoteCreate");
    check(HY_NSFItemSetText(note, "Subject", "filed", 5), "NSFItemSetText");
    check(HY_NSFNoteUpdate(note, 0), "NSFNoteUpdate");
    NOTEID id = 0;
    HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
    HY_NSFNoteClose(note);
    return id;
}

// 100 folders of 100 memos each, made once and kept for later runs.
void writeFolders()
{
    hyln_test::createDatabase(kDatabase, "Folder bench");
    DBHANDLE db = NULLHANDLE;
    check(HY_NSFDbOpen(kDatabase, &db), "NSFDbOpen");
    for (int f = 0; f < kFolders; ++f) {
        char title[16];
        std::snprintf(title, sizeof title, "F%03d", f);
        NOTEID folder = saveFolder(db, title);
        DHANDLE members = NULLHANDLE;
        check(HY_IDCreateTable(0, &members), "IDCreateTable");
        for (int m = 0; m < kFiledPerFolder; ++m)
            HY_IDInsert(members, saveMemo(db), nullptr);
        check(HY_FolderDocAdd(db, NULLHANDLE, folder, members, 0), "FolderDocAdd");
        HY_IDDestroyTable(members);
    }
    HY_NSFDbClose(db);
}

void startRuntime()
{
    static bool started = false;
    if (started)
        return;
    std::string dataDir = benchDataDir();
    bool exists = std::filesystem::exists(dataDir + "/" + kDatabase);
    std::filesystem::create_directories(dataDir);
    std::ofstream(dataDir + "/notes.ini") << "Directory=" << dataDir << "\nServerName=CN=HySrv01/O=HyOrg\n";
    std::string program = HYLN_TEST_DOMINO_DIR;
    std::string ini = "=" + dataDir + "/notes.ini";
    char* argv[] = {program.data(), ini.data(), nullptr};
    if (!loadNotesFunctions(program) || HY_NotesInitExtended(2, argv) != NOERROR) {
        std::fprintf(stderr, "cannot start the simulated runtime\n");
        std::exit(1);
    }
    if (!exists)
        writeFolders();
    SetLogCallback(discardLog);
    SetJobQuitCallback(neverQuit);
    started = true;
}

std::vector<NOTEID> documentsOf(DBHANDLE db)
{
    std::vector<NOTEID> ids;
    NSFSEARCHPROC collect = [](void* context, SEARCH_MATCH* match, ITEM_TABLE*) -> STATUS {
        SEARCH_MATCH found;
        std::memcpy(&found, match, sizeof found);
        static_cast<std::vector<NOTEID>*>(context)->push_back(found.ID.NoteID);
        return NOERROR;
    };
    check(HY_NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collect, &ids, nullptr),
          "NSFSearch");
    return ids;
}

// The host's table: `notes` IDs, one in a hundred a filed memo, the rest naming nothing.
DHANDLE hostTable(const std::vector<NOTEID>& filed, size_t notes)
{
    DHANDLE table = NULLHANDLE;
    check(HY_IDCreateTable(sizeof(NOTEID), &table), "IDCreateTable");
    for (size_t i = 0; i < notes; ++i) {
        bool fromFolder = i % 100 == 0 && i / 100 < filed.size();
        HY_IDInsert(table, fromFolder ? filed[i / 100] : kFillerBase + static_cast<DWORD>(i) * 4, nullptr);
    }
    return table;
}

std::string allFolders()
{
    std::string list;
    for (int f = 0; f < kFolders; ++f) {
        char name[16];
        std::snprintf(name, sizeof name, "%sF%03d", f == 0 ? "" : ";", f);
        list += name;
    }
    return list;
}

void perNote(benchmark::State& state, size_t notes)
{
    state.counters["per_note"] = benchmark::Counter(
        static_cast<double>(notes), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Keeps the notes of all 100 folders: every other note leaves the host's table.
void BM_FilterKeepingFolderNotes(benchmark::State& state)
{
    startRuntime();
    const size_t notes = static_cast<size_t>(state.range(0));
    HyLNDatabase database(kDatabase, "");
    check(database.Open().GetErrorCode(), "Open");
    const std::vector<NOTEID> filed = documentsOf(database.GetHandle());
    const std::string folders = allFolders();
    for (auto _ : state) {
        state.PauseTiming();
        unsigned int table = hostTable(filed, notes);
        std::string list = folders;
        state.ResumeTiming();
        HyLNError error = database.FilterDocumentsOfFolders(list, table, 1);
        state.PauseTiming();
        if (error.IsErrorSet() || HY_IDEntries(table) != (notes + 99) / 100) {
            state.SkipWithError("filtering kept the wrong notes");
            break;
        }
        HY_IDDestroyTable(table);
        state.ResumeTiming();
    }
    perNote(state, notes);
}

// Every note of an N-note table asked about against an N-entry unread table (half hit).
void BM_UnreadChecks(benchmark::State& state)
{
    startRuntime();
    const size_t notes = static_cast<size_t>(state.range(0));
    HyLNDatabase database(kDatabase, "");
    check(HY_IDCreateTable(sizeof(NOTEID), &database.unreadTable), "IDCreateTable");
    for (size_t i = 0; i < notes; ++i)
        HY_IDInsert(database.unreadTable, static_cast<DWORD>(8 * i + 4), nullptr);
    for (auto _ : state) {
        size_t unread = 0;
        for (size_t i = 0; i < notes; ++i) {
            bool isUnread = false;
            database.GetNoteUnreadStatus(static_cast<DWORD>(4 * i + 4), isUnread);
            unread += isUnread ? 1 : 0;
        }
        if (unread != (notes + 1) / 2) {
            state.SkipWithError("wrong unread count");
            break;
        }
    }
    HY_IDDestroyTable(database.unreadTable);
    database.unreadTable = NULLHANDLE;
    perNote(state, notes);
}

} // namespace

BENCHMARK(BM_FilterKeepingFolderNotes)->Arg(10000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnreadChecks)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
