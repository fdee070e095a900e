// Directory lookups (NAMELookup2 and its walkers, MailLookupAddress) over the
// person documents of the server's directory database, and DNCanonicalize.
//
// Lookup buffer layout (private to this file; every number is a DWORD, read
// with memcpy because values make later fields unaligned):
//   buffer: totalLength, recordCount, then the records
//   record: recordLength, matchCount, then the matches
//   match:  matchLength, itemCount, itemCount x {offset from the match start
//           (0 = the document lacks the item or holds it with a zero-length
//           value), size}, then the values, each a 2-byte type word followed by
//           the data as the item holds it.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "environment.h"
#include "handles.h"
#include "paths.h"
#include "sim_core.h"

namespace {

constexpr STATUS kNoSuchNameSpace = 0x0309;
constexpr STATUS kNoNamesFile = 0x030A;
constexpr STATUS kUnsupportedType = 0x0312;

// ---- text helpers ----------------------------------------------------------

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool sameText(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && lowered(a) == lowered(b);
}

std::string trimmed(const std::string& text)
{
    size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<std::string> splitAt(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at = text.find(separator); at != std::string::npos; at = text.find(separator, start)) {
        parts.push_back(text.substr(start, at - start));
        start = at + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

// Packed NUL-terminated texts, as NAMELookup2 takes name spaces, names and items.
std::vector<std::string> packedTexts(const char* packed, WORD count)
{
    std::vector<std::string> texts;
    for (WORD i = 0; i < count; ++i) {
        texts.emplace_back(packed);
        packed += texts.back().size() + 1;
    }
    return texts;
}

// ---- distinguished names ---------------------------------------------------

// Labels of an abbreviated hierarchical name: CN first, O last, OU between;
// a two-letter last component of a name with three or more parts is a country.
std::vector<std::string> labelled(std::vector<std::string> parts)
{
    size_t count = parts.size();
    bool country = count >= 3 && parts.back().size() == 2;
    size_t organization = country ? count - 2 : count - 1;
    for (size_t i = 0; i < count; ++i) {
        const char* label = i == 0 ? "CN=" : i == organization ? "O=" : i > organization ? "C=" : "OU=";
        parts[i] = label + parts[i];
    }
    return parts;
}

std::string joined(const std::vector<std::string>& parts)
{
    std::string text;
    for (const auto& part : parts)
        text += (text.empty() ? "" : "/") + part;
    return text;
}

std::string canonicalName(const std::string& name, const std::string& templateName);

// The organisational part of the template ("OU=.../O=..."), for names ending in "/".
std::vector<std::string> templateTail(const std::string& templateName)
{
    std::vector<std::string> parts = splitAt(canonicalName(templateName, std::string()), '/');
    parts.erase(parts.begin());
    return parts;
}

// Abbreviated hierarchical names get their labels; flat and already canonical
// names come back unchanged.
std::string canonicalName(const std::string& name, const std::string& templateName)
{
    if (name.find('/') == std::string::npos || name.find('=') != std::string::npos)
        return name;
    std::vector<std::string> parts = splitAt(name, '/');
    for (auto& part : parts)
        part = trimmed(part);
    bool completeFromTemplate = parts.back().empty();
    if (completeFromTemplate)
        parts.pop_back();
    if (std::any_of(parts.begin(), parts.end(), [](const std::string& p) { return p.empty(); }))
        return name;
    if (!completeFromTemplate)
        return joined(labelled(parts));
    std::vector<std::string> tail = templateTail(templateName);
    if (tail.empty())
        return joined(parts);
    for (size_t i = 0; i < parts.size(); ++i)
        parts[i] = (i == 0 ? "CN=" : "OU=") + parts[i];
    parts.insert(parts.end(), tail.begin(), tail.end());
    return joined(parts);
}

bool sameName(const std::string& a, const std::string& b)
{
    return !a.empty() && sameText(canonicalName(a, std::string()), canonicalName(b, std::string()));
}

// ---- item values -----------------------------------------------------------

// Type word + data. Empty when the note lacks the item, and when the item's value
// has zero length: without a type word there is nothing NAMELocateItem2 could point
// at, so the match reports no value for it.
using ItemValue = std::vector<char>;

// The texts of a TEXT value (one) or a TEXT_LIST value (each entry); none otherwise.
std::vector<std::string> textsOf(const char* value, size_t size)
{
    std::vector<std::string> texts;
    if (size < sizeof(WORD))
        return texts;
    WORD type;
    std::memcpy(&type, value, sizeof(WORD));
    if (type == TYPE_TEXT) {
        texts.emplace_back(value + 2, size - 2);
    } else if (type == TYPE_TEXT_LIST && size >= 4) {
        WORD count;
        std::memcpy(&count, value + 2, sizeof(WORD));
        size_t lengths = 4, data = 4 + 2 * size_t(count);
        for (WORD i = 0; i < count && data <= size; ++i, lengths += 2) {
            WORD length;
            std::memcpy(&length, value + lengths, sizeof(WORD));
            if (data + length > size)
                break;
            texts.emplace_back(value + data, length);
            data += length;
        }
    }
    return texts;
}

std::vector<std::string> textsOf(const ItemValue& value) { return textsOf(value.data(), value.size()); }

// The value of item `name` (type word first), empty when the note lacks it or its
// value has zero length.
STATUS readItem(NOTEHANDLE note, const std::string& name, ItemValue& value)
{
    value.clear();
    WORD type = 0;
    BLOCKID block{};
    DWORD length = 0;
    STATUS status = impl::NSFItemInfo(note, name.c_str(), static_cast<WORD>(name.size()), nullptr, &type,
                                      &block, &length);
    if (status == ERR_ITEM_NOT_FOUND)
        return NOERROR;
    if (status != NOERROR)
        return status;
    const char* pool = static_cast<const char*>(impl::OSLockObject(block.pool));
    if (pool == nullptr)
        return sim::STS_INVALID_HANDLE;
    value.assign(pool + block.block, pool + block.block + length);
    impl::OSUnlockObject(block.pool);
    return NOERROR;
}

// ---- the directory ---------------------------------------------------------

struct Person {
    NOTEID noteId = 0;
    std::vector<std::string> fullNames;
    std::vector<std::string> lookupKeys;   // FullName entries, ShortName, InternetAddress
    std::vector<std::string> personalNames; // FirstName, LastName
    std::vector<ItemValue> requested;       // the items a lookup asked for, in order
};

class DatabaseHandle {
public:
    DatabaseHandle() = default;
    DatabaseHandle(const DatabaseHandle&) = delete;
    DatabaseHandle& operator=(const DatabaseHandle&) = delete;
    ~DatabaseHandle()
    {
        if (handle != NULLHANDLE)
            impl::NSFDbClose(handle);
    }
    DBHANDLE handle = NULLHANDLE;
};

class NoteHandle {
public:
    NoteHandle() = default;
    NoteHandle(const NoteHandle&) = delete;
    NoteHandle& operator=(const NoteHandle&) = delete;
    ~NoteHandle()
    {
        if (handle != NULLHANDLE)
            impl::NSFNoteClose(handle);
    }
    NOTEHANDLE handle = NULLHANDLE;
};

STATUS collectNoteId(void* parameter, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    if (copy.SERetFlags & SE_FMATCH)
        static_cast<std::vector<NOTEID>*>(parameter)->push_back(copy.ID.NoteID);
    return NOERROR;
}

STATUS appendTextsOf(NOTEHANDLE note, const char* item, std::vector<std::string>& texts)
{
    ItemValue value;
    STATUS status = readItem(note, item, value);
    for (auto& text : textsOf(value))
        if (!text.empty())
            texts.push_back(std::move(text));
    return status;
}

// Reads one document; `isPerson` is false for documents of other forms.
STATUS readPerson(NOTEHANDLE note, const std::vector<std::string>& items, Person& person, bool& isPerson)
{
    std::vector<std::string> form;
    STATUS status = appendTextsOf(note, "Form", form);
    isPerson = status == NOERROR && form.size() == 1 && sameText(form[0], "Person");
    if (!isPerson)
        return status;
    if ((status = appendTextsOf(note, "FullName", person.fullNames)) != NOERROR)
        return status;
    person.lookupKeys = person.fullNames;
    for (const char* key : {"ShortName", "InternetAddress"})
        if ((status = appendTextsOf(note, key, person.lookupKeys)) != NOERROR)
            return status;
    for (const char* key : {"FirstName", "LastName"})
        if ((status = appendTextsOf(note, key, person.personalNames)) != NOERROR)
            return status;
    person.requested.resize(items.size());
    for (size_t i = 0; i < items.size() && status == NOERROR; ++i)
        status = readItem(note, items[i], person.requested[i]);
    return status;
}

// Person documents of one directory database, in note-ID order. Only the
// summary is opened: a directory lookup returns summary items alone.
STATUS readPeople(DBHANDLE db, const std::vector<std::string>& items, std::vector<Person>& people)
{
    std::vector<NOTEID> ids;
    STATUS status = impl::NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collectNoteId,
                                    &ids, nullptr);
    for (size_t i = 0; i < ids.size() && status == NOERROR; ++i) {
        NoteHandle note;
        if ((status = impl::NSFNoteOpen(db, ids[i], OPEN_SUMMARY, &note.handle)) != NOERROR)
            break;
        Person person;
        person.noteId = ids[i];
        bool isPerson = false;
        status = readPerson(note.handle, items, person, isPerson);
        if (isPerson && status == NOERROR)
            people.push_back(std::move(person));
    }
    return status;
}

// The directory databases named by the ini's NAMES= (comma-separated), else names.nsf.
std::vector<std::string> directoryPaths()
{
    std::string setting;
    if (!sim::iniValue("NAMES", setting) || trimmed(setting).empty())
        setting = "names.nsf";
    std::vector<std::string> paths;
    for (const auto& part : splitAt(setting, ','))
        if (!trimmed(part).empty())
            paths.push_back(trimmed(part));
    return paths;
}

// The people of every directory database that exists; ERR_NO_NAMES_FILE when none does.
STATUS readDirectories(const std::vector<std::string>& items, std::vector<std::vector<Person>>& directories)
{
    for (const auto& path : directoryPaths()) {
        DatabaseHandle db;
        STATUS status = impl::NSFDbOpen(path.c_str(), &db.handle);
        if (status == ERR_NOEXIST)
            continue;
        if (status != NOERROR)
            return status;
        directories.emplace_back();
        if ((status = readPeople(db.handle, items, directories.back())) != NOERROR)
            return status;
    }
    return directories.empty() ? kNoNamesFile : NOERROR;
}

bool matchesAny(const std::vector<std::string>& keys, const std::string& name)
{
    return std::any_of(keys.begin(), keys.end(), [&](const std::string& key) { return sameName(key, name); });
}

// ---- name spaces -----------------------------------------------------------

enum class NameSpace { People, Users };

bool nameSpaceOf(const std::string& text, NameSpace& nameSpace)
{
    if (sameText(text, "$PEOPLE"))
        nameSpace = NameSpace::People;
    else if (sameText(text, "$Users"))
        nameSpace = NameSpace::Users;
    else
        return false;
    return true;
}

std::string firstFullName(const Person& person)
{
    return person.fullNames.empty() ? std::string() : lowered(person.fullNames.front());
}

// Every entry of a name space in view order: $PEOPLE holds each person once,
// sorted by full name; $Users holds a person once per name it is keyed by.
std::vector<const Person*> allEntries(NameSpace nameSpace, const std::vector<Person>& people)
{
    std::vector<std::pair<std::string, const Person*>> entries;
    for (const auto& person : people) {
        if (nameSpace == NameSpace::People)
            entries.emplace_back(firstFullName(person), &person);
        else
            for (const auto& key : person.lookupKeys)
                entries.emplace_back(lowered(key), &person);
    }
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<const Person*> result;
    for (const auto& entry : entries)
        result.push_back(entry.second);
    return result;
}

std::vector<const Person*> matchingPeople(const std::vector<Person>& people, const std::string& name)
{
    std::vector<const Person*> result;
    for (const auto& person : people)
        if (matchesAny(person.lookupKeys, name))
            result.push_back(&person);
    return result;
}

// Matches of one name in one name space: the first directory that has any,
// or all directories with NAME_LOOKUP_EXHAUSTIVE; only the first directory
// with NAME_LOOKUP_NOSEARCHING.
std::vector<const Person*> lookUp(NameSpace nameSpace, const std::string& name, DWORD flags,
                                  const std::vector<std::vector<Person>>& directories)
{
    std::vector<const Person*> result;
    for (const auto& people : directories) {
        bool all = name.empty() && (flags & NAME_LOOKUP_ALL);
        std::vector<const Person*> found = all ? allEntries(nameSpace, people) : matchingPeople(people, name);
        result.insert(result.end(), found.begin(), found.end());
        if ((!result.empty() && !(flags & NAME_LOOKUP_EXHAUSTIVE)) || (flags & NAME_LOOKUP_NOSEARCHING))
            break;
    }
    return result;
}

// ---- the lookup buffer -----------------------------------------------------

void appendDword(std::vector<char>& out, size_t value)
{
    DWORD word = static_cast<DWORD>(value);
    out.insert(out.end(), reinterpret_cast<const char*>(&word), reinterpret_cast<const char*>(&word) + 4);
}

void patchDword(std::vector<char>& out, size_t at, size_t value)
{
    DWORD word = static_cast<DWORD>(value);
    std::memcpy(out.data() + at, &word, 4);
}

DWORD dwordAt(const void* at, size_t offset = 0)
{
    DWORD word;
    std::memcpy(&word, static_cast<const char*>(at) + offset, 4);
    return word;
}

void appendMatch(std::vector<char>& out, const Person& person)
{
    size_t start = out.size();
    size_t items = person.requested.size();
    appendDword(out, 0);
    appendDword(out, items);
    size_t offset = 8 + 8 * items;
    for (const auto& value : person.requested) {
        appendDword(out, value.empty() ? 0 : offset);
        appendDword(out, value.size());
        offset += value.size();
    }
    for (const auto& value : person.requested)
        out.insert(out.end(), value.begin(), value.end());
    patchDword(out, start, out.size() - start);
}

void appendRecord(std::vector<char>& out, const std::vector<const Person*>& matches)
{
    size_t start = out.size();
    appendDword(out, 0);
    appendDword(out, matches.size());
    for (const Person* person : matches)
        appendMatch(out, *person);
    patchDword(out, start, out.size() - start);
}

// A buffer handed back to the walkers may not be one this file wrote (a caller's
// copy, damaged memory), so no length, count or offset in it is used before it is
// checked against the length word of what contains it; the buffer's own length word
// bounds everything.
constexpr size_t kBlockHeader = 8; // length word, count word

// Whether a record or match starts `at` bytes into a container of `length` bytes
// and, by its own length word, covers its header and ends inside the container.
bool blockFits(const char* container, size_t at, size_t length)
{
    if (at > length || length - at < kBlockHeader)
        return false;
    DWORD size = dwordAt(container, at);
    return size >= kBlockHeader && size <= length - at;
}

// The matches of a record that its count word claims and its length holds.
DWORD matchesOf(const char* record)
{
    DWORD claimed = dwordAt(record, 4);
    size_t length = dwordAt(record);
    DWORD found = 0;
    for (size_t at = kBlockHeader; found < claimed && blockFits(record, at, length); at += dwordAt(record, at))
        ++found;
    return found;
}

// The item `index` of a match: its value (type word first) and size; null when absent,
// or when the match does not hold the item's table entry or the whole value.
const char* itemOf(const void* match, WORD index, DWORD& size)
{
    if (match == nullptr || index >= dwordAt(match, 4))
        return nullptr;
    size_t length = dwordAt(match);
    size_t entry = kBlockHeader + 8 * size_t(index);
    if (entry + 8 > length)
        return nullptr;
    size_t offset = dwordAt(match, entry);
    size = dwordAt(match, entry + 4);
    if (offset == 0 || offset < kBlockHeader || offset > length || size < sizeof(WORD) || size > length - offset)
        return nullptr;
    return static_cast<const char*>(match) + offset;
}

STATUS copyMember(const char* value, DWORD size, WORD member, char* buffer, WORD bufferLength)
{
    WORD type;
    std::memcpy(&type, value, sizeof type);
    if (type != TYPE_TEXT && type != TYPE_TEXT_LIST)
        return kUnsupportedType;
    std::vector<std::string> members = textsOf(value, size);
    if (member >= members.size())
        return ERR_NO_MORE_MEMBERS;
    if (buffer != nullptr && bufferLength > 0) {
        size_t count = std::min<size_t>(members[member].size(), bufferLength - 1u);
        std::memcpy(buffer, members[member].data(), count);
        buffer[count] = '\0';
    }
    return NOERROR;
}

} // namespace

STATUS impl::NAMELookup2(const char* ServerName, DWORD Flags, WORD NumNameSpaces, const char* NameSpaces,
                         WORD NumNames, const char* Names, WORD NumItems, const char* Items, DHANDLE* rethBuffer)
{
    if (rethBuffer == nullptr || NameSpaces == nullptr || Names == nullptr || NumNames == 0 ||
        (NumItems > 0 && Items == nullptr))
        return sim::STS_BAD_ARGUMENT;
    *rethBuffer = NULLHANDLE;
    if (ServerName != nullptr && !sim::isLocalServer(ServerName))
        return sim::STS_SERVER_NOT_RESPONDING;
    std::vector<NameSpace> nameSpaces(NumNameSpaces);
    std::vector<std::string> spaceNames = packedTexts(NameSpaces, NumNameSpaces);
    for (const auto& space : spaceNames)
        sim::traceDetail("NAMELookup2", space);
    for (size_t i = 0; i < spaceNames.size(); ++i)
        if (!nameSpaceOf(spaceNames[i], nameSpaces[i]))
            return kNoSuchNameSpace;
    std::vector<std::vector<Person>> directories;
    STATUS status = readDirectories(packedTexts(Items, NumItems), directories);
    if (status != NOERROR)
        return status;
    // One record per name and name space, the name spaces varying fastest.
    std::vector<char> out;
    appendDword(out, 0);
    appendDword(out, size_t(NumNames) * NumNameSpaces);
    for (const auto& name : packedTexts(Names, NumNames))
        for (NameSpace nameSpace : nameSpaces)
            appendRecord(out, lookUp(nameSpace, name, Flags, directories));
    patchDword(out, 0, out.size());
    *rethBuffer = sim::allocateMemoryWith(out.data(), out.size());
    return NOERROR;
}

void* impl::NAMELocateNextName2(void* pLookup, void* pName, DWORD* retNumMatches)
{
    if (retNumMatches != nullptr)
        *retNumMatches = 0;
    if (pLookup == nullptr)
        return nullptr;
    char* base = static_cast<char*>(pLookup);
    size_t at = pName == nullptr ? kBlockHeader : size_t(static_cast<char*>(pName) - base) + dwordAt(pName);
    if (!blockFits(base, at, dwordAt(base)))
        return nullptr;
    char* next = base + at;
    if (retNumMatches != nullptr)
        *retNumMatches = matchesOf(next);
    return next;
}

// Past the last match of the record this gives null rather than the bytes of
// whatever follows; callers count matches instead of testing for the end.
void* impl::NAMELocateNextMatch2(void* pLookup, void* pName, void* pMatch)
{
    if (pLookup == nullptr || pName == nullptr)
        return nullptr;
    char* record = static_cast<char*>(pName);
    size_t at = pMatch == nullptr ? kBlockHeader : size_t(static_cast<char*>(pMatch) - record) + dwordAt(pMatch);
    return blockFits(record, at, dwordAt(record)) ? record + at : nullptr;
}

void* impl::NAMELocateItem2(void* pMatch, WORD Item, WORD* retDataType, WORD* retSize)
{
    DWORD size = 0;
    const char* value = itemOf(pMatch, Item, size);
    if (value != nullptr) {
        if (retDataType != nullptr)
            std::memcpy(retDataType, value, sizeof(WORD));
        if (retSize != nullptr)
            *retSize = static_cast<WORD>(std::min<DWORD>(size, MAXWORD));
    }
    return const_cast<char*>(value);
}

STATUS impl::NAMEGetTextItem2(void* pMatch, WORD Item, WORD Member, char* Buffer, WORD BufLen)
{
    DWORD size = 0;
    const char* value = itemOf(pMatch, Item, size);
    if (value == nullptr)
        return ERR_NO_SUCH_ITEM;
    return copyMember(value, size, Member, Buffer, BufLen);
}

STATUS impl::DNCanonicalize(DWORD Flags, const char* TemplateName, const char* InName, char* OutName,
                            WORD OutSize, WORD* OutLength)
{
    (void)Flags;
    if (InName == nullptr || OutName == nullptr || OutSize == 0)
        return sim::STS_BAD_ARGUMENT;
    sim::traceDetail("DNCanonicalize", InName);
    std::string templateName = TemplateName != nullptr ? TemplateName : sim::localServerName();
    std::string result = canonicalName(InName, templateName);
    size_t count = std::min<size_t>(result.size(), OutSize - 1u);
    std::memcpy(OutName, result.data(), count);
    OutName[count] = '\0';
    if (OutLength != nullptr)
        *OutLength = static_cast<WORD>(count);
    return NOERROR;
}

// Finds the one person the name designates (full, short, first or last name)
// and answers "<canonical full name>@<domain>".
STATUS impl::MailLookupAddress(char* UserName, char* MailAddress)
{
    if (UserName == nullptr || MailAddress == nullptr)
        return sim::STS_BAD_ARGUMENT;
    sim::traceDetail("MailLookupAddress", UserName);
    std::vector<std::vector<Person>> directories;
    STATUS status = readDirectories({}, directories);
    if (status != NOERROR)
        return status;
    std::vector<const Person*> found;
    for (const auto& people : directories)
        for (const auto& person : people)
            if (matchesAny(person.lookupKeys, UserName) || matchesAny(person.personalNames, UserName))
                found.push_back(&person);
    if (found.empty())
        return ERR_ROUTER_NOSUCHUSER;
    if (found.size() > 1)
        return ERR_ROUTER_NOTUNIQUE;
    std::string domain;
    sim::iniValue("Domain", domain);
    const std::vector<std::string>& fullNames = found.front()->fullNames;
    std::string address = canonicalName(fullNames.empty() ? std::string(UserName) : fullNames.front(), "");
    if (!domain.empty())
        address += "@" + domain;
    size_t count = std::min<size_t>(address.size(), MAXRECIPIENTNAME);
    std::memcpy(MailAddress, address.data(), count);
    MailAddress[count] = '\0';
    return NOERROR;
}
