#include "collection_index.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "design.h"
#include "sim_core.h"
#include "summary.h"
#include "view_format.h"

namespace sim {
namespace nif {
namespace {

// Categories beyond this many per document (text lists in several categorized
// columns multiply) are left out.
constexpr size_t kMaxCategoryPaths = 1024;
constexpr WORD kDesignClasses = NOTE_CLASS_ALLNONDATA & ~(NOTE_CLASS_ACL | NOTE_CLASS_PRIVATE);

using Value = std::vector<char>; // type word + data, or empty for no value

// A note's items as an open note, for formulas; its memory goes with it.
class ScratchNote {
public:
    ScratchNote(const NoteRecord& record, const std::vector<ItemRecord>& items)
    {
        note_.record = record;
        for (const ItemRecord& item : items)
            addItem(note_, item.name, item.flags, item.value);
    }
    ~ScratchNote()
    {
        for (NoteItem& item : note_.items)
            releaseItem(item);
    }
    ScratchNote(const ScratchNote&) = delete;
    ScratchNote& operator=(const ScratchNote&) = delete;
    const NoteObject& note() const { return note_; }

private:
    NoteObject note_;
};

struct Row {
    NoteRecord record;
    UNID parent{};
    bool response = false;
    std::vector<Value> values; // per column
};

template <class T>
T readAt(const char* data, size_t offset)
{
    T value;
    std::memcpy(&value, data + offset, sizeof value);
    return value;
}

WORD typeOf(const Value& value)
{
    return value.size() < sizeof(WORD) ? TYPE_INVALID_OR_UNKNOWN : readAt<WORD>(value.data(), 0);
}

Value single(WORD type, const void* data, size_t size)
{
    Value value(sizeof type + size);
    std::memcpy(value.data(), &type, sizeof type);
    if (size > 0)
        std::memcpy(value.data() + sizeof type, data, size);
    return value;
}

// The entries of a value one by one: text lists, number and time ranges split up.
std::vector<Value> entriesOf(const Value& value)
{
    WORD type = typeOf(value);
    const char* data = value.data() + sizeof(WORD);
    size_t size = value.size() < sizeof(WORD) ? 0 : value.size() - sizeof(WORD);
    std::vector<Value> entries;
    if (type == TYPE_TEXT_LIST && size >= sizeof(WORD)) {
        WORD count = readAt<WORD>(data, 0);
        size_t offset = sizeof(WORD) * (1 + static_cast<size_t>(count));
        for (WORD i = 0; i < count && offset <= size; ++i) {
            WORD length = readAt<WORD>(data, sizeof(WORD) * (1 + static_cast<size_t>(i)));
            if (offset + length > size)
                break;
            entries.push_back(single(TYPE_TEXT, data + offset, length));
            offset += length;
        }
    } else if ((type == TYPE_NUMBER_RANGE || type == TYPE_TIME_RANGE) && size >= sizeof(RANGE)) {
        RANGE range = readAt<RANGE>(data, 0);
        size_t width = type == TYPE_NUMBER_RANGE ? sizeof(double) : sizeof(TIMEDATE);
        WORD singleType = type == TYPE_NUMBER_RANGE ? TYPE_NUMBER : TYPE_TIME;
        for (WORD i = 0; i < range.ListEntries && sizeof range + (i + 1u) * width <= size; ++i)
            entries.push_back(single(singleType, data + sizeof range + i * width, width));
    } else if (type == TYPE_TEXT || type == TYPE_NUMBER || type == TYPE_TIME) {
        entries.push_back(value);
    }
    return entries;
}

// Collation: no value, numbers, times, texts (ASCII case ignored).
int rankOf(WORD type)
{
    switch (type) {
    case TYPE_NUMBER:
        return 1;
    case TYPE_TIME:
        return 2;
    case TYPE_TEXT:
        return 3;
    default:
        return 0;
    }
}

int compareSingles(const Value& a, const Value& b)
{
    int rankA = rankOf(typeOf(a));
    int rankB = rankOf(typeOf(b));
    if (rankA != rankB || rankA == 0)
        return rankA < rankB ? -1 : rankA > rankB ? 1 : 0;
    const char* dataA = a.data() + sizeof(WORD);
    const char* dataB = b.data() + sizeof(WORD);
    if (rankA == 1) {
        double x = readAt<double>(dataA, 0);
        double y = readAt<double>(dataB, 0);
        return x < y ? -1 : x > y ? 1 : 0;
    }
    if (rankA == 2) {
        unsigned long long x = timedateOrder(readAt<TIMEDATE>(dataA, 0));
        unsigned long long y = timedateOrder(readAt<TIMEDATE>(dataB, 0));
        return x < y ? -1 : x > y ? 1 : 0;
    }
    size_t sizeA = a.size() - sizeof(WORD);
    size_t sizeB = b.size() - sizeof(WORD);
    int order = strncasecmp(dataA, dataB, std::min(sizeA, sizeB));
    if (order != 0)
        return order;
    return sizeA < sizeB ? -1 : sizeA > sizeB ? 1 : 0;
}

// Sorts by the first entry of each value.
int compareValues(const Value& a, const Value& b)
{
    std::vector<Value> first = entriesOf(a);
    std::vector<Value> second = entriesOf(b);
    return compareSingles(first.empty() ? Value() : first[0], second.empty() ? Value() : second[0]);
}

const ItemRecord* findItem(const std::vector<ItemRecord>& items, const std::string& name)
{
    for (const ItemRecord& item : items)
        if (sameItemName(item.name, name.data(), name.size()))
            return &item;
    return nullptr;
}

bool needsScratch(const Definition& definition)
{
    if (definition.selection)
        return true;
    return std::any_of(definition.columns.begin(), definition.columns.end(),
                       [](const ColumnDefinition& column) { return column.formula != nullptr; });
}

Value columnValue(const ColumnDefinition& column, const std::vector<ItemRecord>& items, const NoteObject* note)
{
    if (column.formula) {
        formula::Value result = formula::evaluate(*column.formula, note);
        return result.kind == formula::Value::Kind::Error ? Value() : formula::encode(result);
    }
    const ItemRecord* item = findItem(items, column.itemName);
    return item == nullptr ? Value() : item->value;
}

// A response names its parent in $REF: type word, LIST header, the parent's UNID.
bool parentOf(const std::vector<ItemRecord>& items, UNID& parent)
{
    const ItemRecord* ref = findItem(items, "$REF");
    if (ref == nullptr || typeOf(ref->value) != TYPE_NOTEREF_LIST ||
        ref->value.size() < sizeof(WORD) + sizeof(LIST) + sizeof(UNID))
        return false;
    std::memcpy(&parent, ref->value.data() + sizeof(WORD) + sizeof(LIST), sizeof parent);
    return true;
}

// The note's row when it belongs to the index (a view's selection formula decides).
bool makeRow(const Definition& definition, const NoteRecord& record, const std::vector<ItemRecord>& items, Row& row)
{
    std::unique_ptr<ScratchNote> scratch;
    if (needsScratch(definition))
        scratch = std::make_unique<ScratchNote>(record, items);
    const NoteObject* note = scratch ? &scratch->note() : nullptr;
    if (definition.selection && !formula::isTrue(formula::evaluate(*definition.selection, note)))
        return false;
    row.record = record;
    row.response = parentOf(items, row.parent);
    row.values.clear();
    for (const ColumnDefinition& column : definition.columns)
        row.values.push_back(columnValue(column, items, note));
    return true;
}

STATUS collectRows(const Definition& definition, Storage& viewDb, Storage& dataDb, std::vector<Row>& rows)
{
    auto keep = [&](const NoteRecord& record, std::vector<ItemRecord>& items) {
        Row row;
        if (makeRow(definition, record, items, row))
            rows.push_back(std::move(row));
    };
    if (definition.kind == Definition::Kind::View)
        return dataDb.scanSummaries(NOTE_CLASS_DOCUMENT, keep);
    bool folder = definition.kind == Definition::Kind::Folder;
    Storage& source = folder ? dataDb : viewDb; // design notes are the view database's
    std::vector<NOTEID> ids;
    STATUS status = NOERROR;
    if (folder) {
        status = viewDb.folderMembers(definition.noteId, ids);
    } else {
        std::vector<NoteRecord> notes;
        TIMEDATE until{};
        status = viewDb.listNotes(kDesignClasses, false, nullptr, notes, until);
        for (const NoteRecord& note : notes)
            ids.push_back(note.id);
    }
    for (size_t i = 0; i < ids.size() && status == NOERROR; ++i) {
        NoteRecord record;
        std::vector<ItemRecord> items;
        if (source.findNote(ids[i], record) != NOERROR || record.deleted)
            continue; // a member deleted since it was filed
        status = source.readItems(record.id, folder, items);
        if (status == NOERROR)
            keep(record, items);
    }
    return status;
}

struct Placement {
    std::vector<Value> categories; // one single value per categorized column
    size_t row = 0;
};

std::vector<size_t> categoryColumns(const Definition& definition)
{
    std::vector<size_t> columns;
    for (size_t i = 0; i < definition.columns.size(); ++i)
        if (definition.columns[i].flags & viewformat::kColumnCategory)
            columns.push_back(i);
    return columns;
}

// Every combination of the row's category values (an empty one when a column has none).
void categoryPaths(const Row& row, const std::vector<size_t>& columns, size_t at, std::vector<Value>& path,
                   std::vector<std::vector<Value>>& out)
{
    if (out.size() >= kMaxCategoryPaths)
        return;
    if (at == columns.size()) {
        out.push_back(path);
        return;
    }
    std::vector<Value> entries = entriesOf(row.values[columns[at]]);
    if (entries.empty())
        entries.push_back(single(TYPE_TEXT, "", 0));
    for (const Value& entry : entries) {
        path.push_back(entry);
        categoryPaths(row, columns, at + 1, path, out);
        path.pop_back();
    }
}

class IndexBuilder {
public:
    IndexBuilder(const Definition& definition, std::vector<Row>& rows, Index& out)
        : definition_(definition), rows_(rows), out_(out), categoryColumns_(categoryColumns(definition))
    {
    }

