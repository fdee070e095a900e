#include "idtables.h"

#include <algorithm>

#include "sim_core.h"

namespace sim {
namespace {

constexpr uint32_t kChunkSpan = 1u << 16;
constexpr size_t kBitmapWords = kChunkSpan / 64;
constexpr uint32_t kChunksPerBlock = 256;
constexpr uint32_t kBlocks = kChunkSpan / kChunksPerBlock;
// Past this many members a sorted array costs more than the 8 KB bitmap.
constexpr size_t kSparseLimit = 4096;

uint32_t chunkKey(uint32_t id) { return id >> 16; }
uint32_t blockIndex(uint32_t key) { return key / kChunksPerBlock; }
uint16_t lowPart(uint32_t id) { return static_cast<uint16_t>(id & 0xFFFFu); }
uint64_t bitOf(uint16_t low) { return uint64_t{1} << (low % 64); }

} // namespace

bool IdChunk::insert(uint16_t low)
{
    if (!bits_.empty()) {
        uint64_t& word = bits_[low / 64];
        if (word & bitOf(low))
            return false;
        word |= bitOf(low);
    } else {
        auto it = std::lower_bound(sorted_.begin(), sorted_.end(), low);
        if (it != sorted_.end() && *it == low)
            return false;
        sorted_.insert(it, low);
        if (sorted_.size() > kSparseLimit)
            becomeBitmap();
    }
    ++count_;
    return true;
}

bool IdChunk::erase(uint16_t low)
{
    if (!bits_.empty()) {
        uint64_t& word = bits_[low / 64];
        if (!(word & bitOf(low)))
            return false;
        word &= ~bitOf(low);
    } else {
        auto it = std::lower_bound(sorted_.begin(), sorted_.end(), low);
        if (it == sorted_.end() || *it != low)
            return false;
        sorted_.erase(it);
    }
    --count_;
    return true;
}

bool IdChunk::contains(uint16_t low) const
{
    if (!bits_.empty())
        return (bits_[low / 64] & bitOf(low)) != 0;
    return std::binary_search(sorted_.begin(), sorted_.end(), low);
}

bool IdChunk::lowestFrom(uint32_t from, uint16_t& low) const
{
    if (from >= kChunkSpan)
        return false;
    if (bits_.empty()) {
        auto it = std::lower_bound(sorted_.begin(), sorted_.end(), static_cast<uint16_t>(from));
        if (it == sorted_.end())
            return false;
        low = *it;
        return true;
    }
    size_t index = from / 64;
    uint64_t word = bits_[index] & (~uint64_t{0} << (from % 64));
    while (word == 0) {
        if (++index == kBitmapWords)
            return false;
        word = bits_[index];
    }
    low = static_cast<uint16_t>(index * 64 + static_cast<size_t>(__builtin_ctzll(word)));
    return true;
}

void IdChunk::becomeBitmap()
{
    bits_.assign(kBitmapWords, 0);
    for (uint16_t low : sorted_)
        bits_[low / 64] |= bitOf(low);
    std::vector<uint16_t>().swap(sorted_);
}

bool IdSet::insert(uint32_t id)
{
    if (blocks_.empty())
        blocks_.resize(kBlocks);
    Block& block = blocks_[blockIndex(chunkKey(id))];
    if (block.empty())
        block.resize(kChunksPerBlock);
    if (!block[chunkKey(id) % kChunksPerBlock].insert(lowPart(id)))
        return false;
    ++count_;
    return true;
}

bool IdSet::erase(uint32_t id)
{
    IdChunk* chunk = const_cast<IdChunk*>(chunkOf(chunkKey(id)));
    if (chunk == nullptr || !chunk->erase(lowPart(id)))
        return false;
    if (chunk->empty())
        *chunk = IdChunk(); // give its memory back
    --count_;
    return true;
}

bool IdSet::contains(uint32_t id) const
{
    const IdChunk* chunk = chunkOf(chunkKey(id));
    return chunk != nullptr && chunk->contains(lowPart(id));
}

bool IdSet::first(uint32_t& id) const
{
    return lowestInChunksFrom(0, id);
}

bool IdSet::next(uint32_t after, uint32_t& id) const
{
    const IdChunk* chunk = chunkOf(chunkKey(after));
    uint16_t low = 0;
    if (chunk != nullptr && chunk->lowestFrom(uint32_t{lowPart(after)} + 1, low)) {
        id = (chunkKey(after) << 16) | low;
        return true;
    }
    return lowestInChunksFrom(chunkKey(after) + 1, id);
}

const IdChunk* IdSet::chunkOf(uint32_t key) const
{
    if (blocks_.empty() || blocks_[blockIndex(key)].empty())
        return nullptr;
    return &blocks_[blockIndex(key)][key % kChunksPerBlock];
}

bool IdSet::lowestInChunksFrom(uint32_t key, uint32_t& id) const
{
    while (key < kChunkSpan && !blocks_.empty()) {
        const Block& block = blocks_[blockIndex(key)];
        if (block.empty()) {
            key = (blockIndex(key) + 1) * kChunksPerBlock;
            continue;
        }
        uint16_t low = 0;
        if (block[key % kChunksPerBlock].lowestFrom(0, low)) {
            id = (key << 16) | low;
            return true;
        }
        ++key;
    }
    return false;
}

DHANDLE createIdTable()
{
    return registerHandle(std::make_shared<IdTable>());
}

std::shared_ptr<IdTable> findIdTable(DHANDLE handle)
{
    return findAs<IdTable>(handle, HandleKind::IdTable);
}

bool idTableInsert(DHANDLE handle, uint32_t id)
{
    auto table = findIdTable(handle);
    if (!table)
        return false;
    table->ids.insert(id);
    return true;
}

} // namespace sim

