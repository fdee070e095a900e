// NSFSearch over a directory: the file system is walked (each directory once, however
// many symbolic links lead to it), every file whose extension fits the FILE_xxx type
// is reported, sorted by path, and each database is opened briefly for its identity,
// replica ID and information buffer.
#include "dirsearch.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>
#include <vector>

#include "paths.h"
#include "sim_core.h"
#include "summary.h"
#include "timedate.h"
#include "translate.h"

namespace fs = std::filesystem;

namespace {

struct Entry {
    std::string path;     // absolute
    std::string relative; // to the searched directory, for the order
    bool directory = false;
};

// The FILE_xxx types the simulation knows (not link files, full-text or other special types).
bool knownFileType(WORD type)
{
    return type <= FILE_FTANY || type == FILE_DIRSONLY || type == FILE_ANYNOTEFILE;
}

// Which files a known FILE_xxx type selects, by extension.
bool fileTypeSelects(WORD type, std::string extension)
{
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    bool threeLetters = extension.size() == 4;
    bool database = threeLetters && extension.compare(0, 3, ".ns") == 0;
    bool templateFile = threeLetters && extension.compare(0, 3, ".nt") == 0;
    bool mailbox = extension == ".box";
    switch (type) {
    case FILE_ANY: return true;
    case FILE_DBREPL: return database;
    case FILE_DBDESIGN: return database || templateFile;
    case FILE_MAILBOX: return mailbox;
    case FILE_DBANY: return extension == ".nsf" || extension == ".nsg" || extension == ".nsh";
    case FILE_FTANY: return extension == ".ntf";
    case FILE_ANYNOTEFILE: return database || templateFile || mailbox;
    default: return false;
    }
}

bool reportsDirectories(WORD mask)
{
    WORD type = mask & FILE_TYPEMASK;
    return (mask & FILE_DIRS) || type == FILE_ANY || type == FILE_DIRSONLY;
}

// A directory by device and inode: the same directory reached again through a
// symbolic link has the same identity.
using DirectoryId = std::pair<dev_t, ino_t>;

bool identify(const fs::path& directory, DirectoryId& id)
{
    struct stat status;
    if (stat(directory.c_str(), &status) != 0)
        return false;
    id = {status.st_dev, status.st_ino};
    return true;
}

// A recursive walk enters every directory once. Links to directories wait until the
// real tree is walked, so a link into the tree never walks a part of it before its
// real path does, and a link back to a parent (or two links to each other) cannot
// loop; a link to a directory the walk has not seen yet is followed once.
struct Walk {
    fs::path root;
    WORD mask = 0;
    std::vector<Entry>* out = nullptr;
    std::set<DirectoryId> walked;
    std::vector<fs::path> linkedDirectories;
};

void report(Walk& walk, const fs::path& path, bool isDirectory)
{
    bool selected = isDirectory ? reportsDirectories(walk.mask)
                                : fileTypeSelects(walk.mask & FILE_TYPEMASK, path.extension().string());
    if (selected)
        walk.out->push_back({path.string(), path.lexically_relative(walk.root).generic_string(), isDirectory});
}

// Enters `directory` unless the walk has been there; false when it has.
bool enter(Walk& walk, const fs::path& directory)
{
    DirectoryId id;
    return identify(directory, id) && walk.walked.insert(id).second;
}

// The entries of `directory`. ".." is never reported (as with FILE_NOUPDIRS);
// unreadable subdirectories are passed over.
void collectEntries(Walk& walk, const fs::path& directory)
{
    bool recurse = (walk.mask & FILE_RECURSE) != 0;
    std::error_code error;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
        const fs::path& path = it->path();
        std::error_code typeError;
        bool isDirectory = it->is_directory(typeError);
        if (isDirectory && recurse && it->is_symlink(typeError)) {
            walk.linkedDirectories.push_back(path);
            continue;
        }
        if (isDirectory && recurse && !enter(walk, path))
            continue;
        report(walk, path, isDirectory);
        if (isDirectory && recurse)
            collectEntries(walk, path);
    }
}

void collectTree(const fs::path& directory, WORD mask, std::vector<Entry>& out)
{
    Walk walk;
    walk.root = directory;
    walk.mask = mask;
    walk.out = &out;
    enter(walk, directory);
    collectEntries(walk, directory);
    while (!walk.linkedDirectories.empty()) {
        std::vector<fs::path> links;
        links.swap(walk.linkedDirectories);
        std::sort(links.begin(), links.end());
        for (const fs::path& link : links) {
            if (!enter(walk, link))
                continue;
            report(walk, link, true);
            collectEntries(walk, link);
        }
    }
}

struct DatabaseFacts {
    bool isDatabase = false;
    DBID id{};
    DBREPLICAINFO replica{};
    char info[NSF_INFO_SIZE] = {};
};