    void build()
    {
        std::vector<Placement> placements = place();
        std::sort(placements.begin(), placements.end(),
                  [this](const Placement& a, const Placement& b) { return before(a, b); });
        std::vector<DWORD> open; // the categories of the previous placement
        const std::vector<Value>* previous = nullptr;
        for (const Placement& placement : placements) {
            size_t common = previous ? commonCategories(*previous, placement.categories) : 0;
            open.resize(std::min(open.size(), common));
            for (size_t level = open.size(); level < placement.categories.size(); ++level)
                open.push_back(addCategory(level, placement.categories[level], open));
            addDocument(placement.row, open.empty() ? kNoEntry : open.back(), 0);
            previous = &placement.categories;
        }
        countDescendants();
    }

private:
    std::vector<Placement> place()
    {
        std::map<std::vector<char>, size_t> byUnid;
        for (size_t i = 0; i < rows_.size(); ++i) {
            const char* unid = reinterpret_cast<const char*>(&rows_[i].record.oid);
            byUnid[std::vector<char>(unid, unid + sizeof(UNID))] = i;
        }
        std::vector<Placement> placements;
        for (size_t i = 0; i < rows_.size(); ++i) {
            const char* parent = reinterpret_cast<const char*>(&rows_[i].parent);
            auto found = byUnid.find(std::vector<char>(parent, parent + sizeof(UNID)));
            // A response whose parent is not in the index stands on its own.
            if (definition_.hierarchical && rows_[i].response && found != byUnid.end() && found->second != i) {
                responses_[found->second].push_back(i);
                continue;
            }
            std::vector<std::vector<Value>> paths;
            std::vector<Value> path;
            categoryPaths(rows_[i], categoryColumns_, 0, path, paths);
            for (std::vector<Value>& categories : paths)
                placements.push_back(Placement{std::move(categories), i});
        }
        return placements;
    }

