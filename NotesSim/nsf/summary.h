// Summary buffers (ITEM_TABLE, then an ITEM per item, then name/value pairs),
// as NSFSearch callbacks and NIFReadEntries hand them out.
#ifndef HYSIM_SUMMARY_H
#define HYSIM_SUMMARY_H

#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace sim {

class SummaryBuilder {
public:
    // Names and texts are LMBCS. Values are stored after their 2-byte type word.
    void addText(const std::string& name, const std::string& text);
    void addTextList(const std::string& name, const std::vector<std::string>& texts);
    void addNumber(const std::string& name, double value);
    void addTime(const std::string& name, const TIMEDATE& value);
    // `data` is the value without its type word.
    void addRaw(const std::string& name, WORD type, const void* data, size_t size);
    // An item stored with a zero-length value: ValueLength 0, not even a type word.
    void addEmpty(const std::string& name);
    // The finished buffer; ITEM_TABLE.Length holds its total size. Items that would
    // take the buffer past 64 KB are left out.
    std::vector<char> build() const;

private:
    struct Entry {
        std::string name;
        std::vector<char> value; // type word + data, or nothing at all
    };
    std::vector<Entry> entries_;
};

// One item of a summary buffer.
struct SummaryValue {
    WORD type = TYPE_INVALID_OR_UNKNOWN;
    const char* data = nullptr; // the bytes after the type word
    WORD length = 0;            // without the type word
};

// Finds the item `name` (compared without regard to ASCII case) in a summary buffer;
// false when absent or when the buffer's lengths run past its ITEM_TABLE.Length.
bool findSummaryValue(const void* summary, const std::string& name, SummaryValue& value);

} // namespace sim

#endif
