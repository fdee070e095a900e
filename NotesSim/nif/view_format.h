// $ViewFormat values in their canonical form: VIEW_TABLE_FORMAT, then one 32-byte
// VIEW_COLUMN_FORMAT per column, then each column's item name, title, formula and
// constant value packed back to back; extension records may follow. Used by the
// collections (to know their columns), by the seeding tool and by the tests, so it
// depends on nothing but the API's types.
#ifndef HYSIM_VIEW_FORMAT_H
#define HYSIM_VIEW_FORMAT_H

#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace sim {
namespace viewformat {

// VIEW_COLUMN_FORMAT.Flags1 bits the collections act on.
enum : WORD {
    kColumnSort = 0x0001,
    kColumnCategory = 0x0002,
    kColumnDescending = 0x0004,
    kColumnHidden = 0x0008,
    kColumnResponse = 0x0010,
};
// VIEW_TABLE_FORMAT.Flags: no response hierarchy.
constexpr WORD kTableFlatIndex = 0x0002;
constexpr WORD kColumnSignature = 0x4356;
constexpr size_t kTableSize = 10;  // ODS length of VIEW_TABLE_FORMAT
constexpr size_t kColumnSize = 32; // ODS length of VIEW_COLUMN_FORMAT

struct Column {
    WORD flags1 = 0;
    WORD displayWidth = 80; // 1/8 average characters
    DWORD fontId = 0;
    WORD flags2 = 0;
    BYTE numberFormat[4] = {};
    BYTE timeFormat[4] = {};
    WORD formatDataType = 0;
    WORD listSeparator = 0;
    std::string itemName; // LMBCS, as the summary names the column's value
    std::string title;
    std::vector<char> formula; // compiled; empty when the column shows its item
    std::vector<char> constantValue;
};

struct Format {
    BYTE version = 1;
    BYTE style = 0; // high nibble: view class (0 table, 1 calendar)
    WORD itemSequence = 0;
    WORD flags = 0;
    WORD flags2 = 0;
    std::vector<Column> columns;
    std::vector<char> extensions; // the records after the packed names, kept as they are
};

// The canonical value, without the item's type word.
std::vector<char> encode(const Format& format);
// False when the value is shorter than its sizes say or a column lacks its signature.
bool decode(const char* data, size_t size, Format& out);

} // namespace viewformat
} // namespace sim

#endif