namespace {

void setFlag(BOOL* flag, bool value)
{
    if (flag != nullptr)
        *flag = value ? TRUE : FALSE;
}

} // namespace

STATUS impl::IDCreateTable(DWORD Alignment, DHANDLE* rethTable)
{
    (void)Alignment; // the real table's memory layout hint; ours has no such layout
    if (rethTable == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *rethTable = sim::createIdTable();
    return NOERROR;
}

STATUS impl::IDDestroyTable(DHANDLE hTable)
{
    return sim::releaseHandle(hTable, sim::HandleKind::IdTable) ? NOERROR : sim::STS_INVALID_HANDLE;
}

STATUS impl::IDInsert(DHANDLE hTable, DWORD id, BOOL* retfInserted)
{
    auto table = sim::findIdTable(hTable);
    setFlag(retfInserted, false);
    if (!table)
        return sim::STS_INVALID_HANDLE;
    setFlag(retfInserted, table->ids.insert(id));
    return NOERROR;
}

STATUS impl::IDDelete(DHANDLE hTable, DWORD id, BOOL* retfDeleted)
{
    auto table = sim::findIdTable(hTable);
    setFlag(retfDeleted, false);
    if (!table)
        return sim::STS_INVALID_HANDLE;
    setFlag(retfDeleted, table->ids.erase(id));
    return NOERROR;
}

BOOL impl::IDIsPresent(DHANDLE hTable, DWORD id)
{
    auto table = sim::findIdTable(hTable);
    return table && table->ids.contains(id) ? TRUE : FALSE;
}

DWORD impl::IDEntries(DHANDLE hTable)
{
    auto table = sim::findIdTable(hTable);
    return table ? static_cast<DWORD>(table->ids.size()) : 0;
}

BOOL impl::IDScan(DHANDLE hTable, BOOL fFirst, DWORD* retID)
{
    auto table = sim::findIdTable(hTable);
    if (!table || retID == nullptr)
        return FALSE;
    uint32_t id = 0;
    bool found = fFirst ? table->ids.first(id) : table->ids.next(*retID, id);
    if (found)
        *retID = id;
    return found ? TRUE : FALSE;
}

STATUS impl::IDTableCopy(DHANDLE hTable, DHANDLE* rethTable)
{
    if (rethTable == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *rethTable = NULLHANDLE;
    auto table = sim::findIdTable(hTable);
    if (!table)
        return sim::STS_INVALID_HANDLE;
    auto copy = std::make_shared<sim::IdTable>();
    copy->ids = table->ids;
    *rethTable = sim::registerHandle(copy);
    return NOERROR;
}
