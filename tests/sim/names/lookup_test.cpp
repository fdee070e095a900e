// Directory lookups over names.nsf: NAMELookup2 and its walkers, DNCanonicalize
// and MailLookupAddress.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "sim/support/storage_fixture.h"
#include "support/raw_items.h"

namespace {

std::vector<char> textListValue(const std::vector<std::string>& texts)
{
    std::vector<char> value(2 + 2 * texts.size());
    WORD count = static_cast<WORD>(texts.size());
    std::memcpy(value.data(), &count, 2);
    for (size_t i = 0; i < texts.size(); ++i) {
        WORD length = static_cast<WORD>(texts[i].size());
        std::memcpy(value.data() + 2 + 2 * i, &length, 2);
    }
    for (const auto& text : texts)
        value.insert(value.end(), text.begin(), text.end());
    return value;
}

WORD wordAt(const void* at)
{
    WORD value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// One lookup buffer, locked while the test walks it, unlocked and freed after.
struct Lookup {
    STATUS status = NOERROR;
    DHANDLE handle = NULLHANDLE;
    char* buffer = nullptr;
    ~Lookup()
    {
        if (handle != NULLHANDLE) {
            OSUnlockObject(handle);
            EXPECT_EQ(OSMemFree(handle), NOERROR);
        }
    }
    // The matches of record `record` (0-based).
    std::vector<void*> matches(size_t record)
    {
        DWORD count = 0;
        void* name = nullptr;
        for (size_t i = 0; i <= record; ++i)
            name = NAMELocateNextName2(buffer, name, &count);
        std::vector<void*> result;
        void* match = nullptr;
        for (DWORD i = 0; i < count; ++i)
            result.push_back(match = NAMELocateNextMatch2(buffer, name, match));
        return result;
    }
};

// `packed` holds NUL-separated texts; std::string keeps the inner NULs.
void lookUp(Lookup& lookup, const char* server, DWORD flags, const std::string& spaces, WORD spaceCount,
            const std::string& names, WORD nameCount, const std::string& items, WORD itemCount)
{
    lookup.status = NAMELookup2(server, flags, spaceCount, spaces.c_str(), nameCount, names.c_str(), itemCount,
                                items.c_str(), &lookup.handle);
    if (lookup.status == NOERROR)
        lookup.buffer = static_cast<char*>(OSLockObject(lookup.handle));
}

std::string textItem(void* match, WORD item, WORD member = 0)
{
    char buffer[256] = {};
    EXPECT_EQ(NAMEGetTextItem2(match, item, member, buffer, sizeof buffer), NOERROR);
    return buffer;
}

const std::string kMailAndName("MailFile\0FullName", 18);

class NamesLookup : public storage_test::StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        restartWith("Domain=HyOrg\n");
        DBHANDLE names = createAndOpen("names.nsf");
        addPerson(names, "Jane", "Doe", "jdoe", [](NOTEHANDLE note) { setText(note, "MailFile", "mail/jdoe.nsf"); });
        addPerson(names, "Adam", "Smith", "asmith", [](NOTEHANDLE note) {
            std::vector<char> list = textListValue({"mail/asmith.nsf", "mail/old.nsf"});
            append(note, "MailFile", TYPE_TEXT_LIST, list.data(), static_cast<DWORD>(list.size()));
        });
        addPerson(names, "Bob", "Number", "bnumber", [](NOTEHANDLE note) {
            double number = 42;
            append(note, "MailFile", TYPE_NUMBER, &number, sizeof number);
        });
        addPerson(names, "Carl", "Nomail", "cnomail", [](NOTEHANDLE) {});
        addPerson(names, "John", "Doe", "jodoe", [](NOTEHANDLE note) { setText(note, "MailFile", "mail/jodoe"); });
        NOTEHANDLE group = newNote(names);
        setText(group, "Form", "Group");
        setText(group, "FullName", "Jane Doe");
        EXPECT_EQ(NSFNoteUpdate(group, 0), NOERROR);
        NSFNoteClose(group);
        NSFDbClose(names);
    }

    void restartWith(const std::string& lines)
    {
        NotesTerm();
        std::ofstream(dataDir + "/notes.ini", std::ios::app) << lines;
        std::string program = dataDir;
        std::string ini = "=" + dataDir + "/notes.ini";
        char* argv[] = {program.data(), ini.data(), nullptr};
        ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    }

