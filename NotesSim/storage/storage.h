// Storage of the simulated databases: each database file is an SQLite file of
// its own (WAL journal, so a killed process loses no committed transaction and
// several handles and processes can share a file), plus the handle objects the
// NSF entry points hand out for databases and notes.
#ifndef HYSIM_STORAGE_H
#define HYSIM_STORAGE_H

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"
#include "handles.h"

struct sqlite3;

namespace sim {

// Domino codes the storage layer returns that the API header does not declare.
enum : STATUS {
    kErrConflict = 0x0205,
    kErrNsfInfoSize = 0x022D,
    kErrSummaryTooBig = 0x0231,
    kErrDbClass = 0x0232,
    kErrSpecialId = 0x0242,
    kErrObjectTruncated = 0x024F,
};

// Orders TIMEDATEs by their GMT moment (Julian day, then ticks), ignoring the zone byte.
unsigned long long timedateOrder(const TIMEDATE& time);
bool isWildcardTime(const TIMEDATE& time);
// A new universal ID: random bits stamped with the database's replica ID, and now.
UNID makeUnid(const TIMEDATE& replicaId);

struct DatabaseProperties {
    std::string info;           // NSFDbInfoGet buffer text, at most NSF_INFO_SIZE - 1 bytes
    DBREPLICAINFO replica{};
    DBID dbid{};                // creation time
    TIMEDATE dataModified{};
    TIMEDATE nonDataModified{};
    DWORD options = 0;
    WORD dbClass = DBCLASS_NOTEFILE;
    DWORD quotaWarningKB = 0;   // 0 = none
    DWORD quotaLimitKB = 0;     // 0 = none
};

// The header of a note as stored.
struct NoteRecord {
    NOTEID id = 0;
    ORIGINATORID oid{};         // the first 16 bytes are the UNID
    WORD noteClass = NOTE_CLASS_DOCUMENT;
    WORD flags = 0;
    TIMEDATE modified{};
    TIMEDATE accessed{};
    TIMEDATE addedToFile{};
    bool deleted = false;
};

// One item as stored: `value` starts with the 2-byte type word.
struct ItemRecord {
    std::string name;
    WORD flags = 0;
    std::vector<char> value;
};

struct ObjectInfo {
    DWORD size = 0;
    WORD objectClass = 0;
    WORD privileges = 0;
};

// How NSFNoteUpdate wants the note written.
struct NoteSave {
    TIMEDATE modifiedWhenOpened{}; // zero for a note not read from the file
    bool force = false;            // UPDATE_FORCE: no conflict check
};

// How a note leaves the database.
enum class NoteRemoval {
    Stub,   // a deletion stub keeps ID, UNID and class, with a new sequence, so replicas learn of it
    NoStub, // gone for good
    Purge,  // gone for good, deletion stubs included
};

// One note of a batch written all or nothing: its items, and the bytes of new objects
// that TYPE_OBJECT items refer to by index (itemObject[i] = index, or -1 for none);
// the stored object ID replaces the item's RRV.
struct NoteBatchEntry {
    NoteRecord record;
    std::vector<ItemRecord> items;
    std::vector<int> itemObject;
    std::vector<std::vector<char>> objects;
    NoteSave how;
};

// The ACL image a new database receives (NSFDbReadACL hands it out as is):
//   DWORD magic 'HACL', WORD version 1, WORD entry count, then per entry
//   WORD access level (0 no access .. 6 manager), WORD flags, WORD name length, name bytes.
enum : WORD {
    kAclNoAccess = 0,
    kAclDepositor = 1,
    kAclReader = 2,
    kAclAuthor = 3,
    kAclEditor = 4,
    kAclDesigner = 5,
    kAclManager = 6,
};
std::vector<char> defaultAclImage(const std::string& serverName);

// One database file, reached through an SQLite connection that is opened on demand
// and may be closed between calls. Every writing call is one transaction.
class Storage {
public:
    // Writes a new, empty database at `path` (which must not exist unless `overwrite`).
    static STATUS create(const std::string& path, WORD dbClass, bool overwrite);
    // ERR_NOEXIST, ERR_NOT_NSF (not a database of ours) or STS_STORAGE (unreadable).
    static STATUS open(const std::string& path, std::shared_ptr<Storage>& out);
    ~Storage();
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    const std::string& path() const { return path_; }

    STATUS readProperties(DatabaseProperties& out);
    STATUS writeInfo(const std::string& info);
    STATUS writeReplicaInfo(const DBREPLICAINFO& replica);
    STATUS readAcl(std::vector<char>& out);
    STATUS spaceUsage(unsigned long long& allocatedBytes, unsigned long long& freeBytes);

    // ERR_INVALID_NOTE when unknown; deleted notes (stubs) are found with `deleted` set.
    // NOTE_ID_SPECIAL | class finds the default note of that class (kErrSpecialId if none).
    STATUS findNote(NOTEID id, NoteRecord& out);
    // ERR_NOT_FOUND when unknown.
    STATUS findNoteByUnid(const UNID& unid, NoteRecord& out);
    STATUS readItems(NOTEID id, bool summaryOnly, std::vector<ItemRecord>& out);
    // Live notes whose $REF names `parent`, in note ID order.
    STATUS responsesOf(const UNID& parent, std::vector<NOTEID>& out);
    // Writes the note and its items in one transaction: a new note (id 0) gets its note
    // ID; every save stamps modified time, sequence and sequence time into `note`.
    STATUS saveNote(NoteRecord& note, const std::vector<ItemRecord>& items, const NoteSave& how);
    // Drops the note's items and objects. ERR_INVALID_NOTE when unknown; ERR_NOTE_DELETED
    // when a stub is met, unless purging. Counts as a data change, like a save.
    STATUS removeNote(NOTEID id, NoteRemoval how);
    // Saves every note of the batch in one transaction: a failure leaves the file as it was.
    STATUS saveNotes(std::vector<NoteBatchEntry>& notes);
    // Notes of the class mask in note ID order: live ones, and stubs when asked; only
    // those modified at or after `since` when given. `until` receives the time to pass
    // as the next `since`: every later change is stamped at or after it.
    STATUS listNotes(WORD classMask, bool withDeleted, const TIMEDATE* since, std::vector<NoteRecord>& out,
                     TIMEDATE& until);

