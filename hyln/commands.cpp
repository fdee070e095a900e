#include "commands.h"

#include <sys/stat.h>

#include <set>
#include <vector>

#include "HYLNTool.h"
#include "host_callbacks.h"
#include "output.h"
#include "spawn.h"

namespace hyln {
namespace {

// Any non-zero status ends a search; this one stands for "the user pressed Ctrl-C".
const unsigned short kSearchInterrupted = 1;

std::string iniPathOf(const Options& options)
{
    return options.iniPath.empty() ? options.dataDir + "/notes.ini" : options.iniPath;
}

} // namespace

int fail(HyLNError status, const std::string& what, const std::string& subject)
{
    unsigned short code = status.GetErrorCode();
    std::string text = status.GetMessage();
    if (text.empty())
        text = "(the runtime has no text for this code)";
    output().failure(what + " failed for " + subject + ": Domino code " + std::to_string(code) + ": " + text,
                     {{"operation", what}, {"subject", subject}, {"code", code}, {"message", text}});
    return kFailure;
}

int failWith(const std::string& what, const std::string& subject, const std::string& why)
{
    output().failure(what + " failed for " + subject + ": " + why,
                     {{"operation", what}, {"subject", subject}, {"message", why}});
    return kFailure;
}

int listMailFiles(const Options& options, std::vector<std::string>& paths)
{
    MailboxLookupStruct lookup;
    HyLNUtilities::InitializeMBLookup(lookup, false);
    std::set<std::string> reported;
    std::vector<std::string> records;
    host().messages = &records;
    HyLNError status = HyLNUtilities::DiscoverMailboxes(options.server, &reported, lookup, true);
    host().messages = nullptr;
    if (status.IsErrorSet() && records.empty() && !interrupted())
        return fail(status, "mailbox discovery", options.server.empty() ? "the local server" : options.server);
    for (const std::string& record : records)
        paths.push_back(record.substr(0, record.find('\x12')));
    return kSuccess;
}

OpenDatabase::~OpenDatabase()
{
    try {
        database.Close();
    } catch (...) {
        // The runtime's exception ends nothing more than this close; the destructor tries again.
    }
}

int OpenDatabase::open(const Options& options, Runtime& runtime)
{
    database = HyLNDatabase(options.database, runtime.getInstance());
    HyLNError status = database.Open();
    return status.IsErrorSet() ? fail(status, "opening the database", options.database) : kSuccess;
}

int withRuntime(const Options& options, const std::function<int(Runtime&)>& job)
{
    Runtime runtime;
    if (int failed = runtime.start(options))
        return failed;
    return job(runtime);
}

int DatabaseJob::open(const Options& options)
{
    if (int failed = runtime.start(options))
        return failed;
    return database.open(options, runtime);
}

std::string noteIdText(NOTEID id)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", id);
    return text;
}

