// Notes and items: values of each type round trip, identity, revisions, conflicts, handles.
#include "sim/support/storage_fixture.h"
#include "support/raw_items.h"

using storage_test::StorageTest;

namespace {

std::string textList(const std::vector<std::string>& texts)
{
    std::string value(2 * (texts.size() + 1), '\0');
    WORD count = static_cast<WORD>(texts.size());
    std::memcpy(&value[0], &count, 2);
    for (size_t i = 0; i < texts.size(); ++i) {
        WORD length = static_cast<WORD>(texts[i].size());
        std::memcpy(&value[2 * (i + 1)], &length, 2);
    }
    for (const std::string& text : texts)
        value += text;
    return value;
}

template <class T>
std::string rangeOf(const std::vector<T>& entries)
{
    RANGE range{static_cast<WORD>(entries.size()), 0};
    std::string value(reinterpret_cast<const char*>(&range), sizeof range);
    for (const T& entry : entries)
        value.append(reinterpret_cast<const char*>(&entry), sizeof entry);
    return value;
}

std::vector<char> withType(WORD type, const std::string& data)
{
    std::string bytes(reinterpret_cast<const char*>(&type), sizeof type);
    bytes += data;
    return std::vector<char>(bytes.begin(), bytes.end());
}

struct ScannedItem {
    std::string name;
    WORD flags;
    std::vector<char> value;
};

STATUS collectItem(WORD, WORD flags, char* name, WORD nameLength, void* value, DWORD valueLength, void* context)
{
    auto* items = static_cast<std::vector<ScannedItem>*>(context);
    const char* bytes = static_cast<const char*>(value);
    items->push_back({std::string(name, nameLength), flags, std::vector<char>(bytes, bytes + valueLength)});
    return NOERROR;
}

std::vector<ScannedItem> scan(NOTEHANDLE note)
{
    std::vector<ScannedItem> items;
    EXPECT_EQ(NSFItemScan(note, collectItem, &items), NOERROR);
    return items;
}

template <class T>
T info(NOTEHANDLE note, WORD member)
{
    T value{};
    NSFNoteGetInfo(note, member, &value);
    return value;
}

} // namespace

class StorageNote : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("notes.nsf");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    NOTEHANDLE reopen(NOTEID id, WORD flags = 0)
    {
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteOpen(db, id, flags, &note), NOERROR);
        return note;
    }
    DBHANDLE db = NULLHANDLE;
};

TEST_F(StorageNote, ItemsOfEachTypeRoundTripInOrder)
{
    NOTEHANDLE note = newNote(db);
    double number = 42.5;
    TIMEDATE when{{3600 * 100, 2459000}};
    std::string list = textList({"Alpha", "Beta"});
    std::string numbers = rangeOf<double>({1.5, -2.0});
    std::string times = rangeOf<TIMEDATE>({when, TIMEDATE{{0, 2459001}}});
    std::string rich("\x01\x02\x00\x03", 4);
    append(note, "Subject", TYPE_TEXT, "Hello", 5);
    append(note, "SendTo", TYPE_TEXT_LIST, list.data(), static_cast<DWORD>(list.size()), ITEM_SUMMARY | ITEM_NAMES);
    append(note, "Size", TYPE_NUMBER, &number, sizeof number);
    append(note, "Sizes", TYPE_NUMBER_RANGE, numbers.data(), static_cast<DWORD>(numbers.size()));
    append(note, "PostedDate", TYPE_TIME, &when, sizeof when);
    append(note, "Dates", TYPE_TIME_RANGE, times.data(), static_cast<DWORD>(times.size()));
    append(note, "Body", TYPE_COMPOSITE, rich.data(), static_cast<DWORD>(rich.size()), ITEM_SIGN);
    append(note, "Empty", TYPE_TEXT, nullptr, 0);
    std::vector<ScannedItem> before = scan(note);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = info<NOTEID>(note, _NOTE_ID);
    NSFNoteClose(note);

    note = reopen(id);
    std::vector<ScannedItem> after = scan(note);
    ASSERT_EQ(after.size(), 8u);
    for (size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].name, before[i].name);
        EXPECT_EQ(after[i].flags, before[i].flags) << after[i].name;
        EXPECT_EQ(after[i].value, before[i].value) << after[i].name;
    }
    EXPECT_EQ(after[1].value, withType(TYPE_TEXT_LIST, list));
    EXPECT_EQ(text(note, "SendTo"), "Alpha");
    TIMEDATE read{};
    EXPECT_TRUE(NSFItemGetTime(note, "PostedDate", &read));
    EXPECT_EQ(std::memcmp(&read, &when, sizeof when), 0);
    EXPECT_TRUE(NSFItemGetTime(note, "Dates", &read));
    EXPECT_EQ(std::memcmp(&read, &when, sizeof when), 0);
    EXPECT_FALSE(NSFItemGetTime(note, "Subject", &read));
    EXPECT_FALSE(NSFItemGetTime(note, "Nothing", &read));
    NSFNoteClose(note);
}

