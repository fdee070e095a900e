// NIFOpenCollection, NIFReadEntries and NIFCloseCollection. A collection keeps its
// index in memory and builds it again on the next read after either database changed
// (a save by any handle or process moves the database's data-modified time).
#include "collections.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "collection_index.h"
#include "idtables.h"
#include "sim_core.h"

namespace sim {
namespace nif {
namespace {

struct Collection : HandleObject {
    Collection() : HandleObject(HandleKind::Collection) {}
    std::shared_ptr<Storage> viewDb;
    std::shared_ptr<Storage> dataDb;
    NOTEID viewId = 0;
    DHANDLE unreadList = NULLHANDLE;
    DHANDLE collapsedList = NULLHANDLE; // owned by the collection
    DHANDLE selectedList = NULLHANDLE;  // owned by the collection
    DHANDLE registered = NULLHANDLE;    // its entry in the handle registry (live-handle counts)
    unsigned long long viewModified = 0;
    unsigned long long dataModified = 0;
    Index index;
};

// HCOLLECTION is a WORD: collections are numbered apart from the other handles.
std::map<WORD, std::shared_ptr<Collection>>& collections()
{
    static std::map<WORD, std::shared_ptr<Collection>> table;
    return table;
}

WORD freeCollectionNumber()
{
    WORD number = 1;
    for (const auto& entry : collections()) {
        if (entry.first != number)
            break;
        ++number;
    }
    return number;
}

std::shared_ptr<Collection> findCollection(HCOLLECTION handle)
{
    auto it = collections().find(handle);
    return it == collections().end() ? nullptr : it->second;
}

STATUS modifiedTimes(Collection& collection, unsigned long long& view, unsigned long long& data)
{
    DatabaseProperties properties;
    STATUS status = collection.viewDb->readProperties(properties);
    view = timedateOrder(properties.dataModified);
    if (status == NOERROR)
        status = collection.dataDb->readProperties(properties);
    data = timedateOrder(properties.dataModified);
    return status;
}

STATUS rebuild(Collection& collection, Definition& definition)
{
    STATUS status = modifiedTimes(collection, collection.viewModified, collection.dataModified);
    if (status == NOERROR)
        status = loadDefinition(*collection.viewDb, collection.viewId, definition);
    if (status == NOERROR)
        status = buildIndex(definition, *collection.viewDb, *collection.dataDb, collection.index);
    return status;
}

STATUS refresh(Collection& collection, bool& rebuilt)
{
    unsigned long long view = 0;
    unsigned long long data = 0;
    STATUS status = modifiedTimes(collection, view, data);
    rebuilt = status == NOERROR && (view != collection.viewModified || data != collection.dataModified);
    Definition definition;
    return rebuilt ? rebuild(collection, definition) : status;
}

// A place in the index: -1 before the first entry, the entry count behind the last.
class Cursor {
public:
    Cursor(const Index& index, long long at) : index_(index), at_(at) {}
    long long at() const { return at_; }
    bool onEntry() const { return at_ >= 0 && at_ < count(); }

    // False (and no move) when there is no such entry.
    bool move(WORD navigator)
    {
        long long to = target(static_cast<WORD>(navigator & kNavigateMask));
        if (to < 0 || to >= count())
            return false;
        at_ = to;
        return true;
    }

private:
    long long count() const { return static_cast<long long>(index_.entries.size()); }
    const IndexEntry& entry() const { return index_.entries[static_cast<size_t>(at_)]; }
    DWORD parent() const { return onEntry() ? entry().parent : kNoEntry; }

    long long nextPeerOf(long long at) const
    {
        const IndexEntry& from = index_.entries[static_cast<size_t>(at)];
        long long next = at + from.descendants + 1;
        return next < count() && index_.entries[static_cast<size_t>(next)].parent == from.parent ? next : -1;
    }

    long long firstPeer() const
    {
        if (parent() != kNoEntry)
            return parent() + 1;
        return index_.topLevel.empty() ? -1 : index_.topLevel.front();
    }

    long long lastPeer() const
    {
        if (parent() == kNoEntry)
            return index_.topLevel.empty() ? -1 : index_.topLevel.back();
        long long last = parent() + 1;
        for (long long next = nextPeerOf(last); next >= 0; next = nextPeerOf(next))
            last = next;
        return last;
    }

    long long scanFrom(long long from, bool category) const
    {
        for (long long at = from; at < count(); ++at)
            if (((index_.entries[static_cast<size_t>(at)].id & NOTEID_CATEGORY) != 0) == category)
                return at;
        return -1;
    }

