// The SQLite engine behind every simulated database file.
#include "storage.h"

#include <sqlite3.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <set>

#include "environment.h"
#include "sim_core.h"
#include "timedate.h"

namespace sim {
namespace {

// Marks an SQLite file as one of our databases ('HYSN').
constexpr int kApplicationId = 0x4859534E;
constexpr int kSchemaVersion = 1;
constexpr int kBusyTimeoutMs = 10000;
// Note IDs and object IDs share one space, in steps of 4 as Domino allocates them.
constexpr DWORD kFirstRrv = 4;
constexpr DWORD kRrvStep = 4;

const char* const kSchema = R"(
CREATE TABLE dbinfo(
  id INTEGER PRIMARY KEY CHECK (id = 1),
  info BLOB NOT NULL,
  replica_id INTEGER NOT NULL, replica_flags INTEGER NOT NULL,
  cutoff_interval INTEGER NOT NULL, cutoff INTEGER NOT NULL,
  dbid INTEGER NOT NULL, data_modified INTEGER NOT NULL, nondata_modified INTEGER NOT NULL,
  options INTEGER NOT NULL, db_class INTEGER NOT NULL,
  quota_warning INTEGER NOT NULL, quota_limit INTEGER NOT NULL,
  acl BLOB NOT NULL, next_rrv INTEGER NOT NULL);
CREATE TABLE notes(
  note_id INTEGER PRIMARY KEY,
  unid BLOB NOT NULL UNIQUE,
  sequence INTEGER NOT NULL, sequence_time INTEGER NOT NULL,
  class INTEGER NOT NULL, flags INTEGER NOT NULL,
  modified INTEGER NOT NULL, modified_order INTEGER NOT NULL,
  accessed INTEGER NOT NULL, added INTEGER NOT NULL, deleted INTEGER NOT NULL);
CREATE INDEX notes_by_modified ON notes(modified_order);
CREATE TABLE items(
  note_id INTEGER NOT NULL, position INTEGER NOT NULL,
  name BLOB NOT NULL, flags INTEGER NOT NULL, value BLOB NOT NULL, object_rrv INTEGER,
  PRIMARY KEY(note_id, position)) WITHOUT ROWID;
CREATE INDEX items_by_object ON items(object_rrv) WHERE object_rrv IS NOT NULL;
CREATE TABLE folder_members(
  folder INTEGER NOT NULL, note_id INTEGER NOT NULL, PRIMARY KEY(folder, note_id)) WITHOUT ROWID;
CREATE TABLE objects(
  rrv INTEGER PRIMARY KEY, class INTEGER NOT NULL, privileges INTEGER NOT NULL,
  type INTEGER NOT NULL, bytes BLOB NOT NULL);
)";

// Carries a STATUS out of the SQL helpers to the boundary of a Storage call.
struct Failure {
    STATUS status;
};

STATUS statusOfSqlite(int rc)
{
    switch (rc & 0xFF) {
    case SQLITE_NOTADB:
        return ERR_NOT_NSF;
    case SQLITE_NOMEM:
        return ERR_MEMORY;
    default:
        return STS_STORAGE;
    }
}

void check(int rc)
{
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
        throw Failure{statusOfSqlite(rc)};
}

template <class F>
STATUS guarded(F body)
{
    try {
        body();
        return NOERROR;
    } catch (const Failure& failure) {
        return failure.status;
    } catch (const std::bad_alloc&) {
        return ERR_MEMORY;
    }
}

class Statement {
public:
    Statement(sqlite3* db, const char* sql)
    {
        check(sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr));
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, long long value)
    {
        check(sqlite3_bind_int64(stmt_, index, value));
        return *this;
    }
    Statement& bindBlob(int index, const void* data, size_t size)
    {
        // A zero-length blob must still be a blob, not NULL.
        static const char empty = 0;
        check(sqlite3_bind_blob64(stmt_, index, size ? data : &empty, size, SQLITE_TRANSIENT));
        return *this;
    }
    Statement& bindBlob(int index, const std::string& bytes) { return bindBlob(index, bytes.data(), bytes.size()); }
    Statement& bindBlob(int index, const std::vector<char>& bytes) { return bindBlob(index, bytes.data(), bytes.size()); }
    Statement& bindNull(int index)
    {
        check(sqlite3_bind_null(stmt_, index));
        return *this;
    }
    // True while a row is available.
    bool step()
    {
        int rc = sqlite3_step(stmt_);
        check(rc);
        return rc == SQLITE_ROW;
    }
    void run()
    {
        while (step()) {
        }
    }
    long long integer(int column) const { return sqlite3_column_int64(stmt_, column); }
    sqlite3_stmt* raw() const { return stmt_; }
    std::vector<char> blob(int column) const
    {
        const char* data = static_cast<const char*>(sqlite3_column_blob(stmt_, column));
        return data ? std::vector<char>(data, data + sqlite3_column_bytes(stmt_, column)) : std::vector<char>();
    }
    std::string text(int column) const
    {
        const char* data = static_cast<const char*>(sqlite3_column_blob(stmt_, column));
        return data ? std::string(data, sqlite3_column_bytes(stmt_, column)) : std::string();
    }

private:
    sqlite3_stmt* stmt_ = nullptr;
};