TEST_F(StorageNote, ItemInfoHandsOutTheValueBlockWithItsTypeWord)
{
    NOTEHANDLE note = newNote(db);
    setText(note, "Subject", "Hi");
    double number = 3;
    append(note, "Size", TYPE_NUMBER, &number, sizeof number);
    BLOCKID item{}, value{};
    WORD type = 0xEEEE;
    DWORD length = 0;
    ASSERT_EQ(NSFItemInfo(note, "SUBJECTxyz", 7, &item, &type, &value, &length), NOERROR) << "length limits the name";
    EXPECT_EQ(type, TYPE_TEXT);
    EXPECT_EQ(length, 4u);
    EXPECT_NE(item.pool, NULLHANDLE);
    EXPECT_EQ(value.block, 0);
    const char* bytes = static_cast<const char*>(OSLockObject(value.pool));
    EXPECT_EQ(std::string(bytes, 4), std::string("\x00\x05Hi", 4));
    OSUnlockObject(value.pool);
    ASSERT_EQ(NSFItemInfo(note, nullptr, 0, nullptr, &type, nullptr, &length), NOERROR);
    EXPECT_EQ(type, TYPE_TEXT) << "no name gives the first item";
    EXPECT_EQ(NSFItemInfo(note, "Missing", 7, nullptr, &type, nullptr, nullptr), ERR_ITEM_NOT_FOUND);
    EXPECT_EQ(type, TYPE_INVALID_OR_UNKNOWN);
    NSFNoteClose(note);
    EXPECT_EQ(OSLockObject(value.pool), nullptr) << "item blocks go with the note";
}

// A value stored with zero length (no type word) is still an item: of unknown type,
// with a value block that locks like any other and a summary entry of length 0.
TEST_F(StorageNote, ZeroLengthValueIsAnItemWithoutATypeWord)
{
    NOTEHANDLE created = newNote(db);
    setText(created, "Subject", "to be emptied");
    setText(created, "After", "kept");
    ASSERT_EQ(NSFNoteUpdate(created, 0), NOERROR);
    NOTEID id = info<NOTEID>(created, _NOTE_ID);
    NSFNoteClose(created);
    ASSERT_EQ(hyln_test::storeZeroLengthValue(dataDir + "/notes.nsf", "Subject", "to be emptied"), 1);

    NOTEHANDLE note = reopen(id);
    WORD type = 0xEEEE;
    BLOCKID value{};
    DWORD length = 0xEEEE;
    ASSERT_EQ(NSFItemInfo(note, "Subject", 7, nullptr, &type, &value, &length), NOERROR);
    EXPECT_EQ(type, TYPE_INVALID_OR_UNKNOWN);
    EXPECT_EQ(length, 0u);
    EXPECT_NE(OSLockObject(value.pool), nullptr) << "a null lock would mean an unknown handle";
    EXPECT_TRUE(OSUnlockObject(value.pool));
    char text[8] = "#######";
    EXPECT_EQ(NSFItemGetText(note, "Subject", text, sizeof text), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(NSFItemGetText(note, "After", text, sizeof text), 4);
    std::vector<ScannedItem> items = scan(note);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].name, "Subject");
    EXPECT_TRUE(items[0].value.empty());
    NSFNoteClose(note);

    struct Summary {
        BOOL located = FALSE, gotText = TRUE;
        WORD length = 0xEEEE, type = 0xEEEE;
        std::string after;
    } summary;
    auto read = [](void* parameter, SEARCH_MATCH*, ITEM_TABLE* table) -> STATUS {
        auto* out = static_cast<Summary*>(parameter);
        void* at = nullptr;
        out->located = NSFLocateSummaryValue(table, "Subject", &at, &out->length, &out->type);
        char buffer[16] = {};
        out->gotText = NSFGetSummaryValue(table, "Subject", buffer, sizeof buffer);
        NSFGetSummaryValue(table, "After", buffer, sizeof buffer);
        out->after = buffer;
        return NOERROR;
    };
    ASSERT_EQ(NSFSearch(db, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_DOCUMENT, nullptr, read, &summary, nullptr),
              NOERROR);
    EXPECT_TRUE(summary.located) << "present, with ValueLength 0";
    EXPECT_EQ(summary.length, 0);
    EXPECT_EQ(summary.type, TYPE_INVALID_OR_UNKNOWN);
    EXPECT_FALSE(summary.gotText) << "no type word, so no text";
    EXPECT_EQ(summary.after, "kept");
}