    template <class F>
    static void addPerson(DBHANDLE db, const std::string& first, const std::string& last, const std::string& shortName,
                          F mailFile)
    {
        NOTEHANDLE note = newNote(db);
        setText(note, "Form", "Person");
        setText(note, "FirstName", first);
        setText(note, "LastName", last);
        std::vector<char> fullName = textListValue({"CN=" + first + " " + last + "/O=HyOrg", first + " " + last});
        append(note, "FullName", TYPE_TEXT_LIST, fullName.data(), static_cast<DWORD>(fullName.size()));
        setText(note, "ShortName", shortName);
        setText(note, "InternetAddress", first + "." + last + "@hyorg.example");
        mailFile(note);
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NSFNoteClose(note);
    }
};

} // namespace

TEST_F(NamesLookup, AllEntriesComeInNameOrderWithTheItemsInRequestOrder)
{
    Lookup lookup;
    lookUp(lookup, nullptr, NAME_LOOKUP_ALL | NAME_LOOKUP_EXHAUSTIVE | NAME_LOOKUP_UPDATE, "$PEOPLE", 1, "", 1,
           kMailAndName, 2);
    ASSERT_EQ(lookup.status, NOERROR);
    DWORD count = 0xDEAD;
    void* name = NAMELocateNextName2(lookup.buffer, nullptr, &count);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(count, 5u) << "person documents only, not the group";
    EXPECT_EQ(NAMELocateNextName2(lookup.buffer, name, &count), nullptr);

    std::vector<std::string> fullNames;
    for (void* match : lookup.matches(0))
        fullNames.push_back(textItem(match, 1));
    EXPECT_EQ(fullNames, (std::vector<std::string>{"CN=Adam Smith/O=HyOrg", "CN=Bob Number/O=HyOrg",
                                                   "CN=Carl Nomail/O=HyOrg", "CN=Jane Doe/O=HyOrg",
                                                   "CN=John Doe/O=HyOrg"}));

    void* jane = lookup.matches(0)[3];
    WORD type = 0, size = 0;
    const char* value = static_cast<const char*>(NAMELocateItem2(jane, 0, &type, &size));
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(type, TYPE_TEXT);
    EXPECT_EQ(wordAt(value), TYPE_TEXT) << "the value starts with its type word";
    EXPECT_EQ(std::string(value + 2, size - 2), "mail/jdoe.nsf");
    EXPECT_EQ(textItem(jane, 1, 1), "Jane Doe");
}

TEST_F(NamesLookup, MailFilesOfOtherTypesKeepTheirPublishedLayout)
{
    Lookup lookup;
    lookUp(lookup, "", NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, "MailFile", 1);
    ASSERT_EQ(lookup.status, NOERROR);
    std::vector<void*> matches = lookup.matches(0);
    ASSERT_EQ(matches.size(), 5u);
    WORD type = 0, size = 0;

    const char* list = static_cast<const char*>(NAMELocateItem2(matches[0], 0, &type, &size));
    ASSERT_NE(list, nullptr);
    std::vector<char> expected = textListValue({"mail/asmith.nsf", "mail/old.nsf"});
    expected.insert(expected.begin(), {0x01, 0x05});
    EXPECT_EQ(type, TYPE_TEXT_LIST);
    EXPECT_EQ(std::vector<char>(list, list + size), expected);

    const char* number = static_cast<const char*>(NAMELocateItem2(matches[1], 0, &type, &size));
    ASSERT_NE(number, nullptr);
    double value = 0;
    std::memcpy(&value, number + 2, sizeof value);
    EXPECT_EQ(type, TYPE_NUMBER);
    EXPECT_EQ(size, 10);
    EXPECT_EQ(value, 42.0);

    type = 0x7777;
    EXPECT_EQ(NAMELocateItem2(matches[2], 0, &type, &size), nullptr) << "Carl has no MailFile";
    EXPECT_EQ(NAMELocateItem2(matches[3], 1, &type, &size), nullptr) << "only one item was asked for";
}

