// What NIFReadEntries packs per entry: summaries with column values, categories,
// response hierarchy, index information, and paging under the 64 KB limit.
#include "nif_support.h"

#include "summary.h"

namespace {

using namespace sim::nif;

struct Parsed {
    NOTEID id = 0;
    DWORD siblings = 0, children = 0, descendants = 0;
    WORD anyUnread = 0, indent = 0, unread = 0;
    COLLECTIONPOSITION position{};
    size_t positionBytes = 0;
    std::vector<char> summary;
};

template <class T>
T take(const char*& at)
{
    T value;
    std::memcpy(&value, at, sizeof value);
    at += sizeof value;
    return value;
}

// Walks a buffer by the published field order of the mask.
std::vector<Parsed> parse(const char* at, DWORD count, DWORD mask)
{
    std::vector<Parsed> out(count);
    for (Parsed& entry : out) {
        if (mask & kReadNoteId)
            entry.id = take<NOTEID>(at);
        if (mask & kReadSiblings)
            entry.siblings = take<DWORD>(at);
        if (mask & kReadChildren)
            entry.children = take<DWORD>(at);
        if (mask & kReadDescendants)
            entry.descendants = take<DWORD>(at);
        if (mask & kReadAnyUnread)
            entry.anyUnread = take<WORD>(at);
        if (mask & kReadIndentLevels)
            entry.indent = take<WORD>(at);
        if (mask & kReadUnread)
            entry.unread = take<WORD>(at);
        if (mask & kReadPosition) {
            WORD level = 0;
            std::memcpy(&level, at, sizeof level);
            entry.positionBytes = 4 * (level + 2u);
            std::memcpy(&entry.position, at, entry.positionBytes);
            at += entry.positionBytes;
        }
        if (mask & kReadSummary) {
            ITEM_TABLE table;
            std::memcpy(&table, at, sizeof table);
            entry.summary.assign(at, at + table.Length);
            at += table.Length;
        }
    }
    return out;
}

std::string textOf(const Parsed& entry, const char* item)
{
    sim::SummaryValue value;
    if (!sim::findSummaryValue(entry.summary.data(), item, value))
        return "(absent)";
    if (value.type == TYPE_TEXT)
        return std::string(value.data, value.length);
    if (value.type == TYPE_NUMBER_RANGE && value.length >= 12) {
        double number = 0;
        std::memcpy(&number, value.data + 4, sizeof number);
        return std::to_string(static_cast<int>(number));
    }
    return value.length == 0 ? "(empty)" : "(type " + std::to_string(value.type) + ")";
}

class Entries : public nif_test::CollectionTest {
protected:
    struct Read {
        std::vector<Parsed> entries;
        DWORD topLevel = 0;
        WORD length = 0;
        WORD signals = 0;
    };
    Read read(HCOLLECTION collection, COLLECTIONPOSITION& position, DWORD mask, WORD skip = kNavigateNext,
              WORD navigator = kNavigateNext)
    {
        Read result;
        DHANDLE buffer = NULLHANDLE;
        DWORD returned = 0;
        EXPECT_EQ(NIFReadEntries(collection, &position, skip, skip == kNavigateCurrent ? 0 : 1, navigator, 0xFFFFFFFF,
                                 mask, &buffer, &result.length, nullptr, &returned, &result.signals),
                  NOERROR);
        if (buffer == NULLHANDLE)
            return result;
        const char* bytes = static_cast<const char*>(OSLockObject(buffer));
        if (mask & kReadCollectionStats)
            std::memcpy(&result.topLevel, bytes, sizeof result.topLevel);
        result.entries = parse(bytes + ((mask & kReadCollectionStats) ? 8 : 0), returned, mask);
        OSUnlockObject(buffer);
        OSMemFree(buffer);
        return result;
    }
    Read readAll(HCOLLECTION collection, DWORD mask)
    {
        COLLECTIONPOSITION position{};
        return read(collection, position, mask);
    }
    NOTEID addFrom(const std::vector<std::string>& senders, const std::string& subject)
    {
        NOTEHANDLE note = newNote(db);
        setText(note, "Form", "Memo");
        setText(note, "Subject", subject);
        std::string list = std::string(2, '\0');
        WORD count = static_cast<WORD>(senders.size());
        std::memcpy(list.data(), &count, 2);
        for (const std::string& sender : senders) {
            WORD length = static_cast<WORD>(sender.size());
            list.append(reinterpret_cast<const char*>(&length), 2);
        }
        for (const std::string& sender : senders)
            list += sender;
        append(note, "From", TYPE_TEXT_LIST, list.data(), static_cast<DWORD>(list.size()));
        return saveAndClose(note);
    }
    static COLLECTIONPOSITION at(std::initializer_list<DWORD> tumblers)
    {
        COLLECTIONPOSITION position{};
        position.Level = static_cast<WORD>(tumblers.size() - 1);
        std::copy(tumblers.begin(), tumblers.end(), position.Tumbler);
        return position;
    }
};

TEST_F(Entries, SummariesHoldEachColumnByItemOrFormula)
{
    NOTEID view = addDesign("Memos", "",
                            {nif_test::column("Subject", "Subject"), nif_test::column("$1", "Length", 0, "@Length(Subject)"),
                             nif_test::column("From", "Reply from", sim::viewformat::kColumnResponse)},
                            "Form = \"Memo\" | Form = \"Reply\"");
    NOTEID memo = addMemo("Hello", "Ann");
    NOTEID reply = addMemo("Re: Hello", "Bob", memo);
    NOTEHANDLE other = newNote(db);
    setText(other, "Form", "Other");
    saveAndClose(other);
    HCOLLECTION collection = open(view);
    Read all = readAll(collection, kReadNoteId | kReadIndentLevels | kReadSummary);
    ASSERT_EQ(all.entries.size(), 2u);
    EXPECT_EQ(all.entries[0].id, memo);
    EXPECT_EQ(textOf(all.entries[0], "Subject"), "Hello");
    EXPECT_EQ(textOf(all.entries[0], "$1"), "5");
    EXPECT_EQ(textOf(all.entries[0], "From"), "(empty)") << "response-only columns stay empty on documents";
    EXPECT_EQ(all.entries[1].id, reply);
    EXPECT_EQ(all.entries[1].indent, 1);
    EXPECT_EQ(textOf(all.entries[1], "From"), "Bob");
    NIFCloseCollection(collection);
}

TEST_F(Entries, CategoriesGroupDocumentsUnderCategoryEntries)
{
    NOTEID view = addDesign("By sender", "",
                            {nif_test::column("From", "From", sim::viewformat::kColumnCategory | sim::viewformat::kColumnSort),
                             nif_test::column("Subject", "Subject", sim::viewformat::kColumnSort)},
                            "Form = \"Memo\"");
    NOTEID b1 = addFrom({"Bob"}, "b1");
    NOTEID a2 = addFrom({"Ann"}, "a2");
    NOTEID a1 = addFrom({"ann", "Cy"}, "a1");
    HCOLLECTION collection = open(view);
    DWORD mask = kReadCollectionStats | kReadNoteId | kReadSiblings | kReadChildren | kReadDescendants |
                 kReadPosition | kReadSummary;
    Read all = readAll(collection, mask);
    EXPECT_EQ(all.topLevel, 3u) << "Ann, Bob, Cy";
    ASSERT_EQ(all.entries.size(), 7u) << "three categories, four documents";
    const std::vector<NOTEID> documents = {a1, a2, b1, a1};
    std::vector<NOTEID> seen;
    for (const Parsed& entry : all.entries)
        if (!(entry.id & NOTEID_CATEGORY))
            seen.push_back(entry.id);
    EXPECT_EQ(seen, documents) << "a text list files the document under each of its categories";
    const Parsed& ann = all.entries[0];
    EXPECT_NE(ann.id & NOTEID_CATEGORY, 0u);
    EXPECT_EQ(textOf(ann, "From"), "ann");
    EXPECT_EQ(ann.children, 2u);
    EXPECT_EQ(ann.descendants, 2u);
    EXPECT_EQ(ann.siblings, 3u);
    EXPECT_EQ(ann.positionBytes, 8u);
    EXPECT_EQ(all.entries[2].position.Level, 1);
    EXPECT_EQ(all.entries[2].position.Tumbler[0], 1u);
    EXPECT_EQ(all.entries[2].position.Tumbler[1], 2u);
    EXPECT_EQ(all.entries[2].positionBytes, 12u);
    EXPECT_EQ(textOf(all.entries[3], "From"), "Bob");
    EXPECT_EQ(all.entries[3].position.Tumbler[0], 2u);
    NIFCloseCollection(collection);
}

TEST_F(Entries, NavigatorsMoveAmongPeersParentsAndChildren)
{
    NOTEID view = addDesign("By sender", "", {nif_test::column("From", "From", sim::viewformat::kColumnCategory)}, "Form = \"Memo\"");
    NOTEID bob = addFrom({"Bob"}, "b");
    NOTEID ann = addFrom({"Ann"}, "a");
    HCOLLECTION collection = open(view);
    COLLECTIONPOSITION first = at({1});
    Read peers = read(collection, first, kReadNoteId | kReadPosition, kNavigateCurrent, kNavigateNextPeer);
    ASSERT_EQ(peers.entries.size(), 2u);
    EXPECT_NE(peers.entries[0].id & NOTEID_CATEGORY, 0u);
    EXPECT_NE(peers.entries[1].id & NOTEID_CATEGORY, 0u);
    COLLECTIONPOSITION second = at({2});
    Read child = read(collection, second, kReadNoteId, kNavigateChild, kNavigateCurrent);
    EXPECT_EQ(child.entries.size(), 1u);
    EXPECT_EQ(child.entries.at(0).id, bob);
    EXPECT_EQ(second.Level, 1) << "the position is the child's";
    Read parent = read(collection, second, kReadNoteId | kReadPosition, kNavigateParent, kNavigateCurrent);
    EXPECT_EQ(parent.entries.at(0).position.Tumbler[0], 2u);
    COLLECTIONPOSITION start{};
    Read documents = read(collection, start, kReadNoteId, kNavigateNextNonCategory, kNavigateNextNonCategory);
    ASSERT_EQ(documents.entries.size(), 2u);
    EXPECT_EQ(documents.entries[0].id, ann);
    EXPECT_EQ(documents.entries[1].id, bob);
    COLLECTIONPOSITION last = at({2, 1});
    Read back = read(collection, last, kReadNoteId, kNavigatePrevious, kNavigatePrevious);
    EXPECT_EQ(back.entries.size(), 3u) << "Bob, Ann's document, Ann";
    DWORD returned = 0;
    EXPECT_EQ(NIFReadEntries(collection, &start, 10, 1, kNavigateNext, 1, kReadNoteId, nullptr, nullptr, nullptr,
                             &returned, nullptr),
              sim::STS_UNSUPPORTED)
        << "navigating by unread marks is not simulated";
    EXPECT_EQ(NIFReadEntries(collection, &start, kNavigateNext, 1, kNavigateNext, 1, 0x00001000, nullptr, nullptr,
                             nullptr, &returned, nullptr),
              sim::STS_UNSUPPORTED);
    NIFCloseCollection(collection);
}

TEST_F(Entries, FlatViewsListResponsesAsDocuments)
{
    std::vector<nif_test::Column> columns = {nif_test::column("Subject", "Subject")};
    const char* selection = "Form = \"Memo\" | Form = \"Reply\"";
    NOTEID tree = addDesign("Tree", "", columns, selection);
    NOTEID flat = addDesign("Flat", "", columns, selection, sim::viewformat::kTableFlatIndex);
    NOTEID memo = addMemo("memo");
    NOTEID reply = addMemo("reply", "Bob", memo);
    NOTEID nested = addMemo("reply to the reply", "Cy", reply);
    HCOLLECTION treeCollection = open(tree);
    Read inTree = readAll(treeCollection, kReadNoteId | kReadIndentLevels | kReadDescendants | kReadPosition);
    ASSERT_EQ(inTree.entries.size(), 3u);
    EXPECT_EQ(inTree.entries[0].descendants, 2u);
    EXPECT_EQ(inTree.entries[2].id, nested);
    EXPECT_EQ(inTree.entries[2].indent, 2);
    EXPECT_EQ(inTree.entries[2].position.Level, 2);
    HCOLLECTION flatCollection = open(flat);
    Read inFlat = readAll(flatCollection, kReadNoteId | kReadIndentLevels | kReadPosition);
    ASSERT_EQ(inFlat.entries.size(), 3u);
    for (const Parsed& entry : inFlat.entries) {
        EXPECT_EQ(entry.indent, 0);
        EXPECT_EQ(entry.position.Level, 0);
    }
    EXPECT_EQ(inFlat.entries[1].id, reply);
    NIFCloseCollection(treeCollection);
    NIFCloseCollection(flatCollection);
}

TEST_F(Entries, UnreadMarksComeFromTheCallersTable)
{
    NOTEID view = addDesign("By sender", "", {nif_test::column("From", "From", sim::viewformat::kColumnCategory)}, "Form = \"Memo\"");
    addFrom({"Bob"}, "b");
    NOTEID ann = addFrom({"Ann"}, "a");
    DHANDLE unread = NULLHANDLE;
    ASSERT_EQ(IDCreateTable(0, &unread), NOERROR);
    IDInsert(unread, ann, nullptr);
    HCOLLECTION collection = 0;
    ASSERT_EQ(NIFOpenCollection(db, db, view, 0, unread, &collection, nullptr, nullptr, nullptr, nullptr), NOERROR);
    Read all = readAll(collection, kReadNoteId | kReadAnyUnread | kReadUnread);
    ASSERT_EQ(all.entries.size(), 4u);
    EXPECT_EQ(all.entries[0].anyUnread, TRUE) << "Ann's category holds an unread document";
    EXPECT_EQ(all.entries[0].unread, FALSE);
    EXPECT_EQ(all.entries[1].unread, TRUE);
    EXPECT_EQ(all.entries[2].anyUnread, FALSE);
    NIFCloseCollection(collection);
    IDDestroyTable(unread);
}

TEST_F(Entries, LargeReadsComeInBuffersUnder64KB)
{
    NOTEID folder = addFolder("Big");
    std::vector<NOTEID> memos;
    for (int i = 0; i < 90; ++i)
        memos.push_back(addMemo(std::string(2000, static_cast<char>('a' + i % 26))));
    ASSERT_EQ(fileIn(folder, memos), NOERROR);
    HCOLLECTION collection = open(folder);
    COLLECTIONPOSITION position{};
    std::vector<NOTEID> seen;
    size_t reads = 0;
    WORD signals = kSignalMoreToDo;
    while (signals & kSignalMoreToDo) {
        Read page = read(collection, position, kReadNoteId | kReadSummary);
        ASSERT_FALSE(page.entries.empty());
        EXPECT_LE(page.length, kMaxBufferBytes);
        for (const Parsed& entry : page.entries)
            seen.push_back(entry.id);
        signals = page.signals;
        ++reads;
    }
    EXPECT_EQ(seen, memos) << "every entry once, in order";
    EXPECT_GE(reads, 3u);
    NIFCloseCollection(collection);
}

} // namespace