TEST_F(StorageNote, SetTextReplacesDeleteRemovesAllOfAName)
{
    NOTEHANDLE note = newNote(db);
    append(note, "Tag", TYPE_TEXT, "one", 3, 0);
    append(note, "tag", TYPE_TEXT, "two", 3, 0);
    append(note, "Other", TYPE_TEXT, "x", 1, 0);
    ASSERT_EQ(NSFItemSetText(note, "TAG", "three", MAXWORD), NOERROR);
    std::vector<ScannedItem> items = scan(note);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[1].name, "TAG");
    EXPECT_EQ(items[1].flags, ITEM_SUMMARY);
    EXPECT_EQ(text(note, "Tag"), "three");
    std::string lines("a\0b", 3);
    setText(note, "Lines", lines);
    EXPECT_EQ(itemBytes(note, "Lines"), withType(TYPE_TEXT, lines));

    append(note, "Dup", TYPE_TEXT, "1", 1);
    append(note, "Dup", TYPE_TEXT, "2", 1);
    EXPECT_EQ(NSFItemDelete(note, "DUP", 3), NOERROR);
    EXPECT_TRUE(itemBytes(note, "Dup").empty());
    EXPECT_EQ(NSFItemDelete(note, "Dup", 3), ERR_ITEM_NOT_FOUND);
    NSFNoteClose(note);
}

TEST_F(StorageNote, GetTextTruncatesAndReportsMissingAsZero)
{
    NOTEHANDLE note = newNote(db);
    setText(note, "Subject", "Hello world");
    double number = 1;
    append(note, "Size", TYPE_NUMBER, &number, sizeof number);
    char buffer[6];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(NSFItemGetText(note, "subject", buffer, sizeof buffer), 5);
    EXPECT_STREQ(buffer, "Hello");
    EXPECT_EQ(NSFItemGetText(note, "Missing", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(NSFItemGetText(note, "Size", buffer, sizeof buffer), 0);
    NSFNoteClose(note);
}

TEST_F(StorageNote, UpdateStampsIdentityRevisionAndTimes)
{
    NOTEHANDLE note = newNote(db);
    OID fresh = info<OID>(note, _NOTE_OID);
    EXPECT_EQ(info<NOTEID>(note, _NOTE_ID), 0u);
    EXPECT_EQ(info<WORD>(note, _NOTE_CLASS), NOTE_CLASS_DOCUMENT);
    setText(note, "Subject", "first");
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    OID first = info<OID>(note, _NOTE_OID);
    TIMEDATE modified = info<TIMEDATE>(note, _NOTE_MODIFIED);
    EXPECT_EQ(std::memcmp(&first, &fresh, sizeof(UNID)), 0) << "the UNID is kept";
    EXPECT_EQ(first.Sequence, 1u);
    EXPECT_EQ(std::memcmp(&first.SequenceTime, &modified, sizeof modified), 0);
    TIMEDATE added = info<TIMEDATE>(note, _NOTE_ADDED_TO_FILE);
    EXPECT_EQ(std::memcmp(&added, &modified, sizeof added), 0);

    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    OID second = info<OID>(note, _NOTE_OID);
    TIMEDATE remodified = info<TIMEDATE>(note, _NOTE_MODIFIED);
    EXPECT_EQ(second.Sequence, 2u);
    EXPECT_EQ(TimeDateCompare(&remodified, &modified), 1) << "modified times never repeat";
    added = info<TIMEDATE>(note, _NOTE_ADDED_TO_FILE);
    EXPECT_EQ(std::memcmp(&added, &modified, sizeof added), 0);
    NOTEID id = info<NOTEID>(note, _NOTE_ID);
    EXPECT_EQ(id % 4, 0u);
    NSFNoteClose(note);
    EXPECT_GT(saveTextNote(db, "next"), id);

    OID stored{};
    TIMEDATE storedModified{};
    WORD noteClass = 0;
    ASSERT_EQ(NSFDbGetNoteInfo(db, id, &stored, &storedModified, &noteClass), NOERROR);
    EXPECT_EQ(std::memcmp(&stored, &second, sizeof stored), 0);
    EXPECT_EQ(noteClass, NOTE_CLASS_DOCUMENT);
    EXPECT_EQ(NSFDbGetNoteInfo(db, 0x7FFFFFFC, &stored, nullptr, nullptr), ERR_INVALID_NOTE);
}

TEST_F(StorageNote, UnidFindsTheNote)
{
    NOTEID id = saveTextNote(db, "by unid");
    NOTEHANDLE note = reopen(id);
    OID oid = info<OID>(note, _NOTE_OID);
    NSFNoteClose(note);
    UNID unid;
    std::memcpy(&unid, &oid, sizeof unid);
    NOTEID found = 0;
    WORD noteClass = 0;
    ASSERT_EQ(NSFDbGetNoteInfoByUNID(db, &unid, &found, nullptr, nullptr, &noteClass), NOERROR);
    EXPECT_EQ(found, id);
    ASSERT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &note), NOERROR);
    EXPECT_EQ(text(note, "Subject"), "by unid");
    NSFNoteClose(note);
    unid.Note.Innards[0] ^= 1;
    EXPECT_EQ(NSFDbGetNoteInfoByUNID(db, &unid, &found, nullptr, nullptr, nullptr), ERR_NOT_FOUND);
    EXPECT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &note), ERR_NOT_FOUND);
}