TEST_F(NamesLookup, TextMembersAndTheirErrors)
{
    Lookup lookup;
    lookUp(lookup, nullptr, NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, kMailAndName, 2);
    ASSERT_EQ(lookup.status, NOERROR);
    std::vector<void*> matches = lookup.matches(0);
    char buffer[16];
    EXPECT_EQ(textItem(matches[0], 0, 1), "mail/old.nsf");
    EXPECT_EQ(NAMEGetTextItem2(matches[0], 0, 2, buffer, sizeof buffer), ERR_NO_MORE_MEMBERS);
    EXPECT_EQ(NAMEGetTextItem2(matches[3], 0, 1, buffer, sizeof buffer), ERR_NO_MORE_MEMBERS)
        << "a plain text has one member";
    EXPECT_EQ(NAMEGetTextItem2(matches[1], 0, 0, buffer, sizeof buffer), 0x0312) << "a number is not text";
    EXPECT_EQ(NAMEGetTextItem2(matches[2], 0, 0, buffer, sizeof buffer), ERR_NO_SUCH_ITEM);
    EXPECT_EQ(NAMEGetTextItem2(matches[2], 2, 0, buffer, sizeof buffer), ERR_NO_SUCH_ITEM);

    std::memset(buffer, '#', sizeof buffer);
    ASSERT_EQ(NAMEGetTextItem2(matches[3], 1, 0, buffer, 8), NOERROR);
    EXPECT_STREQ(buffer, "CN=Jane") << "truncated to the buffer and terminated";
}

// An empty text keeps its type word; a value of zero length has none, so the
// match has nothing to point at. Neither may spoil the lookup of everyone else.
TEST_F(NamesLookup, EmptyMailFilesLeaveTheRestOfTheDirectoryIntact)
{
    DBHANDLE names = open("names.nsf");
    addPerson(names, "Edna", "Empty", "eempty", [](NOTEHANDLE note) { setText(note, "MailFile", ""); });
    addPerson(names, "Zoe", "Zero", "zzero", [](NOTEHANDLE note) { setText(note, "MailFile", "to be emptied"); });
    NSFDbClose(names);
    ASSERT_EQ(hyln_test::storeZeroLengthValue(dataDir + "/names.nsf", "MailFile", "to be emptied"), 1);

    Lookup lookup;
    lookUp(lookup, nullptr, NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, kMailAndName, 2);
    ASSERT_EQ(lookup.status, NOERROR);
    std::vector<void*> matches = lookup.matches(0);
    ASSERT_EQ(matches.size(), 7u);
    std::vector<std::string> fullNames;
    for (void* match : matches)
        fullNames.push_back(textItem(match, 1));
    ASSERT_EQ(fullNames[3], "CN=Edna Empty/O=HyOrg");
    ASSERT_EQ(fullNames[6], "CN=Zoe Zero/O=HyOrg");

    WORD type = 0, size = 0;
    const char* empty = static_cast<const char*>(NAMELocateItem2(matches[3], 0, &type, &size));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(type, TYPE_TEXT);
    EXPECT_EQ(size, 2) << "the type word alone";
    EXPECT_EQ(textItem(matches[3], 0), "");

    type = 0x7777;
    EXPECT_EQ(NAMELocateItem2(matches[6], 0, &type, &size), nullptr);
    EXPECT_EQ(type, 0x7777) << "nothing is written for a value that is not there";
    char buffer[16];
    EXPECT_EQ(NAMEGetTextItem2(matches[6], 0, 0, buffer, sizeof buffer), ERR_NO_SUCH_ITEM);
    EXPECT_EQ(textItem(matches[4], 0), "mail/jdoe.nsf") << "the next person is read as before";
}

TEST_F(NamesLookup, NamesMatchFullShortAndInternetNamesInAnyForm)
{
    for (const char* name : {"jane doe/hyorg", "CN=Jane Doe/O=HyOrg", "JANE DOE", "jdoe", "Jane.Doe@HyOrg.example"}) {
        Lookup lookup;
        lookUp(lookup, nullptr, 0, "$Users", 1, name, 1, "MailFile", 1);
        ASSERT_EQ(lookup.status, NOERROR) << name;
        std::vector<void*> matches = lookup.matches(0);
        ASSERT_EQ(matches.size(), 1u) << name;
        EXPECT_EQ(textItem(matches[0], 0), "mail/jdoe.nsf") << name;
    }
    Lookup bySurname;
    lookUp(bySurname, nullptr, 0, "$Users", 1, "Doe", 1, "MailFile", 1);
    EXPECT_TRUE(bySurname.matches(0).empty()) << "a last name alone is no key";
    Lookup empty;
    lookUp(empty, nullptr, 0, "$PEOPLE", 1, "", 1, "MailFile", 1);
    EXPECT_TRUE(empty.matches(0).empty()) << "\"\" lists everything only with NAME_LOOKUP_ALL";
}

