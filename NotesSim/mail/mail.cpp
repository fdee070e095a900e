// Mail entry points over an open message note: its well-known items by number, and
// its file attachments in the order of their $FILE items.
#include <algorithm>
#include <cstring>
#include <string>

#include "sim_core.h"
#include "storage.h"

namespace sim {
namespace {

// Item names of the MAIL_xxx_ITEM_NUM codes this runtime knows; the remaining
// codes below kMailItemCount are answered as unsupported.
const char* const kMailItemNames[] = {
    "SendTo",            // 0
    "CopyTo",            // 1
    "From",              // 2
    "Subject",           // 3
    "ComposedDate",      // 4
    "PostedDate",        // 5
    "Body",              // 6
    "IntendedRecipient", // 7
    "FailureReason",     // 8
    "Recipients",        // 9
    "RoutingState",      // 10
    "Form",              // 11
    "$SavedForm",        // 12
    "BlindCopyTo",       // 13
    "DeliveryPriority",  // 14
    "DeliveryReport",    // 15
    "DeliveredDate",     // 16
    "DeliveryDate",      // 17
    "Categories",        // 18
    "FromDomain",        // 19
};
constexpr WORD kMailItemCount = 46; // MAIL_ITEMS

// Offsets in a $FILE value after its type word (canonical FILEOBJECT, then the name).
constexpr size_t kFileObjectType = 0;
constexpr size_t kFileNameLength = 6;
constexpr size_t kFileHostType = 8;
constexpr size_t kFileAttributes = 12;
constexpr size_t kFileSize = 16;
constexpr size_t kFileCreated = 20;
constexpr size_t kFileModified = 28;
constexpr size_t kFileName = 36;

template <class T>
T readAt(const char* data, size_t offset)
{
    T value;
    std::memcpy(&value, data + offset, sizeof value);
    return value;
}

// The item as text: a text as it is, a text list joined with commas, anything else empty.
std::string mailText(const std::vector<char>& value)
{
    if (value.size() < sizeof(WORD))
        return std::string();
    WORD type = readAt<WORD>(value.data(), 0);
    const char* data = value.data() + sizeof type;
    size_t size = value.size() - sizeof type;
    if (type == TYPE_TEXT)
        return std::string(data, size);
    if (type != TYPE_TEXT_LIST || size < sizeof(WORD))
        return std::string();
    WORD entries = readAt<WORD>(data, 0);
    size_t offset = sizeof(WORD) * (1 + static_cast<size_t>(entries));
    std::string text;
    for (WORD i = 0; i < entries && offset <= size; ++i) {
        WORD length = readAt<WORD>(data, sizeof(WORD) * (1 + static_cast<size_t>(i)));
        if (offset + length > size)
            break;
        if (i > 0)
            text += ',';
        text.append(data + offset, length);
        offset += length;
    }
    return text;
}

// A $FILE item that describes an attached file.
bool isFileAttachment(const NoteItem& item, const std::vector<char>*& value)
{
    value = itemValue(item);
    if (value == nullptr || !sameItemName(item.name, "$FILE", 5) || value->size() < sizeof(WORD) + kFileName)
        return false;
    const char* data = value->data() + sizeof(WORD);
    return readAt<WORD>(value->data(), 0) == TYPE_OBJECT && readAt<WORD>(data, kFileObjectType) == OBJECT_FILE &&
           value->size() >= sizeof(WORD) + kFileName + readAt<WORD>(data, kFileNameLength);
}

} // namespace
} // namespace sim

STATUS impl::MailGetMessageItem(DHANDLE hMessage, WORD ItemCode, char* retString, WORD StringSize,
                                WORD* retStringLength)
{
    std::shared_ptr<sim::NoteObject> note;
    STATUS status = sim::lookupNote(hMessage, note);
    if (status != NOERROR)
        return status;
    if (retString == nullptr || StringSize == 0 || ItemCode >= sim::kMailItemCount)
        return sim::STS_BAD_ARGUMENT;
    if (ItemCode >= sizeof sim::kMailItemNames / sizeof sim::kMailItemNames[0])
        return sim::STS_UNSUPPORTED;
    const char* name = sim::kMailItemNames[ItemCode];
    std::string text;
    for (const sim::NoteItem& item : note->items) {
        const std::vector<char>* value = sim::itemValue(item);
        if (value != nullptr && sim::sameItemName(item.name, name, std::strlen(name))) {
            text = sim::mailText(*value);
            break;
        }
    }
    // An absent item reads as an empty text; a long one is cut to the buffer.
    size_t count = std::min<size_t>(text.size(), StringSize - 1u);
    std::memcpy(retString, text.data(), count);
    retString[count] = '\0';
    if (retStringLength != nullptr)
        *retStringLength = static_cast<WORD>(count);
    return NOERROR;
}

BOOL impl::MailGetMessageAttachmentInfo(DHANDLE hMessage, WORD Num, BLOCKID* bhItem, char* FileName, DWORD* FileSize,
                                        WORD* FileAttributes, WORD* FileHostType, TIMEDATE* FileCreated,
                                        TIMEDATE* FileModified)
{
    std::shared_ptr<sim::NoteObject> note;
    if (bhItem == nullptr || sim::lookupNote(hMessage, note) != NOERROR)
        return FALSE;
    WORD index = 0;
    for (sim::NoteItem& item : note->items) {
        const std::vector<char>* value = nullptr;
        if (!sim::isFileAttachment(item, value) || index++ != Num)
            continue;
        const char* data = value->data() + sizeof(WORD);
        *bhItem = sim::blockOf(sim::itemHeaderBlock(item, TYPE_OBJECT, static_cast<DWORD>(value->size())));
        if (FileName != nullptr) {
            size_t length = std::min<size_t>(sim::readAt<WORD>(data, sim::kFileNameLength), MAXPATH);
            std::memcpy(FileName, data + sim::kFileName, length);
            FileName[length] = '\0';
        }
        if (FileSize != nullptr)
            *FileSize = sim::readAt<DWORD>(data, sim::kFileSize);
        if (FileAttributes != nullptr)
            *FileAttributes = sim::readAt<WORD>(data, sim::kFileAttributes);
        if (FileHostType != nullptr)
            *FileHostType = sim::readAt<WORD>(data, sim::kFileHostType);
        if (FileCreated != nullptr)
            *FileCreated = sim::readAt<TIMEDATE>(data, sim::kFileCreated);
        if (FileModified != nullptr)
            *FileModified = sim::readAt<TIMEDATE>(data, sim::kFileModified);
        return TRUE;
    }
    return FALSE;
}