namespace {

// The runtime takes its paths in 1024-byte buffers; longer ones are refused before anything starts.
int checkPathLengths(const Options& options)
{
    const size_t kLongestPath = 1023;
    for (const std::string& path : {options.dominoDir, "=" + iniPathOf(options), options.dataDir + "/notes.ini"})
        if (path.size() > kLongestPath)
            return failWith("starting the Domino runtime", path,
                            "the path is " + std::to_string(path.size()) + " bytes long, longer than " +
                                std::to_string(kLongestPath));
    return kSuccess;
}

int finish(int result)
{
    return interrupted() ? kInterrupted : result;
}

long foundEntries()
{
    for (const std::string& text : host().logTexts)
        if (text.rfind("Found [", 0) == 0)
            return std::atol(text.c_str() + 7);
    return 0;
}

void summarizeMailboxes(size_t reported)
{
    size_t noMailFile = countLogs("Warning: found a mail file equal to NULL");
    size_t notText = countLogs("Warning: unrecognized data type");
    size_t external = countLogs("Filtering non-linked, external mailbox");
    size_t failed = countLogs("Database [");
    long found = foundEntries();
    long duplicates = found - static_cast<long>(reported + noMailFile + notText + external + failed);
    if (duplicates < 0)
        duplicates = 0;
    char text[512];
    std::snprintf(text, sizeof text,
                  "\nfound %ld directory entries, reported %zu databases; skipped: %zu without a mail file, %zu "
                  "with a mail file that is not text, %zu external mailboxes, %zu that failed, %ld duplicates%s",
                  found, reported, noMailFile, notText, external, failed, duplicates,
                  interrupted() ? " (interrupted)" : "");
    output().summary(text, {{"databases", reported},
                            {"entries", found},
                            {"skipped",
                             {{"without_mail_file", noMailFile},
                              {"mail_file_not_text", notText},
                              {"external", external},
                              {"failed", failed},
                              {"duplicates", duplicates}}},
                            {"interrupted", interrupted()}});
}

int mailboxes(const Options& options)
{
    output().setCommand("discover mailboxes");
    host().logTexts.clear();
    MailboxLookupStruct lookup;
    HyLNUtilities::InitializeMBLookup(lookup, options.fullName);
    std::set<std::string> reported;
    size_t before = host().recordsReceived;
    HyLNError status = HyLNUtilities::DiscoverMailboxes(options.server, &reported, lookup, options.quick);
    size_t count = host().recordsReceived - before;
    summarizeMailboxes(count);
    // The result is the last entry's status; failures of single entries are in the summary.
    if (status.IsErrorSet() && count == 0 && !interrupted())
        return fail(status, "mailbox discovery", options.server.empty() ? "the local server" : options.server);
    return finish(kSuccess);
}

unsigned short collectPath(void* context, SEARCH_MATCH*, ITEM_TABLE* summary)
{
    if (interrupted())
        return kSearchInterrupted;
    std::string path;
    if (HyLNUtilities::GetSummaryValue(summary, "$Path", path)) {
        auto& paths = *static_cast<std::set<std::string>*>(context);
        if (paths.insert(path).second)
            output().progress(paths.size(), "databases found");
    }
    return 0;
}

int databases(const Options& options)
{
    output().setCommand("discover databases");
    std::string directory = options.directory.empty() ? options.dataDir : options.directory;
    std::set<std::string> paths;
    HyLNError status = HyLNUtilities::DiscoverDatabases(directory, &paths, collectPath);
    if (status.IsErrorSet() && !interrupted())
        return fail(status, "database discovery", directory);
    for (const std::string& path : paths)
        output().record(path, {{"path", path}});
    output().summary("\nfound " + std::to_string(paths.size()) + " databases in " + directory +
                         (interrupted() ? " (interrupted)" : ""),
                     {{"databases", paths.size()}, {"directory", directory}, {"interrupted", interrupted()}});
    return finish(kSuccess);
}

int additional(const Options& options)
{
    output().setCommand("discover additional");
    std::set<std::string> names;
    std::string directories = options.directories;
    size_t before = host().recordsReceived;
    size_t logsBefore = host().logTexts.size();
    if (!HyLNUtilities::GetAdditionalDatabases(&names, &directories, !options.listOnly, options.quick)) {
        // The library answers only false; its last line says which call failed with which status.
        bool logged = host().logTexts.size() > logsBefore;
        return failWith("scanning additional directories", options.directories,
                        logged ? host().logTexts.back() : "the library gave no reason");
    }
    if (options.listOnly)
        for (const std::string& name : names)
            output().record(name, {{"path", name}});
    size_t count = options.listOnly ? names.size() : host().recordsReceived - before;
    output().summary("\nfound " + std::to_string(count) + " databases in " + options.directories +
                         (interrupted() ? " (interrupted)" : ""),
                     {{"databases", count}, {"directory", options.directories}, {"interrupted", interrupted()}});
    return finish(kSuccess);
}

bool fileExists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

int seedSampleServer(const Options& options)
{
    std::fprintf(stderr, "creating a sample server in %s\n", options.dataDir.c_str());
    std::vector<std::string> arguments = {options.seeder, "--dir",          options.dataDir, "--users",
                                          "25",           "--messages",     "20",            "--attachment-size",
                                          "4096",         "--seed",         "7",             "--extra-dirs",
                                          "2"};
    std::string error;
    int exitCode = runProgram(arguments, error);
    if (exitCode == 0)
        return kSuccess;
    if (interrupted())
        return kInterrupted;
    if (exitCode < 0)
        return failWith("seeding the sample server", options.dataDir, error);
    return failWith("seeding the sample server", options.dataDir,
                    options.seeder + " ended with exit code " + std::to_string(exitCode));
}

// Archive, restore and verify one mail file; the per-note records stay out of the way.
int demoPass(Options options, Runtime& runtime)
{
    std::vector<std::string> mailFiles;
    if (int failed = listMailFiles(options, mailFiles))
        return failed;
    options.database = mailFiles.empty() ? "" : mailFiles.front();
    if (options.database.empty())
        return failWith("choosing a mail file for the pass", options.dataDir, "the server has no mail file");
    options.outDir = options.fromDir = options.dataDir + "-archive";
    options.viewName = "($All)";
    output().showRecords(false);
    output().heading("\n== Archive pass over " + options.database + " into " + options.outDir);
    output().setCommand("archive");
    int result = archiveIn(options, runtime);
    if (result == kSuccess) {
        output().heading("\n== Restore of " + options.database + " from its archive");
        output().setCommand("restore");
        result = restoreIn(options, runtime);
    }
    if (result == kSuccess) {
        output().heading("\n== Verification of " + options.database + " against its archive");
        output().setCommand("verify");
        result = verifyIn(options, runtime);
    }
    output().showRecords(true);
    output().heading("\n== Summary");
    for (const std::string& text : output().summaryTexts())
        output().heading("  " + text);
    return result;
}

} // namespace

