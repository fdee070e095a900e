// NSFNote* entry points: notes live in memory from create/open until update.
#include <cstring>

#include "idtables.h"
#include "sim_core.h"
#include "storage.h"

namespace sim {

STATUS lookupNote(NOTEHANDLE handle, std::shared_ptr<NoteObject>& out)
{
    if (handle == NULLHANDLE)
        return ERR_NULL_NOTEHANDLE;
    out = findAs<NoteObject>(handle, HandleKind::Note);
    return out ? NOERROR : STS_INVALID_HANDLE;
}

STATUS lookupNoteAndStorage(NOTEHANDLE handle, std::shared_ptr<NoteObject>& note, std::shared_ptr<Storage>& storage)
{
    STATUS status = lookupNote(handle, note);
    return status != NOERROR ? status : lookupStorage(note->database, storage);
}

// An update writes these: a summary-only open must not drop the items it did not read.
STATUS completeItems(const NoteObject& note, Storage& storage, std::vector<ItemRecord>& out)
{
    out = itemRecords(note);
    if (!note.summaryOnly)
        return NOERROR;
    std::vector<ItemRecord> stored;
    STATUS status = storage.readItems(note.record.id, false, stored);
    for (ItemRecord& item : stored)
        if ((item.flags & ITEM_SUMMARY) == 0)
            out.push_back(std::move(item));
    return status;
}

namespace {

// Summary items travel in buffers whose length is a WORD.
constexpr size_t kMaxSummaryBytes = 0xFFFF;

template <class T>
std::vector<char> typedValue(WORD type, const std::vector<T>& parts)
{
    std::vector<char> value(sizeof type);
    std::memcpy(value.data(), &type, sizeof type);
    for (const T& part : parts) {
        const char* bytes = reinterpret_cast<const char*>(&part);
        value.insert(value.end(), bytes, bytes + sizeof part);
    }
    return value;
}

// OPEN_EXPAND: single values become one-entry lists and ranges.
std::vector<char> expandedValue(const std::vector<char>& value)
{
    WORD type = 0;
    if (value.size() < sizeof type)
        return value;
    std::memcpy(&type, value.data(), sizeof type);
    size_t dataSize = value.size() - sizeof type;
    std::vector<char> expanded;
    if (type == TYPE_TEXT && dataSize <= MAXWORD) {
        expanded = typedValue<WORD>(TYPE_TEXT_LIST, {1, static_cast<WORD>(dataSize)});
    } else if ((type == TYPE_NUMBER && dataSize == sizeof(NUMBER)) || (type == TYPE_TIME && dataSize == sizeof(TIMEDATE))) {
        expanded = typedValue<WORD>(type == TYPE_NUMBER ? TYPE_NUMBER_RANGE : TYPE_TIME_RANGE, {1, 0});
    } else {
        return value;
    }
    expanded.insert(expanded.end(), value.begin() + sizeof type, value.end());
    return expanded;
}

UNID unidOf(const NoteRecord& record)
{
    UNID unid;
    std::memcpy(&unid, &record.oid, sizeof unid);
    return unid;
}

STATUS openNote(DBHANDLE hDB, const std::shared_ptr<Storage>& storage, const NoteRecord& record, DWORD flags,
                NOTEHANDLE* rethNote)
{
    if (record.deleted)
        return ERR_NOTE_DELETED;
    std::vector<ItemRecord> items;
    STATUS status = storage->readItems(record.id, (flags & OPEN_SUMMARY) != 0, items);
    if (status != NOERROR)
        return status;
    std::vector<NOTEID> responses;
    if (flags & OPEN_RESPONSE_ID_TABLE)
        status = storage->responsesOf(unidOf(record), responses);
    if (status != NOERROR)
        return status;
    auto note = std::make_shared<NoteObject>();
    note->database = hDB;
    note->record = record;
    note->modifiedWhenOpened = record.modified;
    note->summaryOnly = (flags & OPEN_SUMMARY) != 0;
    for (const ItemRecord& item : items)
        addItem(*note, item.name, item.flags, (flags & OPEN_EXPAND) ? expandedValue(item.value) : item.value);
    if (flags & OPEN_RESPONSE_ID_TABLE) {
        note->responses = createIdTable();
        for (NOTEID response : responses)
            idTableInsert(note->responses, response);
    }
    *rethNote = registerHandle(note);
    return NOERROR;
}

DWORD responseCount(const NoteObject& note)
{
    std::shared_ptr<Storage> storage;
    std::vector<NOTEID> responses;
    if (note.record.id == 0 || lookupStorage(note.database, storage) != NOERROR ||
        storage->responsesOf(unidOf(note.record), responses) != NOERROR)
        return 0;
    return static_cast<DWORD>(responses.size());
}

STATUS openNoteById(DBHANDLE hDB, NOTEID NoteID, DWORD flags, NOTEHANDLE* rethNote)
{
    if (rethNote == nullptr)
        return STS_BAD_ARGUMENT;
    std::shared_ptr<Storage> storage;
    NoteRecord record;
    STATUS status = lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->findNote(NoteID, record);
    return status != NOERROR ? status : openNote(hDB, storage, record, flags, rethNote);
}

size_t summaryBytes(const NoteObject& note)
{
    size_t total = sizeof(ITEM_TABLE);
    for (const NoteItem& item : note.items) {
        const std::vector<char>* value = itemValue(item);
        if ((item.flags & ITEM_SUMMARY) && value != nullptr)
            total += sizeof(ITEM) + item.name.size() + value->size();
    }
    return total;
}

// The note a response's $REF item points to, or 0.
NOTEID parentNoteId(const NoteObject& note, Storage& storage)
{
    for (const NoteItem& item : note.items) {
        const std::vector<char>* value = itemValue(item);
        WORD type = 0;
        WORD entries = 0;
        if (!sameItemName(item.name, "$REF", 4) || value == nullptr || value->size() < 4 + sizeof(UNID))
            continue;
        std::memcpy(&type, value->data(), sizeof type);
        std::memcpy(&entries, value->data() + 2, sizeof entries);
        if (type != TYPE_NOTEREF_LIST || entries == 0)
            continue;
        UNID parent;
        std::memcpy(&parent, value->data() + 4, sizeof parent);
        NoteRecord record;
        return storage.findNoteByUnid(parent, record) == NOERROR && !record.deleted ? record.id : 0;
    }
    return 0;
}

template <class T>
void put(void* out, const T& value)
{
    std::memcpy(out, &value, sizeof value);
}

template <class T>
void take(const void* in, T& value)
{
    if (in == nullptr)
        value = T{};
    else
        std::memcpy(&value, in, sizeof value);
}

} // namespace
} // namespace sim