    bool before(const Placement& a, const Placement& b) const
    {
        for (size_t level = 0; level < categoryColumns_.size(); ++level) {
            int order = compareSingles(a.categories[level], b.categories[level]);
            if (order != 0)
                return descending(categoryColumns_[level]) ? order > 0 : order < 0;
        }
        for (size_t column = 0; column < definition_.columns.size(); ++column) {
            WORD flags = definition_.columns[column].flags;
            if (!(flags & viewformat::kColumnSort) || (flags & viewformat::kColumnCategory))
                continue;
            int order = compareValues(rows_[a.row].values[column], rows_[b.row].values[column]);
            if (order != 0)
                return descending(column) ? order > 0 : order < 0;
        }
        return rows_[a.row].record.id < rows_[b.row].record.id;
    }

    bool descending(size_t column) const { return definition_.columns[column].flags & viewformat::kColumnDescending; }

    static size_t commonCategories(const std::vector<Value>& a, const std::vector<Value>& b)
    {
        size_t common = 0;
        while (common < a.size() && common < b.size() && compareSingles(a[common], b[common]) == 0)
            ++common;
        return common;
    }

    DWORD addEntry(IndexEntry entry, DWORD parent)
    {
        DWORD index = static_cast<DWORD>(out_.entries.size());
        entry.parent = parent;
        if (parent == kNoEntry) {
            entry.ordinal = static_cast<DWORD>(out_.topLevel.size()) + 1;
            entry.previousSibling = out_.topLevel.empty() ? kNoEntry : out_.topLevel.back();
            out_.topLevel.push_back(index);
        } else {
            IndexEntry& above = out_.entries[parent];
            entry.level = static_cast<WORD>(above.level + 1);
            entry.ordinal = ++above.children;
            entry.previousSibling = lastChild_[parent];
        }
        if (parent != kNoEntry)
            lastChild_[parent] = index;
        out_.entries.push_back(std::move(entry));
        lastChild_.push_back(kNoEntry);
        return index;
    }