// A file that does not open as a database is still reported, without $Info
// and with zero identities: the search goes by name, as the server's does.
DatabaseFacts readDatabaseFacts(const std::string& path)
{
    DatabaseFacts facts;
    DBHANDLE db = NULLHANDLE;
    if (impl::NSFDbOpen(path.c_str(), &db) != NOERROR)
        return facts;
    facts.isDatabase = impl::NSFDbIDGet(db, &facts.id) == NOERROR &&
                       impl::NSFDbReplicaInfoGet(db, &facts.replica) == NOERROR &&
                       impl::NSFDbInfoGet(db, facts.info) == NOERROR;
    impl::NSFDbClose(db);
    if (!facts.isDatabase)
        facts = DatabaseFacts();
    facts.info[NSF_INFO_SIZE - 1] = '\0';
    return facts;
}

SEARCH_MATCH matchOf(const DatabaseFacts& facts, const TIMEDATE& modified)
{
    SEARCH_MATCH match;
    std::memset(&match, 0, sizeof match);
    match.ID.File = facts.id;
    match.ID.Note = facts.replica.ID;
    match.OriginatorID.File = modified;
    match.OriginatorID.SequenceTime = facts.replica.ID;
    match.SERetFlags = SE_FMATCH;
    return match;
}

// File names are UTF-8 on disk and LMBCS in the API; a name that is not valid
// UTF-8 is passed on as it is.
std::string lmbcsOf(const std::string& text)
{
    std::string lmbcs;
    return sim::utf8ToLmbcs(text, lmbcs) ? lmbcs : text;
}

std::vector<char> summaryOf(const Entry& entry, const DatabaseFacts& facts, const struct stat& status,
                            const TIMEDATE& modified)
{
    sim::SummaryBuilder summary;
    summary.addText("$TITLE", lmbcsOf(fs::path(entry.path).filename().string()));
    summary.addText("$Path", lmbcsOf(sim::canonicalPathOf(entry.path)));
    summary.addText("$Type", entry.directory ? "$DIR" : "$NOTEFILE");
    summary.addTime("$Modified", modified);
    summary.addNumber("$Length", static_cast<double>(status.st_size));
    if (facts.isDatabase)
        summary.addText("$Info", facts.info);
    return summary.build();
}

STATUS reportEntry(const Entry& entry, WORD searchFlags, NSFSEARCHPROC routine, void* parameter)
{
    struct stat status;
    if (stat(entry.path.c_str(), &status) != 0)
        return NOERROR; // gone since the walk
    TIMEDATE modified = sim::timedateFromUnix(status.st_mtim.tv_sec, static_cast<int>(status.st_mtim.tv_nsec / 10000000));
    DatabaseFacts facts = entry.directory ? DatabaseFacts() : readDatabaseFacts(entry.path);
    SEARCH_MATCH match = matchOf(facts, modified);
    if (!(searchFlags & SEARCH_SUMMARY))
        return routine(parameter, &match, nullptr);
    std::vector<char> summary = summaryOf(entry, facts, status, modified);
    match.SummaryLength = static_cast<WORD>(summary.size());
    return routine(parameter, &match, reinterpret_cast<ITEM_TABLE*>(summary.data()));
}

} // namespace

namespace sim {

STATUS searchDirectory(const std::string& directory, WORD searchFlags, WORD fileTypeMask, NSFSEARCHPROC routine,
                       void* parameter, TIMEDATE* retUntil)
{
    if (routine == nullptr)
        return STS_BAD_ARGUMENT;
    if (!knownFileType(fileTypeMask & FILE_TYPEMASK) || (fileTypeMask & FILE_LINKSONLY))
        return STS_UNSUPPORTED;
    std::error_code error;
    if (!fs::is_directory(directory, error))
        return ERR_NOT_DIRECTORY;
    std::vector<Entry> entries;
    collectTree(directory, fileTypeMask, entries);
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.relative < b.relative; });
    for (const auto& entry : entries) {
        STATUS status = reportEntry(entry, searchFlags, routine, parameter);
        if (status != NOERROR)
            return status;
    }
    if (retUntil != nullptr)
        *retUntil = nowTimedate();
    return NOERROR;
}

STATUS locateReplica(const std::string& directory, const DBID& replicaId, std::string& path)
{
    std::vector<Entry> entries;
    collectTree(directory, FILE_DBDESIGN | FILE_RECURSE, entries);
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.relative < b.relative; });
    for (const auto& entry : entries) {
        DatabaseFacts facts = readDatabaseFacts(entry.path);
        if (facts.isDatabase && facts.replica.ID.Innards[0] == replicaId.Innards[0] &&
            facts.replica.ID.Innards[1] == replicaId.Innards[1]) {
            path = lmbcsOf(canonicalPathOf(entry.path));
            return NOERROR;
        }
    }
    return ERR_NOT_FOUND;
}

} // namespace sim