TEST_F(NamesLookup, OneRecordPerNameAndNameSpace)
{
    Lookup lookup;
    lookUp(lookup, nullptr, NAME_LOOKUP_ALL, std::string("$PEOPLE\0$Users", 15), 2,
           std::string("bnumber\0", 9), 2, "ShortName", 1);
    ASSERT_EQ(lookup.status, NOERROR);
    ASSERT_EQ(lookup.matches(0).size(), 1u);
    EXPECT_EQ(textItem(lookup.matches(0)[0], 0), "bnumber");
    ASSERT_EQ(lookup.matches(1).size(), 1u);
    EXPECT_EQ(lookup.matches(2).size(), 5u) << "the empty name lists $PEOPLE";
    EXPECT_EQ(lookup.matches(3).size(), 20u) << "$Users lists a person under each of four names";
    DWORD count = 0;
    void* name = nullptr;
    for (int i = 0; i < 4; ++i)
        name = NAMELocateNextName2(lookup.buffer, name, &count);
    EXPECT_EQ(NAMELocateNextName2(lookup.buffer, name, &count), nullptr);
}

TEST_F(NamesLookup, ServersNameSpacesAndDirectoryFiles)
{
    Lookup local;
    lookUp(local, "HySrv01/HyOrg", NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, "MailFile", 1);
    EXPECT_EQ(local.status, NOERROR) << "the local server in abbreviated form";
    Lookup remote;
    lookUp(remote, "CN=Other/O=HyOrg", NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, "MailFile", 1);
    EXPECT_EQ(remote.status, sim::STS_SERVER_NOT_RESPONDING);
    Lookup groups;
    lookUp(groups, nullptr, NAME_LOOKUP_ALL, "$Groups", 1, "", 1, "MailFile", 1);
    EXPECT_EQ(groups.status, 0x0309);
    EXPECT_EQ(groups.handle, NULLHANDLE);

    DBHANDLE other = createAndOpen("other.nsf");
    addPerson(other, "Olga", "Other", "oother", [](NOTEHANDLE note) { setText(note, "MailFile", "mail/o.nsf"); });
    NSFDbClose(other);
    restartWith("NAMES=other.nsf\n");
    Lookup fromOther;
    lookUp(fromOther, nullptr, NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, "MailFile", 1);
    ASSERT_EQ(fromOther.status, NOERROR);
    ASSERT_EQ(fromOther.matches(0).size(), 1u);
    EXPECT_EQ(textItem(fromOther.matches(0)[0], 0), "mail/o.nsf");

    std::filesystem::remove(dataDir + "/other.nsf");
    Lookup missing;
    lookUp(missing, nullptr, NAME_LOOKUP_ALL, "$PEOPLE", 1, "", 1, "MailFile", 1);
    EXPECT_EQ(missing.status, 0x030A);
}

TEST_F(NamesLookup, CanonicalizeLabelsAbbreviatedNames)
{
    struct Case {
        const char* in;
        const char* templ;
        const char* out;
    } cases[] = {
        {"Jane Doe/Sales/Acme", nullptr, "CN=Jane Doe/OU=Sales/O=Acme"},
        {"Jane Doe/Acme", nullptr, "CN=Jane Doe/O=Acme"},
        {"Jane Doe/East/Sales/Acme/US", nullptr, "CN=Jane Doe/OU=East/OU=Sales/O=Acme/C=US"},
        {"CN=Jane Doe/O=Acme", nullptr, "CN=Jane Doe/O=Acme"},
        {"Jane Doe", nullptr, "Jane Doe"},
        {"Mary Tsen/", nullptr, "CN=Mary Tsen/O=HyOrg"},
        {"Mary Tsen/Dev/", "Boss/Acme", "CN=Mary Tsen/OU=Dev/O=Acme"},
    };
    for (const auto& c : cases) {
        char out[MAXUSERNAME] = {};
        WORD length = 0;
        ASSERT_EQ(DNCanonicalize(0, c.templ, c.in, out, sizeof out, &length), NOERROR) << c.in;
        EXPECT_STREQ(out, c.out) << c.in;
        EXPECT_EQ(length, std::strlen(c.out)) << c.in;
    }
    char small[8];
    WORD length = 0;
    ASSERT_EQ(DNCanonicalize(0, nullptr, "Jane Doe/Acme", small, sizeof small, &length), NOERROR);
    EXPECT_STREQ(small, "CN=Jane");
    EXPECT_EQ(length, 7);
}