    DWORD addCategory(size_t level, const Value& value, const std::vector<DWORD>& open)
    {
        IndexEntry entry;
        entry.id = NOTEID_CATEGORY | (++categories_ & 0x00FFFFFFu);
        SummaryBuilder summary;
        const std::string& name = definition_.columns[categoryColumns_[level]].itemName;
        summary.addRaw(name, typeOf(value), value.data() + sizeof(WORD), value.size() - sizeof(WORD));
        entry.summary = summary.build();
        return addEntry(std::move(entry), open.empty() ? kNoEntry : open.back());
    }

    void addDocument(size_t rowIndex, DWORD parent, WORD indent)
    {
        const Row& row = rows_[rowIndex];
        IndexEntry entry;
        entry.id = row.record.id;
        entry.noteClass = row.record.noteClass;
        std::memcpy(&entry.unid, &row.record.oid, sizeof entry.unid);
        entry.indent = indent;
        entry.summary = summaryOf(row, indent > 0);
        DWORD index = addEntry(std::move(entry), parent);
        auto responses = responses_.find(rowIndex);
        // Tumblers reach 32 levels; a $REF loop must not go on for ever.
        if (responses == responses_.end() || out_.entries[index].level + 1 >= MAXTUMBLERLEVELS)
            return;
        for (size_t response : responses->second)
            addDocument(response, index, static_cast<WORD>(indent + 1));
    }

    // Response-only columns have values only on response entries.
    std::vector<char> summaryOf(const Row& row, bool isResponse) const
    {
        SummaryBuilder summary;
        for (size_t i = 0; i < definition_.columns.size(); ++i) {
            const ColumnDefinition& column = definition_.columns[i];
            const Value& value = row.values[i];
            bool shown = isResponse || !(column.flags & viewformat::kColumnResponse);
            if (!shown || value.size() < sizeof(WORD))
                summary.addEmpty(column.itemName);
            else
                summary.addRaw(column.itemName, typeOf(value), value.data() + sizeof(WORD), value.size() - sizeof(WORD));
        }
        return summary.build();
    }

