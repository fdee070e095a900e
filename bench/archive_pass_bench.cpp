// The archiving pass over one mail file, timed two ways: through hyln's code path
// (hyln::archiveIn, as `hyln archive DB --out DIR` runs it) and as a plain loop of the
// same runtime calls through the HY_ function table. Both select the modified and read
// notes, read the folders and the ($All) index lines, save the ACL, then per note open
// it, check it is not stubbed, gather its attachments, export its DXL into memory, write
// DXL and record durably, stub it in one update, and finally write the folder
// information and the manifest.
//
// The data: one mail file of 15,000 memos (attachments of 4 KB on a fifth of them),
// seeded once by hyln-seed and kept; the seeder leaves every third memo unread, so each
// pass archives 10,000 notes. Every run works on a fresh copy of the data directory with
// the runtime restarted on it; copying, starting and stopping are outside the timed
// region. Runs alternate (hyln, plain, hyln, ...). After each plain run its archive and
// its stubbed mail file are compared with those of the hyln run before it: any
// difference ends the benchmark with an error.
//
// Run by hand (not part of CTest):
//   cmake --build build -j2 --target hyln_pass_bench
//   build/bench/hyln_pass_bench
// HYLN_BENCH_REPETITIONS: pairs of runs (default 7). HYLN_BENCH_DIR: where the data
// lives (default /dev/shm when it exists: on a disk the fsync of every file dominates
// both paths alike and hides the cost of the code). The medians and their ratio are
// printed after the runs.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "HYLNTool.h"
#include "hyln/archive_store.h"
#include "hyln/commands.h"
#include "hyln/host_callbacks.h"
#include "hyln/notes.h"
#include "hyln/output.h"
#include "hyln/spawn.h"
#include "hyln/version_stamp.h"

namespace fs = std::filesystem;

namespace {

const char kViewName[] = "($All)";
const char kSeedMemos[] = "15000";
const char kAttachmentSize[] = "4096";
const size_t kExpectedArchived = 10000;

void check(STATUS status, const char* what)
{
    if (status != NOERROR)
        throw std::runtime_error(std::string(what) + " failed with status " + std::to_string(status));
}

int repetitions()
{
    const char* value = std::getenv("HYLN_BENCH_REPETITIONS");
    return value != nullptr && std::atoi(value) > 0 ? std::atoi(value) : 7;
}

fs::path benchRoot()
{
    const char* chosen = std::getenv("HYLN_BENCH_DIR");
    if (chosen != nullptr && *chosen != '\0')
        return fs::path(chosen) / "hyln-bench-pass";
    if (fs::is_directory("/dev/shm") && access("/dev/shm", W_OK) == 0)
        return "/dev/shm/hyln-bench-pass";
    return fs::temp_directory_path() / "hyln-bench-pass";
}

fs::path seedDir() { return benchRoot() / "seed"; }

void writeIni(const fs::path& dataDir)
{
    std::ifstream in(dataDir / "notes.ini");
    std::ostringstream rewritten;
    for (std::string line; std::getline(in, line);)
        rewritten << (line.rfind("Directory=", 0) == 0 ? "Directory=" + dataDir.string() : line) << "\n";
    in.close();
    std::ofstream(dataDir / "notes.ini") << rewritten.str();
}

// Seeds the mail file once; a marker says the seeding finished.
void seedOnce()
{
    const fs::path seed = seedDir();
    if (fs::exists(seed / ".complete"))
        return;
    fs::remove_all(seed);
    fs::create_directories(seed.parent_path());
    std::string error;
    int exitCode = hyln::runProgram({HYLN_BENCH_SEEDER, "--dir", seed.string(), "--users", "1", "--messages",
                                     kSeedMemos, "--attachment-size", kAttachmentSize, "--seed", "11", "--extra-dirs",
                                     "0"},
                                    error);
    if (exitCode != 0)
        throw std::runtime_error("seeding failed (" + std::to_string(exitCode) + ") " + error);
    std::ofstream(seed / ".complete") << "seeded\n";
}

// The one mail file of the seeded server, relative to its data directory.
std::string mailFile()
{
    for (const fs::directory_entry& entry : fs::directory_iterator(seedDir() / "mail"))
        if (entry.path().extension() == ".nsf")
            return "mail/" + entry.path().filename().string();
    throw std::runtime_error("the seeded server has no mail file");
}

// A data directory and an archive directory for one run.
struct RunDirs {
    fs::path data;
    fs::path archive;
};

RunDirs freshCopy(const std::string& name)
{
    RunDirs dirs{benchRoot() / (name + "-data"), benchRoot() / (name + "-archive")};
    fs::remove_all(dirs.data);
    fs::remove_all(dirs.archive);
    fs::copy(seedDir(), dirs.data, fs::copy_options::recursive);
    writeIni(dirs.data);
    return dirs;
}

using hyln::noteIdText;

// ---- What a pass left behind, for comparing the two ----

STATUS describeItem(WORD, WORD, char* name, WORD nameLength, void* value, DWORD valueLength, void* context)
{
    std::string& out = *static_cast<std::string*>(context);
    std::string item(name, nameLength);
    out += " " + item + ":" + std::to_string(valueLength);
    if (item == hyln::kStubMarker || item == "AttachmentData")
        out.append(static_cast<const char*>(value), valueLength);
    return NOERROR;
}

STATUS collectNote(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if ((found.SERetFlags & SE_FMATCH) != 0)
        static_cast<std::vector<NOTEID>*>(context)->push_back(found.ID.NoteID);
    return NOERROR;
}

// Every data note with the names and sizes of its items, and the stub's own values.
std::string databaseFingerprint(const std::string& database)
{
    DBHANDLE db = NULLHANDLE;
    check(HY_NSFDbOpen(database.c_str(), &db), "NSFDbOpen");
    std::vector<NOTEID> ids;
    TIMEDATE until;
    check(HY_NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collectNote, &ids, &until),
          "NSFSearch");
    std::string out;
    for (NOTEID id : ids) {
        NOTEHANDLE note = NULLHANDLE;
        check(HY_NSFNoteOpen(db, id, 0, &note), "NSFNoteOpen");
        out += noteIdText(id);
        HY_NSFItemScan(note, describeItem, &out);
        out += "\n";
        HY_NSFNoteClose(note);
    }
    HY_NSFDbClose(db);
    return out;
}