    // Live notes of the class mask with their summary items, in note ID order, read in
    // one pass. `visit` must not call this storage.
    STATUS scanSummaries(WORD classMask, const std::function<void(const NoteRecord&, std::vector<ItemRecord>&)>& visit);

    // Files live documents in a folder note (all or none: ERR_INVALID_NOTE or
    // ERR_NOTE_DELETED name a note that is not one). Counts as a data change.
    STATUS addToFolder(NOTEID folder, const std::vector<NOTEID>& documents);
    // The notes filed in a folder, in note ID order, whether or not they still exist.
    STATUS folderMembers(NOTEID folder, std::vector<NOTEID>& out);

    STATUS allocObject(DWORD size, WORD objectClass, WORD privileges, WORD type, DWORD& rrv);
    STATUS storeObject(const std::vector<char>& bytes, WORD objectClass, WORD type, DWORD& rrv);
    STATUS writeObject(DWORD rrv, DWORD offset, const char* data, DWORD length);
    STATUS readObject(DWORD rrv, DWORD offset, DWORD length, std::vector<char>& out);
    STATUS objectInfo(DWORD rrv, ObjectInfo& out);
    STATUS freeObject(DWORD rrv);

    // SQLite connections open now, over all databases (bounded; see Pool).
    static size_t openConnectionCount();

private:
    struct Pool;
    explicit Storage(std::string path) : path_(std::move(path)) {}
    // Opens the connection when it is closed (first use, or closed for another one).
    STATUS connect();
    // Runs `body` on an open connection that is not closed while it runs.
    template <class F>
    STATUS withConnection(F body);

    sqlite3* db_ = nullptr;
    std::string path_;
    bool identified_ = false; // device_ and inode_ are those of the file first opened
    unsigned long long device_ = 0;
    unsigned long long inode_ = 0;
    int busy_ = 0;
    std::list<Storage*>::iterator lruPosition_; // in the pool while db_ is open
};

// A database or directory handle.
struct DatabaseObject : HandleObject {
    DatabaseObject() : HandleObject(HandleKind::Database) {}
    std::string absolutePath;
    bool isDirectory = false;
    std::shared_ptr<Storage> storage; // null for a directory
};

// An item of an open note; its value (type word first) lives in a memory block
// that NSFItemInfo hands out as BLOCKID {value, 0}.
struct NoteItem {
    std::string name;
    WORD flags = 0;
    DHANDLE value = NULLHANDLE;
    DHANDLE header = NULLHANDLE; // item BLOCKID pool, made when first asked for
};

// An open (or new) note: everything stays in memory until NSFNoteUpdate.
struct NoteObject : HandleObject {
    NoteObject() : HandleObject(HandleKind::Note) {}
    DBHANDLE database = NULLHANDLE;
    NoteRecord record;
    TIMEDATE modifiedWhenOpened{};
    std::vector<NoteItem> items;
    DHANDLE responses = NULLHANDLE; // ID table, made by OPEN_RESPONSE_ID_TABLE
    bool summaryOnly = false;       // opened with OPEN_SUMMARY: the other items stay in the file
};

// The database behind a handle: NULLHANDLE gives ERR_NULL_DBHANDLE, an unknown one
// STS_INVALID_HANDLE, a directory ERR_DIRECTORY.
STATUS lookupDatabase(DBHANDLE handle, std::shared_ptr<DatabaseObject>& out);
STATUS lookupStorage(DBHANDLE handle, std::shared_ptr<Storage>& out);
// The ACL image of the database behind `handle`.
STATUS readAclOf(DBHANDLE handle, std::vector<char>& image);
STATUS lookupNote(NOTEHANDLE handle, std::shared_ptr<NoteObject>& out);
// The note and the storage of the database it belongs to.
STATUS lookupNoteAndStorage(NOTEHANDLE handle, std::shared_ptr<NoteObject>& note,
                            std::shared_ptr<Storage>& storage);

// Item helpers shared by the note and item services.
const std::vector<char>* itemValue(const NoteItem& item);
void addItem(NoteObject& note, const std::string& name, WORD flags, const std::vector<char>& value);
void releaseItem(NoteItem& item);
bool sameItemName(const std::string& name, const char* other, size_t length);
std::vector<ItemRecord> itemRecords(const NoteObject& note);
// Every item of the note, also the non-summary ones a summary-only open left in the file.
STATUS completeItems(const NoteObject& note, Storage& storage, std::vector<ItemRecord>& out);
// The BLOCKID of a block of the note's (one pool per block, offset 0).
BLOCKID blockOf(DHANDLE pool);
// The item's header block: flags, name length, type, value length, then the name.
DHANDLE itemHeaderBlock(NoteItem& item, WORD type, DWORD valueLength);

} // namespace sim

#endif