TEST_F(NamesLookup, MailAddressesNeedOneMatchingPerson)
{
    char address[MAXRECIPIENTNAME + 1];
    char jane[] = "Jane Doe";
    ASSERT_EQ(MailLookupAddress(jane, address), NOERROR);
    EXPECT_STREQ(address, "CN=Jane Doe/O=HyOrg@HyOrg");
    char adam[] = "adam";
    ASSERT_EQ(MailLookupAddress(adam, address), NOERROR) << "a first name is enough when it is unique";
    EXPECT_STREQ(address, "CN=Adam Smith/O=HyOrg@HyOrg");
    char doe[] = "Doe";
    EXPECT_EQ(MailLookupAddress(doe, address), ERR_ROUTER_NOTUNIQUE);
    char nobody[] = "Nobody Here";
    EXPECT_EQ(MailLookupAddress(nobody, address), ERR_ROUTER_NOSUCHUSER);
}

// Lookup buffers the walkers are handed back damaged: every length, count and offset
// is checked against what contains it, so a walk neither leaves the buffer nor loops.
namespace {

// Writes a lookup buffer by hand; the vector is exactly the buffer, so a sanitizer
// build also catches a read past its end.
struct LookupBytes {
    std::vector<char> bytes;
    size_t dword(DWORD value)
    {
        size_t at = bytes.size();
        bytes.resize(at + 4);
        std::memcpy(bytes.data() + at, &value, 4);
        return at;
    }
    void word(WORD value)
    {
        bytes.resize(bytes.size() + 2);
        std::memcpy(bytes.data() + bytes.size() - 2, &value, 2);
    }
    void text(const std::string& value) { bytes.insert(bytes.end(), value.begin(), value.end()); }
    void patch(size_t at, DWORD value) { std::memcpy(bytes.data() + at, &value, 4); }
    // The buffer's own length word, set once it is complete.
    char* finish()
    {
        patch(0, static_cast<DWORD>(bytes.size()));
        return bytes.data();
    }
    // A match holding one TEXT item, `text`.
    void textMatch(const std::string& value)
    {
        size_t start = dword(0);
        dword(1);
        dword(16);
        dword(static_cast<DWORD>(2 + value.size()));
        word(TYPE_TEXT);
        text(value);
        patch(start, static_cast<DWORD>(bytes.size() - start));
    }
};

} // namespace

TEST(NamesDamagedBuffer, RecordsMustFitInTheBuffer)
{
    LookupBytes cut;
    cut.dword(0);
    cut.dword(1);
    cut.dword(40); // a record header with only its length word inside the buffer
    DWORD count = 0xDEAD;
    EXPECT_EQ(NAMELocateNextName2(cut.finish(), nullptr, &count), nullptr);
    EXPECT_EQ(count, 0u);

    for (DWORD length : {0u, 4u, 17u}) {
        LookupBytes bad;
        bad.dword(0);
        bad.dword(1);
        bad.dword(length); // shorter than its header, or longer than the rest of the buffer
        bad.dword(0);
        bad.dword(0);
        EXPECT_EQ(NAMELocateNextName2(bad.finish(), nullptr, &count), nullptr) << "record length " << length;
    }

    LookupBytes two; // two empty records, then a third that claims the whole buffer
    two.dword(0);
    two.dword(3);
    two.dword(8);
    two.dword(0);
    two.dword(8);
    two.dword(0);
    two.dword(0xFFFFFFFF);
    two.dword(0);
    char* buffer = two.finish();
    void* first = NAMELocateNextName2(buffer, nullptr, &count);
    ASSERT_EQ(first, buffer + 8);
    void* second = NAMELocateNextName2(buffer, first, &count);
    ASSERT_EQ(second, buffer + 16);
    EXPECT_EQ(NAMELocateNextName2(buffer, second, &count), nullptr);
}

