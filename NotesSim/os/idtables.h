// ID tables: sets of 32-bit note IDs kept in unsigned order, so IDs marked
// deleted (bit 31) come after all others. Other services build tables with
// these helpers (modified-note lists, unread lists) and read the ones callers pass in.
#ifndef HYSIM_IDTABLES_H
#define HYSIM_IDTABLES_H

#include <cstdint>
#include <memory>
#include <vector>

#include "handles.h"

namespace sim {

// The IDs that share their upper 16 bits, stored by their lower 16 bits: a sorted
// array while sparse, a bitmap once dense, so a million IDs stay cheap either way.
class IdChunk {
public:
    bool insert(uint16_t low);
    bool erase(uint16_t low);
    bool contains(uint16_t low) const;
    bool empty() const { return count_ == 0; }
    // The smallest member that is >= from (from may be 65536); false when none.
    bool lowestFrom(uint32_t from, uint16_t& low) const;

private:
    void becomeBitmap();
    std::vector<uint16_t> sorted_;
    std::vector<uint64_t> bits_; // non-empty once the chunk turned into a bitmap
    size_t count_ = 0;
};

// A two-level radix over the upper 16 bits: 256 blocks of 256 chunks, each block
// allocated when its first ID arrives, so lookups never chase a deep tree.
class IdSet {
public:
    // Each returns true when the set changed.
    bool insert(uint32_t id);
    bool erase(uint32_t id);
    bool contains(uint32_t id) const;
    size_t size() const { return count_; }
    // The smallest ID; false when the set is empty.
    bool first(uint32_t& id) const;
    // The smallest ID greater than `after`; false when none is.
    bool next(uint32_t after, uint32_t& id) const;

private:
    using Block = std::vector<IdChunk>; // empty until used, then 256 chunks
    const IdChunk* chunkOf(uint32_t key) const;
    bool lowestInChunksFrom(uint32_t key, uint32_t& id) const;
    std::vector<Block> blocks_; // empty until the first insert, then 256 blocks
    size_t count_ = 0;
};

struct IdTable : HandleObject {
    IdTable() : HandleObject(HandleKind::IdTable) {}
    IdSet ids;
};

// A new empty table in the handle registry.
DHANDLE createIdTable();
// The table of `handle`, or null for an unknown handle or one of another kind.
std::shared_ptr<IdTable> findIdTable(DHANDLE handle);
// Adds `id`; false only for a bad handle.
bool idTableInsert(DHANDLE handle, uint32_t id);

} // namespace sim

#endif
