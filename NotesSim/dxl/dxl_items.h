// Item values of the DXL service: the layouts the exporter reads and the importer writes.
#ifndef HYSIM_DXL_ITEMS_H
#define HYSIM_DXL_ITEMS_H

#include <cstring>
#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace sim {

// Rich text as this runtime keeps it: one record of its own holding the DXL markup
// of the paragraphs (the signature is not one of the published CD records).
constexpr WORD kMarkupSignature = 0x7FFE;

// FILEOBJECT fields, as offsets into an item value after its type word.
constexpr size_t kFileRrvAt = 2;
constexpr size_t kFileNameLengthAt = 6;
constexpr size_t kFileHostAt = 8;
constexpr size_t kFileCompressionAt = 10;
constexpr size_t kFileAttributesAt = 12;
constexpr size_t kFileFlagsAt = 14;
constexpr size_t kFileSizeAt = 16;
constexpr size_t kFileCreatedAt = 20;
constexpr size_t kFileModifiedAt = 28;
constexpr size_t kFileNameAt = 36;

// What the importer writes for <updatedby> and <revisions>, and the exporter turns back.
constexpr const char* kUpdatedByItem = "$UpdatedBy";
constexpr WORD kUpdatedByFlags = ITEM_SUMMARY | ITEM_NAMES;
constexpr const char* kRevisionsItem = "$Revisions";
constexpr WORD kRevisionsFlags = ITEM_SUMMARY;

template <class T>
T readAt(const std::vector<char>& bytes, size_t at)
{
    T value{};
    if (at + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

template <class T>
void appendValue(std::vector<char>& out, const T& value)
{
    const char* bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

// Types whose <item> is a summary item unless it says otherwise.
inline bool summaryByDefault(WORD type)
{
    return type == TYPE_TEXT || type == TYPE_TEXT_LIST || type == TYPE_NUMBER || type == TYPE_NUMBER_RANGE ||
           type == TYPE_TIME || type == TYPE_TIME_RANGE;
}

// Item flags written as <item> attributes (besides summary).
struct FlagAttribute {
    WORD flag;
    const char* name;
};
constexpr FlagAttribute kFlagAttributes[] = {
    {ITEM_SIGN, "sign"},          {ITEM_SEAL, "seal"},       {ITEM_READWRITERS, "authors"},
    {ITEM_NAMES, "names"},        {ITEM_READERS, "readers"}, {ITEM_PLACEHOLDER, "placeholder"},
    {ITEM_PROTECTED, "protected"}, {ITEM_UNCHANGED, "unchanged"},
};

// Attachment host types by their DXL names.
struct HostTypeName {
    WORD host;
    const char* name;
};
constexpr HostTypeName kHostTypes[] = {
    {0x0000, "msdos"}, {0x0200, "mac"}, {0x0300, "unknown"}, {0x0400, "hpfs"},
    // The remaining values are this runtime's own choice.
    {0x0B00, "cdstorage"}, {0x0C00, "bytearrayext"}, {0x0D00, "bytearraypage"}, {0x0E00, "stream"}, {0x0A00, "link"},
};

} // namespace sim

#endif