    void countDescendants()
    {
        for (size_t i = out_.entries.size(); i-- > 0;) {
            DWORD parent = out_.entries[i].parent;
            if (parent != kNoEntry)
                out_.entries[parent].descendants += out_.entries[i].descendants + 1;
        }
    }

    const Definition& definition_;
    std::vector<Row>& rows_;
    Index& out_;
    std::vector<size_t> categoryColumns_;
    std::map<size_t, std::vector<size_t>> responses_; // parent row -> its response rows
    std::vector<DWORD> lastChild_;
    DWORD categories_ = 0;
};

STATUS compiledFormula(const ItemRecord& item, std::shared_ptr<formula::Node>& out)
{
    if (typeOf(item.value) != TYPE_FORMULA)
        return STS_UNSUPPORTED;
    std::unique_ptr<formula::Node> root;
    if (!formula::parseCompiled(item.value.data() + sizeof(WORD), item.value.size() - sizeof(WORD), root))
        return STS_UNSUPPORTED;
    out = std::move(root);
    return NOERROR;
}

STATUS columnsOf(const ItemRecord& item, Definition& out)
{
    viewformat::Format format;
    if (typeOf(item.value) != TYPE_VIEW_FORMAT ||
        !viewformat::decode(item.value.data() + sizeof(WORD), item.value.size() - sizeof(WORD), format))
        return STS_BAD_ARGUMENT;
    out.hierarchical = !(format.flags & viewformat::kTableFlatIndex);
    for (const viewformat::Column& column : format.columns) {
        ColumnDefinition definition{column.itemName, column.flags1, nullptr};
        if (!column.formula.empty()) {
            std::unique_ptr<formula::Node> root;
            if (!formula::parseCompiled(column.formula.data(), column.formula.size(), root))
                return STS_UNSUPPORTED;
            definition.formula = std::move(root);
        }
        out.columns.push_back(std::move(definition));
    }
    return NOERROR;
}

void describeDesignCollection(Definition& out)
{
    out.kind = Definition::Kind::Design;
    out.noteId = kDesignCollection;
    out.columns = {{"$TITLE", 0, nullptr}, {"$Flags", 0, nullptr}};
}

} // namespace

STATUS loadDefinition(Storage& viewDb, NOTEID viewId, Definition& out)
{
    out = Definition();
    if (viewId == kDesignCollection) {
        describeDesignCollection(out);
        return NOERROR;
    }
    NoteRecord record;
    std::vector<ItemRecord> items;
    STATUS status = viewDb.findNote(viewId, record);
    if (status != NOERROR)
        return status;
    if (record.deleted)
        return ERR_NOTE_DELETED;
    if ((record.noteClass & ~NOTE_CLASS_DEFAULT) != NOTE_CLASS_VIEW)
        return ERR_INVALID_NOTE;
    if ((status = viewDb.readItems(record.id, false, items)) != NOERROR)
        return status;
    out.noteId = record.id;
    std::memcpy(&out.unid, &record.oid, sizeof out.unid);
    out.kind = designText(items, "$Flags").find(kFolderFlag) != std::string::npos ? Definition::Kind::Folder
                                                                                   : Definition::Kind::View;
    const ItemRecord* format = findItem(items, "$ViewFormat");
    if (format == nullptr)
        return ERR_ITEM_NOT_FOUND;
    if ((status = columnsOf(*format, out)) != NOERROR)
        return status;
    const ItemRecord* selection = findItem(items, "$FORMULA");
    if (out.kind == Definition::Kind::View && selection != nullptr)
        status = compiledFormula(*selection, out.selection);
    return status;
}

STATUS buildIndex(const Definition& definition, Storage& viewDb, Storage& dataDb, Index& out)
{
    out = Index();
    std::vector<Row> rows;
    STATUS status = collectRows(definition, viewDb, dataDb, rows);
    if (status == NOERROR)
        IndexBuilder(definition, rows, out).build();
    return status;
}

} // namespace nif
} // namespace sim
