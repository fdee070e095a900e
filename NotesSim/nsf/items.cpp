// NSFItem* entry points over the items of an open note.
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "sim_core.h"
#include "storage.h"

namespace sim {

const std::vector<char>* itemValue(const NoteItem& item)
{
    auto block = findAs<MemoryBlock>(item.value, HandleKind::Memory);
    return block ? &block->bytes : nullptr;
}

void addItem(NoteObject& note, const std::string& name, WORD flags, const std::vector<char>& value)
{
    NoteItem item;
    item.name = name;
    item.flags = flags;
    item.value = allocateMemoryWith(value.data(), value.size());
    note.items.push_back(item);
}

void releaseItem(NoteItem& item)
{
    releaseHandle(item.value, HandleKind::Memory);
    releaseHandle(item.header, HandleKind::Memory);
    item.value = item.header = NULLHANDLE;
}

bool sameItemName(const std::string& name, const char* other, size_t length)
{
    return name.size() == length && strncasecmp(name.data(), other, length) == 0;
}

std::vector<ItemRecord> itemRecords(const NoteObject& note)
{
    std::vector<ItemRecord> records;
    for (const NoteItem& item : note.items) {
        const std::vector<char>* value = itemValue(item);
        if (value != nullptr)
            records.push_back(ItemRecord{item.name, item.flags, *value});
    }
    return records;
}

BLOCKID blockOf(DHANDLE pool)
{
    BLOCKID id{};
    id.pool = pool;
    id.block = 0;
    return id;
}

// The item's header block: flags, name length, type, value length, then the name.
DHANDLE itemHeaderBlock(NoteItem& item, WORD type, DWORD valueLength)
{
    if (item.header != NULLHANDLE && findHandle(item.header, HandleKind::Memory))
        return item.header;
    std::vector<char> header(3 * sizeof(WORD) + sizeof(DWORD));
    WORD nameLength = static_cast<WORD>(item.name.size());
    std::memcpy(header.data(), &item.flags, sizeof(WORD));
    std::memcpy(header.data() + 2, &nameLength, sizeof(WORD));
    std::memcpy(header.data() + 4, &type, sizeof(WORD));
    std::memcpy(header.data() + 6, &valueLength, sizeof(DWORD));
    header.insert(header.end(), item.name.begin(), item.name.end());
    item.header = allocateMemoryWith(header.data(), header.size());
    return item.header;
}

namespace {

// The first item named `name` (`length` bytes; null = the first item), or null.
NoteItem* findItem(NoteObject& note, const char* name, size_t length)
{
    for (NoteItem& item : note.items)
        if (itemValue(item) != nullptr && (name == nullptr || sameItemName(item.name, name, length)))
            return &item;
    return nullptr;
}

// The type word and data of an item value.
bool splitValue(const std::vector<char>& value, WORD& type, const char*& data, size_t& size)
{
    if (value.size() < sizeof type)
        return false;
    std::memcpy(&type, value.data(), sizeof type);
    data = value.data() + sizeof type;
    size = value.size() - sizeof type;
    return true;
}

std::vector<char> valueWithType(WORD type, const void* data, size_t size)
{
    std::vector<char> value(sizeof type + size);
    std::memcpy(value.data(), &type, sizeof type);
    if (size != 0)
        std::memcpy(value.data() + sizeof type, data, size);
    return value;
}

// The text of a TYPE_TEXT value, or the first entry of a TYPE_TEXT_LIST.
bool textOfValue(const std::vector<char>& value, std::string& text)
{
    WORD type = 0;
    const char* data = nullptr;
    size_t size = 0;
    if (!splitValue(value, type, data, size))
        return false;
    if (type == TYPE_TEXT) {
        text.assign(data, size);
        return true;
    }
    WORD entries = 0;
    WORD firstLength = 0;
    if (type != TYPE_TEXT_LIST || size < 2 * sizeof(WORD))
        return false;
    std::memcpy(&entries, data, sizeof entries);
    if (entries == 0) {
        text.clear();
        return true;
    }
    std::memcpy(&firstLength, data + sizeof(WORD), sizeof firstLength);
    size_t start = sizeof(WORD) * (1 + entries);
    if (size < start + firstLength)
        return false;
    text.assign(data + start, firstLength);
    return true;
}

bool timeOfValue(const std::vector<char>& value, TIMEDATE& time)
{
    WORD type = 0;
    const char* data = nullptr;
    size_t size = 0;
    if (!splitValue(value, type, data, size))
        return false;
    if (type == TYPE_TIME && size == sizeof time) {
        std::memcpy(&time, data, sizeof time);
        return true;
    }
    RANGE range{};
    if (type != TYPE_TIME_RANGE || size < sizeof range + sizeof time)
        return false;
    std::memcpy(&range, data, sizeof range);
    if (range.ListEntries == 0)
        return false;
    std::memcpy(&time, data + sizeof range, sizeof time);
    return true;
}

void removeItemsNamed(NoteObject& note, const char* name, size_t length, bool& removed)
{
    removed = false;
    for (auto it = note.items.begin(); it != note.items.end();) {
        if (sameItemName(it->name, name, length)) {
            releaseItem(*it);
            it = note.items.erase(it);
            removed = true;
        } else {
            ++it;
        }
    }
}

} // namespace
} // namespace sim

STATUS impl::NSFItemAppend(NOTEHANDLE hNote, WORD ItemFlags, const char* ItemName, WORD NameLength, WORD ItemType,
                           const void* ItemValue, DWORD ValueLength)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    if (ItemName == nullptr || NameLength == 0 || (ItemValue == nullptr && ValueLength != 0))
        return sim::STS_BAD_ARGUMENT;
    sim::addItem(*note, std::string(ItemName, NameLength), ItemFlags, sim::valueWithType(ItemType, ItemValue, ValueLength));
    return NOERROR;
}