bool sameFile(const fs::path& a, const fs::path& b)
{
    std::ifstream first(a, std::ios::binary);
    std::ifstream second(b, std::ios::binary);
    std::string x((std::istreambuf_iterator<char>(first)), std::istreambuf_iterator<char>());
    std::string y((std::istreambuf_iterator<char>(second)), std::istreambuf_iterator<char>());
    return first && second && x == y;
}

nlohmann::json timelessManifest(const fs::path& path)
{
    std::ifstream file(path);
    nlohmann::json manifest = nlohmann::json::parse(file);
    for (const char* key : {"started", "finished", "seconds"})
        manifest.erase(key);
    return manifest;
}

// The first difference between two archives, or an empty text.
std::string archiveDifference(const fs::path& expected, const fs::path& actual)
{
    size_t files = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(expected)) {
        if (!entry.is_regular_file())
            continue;
        ++files;
        fs::path relative = fs::relative(entry.path(), expected);
        bool same = relative == "manifest.json"
                        ? fs::exists(actual / relative) &&
                              timelessManifest(entry.path()) == timelessManifest(actual / relative)
                        : sameFile(entry.path(), actual / relative);
        if (!same)
            return relative.string() + " differs";
    }
    size_t actualFiles = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(actual))
        actualFiles += entry.is_regular_file() ? 1 : 0;
    return actualFiles == files ? "" : "the archives hold " + std::to_string(files) + " and " +
                                           std::to_string(actualFiles) + " files";
}

// ---- The plain loop ----