Runtime::~Runtime()
{
    if (!started)
        return;
    try {
        instance.TerminateNotes();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "hyln: stopping the Domino runtime failed: %s\n", failure.what());
    } catch (...) {
        std::fprintf(stderr, "hyln: stopping the Domino runtime failed with an unknown exception\n");
    }
}

int Runtime::start(const Options& options)
{
    if (options.dataDir.empty())
        return failWith("starting the Domino runtime", "the data directory",
                        "no data directory given (--data or HYLN_DATA_DIR)");
    if (int failed = checkPathLengths(options))
        return failed;
    instance = HyLNInstance("hyln\x12" + options.dataDir, options.server);
    if (!instance.Initialize())
        return failWith("starting the Domino runtime", options.dataDir, "the data directory is not usable");
    instance.SetExePath(options.dominoDir);
    std::string ini = iniPathOf(options);
    HyLNError status = instance.InitializeNotesEnvForUnix(options.dominoDir, "=" + ini);
    if (status.IsErrorSet()) {
        // The loader's own lines end without a line break.
        std::fputc('\n', stderr);
        return fail(status, "starting the Domino runtime", options.dominoDir + " with " + ini);
    }
    started = true;
    return kSuccess;
}

int discoverMailboxes(const Options& options)
{
    return withRuntime(options, [&](Runtime&) { return mailboxes(options); });
}

int discoverDatabases(const Options& options)
{
    return withRuntime(options, [&](Runtime&) { return databases(options); });
}

int discoverAdditional(const Options& options)
{
    return withRuntime(options, [&](Runtime&) { return additional(options); });
}

int runDemo(Options options)
{
    output().setCommand("demo");
    if (!fileExists(options.dataDir + "/names.nsf")) {
        if (int failed = seedSampleServer(options))
            return failed;
    }
    Runtime runtime;
    if (int failed = runtime.start(options))
        return failed;
    output().heading("== Mailboxes of the server (full records, owner names from the directory)");
    options.fullName = true;
    int result = mailboxes(options);
    if (result != kSuccess)
        return result;
    output().heading("\n== Databases of the data directory");
    if ((result = databases(options)) != kSuccess)
        return result;
    output().heading("\n== Additional scan directories");
    options.directories = options.dataDir + "/extra1?" + options.dataDir + "/extra2";
    if ((result = additional(options)) != kSuccess)
        return result;
    return demoPass(options, runtime);
}

} // namespace hyln