void execute(sqlite3* db, const char* sql)
{
    check(sqlite3_exec(db, sql, nullptr, nullptr, nullptr));
}

// A transaction, rolled back unless committed. Writers begin IMMEDIATE: taking the
// write lock up front makes two writers wait for each other instead of failing halfway.
class Transaction {
public:
    explicit Transaction(sqlite3* db, const char* begin = "BEGIN IMMEDIATE") : db_(db) { execute(db, begin); }
    ~Transaction()
    {
        if (!done_)
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    void commit()
    {
        execute(db_, "COMMIT");
        done_ = true;
    }

private:
    sqlite3* db_;
    bool done_ = false;
};

long long packTime(const TIMEDATE& time)
{
    return static_cast<long long>((static_cast<unsigned long long>(time.Innards[1]) << 32) | time.Innards[0]);
}

TIMEDATE unpackTime(long long packed)
{
    auto bits = static_cast<unsigned long long>(packed);
    return TIMEDATE{{static_cast<DWORD>(bits & 0xFFFFFFFFu), static_cast<DWORD>(bits >> 32)}};
}

bool sameTime(const TIMEDATE& a, const TIMEDATE& b)
{
    return a.Innards[0] == b.Innards[0] && a.Innards[1] == b.Innards[1];
}

// The tick after `time`, on the same zone byte.
TIMEDATE nextTick(const TIMEDATE& time)
{
    TIMEDATE next = time;
    if (++next.Innards[0] >= TICKS_IN_DAY) {
        next.Innards[0] = 0;
        next.Innards[1] = (time.Innards[1] & 0xFF000000u) | ((time.Innards[1] & 0x00FFFFFFu) + 1);
    }
    return next;
}

DWORD randomWord()
{
    DWORD value = 0;
    if (getrandom(&value, sizeof value, 0) != static_cast<ssize_t>(sizeof value))
        value = static_cast<DWORD>(getpid()) * 2654435761u ^ static_cast<DWORD>(clock());
    return value;
}

bool fileExists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

std::string parentOf(const std::string& path)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The journal files SQLite keeps next to a database.
void removeJournals(const std::string& path)
{
    unlink((path + "-wal").c_str());
    unlink((path + "-shm").c_str());
    unlink((path + "-journal").c_str());
}

void configureConnection(sqlite3* db)
{
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    sqlite3_extended_result_codes(db, 1);
    execute(db, "PRAGMA synchronous=NORMAL");
}

void writeSchema(sqlite3* db, WORD dbClass)
{
    execute(db, "PRAGMA journal_mode=WAL");
    Transaction tx(db);
    execute(db, kSchema);
    execute(db, ("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
    execute(db, ("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
    TIMEDATE now = nowTimedate();
    // A replica ID of its own, shaped like a time of the creation day.
    TIMEDATE replica{{randomWord() % TICKS_IN_DAY, now.Innards[1]}};
    std::vector<char> acl = defaultAclImage(localServerName());
    Statement insert(db,
                     "INSERT INTO dbinfo(id, info, replica_id, replica_flags, cutoff_interval, cutoff, dbid,"
                     " data_modified, nondata_modified, options, db_class, quota_warning, quota_limit, acl,"
                     " next_rrv) VALUES(1, ?, ?, 0, 90, 0, ?, ?, ?, 0, ?, 0, 0, ?, ?)");
    insert.bindBlob(1, std::string())
        .bind(2, packTime(replica))
        .bind(3, packTime(now))
        .bind(4, packTime(now))
        .bind(5, packTime(now))
        .bind(6, dbClass)
        .bindBlob(7, acl)
        .bind(8, kFirstRrv)
        .run();
    tx.commit();
}

// Builds the database in a private file next to `path`, so no half-made database
// is ever visible under the real name.
STATUS buildDatabaseFile(const std::string& temporary, WORD dbClass)
{
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(temporary.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    STATUS status = rc == SQLITE_OK ? NOERROR : statusOfSqlite(rc);
    if (status == NOERROR)
        status = guarded([&] {
            configureConnection(db);
            writeSchema(db, dbClass);
        });
    sqlite3_close(db);
    return status;
}

STATUS publishDatabaseFile(const std::string& temporary, const std::string& path, bool overwrite)
{
    if (overwrite) {
        removeJournals(path);
        return rename(temporary.c_str(), path.c_str()) == 0 ? NOERROR : STS_STORAGE;
    }
    // link() refuses an existing name, so two creators cannot both win.
    if (link(temporary.c_str(), path.c_str()) != 0)
        return errno == EEXIST ? ERR_EXISTS : STS_STORAGE;
    unlink(temporary.c_str());
    return NOERROR;
}

NoteRecord noteFromRow(const Statement& row)
{
    NoteRecord note;
    note.id = static_cast<NOTEID>(row.integer(0));
    std::vector<char> unid = row.blob(1);
    if (unid.size() == sizeof(UNID))
        std::memcpy(&note.oid, unid.data(), sizeof(UNID));
    note.oid.Sequence = static_cast<DWORD>(row.integer(2));
    note.oid.SequenceTime = unpackTime(row.integer(3));
    note.noteClass = static_cast<WORD>(row.integer(4));
    note.flags = static_cast<WORD>(row.integer(5));
    note.modified = unpackTime(row.integer(6));
    note.accessed = unpackTime(row.integer(7));
    note.addedToFile = unpackTime(row.integer(8));
    note.deleted = row.integer(9) != 0;
    return note;
}

const char* const kNoteColumns =
    "SELECT note_id, unid, sequence, sequence_time, class, flags, modified, accessed, added, deleted FROM notes ";

bool selectNote(sqlite3* db, const char* condition, long long key, NoteRecord& out)
{
    Statement query(db, (std::string(kNoteColumns) + condition).c_str());
    query.bind(1, key);
    if (!query.step())
        return false;
    out = noteFromRow(query);
    return true;
}

bool selectNoteByUnid(sqlite3* db, const UNID& unid, NoteRecord& out)
{
    Statement query(db, (std::string(kNoteColumns) + "WHERE unid = ?").c_str());
    query.bindBlob(1, &unid, sizeof unid);
    if (!query.step())
        return false;
    out = noteFromRow(query);
    return true;
}

// The object a TYPE_OBJECT value refers to (type word, then ODS OBJECT_DESCRIPTOR).
bool objectOfValue(const std::vector<char>& value, DWORD& rrv)
{
    WORD type = 0;
    if (value.size() < 8)
        return false;
    std::memcpy(&type, value.data(), sizeof type);
    if (type != TYPE_OBJECT)
        return false;
    std::memcpy(&rrv, value.data() + 4, sizeof rrv);
    return true;
}

std::set<DWORD> objectsOfNote(sqlite3* db, NOTEID id)
{
    std::set<DWORD> objects;
    Statement query(db, "SELECT object_rrv FROM items WHERE note_id = ? AND object_rrv IS NOT NULL");
    query.bind(1, id);
    while (query.step())
        objects.insert(static_cast<DWORD>(query.integer(0)));
    return objects;
}

// Objects the previous version of a note used and no item refers to any more.
void freeUnreferencedObjects(sqlite3* db, const std::set<DWORD>& candidates)
{
    for (DWORD rrv : candidates) {
        Statement used(db, "SELECT 1 FROM items WHERE object_rrv = ? LIMIT 1");
        used.bind(1, rrv);
        if (!used.step())
            Statement(db, "DELETE FROM objects WHERE rrv = ?").bind(1, rrv).run();
    }
}

DWORD allocateRrv(sqlite3* db)
{
    Statement query(db, "SELECT next_rrv FROM dbinfo WHERE id = 1");
    if (!query.step())
        throw Failure{STS_STORAGE};
    long long rrv = query.integer(0);
    if (rrv <= 0 || rrv + kRrvStep >= static_cast<long long>(RRV_DELETED))
        throw Failure{STS_STORAGE};
    Statement(db, "UPDATE dbinfo SET next_rrv = ? WHERE id = 1").bind(1, rrv + kRrvStep).run();
    return static_cast<DWORD>(rrv);
}

TIMEDATE lastDataModified(sqlite3* db)
{
    Statement query(db, "SELECT data_modified FROM dbinfo WHERE id = 1");
    if (!query.step())
        throw Failure{STS_STORAGE};
    return unpackTime(query.integer(0));
}

// Modified times of one database never repeat, so "modified since" is exact.
TIMEDATE nextModifiedTime(sqlite3* db)
{
    TIMEDATE now = nowTimedate();
    TIMEDATE last = lastDataModified(db);
    return timedateOrder(now) > timedateOrder(last) ? now : nextTick(last);
}

// Where a note being saved goes: its existing row, or a new note ID.
NOTEID placeNote(sqlite3* db, const NoteRecord& note, const NoteSave& how, NoteRecord& stored, bool& existed)
{
    existed = false;
    UNID unid;
    std::memcpy(&unid, &note.oid, sizeof unid);
    NoteRecord sameUnid;
    bool unidTaken = selectNoteByUnid(db, unid, sameUnid);
    if (note.id == 0) {
        if (!unidTaken)
            return allocateRrv(db);
        if (!how.force)
            throw Failure{kErrConflict};
        stored = sameUnid;
        existed = true;
        return stored.id;
    }
    if (!selectNote(db, "WHERE note_id = ?", note.id, stored))
        throw Failure{ERR_INVALID_NOTE};
    if (unidTaken && sameUnid.id != note.id)
        throw Failure{kErrConflict};
    if (!how.force && stored.deleted)
        throw Failure{ERR_NOTE_DELETED};
    if (!how.force && !sameTime(stored.modified, how.modifiedWhenOpened))
        throw Failure{kErrConflict};
    existed = true;
    return note.id;
}

void writeNoteRow(sqlite3* db, const NoteRecord& note)
{
    Statement write(db,
                    "INSERT OR REPLACE INTO notes(note_id, unid, sequence, sequence_time, class, flags, modified,"
                    " modified_order, accessed, added, deleted) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)");
    write.bind(1, note.id)
        .bindBlob(2, &note.oid, sizeof(UNID))
        .bind(3, note.oid.Sequence)
        .bind(4, packTime(note.oid.SequenceTime))
        .bind(5, note.noteClass)
        .bind(6, note.flags)
        .bind(7, packTime(note.modified))
        .bind(8, static_cast<long long>(timedateOrder(note.modified)))
        .bind(9, packTime(note.accessed))
        .bind(10, packTime(note.addedToFile))
        .run();
}

void writeItems(sqlite3* db, NOTEID id, const std::vector<ItemRecord>& items)
{
    Statement(db, "DELETE FROM items WHERE note_id = ?").bind(1, id).run();
    long long position = 0;
    for (const ItemRecord& item : items) {
        Statement insert(db, "INSERT INTO items(note_id, position, name, flags, value, object_rrv) VALUES(?, ?, ?, ?, ?, ?)");
        insert.bind(1, id).bind(2, position++).bindBlob(3, item.name).bind(4, item.flags).bindBlob(5, item.value);
        DWORD rrv = 0;
        if (objectOfValue(item.value, rrv))
            insert.bind(6, rrv);
        else
            insert.bindNull(6);
        insert.run();
    }
}

// Only one note per class is that class's default note.
void claimDefaultOfClass(sqlite3* db, const NoteRecord& note)
{
    if ((note.noteClass & NOTE_CLASS_DEFAULT) == 0)
        return;
    Statement(db, "UPDATE notes SET class = class & 32767 WHERE class = ? AND note_id != ?")
        .bind(1, note.noteClass)
        .bind(2, note.id)
        .run();
}

struct Blob {
    sqlite3_blob* handle = nullptr;
    ~Blob() { sqlite3_blob_close(handle); }
};

void openObjectBlob(sqlite3* db, DWORD rrv, bool forWriting, Blob& blob)
{
    int rc = sqlite3_blob_open(db, "main", "objects", "bytes", rrv, forWriting ? 1 : 0, &blob.handle);
    if (rc == SQLITE_ERROR)
        throw Failure{ERR_NOT_FOUND};
    check(rc);
}

} // namespace

unsigned long long timedateOrder(const TIMEDATE& time)
{
    return (static_cast<unsigned long long>(time.Innards[1] & 0x00FFFFFFu) << 32) | time.Innards[0];
}

bool isWildcardTime(const TIMEDATE& time)
{
    return time.Innards[0] == ALLDAY && time.Innards[1] == ANYDAY;
}

UNID makeUnid(const TIMEDATE& replicaId)
{
    UNID unid;
    unid.File.Innards[0] = randomWord();
    unid.File.Innards[1] = replicaId.Innards[1];
    unid.Note = nowTimedate();
    return unid;
}

std::vector<char> defaultAclImage(const std::string& serverName)
{
    struct Entry {
        std::string name;
        WORD level;
    };
    std::vector<Entry> entries = {{"-Default-", kAclDesigner},
                                  {"LocalDomainServers", kAclManager},
                                  {"OtherDomainServers", kAclNoAccess}};
    if (!serverName.empty())
        entries.push_back({serverName, kAclManager});
    std::vector<char> image;
    auto put = [&image](const void* data, size_t size) {
        const char* bytes = static_cast<const char*>(data);
        image.insert(image.end(), bytes, bytes + size);
    };
    const DWORD magic = 0x4C434148; // "HACL"
    const WORD version = 1;
    const WORD count = static_cast<WORD>(entries.size());
    put(&magic, sizeof magic);
    put(&version, sizeof version);
    put(&count, sizeof count);
    for (const Entry& entry : entries) {
        const WORD flags = 0;
        const WORD length = static_cast<WORD>(entry.name.size());
        put(&entry.level, sizeof entry.level);
        put(&flags, sizeof flags);
        put(&length, sizeof length);
        put(entry.name.data(), entry.name.size());
    }
    return image;
}

STATUS Storage::create(const std::string& path, WORD dbClass, bool overwrite)
{
    struct stat info;
    if (stat(parentOf(path).c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return ERR_NOEXIST;
    if (stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return ERR_DIRECTORY;
        if (!overwrite)
            return ERR_EXISTS;
    }
    std::string temporary = path + ".creating-" + std::to_string(getpid()) + "-" + std::to_string(randomWord());
    STATUS status = buildDatabaseFile(temporary, dbClass);
    if (status == NOERROR)
        status = publishDatabaseFile(temporary, path, overwrite);
    unlink(temporary.c_str());
    removeJournals(temporary);
    return status;
}

// Storage objects live as long as any handle on their file, and hosts keep thousands
// of handles open. Their SQLite connections (three descriptors each with the WAL
// journal: file, -wal, -shm) are kept fewer: when the bound is reached, the least
// recently used connection not in a call is closed, and reopened on its next use.
struct Storage::Pool {
    std::list<Storage*> open; // most recently used first

    // Never destroyed: storages held by handles still open at exit close after it.
    static Pool& instance()
    {
        static Pool* pool = new Pool;
        return *pool;
    }
    void add(Storage& storage)
    {
        open.push_front(&storage);
        storage.lruPosition_ = open.begin();
    }
    void touch(Storage& storage) { open.splice(open.begin(), open, storage.lruPosition_); }
    void remove(Storage& storage) { open.erase(storage.lruPosition_); }
    // Closes idle connections, least recently used first, until fewer than `bound` are open.
    void makeRoom(size_t bound)
    {
        auto it = open.end();
        while (open.size() >= bound && it != open.begin()) {
            Storage* storage = *--it;
            if (storage->busy_ > 0)
                continue;
            it = open.erase(it);
            sqlite3_close(storage->db_);
            storage->db_ = nullptr;
        }
    }
};

namespace {

// A quarter of the process's descriptors at most (the host needs the rest), at least a few.
size_t connectionBound()
{
    struct rlimit limit;
    unsigned long long descriptors = 1024;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        descriptors = limit.rlim_cur;
    else if (getrlimit(RLIMIT_NOFILE, &limit) == 0)
        descriptors = 1u << 20;
    return static_cast<size_t>(std::clamp<unsigned long long>(descriptors / 4 / 3, 4, 512));
}

} // namespace

size_t Storage::openConnectionCount()
{
    return Pool::instance().open.size();
}

STATUS Storage::connect()
{
    Pool& pool = Pool::instance();
    if (db_ != nullptr) {
        pool.touch(*this);
        return NOERROR;
    }
    struct stat info;
    if (stat(path_.c_str(), &info) != 0)
        return errno == ENOENT ? ERR_NOEXIST : STS_STORAGE;
    // A file put in its place since the first open is another database.
    if (identified_ && (info.st_dev != device_ || info.st_ino != inode_))
        return STS_STORAGE;
    pool.makeRoom(connectionBound());
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    STATUS status = rc == SQLITE_OK ? NOERROR : statusOfSqlite(rc);
    if (status == NOERROR)
        status = guarded([&] {
            configureConnection(db);
            Statement id(db, "PRAGMA application_id");
            if (!id.step() || id.integer(0) != kApplicationId)
                throw Failure{ERR_NOT_NSF};
        });
    if (status != NOERROR) {
        sqlite3_close(db);
        return status;
    }
    db_ = db;
    device_ = info.st_dev;
    inode_ = info.st_ino;
    identified_ = true;
    pool.add(*this);
    return NOERROR;
}

template <class F>
STATUS Storage::withConnection(F body)
{
    ++busy_; // the connection stays open while the call runs
    STATUS status = connect();
    if (status == NOERROR)
        status = guarded(body);
    --busy_;
    return status;
}

STATUS Storage::open(const std::string& path, std::shared_ptr<Storage>& out)
{
    if (!fileExists(path))
        return ERR_NOEXIST;
    std::shared_ptr<Storage> storage(new Storage(path));
    STATUS status = storage->withConnection([&] {
        Statement probe(storage->db_, "SELECT count(*) FROM dbinfo");
        if (!probe.step() || probe.integer(0) != 1)
            throw Failure{STS_STORAGE};
    });
    if (status == NOERROR)
        out = storage;
    return status;
}

Storage::~Storage()
{
    if (db_ != nullptr) {
        Pool::instance().remove(*this);
        sqlite3_close(db_);
    }
}

STATUS Storage::readProperties(DatabaseProperties& out)
{
    return withConnection([&] {
        Statement query(db_,
                        "SELECT info, replica_id, replica_flags, cutoff_interval, cutoff, dbid, data_modified,"
                        " nondata_modified, options, db_class, quota_warning, quota_limit FROM dbinfo WHERE id = 1");
        if (!query.step())
            throw Failure{STS_STORAGE};
        out.info = query.text(0);
        out.replica.ID = unpackTime(query.integer(1));
        out.replica.Flags = static_cast<WORD>(query.integer(2));
        out.replica.CutoffInterval = static_cast<WORD>(query.integer(3));
        out.replica.Cutoff = unpackTime(query.integer(4));
        out.dbid = unpackTime(query.integer(5));
        out.dataModified = unpackTime(query.integer(6));
        out.nonDataModified = unpackTime(query.integer(7));
        out.options = static_cast<DWORD>(query.integer(8));
        out.dbClass = static_cast<WORD>(query.integer(9));
        out.quotaWarningKB = static_cast<DWORD>(query.integer(10));
        out.quotaLimitKB = static_cast<DWORD>(query.integer(11));
    });
}

namespace {
// Runs one update of the database row that also stamps the non-data modified time.
template <class Bind>
void updateDbinfo(sqlite3* db, const char* assignments, Bind bind)
{
    Transaction tx(db);
    Statement update(db, (std::string("UPDATE dbinfo SET nondata_modified = ?, ") + assignments + " WHERE id = 1").c_str());
    update.bind(1, packTime(nowTimedate()));
    bind(update);
    update.run();
    tx.commit();
}
} // namespace

STATUS Storage::writeInfo(const std::string& info)
{
    return withConnection([&] { updateDbinfo(db_, "info = ?", [&](Statement& s) { s.bindBlob(2, info); }); });
}

STATUS Storage::writeReplicaInfo(const DBREPLICAINFO& replica)
{
    return withConnection([&] {
        updateDbinfo(db_, "replica_id = ?, replica_flags = ?, cutoff_interval = ?, cutoff = ?", [&](Statement& s) {
            s.bind(2, packTime(replica.ID)).bind(3, replica.Flags).bind(4, replica.CutoffInterval).bind(5, packTime(replica.Cutoff));
        });
    });
}

STATUS Storage::readAcl(std::vector<char>& out)
{
    return withConnection([&] {
        Statement query(db_, "SELECT acl FROM dbinfo WHERE id = 1");
        if (!query.step())
            throw Failure{STS_STORAGE};
        out = query.blob(0);
    });
}

STATUS Storage::spaceUsage(unsigned long long& allocatedBytes, unsigned long long& freeBytes)
{
    return withConnection([&] {
        auto pragma = [this](const char* sql) {
            Statement query(db_, sql);
            return query.step() ? static_cast<unsigned long long>(query.integer(0)) : 0ull;
        };
        unsigned long long pageSize = pragma("PRAGMA page_size");
        allocatedBytes = pragma("PRAGMA page_count") * pageSize;
        freeBytes = pragma("PRAGMA freelist_count") * pageSize;
    });
}

STATUS Storage::findNote(NOTEID id, NoteRecord& out)
{
    return withConnection([&] {
        if ((id & NOTE_ID_SPECIAL) == NOTE_ID_SPECIAL) {
            long long defaultClass = (id & NOTE_CLASS_ALL) | NOTE_CLASS_DEFAULT;
            if (!selectNote(db_, "WHERE class = ? AND deleted = 0", defaultClass, out))
                throw Failure{kErrSpecialId};
            return;
        }
        if (!selectNote(db_, "WHERE note_id = ?", id, out))
            throw Failure{ERR_INVALID_NOTE};
    });
}

STATUS Storage::findNoteByUnid(const UNID& unid, NoteRecord& out)
{
    return withConnection([&] {
        if (!selectNoteByUnid(db_, unid, out))
            throw Failure{ERR_NOT_FOUND};
    });
}

STATUS Storage::readItems(NOTEID id, bool summaryOnly, std::vector<ItemRecord>& out)
{
    return withConnection([&] {
        std::string sql = "SELECT name, flags, value FROM items WHERE note_id = ?";
        if (summaryOnly)
            sql += " AND (flags & " + std::to_string(ITEM_SUMMARY) + ") != 0";
        Statement query(db_, (sql + " ORDER BY position").c_str());
        query.bind(1, id);
        out.clear();
        while (query.step())
            out.push_back(ItemRecord{query.text(0), static_cast<WORD>(query.integer(1)), query.blob(2)});
    });
}

STATUS Storage::responsesOf(const UNID& parent, std::vector<NOTEID>& out)
{
    return withConnection([&] {
        // A $REF value is its type word, a LIST header, then the parent's UNID.
        Statement query(db_,
                        "SELECT DISTINCT items.note_id FROM items JOIN notes ON notes.note_id = items.note_id"
                        " WHERE notes.deleted = 0 AND CAST(items.name AS TEXT) = '$REF' COLLATE NOCASE"
                        " AND substr(items.value, 5, 16) = ? ORDER BY items.note_id");
        query.bindBlob(1, &parent, sizeof parent);
        out.clear();
        while (query.step())
            out.push_back(static_cast<NOTEID>(query.integer(0)));
    });
}

namespace {

// Writes one note inside the caller's transaction and stamps `saved` as stored.
void writeNote(sqlite3* db, const NoteRecord& note, NoteRecord& saved, const std::vector<ItemRecord>& items,
               const NoteSave& how)
{
    NoteRecord stored;
    bool existed = false;
    saved = note;
    saved.id = placeNote(db, note, how, stored, existed);
    std::set<DWORD> previousObjects = existed ? objectsOfNote(db, saved.id) : std::set<DWORD>();
    TIMEDATE modified = nextModifiedTime(db);
    saved.modified = modified;
    saved.oid.Sequence += 1;
    saved.oid.SequenceTime = modified;
    saved.addedToFile = existed ? stored.addedToFile : modified;
    if (timedateOrder(saved.accessed) == 0)
        saved.accessed = modified;
    saved.deleted = false;
    claimDefaultOfClass(db, saved);
    writeNoteRow(db, saved);
    writeItems(db, saved.id, items);
    freeUnreferencedObjects(db, previousObjects);
    Statement(db, "UPDATE dbinfo SET data_modified = ? WHERE id = 1").bind(1, packTime(modified)).run();
}

} // namespace

STATUS Storage::saveNote(NoteRecord& note, const std::vector<ItemRecord>& items, const NoteSave& how)
{
    NoteRecord saved = note;
    STATUS status = withConnection([&] {
        Transaction tx(db_);
        writeNote(db_, note, saved, items, how);
        tx.commit();
    });
    if (status == NOERROR)
        note = saved;
    return status;
}

STATUS Storage::removeNote(NOTEID id, NoteRemoval how)
{
    return withConnection([&] {
        Transaction tx(db_);
        NoteRecord stored;
        if (!selectNote(db_, "WHERE note_id = ?", id, stored))
            throw Failure{ERR_INVALID_NOTE};
        if (stored.deleted && how != NoteRemoval::Purge)
            throw Failure{ERR_NOTE_DELETED};
        std::set<DWORD> objects = objectsOfNote(db_, id);
        Statement(db_, "DELETE FROM items WHERE note_id = ?").bind(1, id).run();
        TIMEDATE modified = nextModifiedTime(db_);
        if (how == NoteRemoval::Stub) {
            Statement stub(db_, "UPDATE notes SET sequence = ?, sequence_time = ?, modified = ?, modified_order = ?,"
                                " deleted = 1 WHERE note_id = ?");
            stub.bind(1, stored.oid.Sequence + 1)
                .bind(2, packTime(modified))
                .bind(3, packTime(modified))
                .bind(4, static_cast<long long>(timedateOrder(modified)))
                .bind(5, id)
                .run();
        } else {
            Statement(db_, "DELETE FROM notes WHERE note_id = ?").bind(1, id).run();
        }
        freeUnreferencedObjects(db_, objects);
        Statement(db_, "UPDATE dbinfo SET data_modified = ? WHERE id = 1").bind(1, packTime(modified)).run();
        tx.commit();
    });
}

STATUS Storage::saveNotes(std::vector<NoteBatchEntry>& notes)
{
    std::vector<NoteRecord> saved(notes.size());
    STATUS status = withConnection([&] {
        Transaction tx(db_);
        for (size_t n = 0; n < notes.size(); ++n) {
            NoteBatchEntry& entry = notes[n];
            std::vector<ItemRecord> items = entry.items;
            std::vector<DWORD> rrvs;
            for (const std::vector<char>& bytes : entry.objects) {
                DWORD id = allocateRrv(db_);
                Statement insert(db_, "INSERT INTO objects(rrv, class, privileges, type, bytes) VALUES(?, ?, 0, ?, ?)");
                insert.bind(1, id).bind(2, NOTE_CLASS_DOCUMENT).bind(3, OBJECT_FILE).bindBlob(4, bytes).run();
                rrvs.push_back(id);
            }
            for (size_t i = 0; i < items.size() && i < entry.itemObject.size(); ++i) {
                int object = entry.itemObject[i];
                if (object < 0)
                    continue;
                if (static_cast<size_t>(object) >= rrvs.size() || items[i].value.size() < 8)
                    throw Failure{STS_BAD_ARGUMENT};
                std::memcpy(items[i].value.data() + 4, &rrvs[static_cast<size_t>(object)], sizeof(DWORD));
            }
            writeNote(db_, entry.record, saved[n], items, entry.how);
        }
        tx.commit();
    });
    if (status == NOERROR)
        for (size_t n = 0; n < notes.size(); ++n)
            notes[n].record = saved[n];
    return status;
}

STATUS Storage::listNotes(WORD classMask, bool withDeleted, const TIMEDATE* since, std::vector<NoteRecord>& out,
                          TIMEDATE& until)
{
    return withConnection([&] {
        Transaction snapshot(db_, "BEGIN");
        TIMEDATE now = nowTimedate();
        TIMEDATE last = lastDataModified(db_);
        until = timedateOrder(now) >= timedateOrder(last) ? now : last;
        std::string sql = std::string(kNoteColumns) + "WHERE (class & ?) != 0";
        if (!withDeleted)
            sql += " AND deleted = 0";
        if (since != nullptr)
            sql += " AND modified_order >= ?";
        Statement query(db_, (sql + " ORDER BY note_id").c_str());
        query.bind(1, classMask & NOTE_CLASS_ALL);
        if (since != nullptr)
            query.bind(2, static_cast<long long>(timedateOrder(*since)));
        out.clear();
        while (query.step())
            out.push_back(noteFromRow(query));
        snapshot.commit();
    });
}

STATUS Storage::scanSummaries(WORD classMask,
                              const std::function<void(const NoteRecord&, std::vector<ItemRecord>&)>& visit)
{
    return withConnection([&] {
        Transaction snapshot(db_, "BEGIN");
        std::string sql = "SELECT n.note_id, n.unid, n.sequence, n.sequence_time, n.class, n.flags, n.modified,"
                          " n.accessed, n.added, n.deleted, i.name, i.flags, i.value FROM notes n"
                          " LEFT JOIN items i ON i.note_id = n.note_id AND (i.flags & " +
                          std::to_string(ITEM_SUMMARY) +
                          ") != 0 WHERE (n.class & ?) != 0 AND n.deleted = 0 ORDER BY n.note_id, i.position";
        Statement query(db_, sql.c_str());
        query.bind(1, classMask & NOTE_CLASS_ALL);
        NoteRecord note;
        std::vector<ItemRecord> items;
        bool pending = false;
        while (query.step()) {
            NOTEID id = static_cast<NOTEID>(query.integer(0));
            if (pending && id != note.id) {
                visit(note, items);
                items.clear();
            }
            if (!pending || id != note.id)
                note = noteFromRow(query);
            pending = true;
            if (sqlite3_column_type(query.raw(), 10) != SQLITE_NULL)
                items.push_back(ItemRecord{query.text(10), static_cast<WORD>(query.integer(11)), query.blob(12)});
        }
        if (pending)
            visit(note, items);
        snapshot.commit();
    });
}

namespace {

// Databases written before folders held members lack their table.
void ensureFolderTable(sqlite3* db)
{
    execute(db, "CREATE TABLE IF NOT EXISTS folder_members(folder INTEGER NOT NULL, note_id INTEGER NOT NULL,"
                " PRIMARY KEY(folder, note_id)) WITHOUT ROWID");
}

bool hasFolderTable(sqlite3* db)
{
    Statement query(db, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'folder_members'");
    return query.step();
}

} // namespace

STATUS Storage::addToFolder(NOTEID folder, const std::vector<NOTEID>& documents)
{
    return withConnection([&] {
        Transaction tx(db_);
        ensureFolderTable(db_);
        for (NOTEID id : documents) {
            NoteRecord note;
            if (!selectNote(db_, "WHERE note_id = ?", id, note) || note.noteClass != NOTE_CLASS_DOCUMENT)
                throw Failure{ERR_INVALID_NOTE};
            if (note.deleted)
                throw Failure{ERR_NOTE_DELETED};
            Statement(db_, "INSERT OR IGNORE INTO folder_members(folder, note_id) VALUES(?, ?)").bind(1, folder).bind(2, id).run();
        }
        Statement(db_, "UPDATE dbinfo SET data_modified = ? WHERE id = 1").bind(1, packTime(nextModifiedTime(db_))).run();
        tx.commit();
    });
}

STATUS Storage::folderMembers(NOTEID folder, std::vector<NOTEID>& out)
{
    return withConnection([&] {
        out.clear();
        if (!hasFolderTable(db_))
            return;
        Statement query(db_, "SELECT note_id FROM folder_members WHERE folder = ? ORDER BY note_id");
        query.bind(1, folder);
        while (query.step())
            out.push_back(static_cast<NOTEID>(query.integer(0)));
    });
}

STATUS Storage::allocObject(DWORD size, WORD objectClass, WORD privileges, WORD type, DWORD& rrv)
{
    return withConnection([&] {
        Transaction tx(db_);
        DWORD id = allocateRrv(db_);
        Statement insert(db_, "INSERT INTO objects(rrv, class, privileges, type, bytes) VALUES(?, ?, ?, ?, zeroblob(?))");
        insert.bind(1, id).bind(2, objectClass).bind(3, privileges).bind(4, type).bind(5, size).run();
        tx.commit();
        rrv = id;
    });
}

STATUS Storage::storeObject(const std::vector<char>& bytes, WORD objectClass, WORD type, DWORD& rrv)
{
    return withConnection([&] {
        Transaction tx(db_);
        DWORD id = allocateRrv(db_);
        Statement insert(db_, "INSERT INTO objects(rrv, class, privileges, type, bytes) VALUES(?, ?, 0, ?, ?)");
        insert.bind(1, id).bind(2, objectClass).bind(3, type).bindBlob(4, bytes).run();
        tx.commit();
        rrv = id;
    });
}

STATUS Storage::writeObject(DWORD rrv, DWORD offset, const char* data, DWORD length)
{
    return withConnection([&] {
        Transaction tx(db_);
        Blob blob;
        openObjectBlob(db_, rrv, true, blob);
        unsigned long long size = static_cast<unsigned long long>(sqlite3_blob_bytes(blob.handle));
        if (static_cast<unsigned long long>(offset) + length > size)
            throw Failure{STS_BAD_ARGUMENT};
        if (length > 0)
            check(sqlite3_blob_write(blob.handle, data, static_cast<int>(length), static_cast<int>(offset)));
        sqlite3_blob_close(blob.handle);
        blob.handle = nullptr;
        tx.commit();
    });
}

STATUS Storage::readObject(DWORD rrv, DWORD offset, DWORD length, std::vector<char>& out)
{
    return withConnection([&] {
        Blob blob;
        openObjectBlob(db_, rrv, false, blob);
        unsigned long long size = static_cast<unsigned long long>(sqlite3_blob_bytes(blob.handle));
        if (offset > size)
            throw Failure{kErrObjectTruncated};
        unsigned long long count = length == MAXDWORD ? size - offset : length;
        if (offset + count > size)
            throw Failure{kErrObjectTruncated};
        out.assign(count, 0);
        if (count > 0)
            check(sqlite3_blob_read(blob.handle, out.data(), static_cast<int>(count), static_cast<int>(offset)));
    });
}

STATUS Storage::objectInfo(DWORD rrv, ObjectInfo& out)
{
    return withConnection([&] {
        Statement query(db_, "SELECT length(bytes), class, privileges FROM objects WHERE rrv = ?");
        query.bind(1, rrv);
        if (!query.step())
            throw Failure{ERR_NOT_FOUND};
        out.size = static_cast<DWORD>(query.integer(0));
        out.objectClass = static_cast<WORD>(query.integer(1));
        out.privileges = static_cast<WORD>(query.integer(2));
    });
}

STATUS Storage::freeObject(DWORD rrv)
{
    return withConnection([&] {
        Transaction tx(db_);
        Statement remove(db_, "DELETE FROM objects WHERE rrv = ?");
        remove.bind(1, rrv).run();
        if (sqlite3_changes(db_) == 0)
            throw Failure{ERR_NOT_FOUND};
        tx.commit();
    });
}

} // namespace sim
