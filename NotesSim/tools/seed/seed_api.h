// Thin wrappers over the runtime's C API for the seeding tool: every failure
// becomes an ApiError naming the call, so the tool stops at the first one.
#ifndef HYSEED_API_H
#define HYSEED_API_H

#include <stdexcept>
#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace seed {

class ApiError : public std::runtime_error {
public:
    ApiError(const std::string& call, STATUS status);
    STATUS status;
};

// Throws ApiError when `status` is not NOERROR.
void check(STATUS status, const std::string& call);

// A moment as seconds since 1970-01-01 GMT, stamped GMT (the seeded runtime runs in GMT).
TIMEDATE timedateOfUnix(long long seconds);

// The runtime of this process, started on the seeded notes.ini.
class Runtime {
public:
    Runtime(const std::string& programDir, const std::string& iniPath);
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;
};

// A formula as the runtime compiles it (what a view note stores).
std::vector<char> compileFormula(const std::string& text);

class Database {
public:
    // Creates (overwriting) and opens the database at `path`, relative to the data directory.
    Database(const std::string& path, WORD dbClass);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // The information buffer: title, then optional "#1" / "#2" template lines.
    void setInfo(const std::string& info);
    void setReplicaId(const TIMEDATE& id);
    // Marks a note unread for `user` (a canonical name) in the runtime's unread list.
    void markUnread(const std::string& user, NOTEID note);
    void fileInFolder(NOTEID folder, const std::vector<NOTEID>& documents);
    DBHANDLE handle() const { return handle_; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
    DBHANDLE handle_ = NULLHANDLE;
};

class Note {
public:
    explicit Note(Database& db, WORD noteClass = NOTE_CLASS_DOCUMENT);
    ~Note();
    Note(const Note&) = delete;
    Note& operator=(const Note&) = delete;

    // Summary items of the usual types.
    void text(const std::string& name, const std::string& value);
    void textList(const std::string& name, const std::vector<std::string>& values);
    void number(const std::string& name, double value);
    void time(const std::string& name, const TIMEDATE& value);
    // Any other type: `data` is the value without its type word.
    void raw(const std::string& name, WORD flags, WORD type, const std::vector<char>& data);
    void attach(const std::string& file, const std::string& storedName);
    void update();
    NOTEID id() const;

private:
    Database& db_;
    NOTEHANDLE handle_ = NULLHANDLE;
};

} // namespace seed

#endif
