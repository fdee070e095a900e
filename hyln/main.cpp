// hyln: drives the library the way a backup agent does.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "HYLNTool.h"
#include "host_callbacks.h"
#include "records.h"

namespace {

const char kUsage[] =
    "usage: hyln [options] COMMAND\n"
    "commands:\n"
    "  discover mailboxes [--quick] [--full-name]   report every user's mail file\n"
    "  discover databases [DIR]                     list the databases of the data directory (or DIR)\n"
    "  discover additional \"DIR1?DIR2\" [--list]     report (or list) the databases of scan directories\n"
    "  demo                                         seed a sample server if missing, then discover\n"
    "options (environment variable in brackets):\n"
    "  --domino DIR    Domino program directory holding notes/latest/linux/libnotes.so [HYLN_DOMINO_DIR]\n"
    "  --data DIR      Domino data directory [HYLN_DATA_DIR]\n"
    "  --ini PATH      notes.ini (default DATA/notes.ini) [HYLN_NOTES_INI]\n"
    "  --server NAME   Domino server to ask (default: local) [HYLN_SERVER]\n"
    "  --json          print records as JSON lines\n"
    "  --log-level N   show log lines up to level N (default 0; -1 errors only)\n";

struct Options {
    std::string dominoDir;
    std::string dataDir;
    std::string iniPath;
    std::string server;
    bool json = false;
    bool quick = false;
    bool fullName = false;
    bool listOnly = false;
    std::vector<std::string> words;
};

std::string fromEnvironment(const char* name, const std::string& fallback)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

bool parseOptions(int argc, char** argv, Options& options)
{
    options.dominoDir = fromEnvironment("HYLN_DOMINO_DIR", HYLN_DEFAULT_DOMINO_DIR);
    options.dataDir = fromEnvironment("HYLN_DATA_DIR", HYLN_DEFAULT_SERVER_DIR);
    options.iniPath = fromEnvironment("HYLN_NOTES_INI", "");
    options.server = fromEnvironment("HYLN_SERVER", "");
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        bool hasValue = i + 1 < argc;
        if (word == "--domino" && hasValue)
            options.dominoDir = argv[++i];
        else if (word == "--data" && hasValue)
            options.dataDir = argv[++i];
        else if (word == "--ini" && hasValue)
            options.iniPath = argv[++i];
        else if (word == "--server" && hasValue)
            options.server = argv[++i];
        else if (word == "--log-level" && hasValue)
            hyln::host().maxLogLevel = std::atoi(argv[++i]);
        else if (word == "--json")
            options.json = true;
        else if (word == "--quick")
            options.quick = true;
        else if (word == "--full-name")
            options.fullName = true;
        else if (word == "--list")
            options.listOnly = true;
        else if (word.rfind("--", 0) == 0)
            return false;
        else
            options.words.push_back(word);
    }
    if (options.iniPath.empty())
        options.iniPath = options.dataDir + "/notes.ini";
    return !options.words.empty();
}

int fail(const HyLNError& status, const char* what)
{
    HyLNError copy = status;
    std::fprintf(stderr, "hyln: %s failed: Domino code %u: %s\n", what, copy.GetErrorCode(), copy.GetMessage().c_str());
    return 1;
}

int startRuntime(const Options& options, HyLNInstance& instance)
{
    instance = HyLNInstance("hyln\x12" + options.dataDir, options.server);
    if (!instance.Initialize()) {
        std::fprintf(stderr, "hyln: cannot derive the instance paths from %s\n", options.dataDir.c_str());
        return 1;
    }
    instance.SetExePath(options.dominoDir);
    HyLNError status = instance.InitializeNotesEnvForUnix(options.dominoDir, "=" + options.iniPath);
    return status.IsErrorSet() ? fail(status, "starting the Domino runtime") : 0;
}

void printRecords(const Options& options)
{
    for (const std::string& record : hyln::host().records)
        std::printf("%s\n", options.json ? hyln::jsonRecord(record).c_str() : hyln::readableRecord(record).c_str());
    hyln::host().records.clear();
}

size_t countLogs(const char* prefix)
{
    size_t count = 0;
    for (const std::string& text : hyln::host().logTexts)
        count += text.rfind(prefix, 0) == 0 ? 1 : 0;
    return count;
}

long foundEntries()
{
    for (const std::string& text : hyln::host().logTexts)
        if (text.rfind("Found [", 0) == 0)
            return std::atol(text.c_str() + 7);
    return 0;
}

