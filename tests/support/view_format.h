// Builds $ViewFormat values in their published on-disk layout, for writing view
// notes through the C API: the table format (its header first), one 32-byte column
// descriptor per column, then each column's item name, title, formula and constant.
#ifndef HYLN_TEST_VIEW_FORMAT_H
#define HYLN_TEST_VIEW_FORMAT_H

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace hyln_test {

struct ViewColumn {
    ViewColumn(std::string name, std::string text, WORD columnFlags = 0, std::string compiled = std::string())
        : itemName(std::move(name)), title(std::move(text)), flags(columnFlags), formula(std::move(compiled))
    {
    }
    std::string itemName;
    std::string title;
    WORD flags = 0;
    std::string formula;
};

class ViewFormatBuilder {
public:
    ViewFormatBuilder& version(BYTE value) { version_ = value; return *this; }
    ViewFormatBuilder& style(BYTE value) { style_ = value; return *this; }
    // The column count written into the table format; by default the columns given.
    ViewFormatBuilder& announcedColumns(WORD count) { announced_ = count; useAnnounced_ = true; return *this; }
    ViewFormatBuilder& column(const ViewColumn& column) { columns_.push_back(column); return *this; }

    // The value after its type word.
    std::string build() const
    {
        std::string out;
        out += static_cast<char>(version_);
        out += static_cast<char>(style_);
        putWord(out, useAnnounced_ ? announced_ : static_cast<WORD>(columns_.size()));
        putWord(out, 0); // item sequence number
        putWord(out, 0); // flags
        putWord(out, 0); // flags2
        for (const ViewColumn& column : columns_) {
            std::string descriptor;
            putWord(descriptor, 0x4356); // signature
            putWord(descriptor, column.flags);
            putWord(descriptor, static_cast<WORD>(column.itemName.size()));
            putWord(descriptor, static_cast<WORD>(column.title.size()));
            putWord(descriptor, static_cast<WORD>(column.formula.size()));
            putWord(descriptor, 0); // constant value size
            descriptor.resize(32, '\0');
            out += descriptor;
        }
        for (const ViewColumn& column : columns_)
            out += column.itemName + column.title + column.formula;
        return out;
    }

private:
    static void putWord(std::string& out, WORD value)
    {
        out += static_cast<char>(value & 0xFF);
        out += static_cast<char>(value >> 8);
    }

    BYTE version_ = 1;
    BYTE style_ = 0;
    WORD announced_ = 0;
    bool useAnnounced_ = false;
    std::vector<ViewColumn> columns_;
};

} // namespace hyln_test

#endif
