// Summary buffers: writing them for search callbacks and collection reads, and
// finding items in them for NSFGetSummaryValue / NSFLocateSummaryValue.
#include "summary.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "sim_core.h"

namespace {

constexpr size_t kMaxSummarySize = 0xFFFF; // ITEM_TABLE.Length is a WORD

void appendBytes(std::vector<char>& out, const void* data, size_t size)
{
    size_t at = out.size();
    out.resize(at + size);
    if (size != 0)
        std::memcpy(out.data() + at, data, size);
}

template <class T>
void append(std::vector<char>& out, const T& value)
{
    appendBytes(out, &value, sizeof value);
}

template <class T>
T readAt(const char* base, size_t offset)
{
    T value;
    std::memcpy(&value, base + offset, sizeof value);
    return value;
}

bool sameName(const char* stored, size_t storedLength, const std::string& wanted)
{
    return storedLength == wanted.size() &&
           std::equal(wanted.begin(), wanted.end(), stored, [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           });
}

} // namespace

namespace sim {

void SummaryBuilder::addText(const std::string& name, const std::string& text)
{
    addRaw(name, TYPE_TEXT, text.data(), text.size());
}

void SummaryBuilder::addTextList(const std::string& name, const std::vector<std::string>& texts)
{
    std::vector<char> data;
    append(data, LIST{static_cast<WORD>(texts.size())});
    for (const std::string& text : texts)
        append(data, static_cast<WORD>(text.size()));
    for (const std::string& text : texts)
        appendBytes(data, text.data(), text.size());
    addRaw(name, TYPE_TEXT_LIST, data.data(), data.size());
}

void SummaryBuilder::addNumber(const std::string& name, double value)
{
    addRaw(name, TYPE_NUMBER, &value, sizeof value);
}

void SummaryBuilder::addTime(const std::string& name, const TIMEDATE& value)
{
    addRaw(name, TYPE_TIME, &value, sizeof value);
}

void SummaryBuilder::addRaw(const std::string& name, WORD type, const void* data, size_t size)
{
    Entry entry{name, {}};
    append(entry.value, type);
    appendBytes(entry.value, data, size);
    entries_.push_back(std::move(entry));
}

void SummaryBuilder::addEmpty(const std::string& name)
{
    entries_.push_back(Entry{name, {}});
}

std::vector<char> SummaryBuilder::build() const
{
    std::vector<const Entry*> kept;
    size_t total = sizeof(ITEM_TABLE);
    for (const Entry& entry : entries_) {
        size_t cost = sizeof(ITEM) + entry.name.size() + entry.value.size();
        if (total + cost <= kMaxSummarySize) {
            kept.push_back(&entry);
            total += cost;
        }
    }
    std::vector<char> buffer;
    buffer.reserve(total);
    append(buffer, ITEM_TABLE{static_cast<WORD>(total), static_cast<WORD>(kept.size())});
    for (const Entry* entry : kept)
        append(buffer, ITEM{static_cast<WORD>(entry->name.size()), static_cast<WORD>(entry->value.size())});
    for (const Entry* entry : kept) {
        appendBytes(buffer, entry->name.data(), entry->name.size());
        appendBytes(buffer, entry->value.data(), entry->value.size());
    }
    return buffer;
}

bool findSummaryValue(const void* summary, const std::string& name, SummaryValue& value)
{
    if (summary == nullptr)
        return false;
    const char* base = static_cast<const char*>(summary);
    auto table = readAt<ITEM_TABLE>(base, 0);
    size_t offset = sizeof(ITEM_TABLE) + size_t{table.Items} * sizeof(ITEM);
    for (size_t i = 0; i < table.Items && offset <= table.Length; ++i) {
        auto item = readAt<ITEM>(base, sizeof(ITEM_TABLE) + i * sizeof(ITEM));
        const char* itemName = base + offset;
        const char* itemValue = itemName + item.NameLength;
        offset += size_t{item.NameLength} + item.ValueLength;
        if (offset > table.Length || !sameName(itemName, item.NameLength, name))
            continue;
        bool typed = item.ValueLength >= sizeof(WORD);
        value.type = typed ? readAt<WORD>(itemValue, 0) : WORD{TYPE_INVALID_OR_UNKNOWN};
        value.data = typed ? itemValue + sizeof(WORD) : itemValue;
        value.length = static_cast<WORD>(typed ? item.ValueLength - sizeof(WORD) : 0);
        return true;
    }
    return false;
}

} // namespace sim

BOOL impl::NSFGetSummaryValue(const void* SummaryBuffer, const char* ItemName, char* ItemValue, WORD MaxLength)
{
    sim::SummaryValue value;
    if (ItemName == nullptr || !sim::findSummaryValue(SummaryBuffer, ItemName, value) || value.type != TYPE_TEXT)
        return FALSE;
    if (ItemValue != nullptr && MaxLength > 0) {
        size_t length = std::min<size_t>(value.length, MaxLength - 1u);
        std::memcpy(ItemValue, value.data, length);
        ItemValue[length] = '\0';
    }
    return TRUE;
}

BOOL impl::NSFLocateSummaryValue(const void* SummaryBuffer, const char* ItemName, void** retValuePointer,
                                 WORD* retValueLength, WORD* retDataType)
{
    sim::SummaryValue value;
    if (ItemName == nullptr || !sim::findSummaryValue(SummaryBuffer, ItemName, value))
        return FALSE;
    if (retValuePointer != nullptr)
        *retValuePointer = const_cast<char*>(value.data);
    if (retValueLength != nullptr)
        *retValueLength = value.length;
    if (retDataType != nullptr)
        *retDataType = value.type;
    return TRUE;
}