    long long target(WORD navigator) const
    {
        switch (navigator) {
        case kNavigateCurrent:
            return onEntry() ? at_ : -1;
        case kNavigateNext:
            return at_ + 1;
        case kNavigatePrevious:
            return onEntry() ? at_ - 1 : -1;
        case kNavigateParent:
            return parent() == kNoEntry ? -1 : static_cast<long long>(parent());
        case kNavigateChild:
            return onEntry() && entry().children > 0 ? at_ + 1 : -1;
        case kNavigateNextPeer:
            return onEntry() ? nextPeerOf(at_) : -1;
        case kNavigatePreviousPeer:
            return onEntry() && entry().previousSibling != kNoEntry ? entry().previousSibling : -1;
        case kNavigateFirstPeer:
            return firstPeer();
        case kNavigateLastPeer:
            return lastPeer();
        case kNavigateNextCategory:
            return scanFrom(at_ + 1, true);
        default: // kNavigateNextNonCategory; others are refused before
            return scanFrom(at_ + 1, false);
        }
    }

    const Index& index_;
    long long at_;
};

bool supportedNavigator(WORD navigator)
{
    if (navigator & ~(kNavigateMask | kNavigateContinue))
        return false; // the level limits are not simulated
    switch (navigator & kNavigateMask) {
    case kNavigateCurrent:
    case kNavigateNext:
    case kNavigateParent:
    case kNavigateChild:
    case kNavigateNextPeer:
    case kNavigatePreviousPeer:
    case kNavigateFirstPeer:
    case kNavigateLastPeer:
    case kNavigatePrevious:
    case kNavigateNextCategory:
    case kNavigateNextNonCategory:
        return true;
    default:
        return false;
    }
}

constexpr DWORD kSupportedMask = kReadNoteId | kReadUnid | kReadNoteClass | kReadSiblings | kReadChildren |
                                 kReadDescendants | kReadAnyUnread | kReadIndentLevels | kReadCollectionStats |
                                 kReadScore | kReadUnread | kReadSummaryValues | kReadPosition | kReadSummary;

// The entry a tumbler designates: -1 for position 0 (before the first entry), the
// entry count when there is no such entry.
long long resolve(const Index& index, const COLLECTIONPOSITION& position)
{
    long long count = static_cast<long long>(index.entries.size());
    DWORD first = position.Tumbler[0];
    if (first == 0)
        return -1;
    if (first > index.topLevel.size())
        return count;
    long long at = index.topLevel[first - 1];
    WORD levels = std::min<WORD>(position.Level, MAXTUMBLERLEVELS - 1);
    for (WORD level = 1; level <= levels; ++level) {
        DWORD ordinal = position.Tumbler[level];
        const IndexEntry& parent = index.entries[static_cast<size_t>(at)];
        if (ordinal == 0 || ordinal > parent.children)
            return count;
        long long child = at + 1;
        for (DWORD hop = 1; hop < ordinal; ++hop)
            child += index.entries[static_cast<size_t>(child)].descendants + 1;
        at = child;
    }
    return at;
}

COLLECTIONPOSITION positionOf(const Index& index, DWORD at)
{
    COLLECTIONPOSITION position{};
    const IndexEntry& entry = index.entries[at];
    position.Level = entry.level;
    for (DWORD walk = at; walk != kNoEntry; walk = index.entries[walk].parent)
        position.Tumbler[index.entries[walk].level] = index.entries[walk].ordinal;
    return position;
}

template <class T>
void put(std::vector<char>& out, const T& value)
{
    const char* bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

// ITEM_VALUE_TABLE: the summary's values with their lengths, without the names.
std::vector<char> summaryValues(const std::vector<char>& summary)
{
    ITEM_TABLE table;
    std::memcpy(&table, summary.data(), sizeof table);
    std::vector<ITEM> items(table.Items);
    if (!items.empty())
        std::memcpy(items.data(), summary.data() + sizeof table, items.size() * sizeof(ITEM));
    std::vector<char> out;
    put(out, WORD{0});
    put(out, table.Items);
    for (const ITEM& item : items)
        put(out, item.ValueLength);
    size_t at = sizeof table + items.size() * sizeof(ITEM);
    for (const ITEM& item : items) {
        at += item.NameLength;
        out.insert(out.end(), summary.begin() + static_cast<long>(at), summary.begin() + static_cast<long>(at + item.ValueLength));
        at += item.ValueLength;
    }
    WORD length = static_cast<WORD>(out.size());
    std::memcpy(out.data(), &length, sizeof length);
    return out;
}

class EntryWriter {
public:
    EntryWriter(const Collection& collection, DWORD mask) : index_(collection.index), mask_(mask)
    {
        unread_ = findIdTable(collection.unreadList);
    }

    std::vector<char> entry(DWORD at) const
    {
        const IndexEntry& entry = index_.entries[at];
        std::vector<char> out;
        if (mask_ & kReadNoteId)
            put(out, entry.id);
        if (mask_ & kReadUnid)
            put(out, entry.unid);
        if (mask_ & kReadNoteClass)
            put(out, entry.noteClass);
        if (mask_ & kReadSiblings)
            put(out, index_.siblingsOf(entry));
        if (mask_ & kReadChildren)
            put(out, entry.children);
        if (mask_ & kReadDescendants)
            put(out, entry.descendants);
        if (mask_ & kReadAnyUnread)
            put(out, static_cast<WORD>(anyUnread(at) ? TRUE : FALSE));
        if (mask_ & kReadIndentLevels)
            put(out, entry.indent);
        if (mask_ & kReadScore)
            put(out, WORD{0}); // no full-text search, no relevance
        if (mask_ & kReadUnread)
            put(out, static_cast<WORD>(unread(entry) ? TRUE : FALSE));
        if (mask_ & kReadPosition) {
            COLLECTIONPOSITION position = positionOf(index_, at);
            const char* bytes = reinterpret_cast<const char*>(&position);
            out.insert(out.end(), bytes, bytes + sizeof(DWORD) * (position.Level + 2u));
        }
        if (mask_ & kReadSummaryValues) {
            std::vector<char> values = summaryValues(entry.summary);
            out.insert(out.end(), values.begin(), values.end());
        }
        if (mask_ & kReadSummary)
            out.insert(out.end(), entry.summary.begin(), entry.summary.end());
        return out;
    }

private:
    bool unread(const IndexEntry& entry) const
    {
        return unread_ && (entry.id & NOTEID_CATEGORY) == 0 && unread_->ids.contains(entry.id);
    }
    bool anyUnread(DWORD at) const
    {
        const IndexEntry& entry = index_.entries[at];
        for (DWORD i = at; i <= at + entry.descendants; ++i)
            if (unread(index_.entries[i]))
                return true;
        return false;
    }

    const Index& index_;
    DWORD mask_;
    std::shared_ptr<IdTable> unread_;
};

struct ReadRequest {
    WORD skipNavigator;
    DWORD skipCount;
    WORD returnNavigator;
    DWORD returnCount;
    DWORD mask;
};

struct ReadResult {
    std::vector<char> buffer;
    DWORD skipped = 0;
    DWORD returned = 0;
    WORD signals = 0;
};

// Skips, then returns entries while they fit; `position` ends on the last entry read.
STATUS readEntries(const Collection& collection, COLLECTIONPOSITION& position, const ReadRequest& request,
                   ReadResult& result)
{
    const Index& index = collection.index;
    Cursor cursor(index, resolve(index, position));
    bool skipFailed = false;
    if ((request.skipNavigator & kNavigateMask) != kNavigateCurrent)
        for (; result.skipped < request.skipCount && !(skipFailed = !cursor.move(request.skipNavigator));)
            ++result.skipped;
    if (request.mask & kReadCollectionStats) {
        put(result.buffer, static_cast<DWORD>(index.topLevel.size()));
        put(result.buffer, DWORD{0});
    }
    bool more = !(skipFailed && !(request.skipNavigator & kNavigateContinue)) &&
                (cursor.onEntry() || cursor.move(request.returnNavigator));
    EntryWriter writer(collection, request.mask);
    long long last = cursor.onEntry() ? cursor.at() : -1;
    while (more && result.returned < request.returnCount) {
        std::vector<char> entry = writer.entry(static_cast<DWORD>(cursor.at()));
        if (result.buffer.size() + entry.size() > kMaxBufferBytes) {
            if (result.returned == 0)
                return kErrSummaryTooBig;
            result.signals |= kSignalMoreToDo;
            break;
        }
        result.buffer.insert(result.buffer.end(), entry.begin(), entry.end());
        last = cursor.at();
        ++result.returned;
        more = (request.returnNavigator & kNavigateMask) != kNavigateCurrent && cursor.move(request.returnNavigator);
    }
    if (last >= 0)
        position = positionOf(index, static_cast<DWORD>(last));
    return NOERROR;
}

template <class T>
void putOut(T* out, T value)
{
    if (out != nullptr)
        *out = value;
}

void closeCollection(WORD number, Collection& collection)
{
    for (DHANDLE table : {collection.collapsedList, collection.selectedList})
        if (table != NULLHANDLE)
            releaseHandle(table, HandleKind::IdTable);
    releaseHandle(collection.registered, HandleKind::Collection);
    collections().erase(number);
}

} // namespace
} // namespace nif
} // namespace sim

STATUS impl::NIFOpenCollection(DBHANDLE hViewDB, DBHANDLE hDataDB, NOTEID ViewNoteID, WORD OpenFlags,
                               DHANDLE hUnreadList, HCOLLECTION* rethCollection, NOTEHANDLE* rethViewNote,
                               UNID* retViewUNID, DHANDLE* rethCollapsedList, DHANDLE* rethSelectedList)
{
    (void)OpenFlags; // the index is built on demand, so rebuilding, updating and creating change nothing
    if (rethCollection == nullptr)
        return sim::STS_BAD_ARGUMENT;
    auto collection = std::make_shared<sim::nif::Collection>();
    STATUS status = sim::lookupStorage(hViewDB, collection->viewDb);
    if (status == NOERROR)
        status = sim::lookupStorage(hDataDB, collection->dataDb);
    if (status != NOERROR)
        return status;
    if (hUnreadList != NULLHANDLE && !sim::findIdTable(hUnreadList))
        return sim::STS_INVALID_HANDLE;
    WORD number = sim::nif::freeCollectionNumber();
    if (number == 0)
        return ERR_MEMORY; // all 65535 collection numbers are in use
    collection->viewId = ViewNoteID;
    collection->unreadList = hUnreadList;
    sim::nif::Definition definition;
    if ((status = sim::nif::rebuild(*collection, definition)) != NOERROR)
        return status;
    if (rethCollapsedList != nullptr)
        *rethCollapsedList = collection->collapsedList = sim::createIdTable();
    if (rethSelectedList != nullptr)
        *rethSelectedList = collection->selectedList = sim::createIdTable();
    sim::nif::putOut<NOTEHANDLE>(rethViewNote, NULLHANDLE);
    sim::nif::putOut<UNID>(retViewUNID, definition.unid);
    collection->registered = sim::registerHandle(collection);
    sim::nif::collections()[number] = collection;
    *rethCollection = number;
    return NOERROR;
}

STATUS impl::NIFReadEntries(HCOLLECTION hCollection, COLLECTIONPOSITION* IndexPos, WORD SkipNavigator,
                            DWORD SkipCount, WORD ReturnNavigator, DWORD ReturnCount, DWORD ReturnMask,
                            DHANDLE* rethBuffer, WORD* retBufferLength, DWORD* retNumEntriesSkipped,
                            DWORD* retNumEntriesReturned, WORD* retSignalFlags)
{
    using namespace sim::nif;
    putOut<DHANDLE>(rethBuffer, NULLHANDLE);
    auto collection = findCollection(hCollection);
    if (!collection)
        return sim::STS_INVALID_HANDLE;
    if (IndexPos == nullptr)
        return sim::STS_BAD_ARGUMENT;
    if ((ReturnMask & ~kSupportedMask) || !supportedNavigator(SkipNavigator) || !supportedNavigator(ReturnNavigator))
        return sim::STS_UNSUPPORTED;
    bool rebuilt = false;
    STATUS status = refresh(*collection, rebuilt);
    ReadResult result;
    if (status == NOERROR)
        status = readEntries(*collection, *IndexPos, {SkipNavigator, SkipCount, ReturnNavigator, ReturnCount, ReturnMask},
                             result);
    if (status != NOERROR)
        return status;
    if (rebuilt)
        result.signals |= kSignalIndexModified;
    if (rethBuffer != nullptr && !result.buffer.empty())
        *rethBuffer = sim::allocateMemoryWith(result.buffer.data(), result.buffer.size());
    putOut<WORD>(retBufferLength, static_cast<WORD>(result.buffer.size()));
    putOut<DWORD>(retNumEntriesSkipped, result.skipped);
    putOut<DWORD>(retNumEntriesReturned, result.returned);
    putOut<WORD>(retSignalFlags, result.signals);
    return NOERROR;
}

STATUS impl::NIFCloseCollection(HCOLLECTION hCollection)
{
    auto collection = sim::nif::findCollection(hCollection);
    if (!collection)
        return sim::STS_INVALID_HANDLE;
    sim::nif::closeCollection(hCollection, *collection);
    return NOERROR;
}