namespace plain {

const DWORD kIndexReadMask = READ_MASK_NOTEID | READ_MASK_INDEXSIBLINGS | READ_MASK_INDEXCHILDREN |
                             READ_MASK_INDEXDESCENDANTS | READ_MASK_INDEXANYUNREAD | READ_MASK_INDEXPOSITION |
                             READ_MASK_SUMMARY;
const WORD kCanonicalNameSize = 256;

struct Outcome {
    NOTEID id = 0;
    std::string unid;
    std::string outcome;
    size_t bytes = 0;
    int attachments = 0;
};

struct Pass {
    DBHANDLE db = NULLHANDLE;
    std::string archive;
    std::string notesDir;
    std::map<NOTEID, std::vector<std::string>> foldersOf;
    std::map<NOTEID, std::string> indexLines;
    DXLEXPORTHANDLE exporter = NULLHANDLE;
    std::vector<unsigned char> dxl;
    std::vector<hyln::ArchivedNote> records;
    std::vector<Outcome> outcomes;
    size_t selected = 0;
    size_t unreadSkipped = 0;
};

// Write, flush, rename, flush the directory: the same system calls per file as hyln.
void writeDurably(const std::string& dir, const std::string& name, const void* data, size_t size)
{
    std::string target = dir + "/" + name;
    std::string partial = target + ".part";
    int file = open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool written = file >= 0;
    for (size_t done = 0; written && done < size;) {
        ssize_t step = write(file, static_cast<const char*>(data) + done, size - done);
        written = step > 0;
        done += written ? static_cast<size_t>(step) : 0;
    }
    written = written && fsync(file) == 0;
    if (file >= 0)
        written = close(file) == 0 && written;
    written = written && rename(partial.c_str(), target.c_str()) == 0;
    int directory = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory);
        close(directory);
    }
    if (!written)
        throw std::runtime_error("cannot write " + target);
}

void writeJson(const std::string& dir, const std::string& name, const nlohmann::json& value)
{
    std::string text = value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    writeDurably(dir, name, text.data(), text.size());
}

std::vector<NOTEID> selectNotes(Pass& pass)
{
    TIMEDATE since{};
    TIMEDATE until{};
    HY_TimeConstant(TIMEDATE_MINIMUM, &since);
    DHANDLE modified = NULLHANDLE;
    check(HY_NSFDbGetModifiedNoteTable(pass.db, NOTE_CLASS_DOCUMENT, since, &until, &modified),
          "NSFDbGetModifiedNoteTable");
    char info[NSF_INFO_SIZE] = {};
    check(HY_NSFDbInfoGet(pass.db, info), "NSFDbInfoGet");
    char title[NSF_INFO_SIZE] = {};
    HY_NSFDbInfoParse(info, INFOPARSE_TITLE, title, NSF_INFO_SIZE - 1);
    std::string owner = std::string(title) + "/";
    char canonical[kCanonicalNameSize] = {};
    WORD length = 0;
    check(HY_DNCanonicalize(0, nullptr, owner.c_str(), canonical, kCanonicalNameSize, &length), "DNCanonicalize");
    DHANDLE unread = NULLHANDLE;
    check(HY_NSFDbGetUnreadNoteTable(pass.db, canonical, static_cast<WORD>(std::strlen(canonical)), TRUE, &unread),
          "NSFDbGetUnreadNoteTable");
    std::vector<NOTEID> ids;
    DWORD id = 0;
    for (BOOL first = TRUE; HY_IDScan(modified, first, &id); first = FALSE) {
        if ((id & RRV_DELETED) != 0)
            continue;
        if (HY_IDIsPresent(unread, id))
            ++pass.unreadSkipped;
        else
            ids.push_back(id);
    }
    HY_IDDestroyTable(modified);
    HY_IDDestroyTable(unread);
    pass.selected = ids.size();
    return ids;
}

void gatherFolders(Pass& pass, const hyln::Options& options)
{
    std::vector<hyln::Folder> folders;
    if (hyln::readFolders(options, pass.db, folders) != hyln::kSuccess)
        throw std::runtime_error("reading the folders failed");
    for (const hyln::Folder& folder : folders)
        for (NOTEID member : folder.members)
            pass.foldersOf[member].push_back(hyln::unidText(folder.unid));
}

template <class T>
const unsigned char* take(const unsigned char* at, T& value)
{
    std::memcpy(&value, at, sizeof value);
    return at + sizeof value;
}

// One entry of a read buffer: its index line goes to the pass; returns the next entry.
const unsigned char* passEntry(HyLNView& view, const unsigned char* at, Pass& pass, std::vector<unsigned char>& summary)
{
    NOTEID id = 0;
    INDEXSPECIALINFO special{};
    at = take(at, id);
    at = take(at, special.IndexSiblings);
    at = take(at, special.IndexChildren);
    at = take(at, special.IndexDescendants);
    at = take(at, special.IndexAnyUnread);
    COLLECTIONPOSITION position{};
    WORD level = 0;
    std::memcpy(&level, at, sizeof level);
    size_t positionSize = 4 * (static_cast<size_t>(level) + 2);
    std::memcpy(&position, at, positionSize);
    at += positionSize;
    WORD summaryLength = 0;
    std::memcpy(&summaryLength, at, sizeof summaryLength);
    summary.assign(at, at + summaryLength);
    char line[1024] = {};
    view.AddEntryToNoteIndex(line, summary.data(), id, special, position, 0);
    pass.indexLines[id] = line;
    return at + summaryLength;
}

