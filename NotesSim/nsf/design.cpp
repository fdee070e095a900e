// Design notes as the folder and collection services read them, and FolderDocAdd.
#include "design.h"

#include <cstring>

#include "idtables.h"
#include "sim_core.h"

namespace sim {
namespace {

// Unsupported flags (the published code; the runtime defines no FolderDocAdd flags).
constexpr STATUS kErrUnsupportedFlags = 0x0306;

std::string trimmed(const std::string& text)
{
    size_t first = text.find_first_not_of(' ');
    size_t last = text.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

std::string textListJoined(const char* data, size_t size)
{
    WORD entries = 0;
    if (size < sizeof entries)
        return std::string();
    std::memcpy(&entries, data, sizeof entries);
    size_t offset = sizeof(WORD) * (1 + static_cast<size_t>(entries));
    std::string joined;
    for (WORD i = 0; i < entries && offset <= size; ++i) {
        WORD length = 0;
        std::memcpy(&length, data + sizeof(WORD) * (1 + static_cast<size_t>(i)), sizeof length);
        if (offset + length > size)
            break;
        joined += (i == 0 ? "" : "|") + std::string(data + offset, length);
        offset += length;
    }
    return joined;
}

} // namespace

std::string designText(const std::vector<ItemRecord>& items, const char* name)
{
    for (const ItemRecord& item : items) {
        if (!sameItemName(item.name, name, std::strlen(name)) || item.value.size() < sizeof(WORD))
            continue;
        WORD type = 0;
        std::memcpy(&type, item.value.data(), sizeof type);
        const char* data = item.value.data() + sizeof type;
        size_t size = item.value.size() - sizeof type;
        if (type == TYPE_TEXT)
            return std::string(data, size);
        if (type == TYPE_TEXT_LIST)
            return textListJoined(data, size);
        return std::string();
    }
    return std::string();
}

std::vector<std::string> designNames(const std::string& title)
{
    std::vector<std::string> names;
    size_t start = 0;
    while (true) {
        size_t bar = title.find('|', start);
        names.push_back(trimmed(title.substr(start, bar == std::string::npos ? std::string::npos : bar - start)));
        if (bar == std::string::npos)
            return names;
        start = bar + 1;
    }
}

STATUS checkFolder(Storage& storage, NOTEID folder)
{
    NoteRecord record;
    STATUS status = storage.findNote(folder, record);
    if (status != NOERROR)
        return status;
    if (record.deleted)
        return ERR_NOTE_DELETED;
    std::vector<ItemRecord> items;
    if (record.noteClass == NOTE_CLASS_VIEW && (status = storage.readItems(folder, false, items)) != NOERROR)
        return status;
    bool folderFlag = designText(items, "$Flags").find(kFolderFlag) != std::string::npos;
    return record.noteClass == NOTE_CLASS_VIEW && folderFlag ? NOERROR : STS_NOT_A_FOLDER;
}

} // namespace sim

STATUS impl::FolderDocAdd(DBHANDLE hDataDB, DBHANDLE hFolderDB, NOTEID FolderNoteID, DHANDLE hTable, DWORD dwFlags)
{
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDataDB, storage);
    if (status != NOERROR)
        return status;
    // The folder lives in the data database; another folder database is not simulated.
    std::shared_ptr<sim::Storage> folderStorage;
    if (hFolderDB != NULLHANDLE && (status = sim::lookupStorage(hFolderDB, folderStorage)) != NOERROR)
        return status;
    if (folderStorage && folderStorage->path() != storage->path())
        return sim::STS_UNSUPPORTED;
    if (dwFlags != 0)
        return sim::kErrUnsupportedFlags;
    auto table = sim::findIdTable(hTable);
    if (!table)
        return sim::STS_INVALID_HANDLE;
    if ((status = sim::checkFolder(*storage, FolderNoteID)) != NOERROR)
        return status;
    std::vector<NOTEID> documents;
    uint32_t id = 0;
    for (bool more = table->ids.first(id); more; more = table->ids.next(id, id))
        documents.push_back(id);
    return storage->addToFolder(FolderNoteID, documents);
}