TEST_F(StorageNote, PresetUnidIsKeptAndMayNotBeTakenTwice)
{
    UNID chosen{{{0x11111111, 0x22222222}}, {{0x33333333, 0x44444444}}};
    OID oid{};
    std::memcpy(&oid, &chosen, sizeof chosen);
    NOTEHANDLE note = newNote(db);
    NSFNoteSetInfo(note, _NOTE_OID, &oid);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = info<NOTEID>(note, _NOTE_ID);
    NSFNoteClose(note);
    NOTEID found = 0;
    ASSERT_EQ(NSFDbGetNoteInfoByUNID(db, &chosen, &found, nullptr, nullptr, nullptr), NOERROR);
    EXPECT_EQ(found, id);

    note = newNote(db);
    NSFNoteSetInfo(note, _NOTE_OID, &oid);
    setText(note, "Subject", "replacement");
    EXPECT_EQ(NSFNoteUpdate(note, 0), 0x0205);
    ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
    EXPECT_EQ(info<NOTEID>(note, _NOTE_ID), id) << "forcing replaces the note of that UNID";
    NSFNoteClose(note);
}

TEST_F(StorageNote, ConcurrentChangeIsAConflictUnlessForced)
{
    NOTEID id = saveTextNote(db, "base");
    DBHANDLE other = open("notes.nsf");
    NOTEHANDLE mine = reopen(id);
    NOTEHANDLE theirs = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(other, id, 0, &theirs), NOERROR);
    setText(theirs, "Subject", "theirs");
    ASSERT_EQ(NSFNoteUpdate(theirs, 0), NOERROR);
    setText(mine, "Subject", "mine");
    EXPECT_EQ(NSFNoteUpdate(mine, 0), 0x0205);
    EXPECT_EQ(NSFNoteUpdate(mine, UPDATE_FORCE), NOERROR);
    EXPECT_EQ(NSFNoteUpdate(mine, 0), NOERROR) << "after its own update the handle is current again";
    NSFNoteClose(mine);
    NSFNoteClose(theirs);

    ASSERT_EQ(NSFNoteOpen(other, id, 0, &theirs), NOERROR);
    EXPECT_EQ(text(theirs, "Subject"), "mine");
    NSFNoteClose(theirs);
    NSFDbClose(other);
}