// The view's formats and index lines come from the library (real work there, no wrapper);
// the collection is read directly.
void gatherIndexLines(Pass& pass, HyLNDatabase& database)
{
    HyLNView view(database, std::string(kViewName));
    unsigned int viewId = 0;
    if (view.FindID(viewId).IsErrorSet() || view.GetCoulmnTitles(nullptr).IsErrorSet())
        throw std::runtime_error("reading the view's format failed");
    HCOLLECTION collection = 0;
    check(HY_NIFOpenCollection(pass.db, pass.db, viewId, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr,
                               nullptr),
          "NIFOpenCollection");
    COLLECTIONPOSITION position{};
    WORD signals = 0;
    std::vector<unsigned char> summary;
    do {
        DHANDLE buffer = NULLHANDLE;
        DWORD returned = 0;
        check(HY_NIFReadEntries(collection, &position, NAVIGATE_NEXT, 1, NAVIGATE_NEXT, 0xFFFFFFFF, kIndexReadMask,
                                &buffer, nullptr, nullptr, &returned, &signals),
              "NIFReadEntries");
        if (buffer == NULLHANDLE)
            break;
        const unsigned char* at = static_cast<const unsigned char*>(HY_OSLockObject(buffer));
        for (DWORD i = 0; i < returned; ++i)
            at = passEntry(view, at, pass, summary);
        HY_OSUnlockObject(buffer);
        HY_OSMemFree(buffer);
    } while ((signals & SIGNAL_MORE_TO_DO) != 0);
    check(HY_NIFCloseCollection(collection), "NIFCloseCollection");
}

void saveAcl(Pass& pass)
{
    DHANDLE acl = NULLHANDLE;
    check(HY_NSFDbReadACL(pass.db, &acl), "NSFDbReadACL");
    DWORD size = 0;
    HY_OSMemGetSize(acl, &size);
    writeDurably(pass.archive, "acl.bin", HY_OSLockObject(acl), size);
    HY_OSUnlockObject(acl);
    HY_OSMemFree(acl);
}

bool hasItem(NOTEHANDLE note, const char* name)
{
    return HY_NSFItemInfo(note, name, static_cast<WORD>(std::strlen(name)), nullptr, nullptr, nullptr, nullptr) ==
           NOERROR;
}

void deleteIfPresent(NOTEHANDLE note, const char* name)
{
    if (hasItem(note, name))
        check(HY_NSFItemDelete(note, name, static_cast<WORD>(std::strlen(name))), "NSFItemDelete");
}

void appendDxl(const BYTE* data, DWORD length, void* context)
{
    auto* out = static_cast<std::vector<unsigned char>*>(context);
    out->insert(out->end(), data, data + length);
}

// The attachment names, each ending in its zero byte, as the stub keeps them.
std::string attachmentNames(NOTEHANDLE note, int& count)
{
    std::string names;
    count = 0;
    BLOCKID item;
    char fileName[256] = {};
    for (WORD n = 0; HY_MailGetMessageAttachmentInfo(note, n, &item, fileName, nullptr, nullptr, nullptr, nullptr,
                                                     nullptr);
         ++n, ++count)
        names.append(fileName, std::strlen(fileName) + 1);
    return names;
}

void stub(NOTEHANDLE note, NOTEID id, const std::string& names)
{
    check(HY_NSFItemSetText(note, "AttachmentData", names.data(), static_cast<WORD>(names.size())), "NSFItemSetText");
    deleteIfPresent(note, "$FILE");
    deleteIfPresent(note, "Body");
    deleteIfPresent(note, "$Seal");
    deleteIfPresent(note, "$SealData");
    if (hasItem(note, "$FILE") || hasItem(note, "Body"))
        throw std::runtime_error("note " + noteIdText(id) + " still holds its attachments or body");
    std::string marker = noteIdText(id);
    check(HY_NSFItemSetText(note, hyln::kStubMarker, marker.data(), static_cast<WORD>(marker.size())),
          "NSFItemSetText");
    check(HY_NSFNoteUpdate(note, 0), "NSFNoteUpdate");
}