void printMailboxSummary(size_t reported)
{
    std::fflush(stdout);
    size_t noMailFile = countLogs("Warning: found a mail file equal to NULL");
    size_t notText = countLogs("Warning: unrecognized data type");
    size_t external = countLogs("Filtering non-linked, external mailbox");
    size_t failed = countLogs("Database [");
    long found = foundEntries();
    long duplicates = found - static_cast<long>(reported + noMailFile + notText + external + failed);
    std::fprintf(stderr,
                 "\nfound %ld directory entries, reported %zu databases; skipped: %zu without a mail file, %zu with "
                 "a mail file that is not text, %zu external mailboxes, %zu that failed, %ld duplicates%s\n",
                 found, reported, noMailFile, notText, external, failed, duplicates < 0 ? 0 : duplicates,
                 hyln::interrupted() ? " (interrupted)" : "");
}

int discoverMailboxes(const Options& options)
{
    MailboxLookupStruct lookup;
    HyLNUtilities::InitializeMBLookup(lookup, options.fullName);
    std::set<std::string> reported;
    hyln::host().progress = true;
    HyLNError status = HyLNUtilities::DiscoverMailboxes(options.server, &reported, lookup, options.quick);
    size_t count = hyln::host().records.size();
    printRecords(options);
    printMailboxSummary(count);
    // The result is the last entry's status; failures of single entries are in the summary.
    if (status.IsErrorSet() && count == 0)
        return fail(status, "mailbox discovery");
    return 0;
}

unsigned short collectPath(void* context, SEARCH_MATCH*, ITEM_TABLE* summary)
{
    std::string path;
    if (HyLNUtilities::GetSummaryValue(summary, "$Path", path))
        static_cast<std::set<std::string>*>(context)->insert(path);
    return 0;
}

int discoverDatabases(const Options& options, const std::string& directory)
{
    std::set<std::string> databases;
    HyLNError status = HyLNUtilities::DiscoverDatabases(directory, &databases, collectPath);
    if (status.IsErrorSet())
        return fail(status, "database discovery");
    for (const std::string& path : databases)
        std::printf("%s\n", options.json ? ("{\"path\":" + hyln::jsonString(path) + "}").c_str() : path.c_str());
    std::fflush(stdout);
    std::fprintf(stderr, "\nfound %zu databases in %s\n", databases.size(), directory.c_str());
    return 0;
}

int discoverAdditional(const Options& options, std::string directories)
{
    std::set<std::string> databases;
    if (!HyLNUtilities::GetAdditionalDatabases(&databases, &directories, !options.listOnly, options.quick)) {
        std::fprintf(stderr, "hyln: scanning %s failed (see the log above)\n", directories.c_str());
        return 1;
    }
    if (options.listOnly)
        for (const std::string& name : databases)
            std::printf("%s\n", options.json ? ("{\"name\":" + hyln::jsonString(name) + "}").c_str() : name.c_str());
    else
        printRecords(options);
    std::fflush(stdout);
    std::fprintf(stderr, "\nfound %zu databases in %s\n", databases.size(), directories.c_str());
    return 0;
}

bool fileExists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

int seedSampleServer(const std::string& dataDir)
{
    std::string command = std::string("'") + HYLN_DEFAULT_SEEDER + "' --dir '" + dataDir +
                          "' --users 25 --messages 20 --attachment-size 4096 --seed 7 --extra-dirs 2";
    std::fprintf(stderr, "creating a sample server in %s\n", dataDir.c_str());
    return std::system(command.c_str()) == 0 ? 0 : 1;
}

int runDemo(Options& options)
{
    if (!fileExists(options.dataDir + "/names.nsf") && seedSampleServer(options.dataDir) != 0) {
        std::fprintf(stderr, "hyln: the seeding tool failed\n");
        return 1;
    }
    HyLNInstance instance;
    if (int failed = startRuntime(options, instance))
        return failed;
    std::printf("== Mailboxes of the server (full records, owner names from the directory)\n");
    options.fullName = true;
    if (int failed = discoverMailboxes(options))
        return failed;
    std::printf("\n== Databases of the data directory\n");
    if (int failed = discoverDatabases(options, options.dataDir))
        return failed;
    std::printf("\n== Additional scan directories\n");
    int result = discoverAdditional(options, options.dataDir + "/extra1?" + options.dataDir + "/extra2");
    instance.TerminateNotes();
    return result;
}

int runCommand(Options& options)
{
    const std::vector<std::string>& words = options.words;
    if (words[0] == "demo")
        return runDemo(options);
    if (words[0] != "discover" || words.size() < 2)
        return -1;
    HyLNInstance instance;
    if (int failed = startRuntime(options, instance))
        return failed;
    int result = -1;
    if (words[1] == "mailboxes")
        result = discoverMailboxes(options);
    else if (words[1] == "databases")
        result = discoverDatabases(options, words.size() > 2 ? words[2] : options.dataDir);
    else if (words[1] == "additional" && words.size() > 2)
        result = discoverAdditional(options, words[2]);
    instance.TerminateNotes();
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    hyln::installCallbacks();
    if (!parseOptions(argc, argv, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    int result = runCommand(options);
    if (result < 0) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    return result;
}
