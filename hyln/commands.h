// hyln's jobs, each as a backup agent would run it through the library.
#ifndef HYLN_COMMANDS_H
#define HYLN_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

#include "HYLNTool.h"

namespace hyln {

// Exit codes of every command.
enum ExitCode { kSuccess = 0, kFailure = 1, kUsage = 2, kInterrupted = 130 };

struct Options {
    std::string dominoDir;
    std::string dataDir;
    std::string iniPath; // empty: DATA/notes.ini
    std::string server;
    std::string seeder;  // the demo's seeding program
    bool quick = false;
    bool fullName = false;
    bool listOnly = false;
    std::string directory;   // discover databases: the directory to scan (default: data directory)
    std::string directories; // discover additional: "DIR1?DIR2"
    std::string database;    // export, stub: the database path
    std::vector<std::string> noteIds; // export, stub: note IDs (decimal or 0x hex)
    bool allNotes = false;   // export: every data note of the database
    std::string outDir;      // export: where the DXL files go
    bool fileMode = false;   // export: the exporter writes the file itself (else through memory)
    std::string viewName;    // index: the view or folder (title or alias)
    std::string since;       // select: modified after this time (runtime date text; empty: ever)
    std::string folders;     // select: folder names separated by ';'
    unsigned long folderMode = 0; // select: 1 only notes in the folders, 2 notes not in them
    std::string owner;       // select: the mailbox owner (default: the database title)
    bool allMailboxes = false;            // archive: every mail file instead of one database
    unsigned long olderThanSeconds = 0;   // archive: only notes at least this old
    bool deleteArchived = false;          // archive: delete each archived note instead of stubbing it
    std::string fromDir;     // restore, verify: the archive directory given with --out
    bool withAcl = false;    // restore: the ACL too
};

// Reports a failure that has no Domino status: `what` failed for `subject` because of `why`.
int failWith(const std::string& what, const std::string& subject, const std::string& why);

int discoverMailboxes(const Options& options);
int discoverDatabases(const Options& options);
int discoverAdditional(const Options& options);
int runDemo(Options options);
int exportNotes(const Options& options);
int stubNotes(const Options& options);
int listViews(const Options& options);
int indexView(const Options& options);
int selectNotes(const Options& options);
int archivePass(const Options& options);
int restoreArchive(const Options& options);
int verifyArchive(const Options& options);
int archiveTransactionLogs(const Options& options);

// The runtime, started for one command and stopped when it ends.
class Runtime {
public:
    ~Runtime();
    int start(const Options& options);
    HyLNInstance& getInstance() { return instance; }

private:
    HyLNInstance instance;
    bool started = false;
};

// The mail files that discovery reports (external and duplicate entries left out).
int listMailFiles(const Options& options, std::vector<std::string>& paths);

// The pass's jobs inside a runtime that is already started (the demo runs them in one).
int archiveIn(const Options& options, Runtime& runtime);
int restoreIn(const Options& options, Runtime& runtime);
int verifyIn(const Options& options, Runtime& runtime);

// Reports a Domino failure: `what` failed for `subject` with the status's code and text.
int fail(HyLNError status, const std::string& what, const std::string& subject);

// The job's database. A failed close keeps the handle, and the destructors of the
// library's objects try once more: closing explicitly first gives every handle two chances.
class OpenDatabase {
public:
    ~OpenDatabase();
    int open(const Options& options, Runtime& runtime);
    DBHANDLE handle() { return database.GetHandle(); }
    HyLNDatabase& get() { return database; }

private:
    HyLNDatabase database;
};

// Starts the runtime, runs `job` in it, and stops it.
int withRuntime(const Options& options, const std::function<int(Runtime&)>& job);

// The runtime and the one database of a job; the database closes before the runtime stops.
struct DatabaseJob {
    Runtime runtime;
    OpenDatabase database;

    int open(const Options& options);
};

// "0x" and eight hex digits.
std::string noteIdText(NOTEID id);

} // namespace hyln

#endif
