#include "seed_api.h"

#include <cstdio>
#include <cstring>

#include "HySimControl.h"
#include "sim_core.h"

namespace seed {
namespace {

std::string describe(const std::string& call, STATUS status)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%04X", static_cast<unsigned>(status));
    return call + " failed with status " + code;
}

WORD wordLength(size_t length, const std::string& what)
{
    if (length > MAXWORD)
        throw std::length_error(what + " is longer than 65535 bytes");
    return static_cast<WORD>(length);
}

} // namespace

ApiError::ApiError(const std::string& call, STATUS code) : std::runtime_error(describe(call, code)), status(code) {}

void check(STATUS status, const std::string& call)
{
    if (status != NOERROR)
        throw ApiError(call, status);
}

TIMEDATE timedateOfUnix(long long seconds)
{
    constexpr long long kJulianDayOf1970 = 2440588;
    constexpr long long kSecondsPerDay = 86400;
    long long days = seconds / kSecondsPerDay;
    long long rest = seconds % kSecondsPerDay;
    if (rest < 0) {
        rest += kSecondsPerDay;
        --days;
    }
    TIMEDATE value;
    value.Innards[0] = static_cast<DWORD>(rest * TICKS_IN_SECOND);
    value.Innards[1] = static_cast<DWORD>(kJulianDayOf1970 + days);
    return value;
}

Runtime::Runtime(const std::string& programDir, const std::string& iniPath)
{
    std::string program = programDir;
    std::string ini = "=" + iniPath;
    char* argv[] = {program.data(), ini.data(), nullptr};
    check(NotesInitExtended(2, argv), "NotesInitExtended(" + iniPath + ")");
}

Runtime::~Runtime()
{
    NotesTerm();
}

Database::Database(const std::string& path, WORD dbClass) : path_(path)
{
    check(NSFDbCreate(path.c_str(), dbClass, TRUE), "NSFDbCreate(" + path + ")");
    check(NSFDbOpen(path.c_str(), &handle_), "NSFDbOpen(" + path + ")");
}

Database::~Database()
{
    NSFDbClose(handle_);
}

void Database::setInfo(const std::string& info)
{
    char buffer[NSF_INFO_SIZE] = {};
    std::strncpy(buffer, info.c_str(), NSF_INFO_SIZE - 1);
    check(NSFDbInfoSet(handle_, buffer), "NSFDbInfoSet(" + path_ + ")");
}

void Database::setReplicaId(const TIMEDATE& id)
{
    DBREPLICAINFO replica;
    check(NSFDbReplicaInfoGet(handle_, &replica), "NSFDbReplicaInfoGet(" + path_ + ")");
    replica.ID = id;
    check(NSFDbReplicaInfoSet(handle_, &replica), "NSFDbReplicaInfoSet(" + path_ + ")");
}

void Database::markUnread(const std::string& user, NOTEID note)
{
    check(HySimSetUnread(handle_, user.c_str(), note, 1), "HySimSetUnread(" + path_ + ")");
}

void Database::fileInFolder(NOTEID folder, const std::vector<NOTEID>& documents)
{
    DHANDLE table = NULLHANDLE;
    check(IDCreateTable(0, &table), "IDCreateTable");
    for (NOTEID id : documents)
        IDInsert(table, id, nullptr);
    STATUS status = FolderDocAdd(handle_, NULLHANDLE, folder, table, 0);
    IDDestroyTable(table);
    check(status, "FolderDocAdd(" + path_ + ")");
}

std::vector<char> compileFormula(const std::string& text)
{
    FORMULAHANDLE handle = NULLHANDLE;
    WORD length = 0;
    STATUS error = NOERROR;
    WORD line = 0, column = 0, offset = 0, size = 0;
    check(NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &handle, &length, &error, &line,
                            &column, &offset, &size),
          "NSFFormulaCompile(" + text + ")");
    const char* bytes = static_cast<const char*>(OSLockObject(handle));
    std::vector<char> compiled(bytes, bytes + length);
    OSUnlockObject(handle);
    OSMemFree(handle);
    return compiled;
}

Note::Note(Database& db, WORD noteClass) : db_(db)
{
    check(NSFNoteCreate(db.handle(), &handle_), "NSFNoteCreate(" + db.path() + ")");
    if (noteClass != NOTE_CLASS_DOCUMENT)
        NSFNoteSetInfo(handle_, _NOTE_CLASS, &noteClass);
}

Note::~Note()
{
    NSFNoteClose(handle_);
}

void Note::text(const std::string& name, const std::string& value)
{
    check(NSFItemSetText(handle_, name.c_str(), value.data(), wordLength(value.size(), name)),
          "NSFItemSetText(" + name + ")");
}

void Note::textList(const std::string& name, const std::vector<std::string>& values)
{
    std::vector<char> data(2 + 2 * values.size());
    WORD count = wordLength(values.size(), name);
    std::memcpy(data.data(), &count, 2);
    for (size_t i = 0; i < values.size(); ++i) {
        WORD length = wordLength(values[i].size(), name);
        std::memcpy(data.data() + 2 + 2 * i, &length, 2);
    }
    for (const auto& value : values)
        data.insert(data.end(), value.begin(), value.end());
    raw(name, ITEM_SUMMARY, TYPE_TEXT_LIST, data);
}

void Note::number(const std::string& name, double value)
{
    std::vector<char> data(sizeof value);
    std::memcpy(data.data(), &value, sizeof value);
    raw(name, ITEM_SUMMARY, TYPE_NUMBER, data);
}

void Note::time(const std::string& name, const TIMEDATE& value)
{
    std::vector<char> data(sizeof value);
    std::memcpy(data.data(), &value, sizeof value);
    raw(name, ITEM_SUMMARY, TYPE_TIME, data);
}

void Note::raw(const std::string& name, WORD flags, WORD type, const std::vector<char>& data)
{
    check(NSFItemAppend(handle_, flags, name.c_str(), wordLength(name.size(), name), type, data.data(),
                        static_cast<DWORD>(data.size())),
          "NSFItemAppend(" + name + ")");
}

void Note::attach(const std::string& file, const std::string& storedName)
{
    check(NSFNoteAttachFile(handle_, "$FILE", 5, file.c_str(), storedName.c_str(), 0),
          "NSFNoteAttachFile(" + storedName + ")");
}

void Note::update()
{
    check(NSFNoteUpdate(handle_, 0), "NSFNoteUpdate(" + db_.path() + ")");
}

NOTEID Note::id() const
{
    NOTEID id = 0;
    NSFNoteGetInfo(handle_, _NOTE_ID, &id);
    return id;
}

} // namespace seed