TEST(NamesDamagedBuffer, MatchCountIsWhatTheRecordHolds)
{
    LookupBytes lookup;
    lookup.dword(0);
    lookup.dword(1);
    size_t record = lookup.dword(0);
    size_t claimed = lookup.dword(0xFFFFFFFF);
    lookup.textMatch("mail/a.nsf");
    lookup.textMatch("mail/b.nsf");
    lookup.patch(record, static_cast<DWORD>(lookup.bytes.size() - record));
    char* buffer = lookup.finish();

    DWORD count = 0;
    void* name = NAMELocateNextName2(buffer, nullptr, &count);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(count, 2u) << "a record claiming 4 billion matches holds two";
    void* match = NAMELocateNextMatch2(buffer, name, nullptr);
    ASSERT_NE(match, nullptr);
    EXPECT_EQ(textItem(match, 0), "mail/a.nsf");
    match = NAMELocateNextMatch2(buffer, name, match);
    ASSERT_NE(match, nullptr);
    EXPECT_EQ(textItem(match, 0), "mail/b.nsf");
    EXPECT_EQ(NAMELocateNextMatch2(buffer, name, match), nullptr);

    lookup.patch(claimed, 1);
    NAMELocateNextName2(buffer, nullptr, &count);
    EXPECT_EQ(count, 1u) << "the count word still limits a well-formed record";

    lookup.patch(record + 8, 0); // a first match of length 0 would repeat for ever
    lookup.patch(claimed, 2);
    name = NAMELocateNextName2(buffer, nullptr, &count);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(NAMELocateNextMatch2(buffer, name, nullptr), nullptr);
}

TEST(NamesDamagedBuffer, ItemsOutsideTheirMatchAreAbsent)
{
    // match: length, count 2, {offset, size} x 2, then one value of 6 bytes
    LookupBytes lookup;
    lookup.dword(0);
    lookup.dword(1);
    size_t record = lookup.dword(0);
    lookup.dword(1);
    size_t match = lookup.dword(0);
    lookup.dword(2);
    size_t offset0 = lookup.dword(24);
    size_t size0 = lookup.dword(6);
    size_t offset1 = lookup.dword(24);
    size_t size1 = lookup.dword(6);
    lookup.word(TYPE_TEXT);
    lookup.text("abcd");
    lookup.patch(match, static_cast<DWORD>(lookup.bytes.size() - match));
    lookup.patch(record, static_cast<DWORD>(lookup.bytes.size() - record));
    char* buffer = lookup.finish();
    void* name = NAMELocateNextName2(buffer, nullptr, nullptr);
    void* first = NAMELocateNextMatch2(buffer, name, nullptr);
    ASSERT_EQ(first, buffer + match);

    WORD type = 0, size = 0;
    ASSERT_NE(NAMELocateItem2(first, 1, &type, &size), nullptr);
    EXPECT_EQ(size, 6);
    EXPECT_EQ(textItem(first, 1), "abcd");

    struct Damage {
        size_t at;
        DWORD value;
        const char* what;
    };
    for (Damage damage : {Damage{size1, 7, "one byte past the match"}, Damage{size1, 0xFFFFFFFF, "size wraps"},
                          Damage{offset1, 29, "offset past the value"}, Damage{offset1, 0x7FFFFFFF, "far away"},
                          Damage{offset1, 4, "offset inside the header"}, Damage{size1, 1, "no room for the type"}}) {
        lookup.patch(damage.at, damage.value);
        char text[8];
        EXPECT_EQ(NAMELocateItem2(first, 1, &type, &size), nullptr) << damage.what;
        EXPECT_EQ(NAMEGetTextItem2(first, 1, 0, text, sizeof text), ERR_NO_SUCH_ITEM) << damage.what;
        EXPECT_NE(NAMELocateItem2(first, 0, &type, &size), nullptr) << "item 0 is intact: " << damage.what;
        lookup.patch(offset1, 24);
        lookup.patch(size1, 6);
    }

    lookup.patch(match + 4, 3); // three items, but the match holds two table entries
    EXPECT_EQ(NAMELocateItem2(first, 2, &type, &size), nullptr);
    EXPECT_NE(NAMELocateItem2(first, 0, &type, &size), nullptr);
    (void)offset0;
    (void)size0;
}
