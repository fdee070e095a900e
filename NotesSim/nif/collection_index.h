// The index of a view, folder or the design collection: its entries in display
// order (categories, documents, responses below their parents), each with its
// place in the tree and its summary buffer, built from the notes as they are now.
#ifndef HYSIM_COLLECTION_INDEX_H
#define HYSIM_COLLECTION_INDEX_H

#include <memory>
#include <string>
#include <vector>

#include "language.h"
#include "storage.h"

namespace sim {
namespace nif {

constexpr DWORD kNoEntry = 0xFFFFFFFFu;
// NOTE_ID_SPECIAL | NOTE_CLASS_DESIGN: every design note of the database.
constexpr NOTEID kDesignCollection = NOTE_ID_SPECIAL | NOTE_CLASS_DESIGN;

struct ColumnDefinition {
    std::string itemName;
    WORD flags = 0;
    std::shared_ptr<formula::Node> formula; // null: the column shows the note's item
};

struct Definition {
    enum class Kind { View, Folder, Design };
    Kind kind = Kind::View;
    NOTEID noteId = 0;
    UNID unid{};
    std::shared_ptr<formula::Node> selection; // null: every document
    std::vector<ColumnDefinition> columns;
    bool hierarchical = false; // responses below their parents
};

struct IndexEntry {
    NOTEID id = 0; // NOTEID_CATEGORY set for a category
    WORD noteClass = 0;
    UNID unid{};
    DWORD parent = kNoEntry;
    DWORD previousSibling = kNoEntry;
    DWORD ordinal = 1; // among its siblings, from 1
    DWORD children = 0;
    DWORD descendants = 0;
    WORD level = 0;    // depth below the top level
    WORD indent = 0;   // response depth below its main document
    std::vector<char> summary; // ITEM_TABLE, item names included
};

struct Index {
    std::vector<IndexEntry> entries; // display order: each entry before its descendants
    std::vector<DWORD> topLevel;
    DWORD siblingsOf(const IndexEntry& entry) const
    {
        return entry.parent == kNoEntry ? static_cast<DWORD>(topLevel.size()) : entries[entry.parent].children;
    }
};

// Reads the view or folder note (or describes the design collection). ERR_NOTE_DELETED
// for a stub, ERR_INVALID_NOTE for a note that is not a view, ERR_ITEM_NOT_FOUND
// without $ViewFormat, STS_UNSUPPORTED for formulas this runtime did not compile.
STATUS loadDefinition(Storage& viewDb, NOTEID viewId, Definition& out);
STATUS buildIndex(const Definition& definition, Storage& viewDb, Storage& dataDb, Index& out);

} // namespace nif
} // namespace sim

#endif