STATUS impl::NSFItemAppendObject(NOTEHANDLE hNote, WORD ItemFlags, const char* Name, WORD NameLength, BLOCKID bhValue,
                                 DWORD ValueLength, BOOL fDealloc)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    auto block = sim::findAs<sim::MemoryBlock>(bhValue.pool, sim::HandleKind::Memory);
    if (!block)
        return sim::STS_INVALID_HANDLE;
    if (Name == nullptr || NameLength == 0 || ValueLength < sizeof(WORD) ||
        static_cast<size_t>(bhValue.block) + ValueLength > block->bytes.size())
        return sim::STS_BAD_ARGUMENT;
    const char* start = block->bytes.data() + bhValue.block;
    sim::addItem(*note, std::string(Name, NameLength), ItemFlags, std::vector<char>(start, start + ValueLength));
    // The note owns the value from now on; our copy makes the block itself redundant.
    if (fDealloc)
        sim::releaseHandle(bhValue.pool, sim::HandleKind::Memory);
    return NOERROR;
}

STATUS impl::NSFItemSetText(NOTEHANDLE hNote, const char* ItemName, const char* ItemText, WORD TextLength)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    size_t length = TextLength == MAXWORD && ItemText != nullptr ? std::strlen(ItemText) : TextLength;
    if (ItemName == nullptr || ItemName[0] == '\0' || (ItemText == nullptr && length != 0))
        return sim::STS_BAD_ARGUMENT;
    bool removed = false;
    sim::removeItemsNamed(*note, ItemName, std::strlen(ItemName), removed);
    sim::addItem(*note, ItemName, ITEM_SUMMARY, sim::valueWithType(TYPE_TEXT, ItemText, length));
    return NOERROR;
}

WORD impl::NSFItemGetText(NOTEHANDLE hNote, const char* ItemName, char* ItemText, WORD TextLength)
{
    std::shared_ptr<sim::NoteObject> note;
    if (ItemText == nullptr || TextLength == 0 || ItemName == nullptr || sim::lookupNote(hNote, note) != NOERROR)
        return 0;
    ItemText[0] = '\0';
    sim::NoteItem* item = sim::findItem(*note, ItemName, std::strlen(ItemName));
    std::string text;
    if (item == nullptr || !sim::textOfValue(*sim::itemValue(*item), text))
        return 0;
    size_t count = std::min<size_t>(text.size(), TextLength - 1u);
    std::memcpy(ItemText, text.data(), count);
    ItemText[count] = '\0';
    return static_cast<WORD>(count);
}

BOOL impl::NSFItemGetTime(NOTEHANDLE hNote, const char* ItemName, TIMEDATE* ItemValue)
{
    std::shared_ptr<sim::NoteObject> note;
    if (ItemName == nullptr || ItemValue == nullptr || sim::lookupNote(hNote, note) != NOERROR)
        return FALSE;
    sim::NoteItem* item = sim::findItem(*note, ItemName, std::strlen(ItemName));
    TIMEDATE time;
    if (item == nullptr || !sim::timeOfValue(*sim::itemValue(*item), time))
        return FALSE;
    *ItemValue = time;
    return TRUE;
}

STATUS impl::NSFItemInfo(NOTEHANDLE hNote, const char* ItemName, WORD NameLength, BLOCKID* retItemBlockID,
                         WORD* retDataType, BLOCKID* retValueBlockID, DWORD* retValueLength)
{
    if (retDataType != nullptr)
        *retDataType = TYPE_INVALID_OR_UNKNOWN;
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    sim::NoteItem* item = sim::findItem(*note, ItemName, NameLength);
    if (item == nullptr)
        return ERR_ITEM_NOT_FOUND;
    const std::vector<char>& value = *sim::itemValue(*item);
    // A zero-length value has no type word at all; it stays of unknown type.
    WORD type = TYPE_INVALID_OR_UNKNOWN;
    if (value.size() >= sizeof type)
        std::memcpy(&type, value.data(), sizeof type);
    if (retDataType != nullptr)
        *retDataType = type;
    if (retValueBlockID != nullptr)
        *retValueBlockID = sim::blockOf(item->value);
    if (retValueLength != nullptr)
        *retValueLength = static_cast<DWORD>(value.size());
    if (retItemBlockID != nullptr)
        *retItemBlockID = sim::blockOf(sim::itemHeaderBlock(*item, type, static_cast<DWORD>(value.size())));
    return NOERROR;
}

STATUS impl::NSFItemDelete(NOTEHANDLE hNote, const char* ItemName, WORD NameLength)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    if (ItemName == nullptr)
        return sim::STS_BAD_ARGUMENT;
    bool removed = false;
    sim::removeItemsNamed(*note, ItemName, NameLength, removed);
    return removed ? NOERROR : ERR_ITEM_NOT_FOUND;
}

STATUS impl::NSFItemScan(NOTEHANDLE hNote, NSFITEMSCANPROC ActionRoutine, void* RoutineParameter)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hNote, note);
    if (status != NOERROR)
        return status;
    if (ActionRoutine == nullptr)
        return sim::STS_BAD_ARGUMENT;
    // The routine gets copies, so whatever it does to the note cannot pull the data away.
    for (const sim::ItemRecord& item : sim::itemRecords(*note)) {
        std::string name = item.name;
        std::vector<char> value = item.value;
        STATUS result = ActionRoutine(0, item.flags, name.data(), static_cast<WORD>(name.size()), value.data(),
                                      static_cast<DWORD>(value.size()), RoutineParameter);
        if (result != NOERROR)
            return result;
    }
    return NOERROR;
}