STATUS impl::NSFNoteCreate(DBHANDLE hDB, NOTEHANDLE* rethNote)
{
    if (rethNote == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    sim::DatabaseProperties properties;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->readProperties(properties);
    if (status != NOERROR)
        return status;
    auto note = std::make_shared<sim::NoteObject>();
    note->database = hDB;
    UNID unid = sim::makeUnid(properties.replica.ID);
    std::memcpy(&note->record.oid, &unid, sizeof unid);
    *rethNote = sim::registerHandle(note);
    return NOERROR;
}

STATUS impl::NSFNoteOpen(DBHANDLE hDB, NOTEID NoteID, WORD OpenFlags, NOTEHANDLE* rethNote)
{
    return sim::openNoteById(hDB, NoteID, OpenFlags, rethNote);
}

STATUS impl::NSFNoteOpenExt(DBHANDLE hDB, NOTEID NoteID, DWORD OpenFlags, NOTEHANDLE* rethNote)
{
    return sim::openNoteById(hDB, NoteID, OpenFlags, rethNote);
}

STATUS impl::NSFNoteOpenByUNID(DBHANDLE hDB, UNID* pUNID, WORD OpenFlags, NOTEHANDLE* rethNote)
{
    if (pUNID == nullptr || rethNote == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    sim::NoteRecord record;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->findNoteByUnid(*pUNID, record);
    return status != NOERROR ? status : sim::openNote(hDB, storage, record, OpenFlags, rethNote);
}

STATUS impl::NSFNoteUpdate(NOTEHANDLE hNote, WORD UpdateFlags)
{
    std::shared_ptr<sim::NoteObject> note;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupNoteAndStorage(hNote, note, storage);
    if (status != NOERROR)
        return status;
    if (sim::summaryBytes(*note) > sim::kMaxSummaryBytes)
        return sim::kErrSummaryTooBig;
    sim::NoteSave how;
    how.modifiedWhenOpened = note->modifiedWhenOpened;
    how.force = (UpdateFlags & UPDATE_FORCE) != 0;
    std::vector<sim::ItemRecord> items;
    status = sim::completeItems(*note, *storage, items);
    if (status == NOERROR)
        status = storage->saveNote(note->record, items, how);
    if (status == NOERROR)
        note->modifiedWhenOpened = note->record.modified;
    return status;
}

STATUS impl::NSFNoteClose(NOTEHANDLE hNote)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    for (sim::NoteItem& item : note->items)
        sim::releaseItem(item);
    note->items.clear();
    sim::releaseHandle(note->responses, sim::HandleKind::IdTable);
    sim::releaseHandle(hNote, sim::HandleKind::Note);
    return NOERROR;
}

void impl::NSFNoteGetInfo(NOTEHANDLE hNote, WORD Member, void* ValuePtr)
{
    std::shared_ptr<sim::NoteObject> note;
    if (ValuePtr == nullptr || sim::lookupNote(hNote, note) != NOERROR)
        return;
    const sim::NoteRecord& record = note->record;
    std::shared_ptr<sim::Storage> storage;
    switch (Member) {
    case _NOTE_DB:
    case _NOTE_OBJSTORE_DB:
        sim::put<DBHANDLE>(ValuePtr, note->database);
        break;
    case _NOTE_ID:
        sim::put(ValuePtr, record.id);
        break;
    case _NOTE_OID:
        sim::put(ValuePtr, record.oid);
        break;
    case _NOTE_CLASS:
        sim::put(ValuePtr, record.noteClass);
        break;
    case _NOTE_MODIFIED:
        sim::put(ValuePtr, record.modified);
        break;
    case _NOTE_PRIVILEGES:
        sim::put<WORD>(ValuePtr, 0);
        break;
    case _NOTE_FLAGS:
        sim::put(ValuePtr, record.flags);
        break;
    case _NOTE_ACCESSED:
        sim::put(ValuePtr, record.accessed);
        break;
    case _NOTE_ADDED_TO_FILE:
        sim::put(ValuePtr, record.addedToFile);
        break;
    case _NOTE_RESPONSE_COUNT:
        sim::put(ValuePtr, sim::responseCount(*note));
        break;
    case _NOTE_RESPONSES:
        sim::put<DHANDLE>(ValuePtr, note->responses);
        break;
    case _NOTE_PARENT_NOTEID:
        sim::put<NOTEID>(ValuePtr, sim::lookupStorage(note->database, storage) == NOERROR
                                       ? sim::parentNoteId(*note, *storage)
                                       : 0);
        break;
    default:
        break;
    }
}

void impl::NSFNoteSetInfo(NOTEHANDLE hNote, WORD Member, void* ValuePtr)
{
    std::shared_ptr<sim::NoteObject> note;
    if (sim::lookupNote(hNote, note) != NOERROR)
        return;
    sim::NoteRecord& record = note->record;
    switch (Member) {
    case _NOTE_DB:
        sim::take(ValuePtr, note->database);
        break;
    case _NOTE_ID:
        sim::take(ValuePtr, record.id);
        break;
    case _NOTE_OID:
        sim::take(ValuePtr, record.oid);
        break;
    case _NOTE_CLASS:
        sim::take(ValuePtr, record.noteClass);
        break;
    case _NOTE_MODIFIED:
        sim::take(ValuePtr, record.modified);
        break;
    case _NOTE_FLAGS:
        sim::take(ValuePtr, record.flags);
        break;
    case _NOTE_ACCESSED:
        sim::take(ValuePtr, record.accessed);
        break;
    case _NOTE_ADDED_TO_FILE:
        sim::take(ValuePtr, record.addedToFile);
        break;
    default:
        break; // the other members are derived from the file and cannot be set
    }
}

namespace sim {
namespace {
// Fills the optional outputs of the note-information calls; a stub reports ERR_NOTE_DELETED.
STATUS reportNoteInfo(const NoteRecord& record, NOTEID* retNoteID, OID* retOID, TIMEDATE* retModified, WORD* retClass)
{
    if (retNoteID != nullptr)
        *retNoteID = record.id;
    if (retOID != nullptr)
        *retOID = record.oid;
    if (retModified != nullptr)
        *retModified = record.modified;
    if (retClass != nullptr)
        *retClass = record.noteClass;
    return record.deleted ? ERR_NOTE_DELETED : NOERROR;
}
} // namespace
} // namespace sim

STATUS impl::NSFDbGetNoteInfo(DBHANDLE hDb, NOTEID NoteID, OID* retNoteOID, TIMEDATE* retModified, WORD* retNoteClass)
{
    std::shared_ptr<sim::Storage> storage;
    sim::NoteRecord record;
    STATUS status = sim::lookupStorage(hDb, storage);
    if (status == NOERROR)
        status = storage->findNote(NoteID, record);
    return status != NOERROR ? status : sim::reportNoteInfo(record, nullptr, retNoteOID, retModified, retNoteClass);
}

STATUS impl::NSFDbGetNoteInfoByUNID(DBHANDLE hDB, UNID* pUNID, NOTEID* retNoteID, OID* retOID, TIMEDATE* retModTime,
                                    WORD* retClass)
{
    if (pUNID == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    sim::NoteRecord record;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->findNoteByUnid(*pUNID, record);
    return status != NOERROR ? status : sim::reportNoteInfo(record, retNoteID, retOID, retModTime, retClass);
}

STATUS impl::NSFNoteDelete(DBHANDLE hDB, NOTEID NoteID, WORD UpdateFlags)
{
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status != NOERROR)
        return status;
    return storage->removeNote(NoteID, (UpdateFlags & UPDATE_NOSTUB) ? sim::NoteRemoval::NoStub : sim::NoteRemoval::Stub);
}

STATUS impl::NSFNoteHardDelete(DBHANDLE hDB, NOTEID NoteID, DWORD Reserved)
{
    (void)Reserved;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    // There is no soft deletion here: a hard delete takes a live note or its stub for good.
    return status != NOERROR ? status : storage->removeNote(NoteID, sim::NoteRemoval::Purge);
}