void archiveOpenNote(Pass& pass, NOTEHANDLE note, Outcome& outcome)
{
    ORIGINATORID created{};
    TIMEDATE modified{};
    TIMEDATE accessed{};
    HY_NSFNoteGetInfo(note, _NOTE_OID, &created);
    HY_NSFNoteGetInfo(note, _NOTE_MODIFIED, &modified);
    HY_NSFNoteGetInfo(note, _NOTE_ACCESSED, &accessed);
    std::string names = attachmentNames(note, outcome.attachments);
    pass.dxl.clear();
    check(HY_DXLExportNote(pass.exporter, appendDxl, note, &pass.dxl), "DXLExportNote");
    hyln::ArchivedNote record;
    record.unid = outcome.unid;
    record.noteId = outcome.id;
    record.folders = pass.foldersOf[outcome.id];
    record.indexLine = pass.indexLines[outcome.id];
    record.attachments = outcome.attachments;
    record.dxlBytes = pass.dxl.size();
    writeDurably(pass.notesDir, record.unid + ".xml", pass.dxl.data(), pass.dxl.size());
    writeJson(pass.notesDir, record.unid + ".json",
              {{"unid", record.unid},
               {"note_id", noteIdText(record.noteId)},
               {"folders", record.folders},
               {"index_line", record.indexLine},
               {"attachments", record.attachments},
               {"dxl_bytes", record.dxlBytes}});
    outcome.bytes = pass.dxl.size();
    stub(note, outcome.id, names);
    outcome.outcome = "archived";
    pass.records.push_back(std::move(record));
}

void archiveNote(Pass& pass, NOTEID id)
{
    Outcome outcome;
    outcome.id = id;
    NOTEHANDLE note = NULLHANDLE;
    check(HY_NSFNoteOpen(pass.db, id, 0, &note), "NSFNoteOpen");
    ORIGINATORID oid{};
    check(HY_NSFDbGetNoteInfo(pass.db, id, &oid, nullptr, nullptr), "NSFDbGetNoteInfo");
    outcome.unid = hyln::unidText(UNIVERSALNOTEID{oid.File, oid.Note});
    if (hasItem(note, hyln::kStubMarker))
        outcome.outcome = "already_stubbed";
    else
        archiveOpenNote(pass, note, outcome);
    HY_NSFNoteClose(note);
    pass.outcomes.push_back(outcome);
}