TEST_F(StorageNote, OpenFlagsSummaryAndExpand)
{
    NOTEHANDLE note = newNote(db);
    setText(note, "Subject", "s");
    append(note, "Body", TYPE_COMPOSITE, "rt", 2, 0);
    double number = 7;
    append(note, "Size", TYPE_NUMBER, &number, sizeof number);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = info<NOTEID>(note, _NOTE_ID);
    NSFNoteClose(note);

    note = reopen(id, OPEN_SUMMARY);
    EXPECT_TRUE(itemBytes(note, "Body").empty());
    setText(note, "Subject", "changed");
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    note = reopen(id);
    EXPECT_EQ(text(note, "Subject"), "changed");
    EXPECT_EQ(itemBytes(note, "Body"), withType(TYPE_COMPOSITE, "rt")) << "updating a summary-only note keeps the rest";
    NSFNoteClose(note);

    note = reopen(id, OPEN_EXPAND);
    EXPECT_EQ(itemBytes(note, "Subject"), withType(TYPE_TEXT_LIST, textList({"changed"})));
    EXPECT_EQ(itemBytes(note, "Size"), withType(TYPE_NUMBER_RANGE, rangeOf<double>({7.0})));
    NSFNoteClose(note);
}

TEST_F(StorageNote, DefaultNoteOfAClassOpensThroughTheSpecialId)
{
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_FORM, 0, &note), 0x0242);
    NOTEID ids[2];
    for (NOTEID& id : ids) {
        note = newNote(db);
        WORD defaultForm = NOTE_CLASS_FORM | NOTE_CLASS_DEFAULT;
        NSFNoteSetInfo(note, _NOTE_CLASS, &defaultForm);
        ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        id = info<NOTEID>(note, _NOTE_ID);
        NSFNoteClose(note);
    }
    note = reopen(NOTE_ID_SPECIAL | NOTE_CLASS_FORM);
    EXPECT_EQ(info<NOTEID>(note, _NOTE_ID), ids[1]) << "the last one saved as default wins";
    NSFNoteClose(note);
    WORD noteClass = 0;
    ASSERT_EQ(NSFDbGetNoteInfo(db, ids[0], nullptr, nullptr, &noteClass), NOERROR);
    EXPECT_EQ(noteClass, NOTE_CLASS_FORM);
}

TEST_F(StorageNote, ResponseAndParentFindEachOther)
{
    NOTEID parent = saveTextNote(db, "parent");
    NOTEHANDLE note = reopen(parent);
    OID oid = info<OID>(note, _NOTE_OID);
    NSFNoteClose(note);
    std::string ref(2, '\0');
    ref[0] = 1;
    ref.append(reinterpret_cast<const char*>(&oid), sizeof(UNID));
    note = newNote(db);
    append(note, "$REF", TYPE_NOTEREF_LIST, ref.data(), static_cast<DWORD>(ref.size()));
    EXPECT_EQ(info<NOTEID>(note, _NOTE_PARENT_NOTEID), parent);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID response = info<NOTEID>(note, _NOTE_ID);
    NSFNoteClose(note);

    note = reopen(parent, OPEN_RESPONSE_ID_TABLE);
    EXPECT_EQ(info<DWORD>(note, _NOTE_RESPONSE_COUNT), 1u);
    DHANDLE responses = info<DHANDLE>(note, _NOTE_RESPONSES);
    EXPECT_EQ(IDEntries(responses), 1u);
    EXPECT_TRUE(IDIsPresent(responses, response));
    NSFNoteClose(note);
    EXPECT_EQ(IDEntries(responses), 0u) << "the table goes with the note";
}

TEST_F(StorageNote, BadHandlesGiveStatuses)
{
    NOTEHANDLE note = newNote(db);
    ASSERT_EQ(NSFNoteClose(note), NOERROR);
    EXPECT_EQ(NSFNoteClose(note), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFNoteUpdate(note, 0), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFItemAppend(note, 0, "A", 1, TYPE_TEXT, "a", 1), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(NSFItemInfo(NULLHANDLE, "A", 1, nullptr, nullptr, nullptr, nullptr), ERR_NULL_NOTEHANDLE);
    EXPECT_EQ(NSFNoteUpdate(db, 0), sim::STS_INVALID_HANDLE) << "a database handle is no note handle";

    note = newNote(db);
    DBHANDLE closing = open("notes.nsf");
    NOTEHANDLE orphan = newNote(closing);
    NSFDbClose(closing);
    EXPECT_EQ(NSFNoteUpdate(orphan, 0), sim::STS_INVALID_HANDLE);
    NSFNoteClose(orphan);
    EXPECT_EQ(NSFNoteOpen(db, 0x400, 0, &orphan), ERR_INVALID_NOTE);
    NSFNoteClose(note);
}