std::string isoTime(std::time_t when)
{
    char text[32];
    std::tm parts{};
    gmtime_r(&when, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

nlohmann::json manifest(const Pass& pass, const hyln::Options& options, std::time_t started)
{
    nlohmann::json notes = nlohmann::json::array();
    size_t archived = 0;
    size_t dxlBytes = 0;
    for (const Outcome& outcome : pass.outcomes) {
        archived += outcome.outcome == "archived" ? 1 : 0;
        dxlBytes += outcome.bytes;
        notes.push_back({{"note_id", noteIdText(outcome.id)},
                         {"unid", outcome.unid},
                         {"outcome", outcome.outcome},
                         {"bytes", outcome.bytes},
                         {"attachments", outcome.attachments},
                         {"message", ""}});
    }
    std::time_t finished = std::time(nullptr);
    return {{"database", options.database},
            {"runtime", hyln::readVersionStamp(options.dominoDir + "/notes/latest/linux/libnotes.so")},
            {"started", isoTime(started)},
            {"finished", isoTime(finished)},
            {"seconds", static_cast<long>(finished - started)},
            {"since", ""},
            {"older_than_seconds", 0},
            {"folders", ""},
            {"folder_mode", "include"},
            {"counts",
             {{"selected", pass.selected},
              {"unread_skipped", pass.unreadSkipped},
              {"folder_removed", 0},
              {"archived", archived},
              {"already_stubbed", pass.outcomes.size() - archived},
              {"too_recent", 0},
              {"failed", 0}}},
            {"dxl_bytes", dxlBytes},
            {"interrupted", false},
            {"notes", notes}};
}

void finish(Pass& pass, const hyln::Options& options, std::time_t started)
{
    std::sort(pass.records.begin(), pass.records.end(),
              [](const hyln::ArchivedNote& a, const hyln::ArchivedNote& b) { return a.unid < b.unid; });
    std::vector<unsigned char> folders = hyln::folderInformation(pass.records, HY_ODSLength(_UNIVERSALNOTEID));
    writeDurably(pass.archive, "folders.bin", folders.data(), folders.size());
    writeJson(pass.archive, "manifest.json", manifest(pass, options, started));
}

void archive(const hyln::Options& options)
{
    std::time_t started = std::time(nullptr);
    HyLNDatabase database(options.database, "");
    if (database.Open().IsErrorSet())
        throw std::runtime_error("cannot open " + options.database);
    Pass pass;
    pass.db = database.GetHandle();
    std::vector<NOTEID> ids = selectNotes(pass);
    pass.archive = hyln::archiveDirOf(options.outDir, options.database).string();
    pass.notesDir = pass.archive + "/notes";
    fs::create_directories(pass.notesDir);
    gatherFolders(pass, options);
    gatherIndexLines(pass, database);
    saveAcl(pass);
    check(HY_DXLCreateExporter(&pass.exporter), "DXLCreateExporter");
    for (NOTEID id : ids)
        archiveNote(pass, id);
    HY_DXLDeleteExporter(pass.exporter);
    finish(pass, options, started);
}

} // namespace plain

// ---- Running and timing ----

hyln::Options passOptions(const RunDirs& dirs)
{
    hyln::Options options;
    options.dominoDir = HYLN_TEST_DOMINO_DIR;
    options.dataDir = dirs.data.string();
    options.database = mailFile();
    options.outDir = dirs.archive.string();
    options.viewName = kViewName;
    return options;
}

// The runtime as a plain host starts it; the arguments stay alive while it runs.
class PlainRuntime {
public:
    explicit PlainRuntime(const hyln::Options& options)
        : program(options.dominoDir), ini("=" + options.dataDir + "/notes.ini")
    {
        char* argv[] = {program.data(), ini.data(), nullptr};
        if (!loadNotesFunctions(program) || HY_NotesInitExtended(2, argv) != NOERROR)
            throw std::runtime_error("cannot start the runtime on " + options.dataDir);
    }
    ~PlainRuntime() { HY_NotesTerm(); }

private:
    std::string program;
    std::string ini;
};

struct RunResult {
    double seconds = 0;
    double cpuSeconds = 0;
    size_t archived = 0;
    size_t dxlBytes = 0;
};

RunResult resultOf(const hyln::Options& options, std::pair<double, double> seconds)
{
    std::ifstream file(hyln::archiveDirOf(options.outDir, options.database) / "manifest.json");
    nlohmann::json manifest = nlohmann::json::parse(file);
    RunResult result{seconds.first, seconds.second, manifest["counts"]["archived"].get<size_t>(), manifest["dxl_bytes"].get<size_t>()};
    if (result.archived != kExpectedArchived)
        throw std::runtime_error("the pass archived " + std::to_string(result.archived) + " notes");
    return result;
}

double processCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Wall-clock and CPU seconds of `body`. The CPU time of the process (the runtime runs in it)
// is less disturbed by other work on the machine than the wall clock.
template <class Body>
std::pair<double, double> timed(Body body)
{
    double cpuStart = processCpuSeconds();
    auto start = std::chrono::steady_clock::now();
    body();
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return {wall, processCpuSeconds() - cpuStart};
}

struct Comparison {
    std::string fingerprint; // of the mail file after the last hyln run
    fs::path archive;
};

Comparison& lastHylnRun()
{
    static Comparison last;
    return last;
}

std::map<std::string, std::vector<RunResult>>& results()
{
    static std::map<std::string, std::vector<RunResult>> all;
    return all;
}

RunResult runHyln()
{
    RunDirs dirs = freshCopy("hyln");
    hyln::Options options = passOptions(dirs);
    hyln::Runtime runtime;
    if (runtime.start(options) != hyln::kSuccess)
        throw std::runtime_error("cannot start the runtime on " + options.dataDir);
    int exitCode = hyln::kSuccess;
    std::pair<double, double> seconds = timed([&] { exitCode = hyln::archiveIn(options, runtime); });
    if (exitCode != hyln::kSuccess)
        throw std::runtime_error("hyln's pass ended with exit code " + std::to_string(exitCode));
    lastHylnRun() = {databaseFingerprint(options.database), hyln::archiveDirOf(options.outDir, options.database)};
    return resultOf(options, seconds);
}

// Compares with the hyln run before it, then both runs' directories go.
void compareWithHyln(const std::string& fingerprint, const fs::path& archive)
{
    Comparison& hyln = lastHylnRun();
    if (hyln.archive.empty())
        return;
    if (fingerprint != hyln.fingerprint)
        throw std::runtime_error("the two passes left different notes in the mail file");
    std::string difference = archiveDifference(hyln.archive, archive);
    if (!difference.empty())
        throw std::runtime_error("the two archives differ: " + difference);
    hyln = Comparison{};
    for (const char* name : {"hyln-data", "hyln-archive", "plain-data", "plain-archive"})
        fs::remove_all(benchRoot() / name);
}

RunResult runPlain()
{
    RunDirs dirs = freshCopy("plain");
    hyln::Options options = passOptions(dirs);
    std::string fingerprint;
    std::pair<double, double> seconds;
    {
        PlainRuntime runtime(options);
        seconds = timed([&] { plain::archive(options); });
        fingerprint = databaseFingerprint(options.database);
    }
    RunResult result = resultOf(options, seconds);
    compareWithHyln(fingerprint, hyln::archiveDirOf(options.outDir, options.database));
    return result;
}

void runPass(benchmark::State& state, const char* name, RunResult (*run)())
{
    for (auto _ : state) {
        try {
            RunResult result = run();
            state.SetIterationTime(result.seconds);
            results()[name].push_back(result);
            state.counters["notes"] = static_cast<double>(result.archived);
            state.counters["cpu_s"] = result.cpuSeconds;
            state.counters["notes_per_s"] = static_cast<double>(result.archived) / result.seconds;
            state.counters["MB_per_s"] = static_cast<double>(result.dxlBytes) / 1e6 / result.seconds;
        } catch (const std::exception& failure) {
            state.SkipWithError(failure.what());
            break;
        }
    }
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

struct Medians {
    double seconds;
    double cpuSeconds;
    double notesPerSecond;
    double megabytesPerSecond;
};

Medians mediansOf(const std::vector<RunResult>& runs)
{
    std::vector<double> seconds;
    std::vector<double> cpu;
    std::vector<double> notes;
    std::vector<double> megabytes;
    for (const RunResult& run : runs) {
        seconds.push_back(run.seconds);
        cpu.push_back(run.cpuSeconds);
        notes.push_back(static_cast<double>(run.archived) / run.seconds);
        megabytes.push_back(static_cast<double>(run.dxlBytes) / 1e6 / run.seconds);
    }
    return {median(seconds), median(cpu), median(notes), median(megabytes)};
}

void printMedians()
{
    auto& all = results();
    for (const auto& [name, runs] : all) {
        Medians m = mediansOf(runs);
        std::printf("%-24s median of %zu runs: %.3f s (%.3f s CPU), %.0f notes/s, %.2f MB/s of DXL\n", name.c_str(),
                    runs.size(), m.seconds, m.cpuSeconds, m.notesPerSecond, m.megabytesPerSecond);
    }
    auto hyln = all.find("BM_ArchivePass_Hyln");
    auto plainRuns = all.find("BM_ArchivePass_PlainApi");
    if (hyln == all.end() || plainRuns == all.end())
        return;
    Medians h = mediansOf(hyln->second);
    Medians p = mediansOf(plainRuns->second);
    std::printf("hyln/plain ratio of the medians: %.3f (CPU: %.3f)\n", h.seconds / p.seconds, h.cpuSeconds / p.cpuSeconds);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    // hyln's own callbacks, with its log lines kept but not shown (as --log-level -1), and
    // its records and summary not printed: the terminal is not what is measured.
    hyln::installCallbacks();
    hyln::host().maxLogLevel = -1;
    hyln::OutputMode quiet;
    quiet.quiet = true;
    hyln::output().setMode(quiet);
    hyln::output().showRecords(false);
    try {
        seedOnce();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    for (int i = 0; i < repetitions(); ++i) {
        benchmark::RegisterBenchmark("BM_ArchivePass_Hyln", runPass, "BM_ArchivePass_Hyln", runHyln)
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_ArchivePass_PlainApi", runPass, "BM_ArchivePass_PlainApi", runPlain)
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printMedians();
    return 0;
}
