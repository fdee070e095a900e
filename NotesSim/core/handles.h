// Handles of the simulated runtime: every object the API hands out by number
// (memory blocks, ID tables, databases, directories, notes, lookup buffers, ...)
// lives in one registry, so a handle of the wrong kind or a freed handle is
// recognised and answered with an error instead of a crash.
#ifndef HYSIM_HANDLES_H
#define HYSIM_HANDLES_H

#include <memory>
#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"

namespace sim {

enum class HandleKind { Memory, IdTable, Database, Note, Collection, DxlExporter, DxlImporter, Compute };

struct HandleObject {
    explicit HandleObject(HandleKind k) : kind(k) {}
    virtual ~HandleObject() = default;
    const HandleKind kind;
};

// A block of runtime memory (OSMemAlloc and every buffer the API returns by handle).
struct MemoryBlock : HandleObject {
    explicit MemoryBlock(size_t size) : HandleObject(HandleKind::Memory), bytes(size, 0) {}
    std::vector<char> bytes;
    int locks = 0;
    // Where OSLockObject points: never null for a live block, even an empty one
    // (a zero-length item value), since null is how a lock reports a bad handle.
    char* address() { return bytes.empty() ? &emptyByte_ : bytes.data(); }

private:
    char emptyByte_ = 0;
};

// Registers an object and returns its new, never-reused non-zero handle.
DHANDLE registerHandle(std::shared_ptr<HandleObject> object);
// The object of `handle` if it exists and has the kind; otherwise null.
std::shared_ptr<HandleObject> findHandle(DHANDLE handle, HandleKind kind);
template <class T>
std::shared_ptr<T> findAs(DHANDLE handle, HandleKind kind)
{
    return std::static_pointer_cast<T>(findHandle(handle, kind));
}
// Removes the handle; false if it did not exist with that kind.
bool releaseHandle(DHANDLE handle, HandleKind kind);
size_t liveHandleCount(HandleKind kind);
size_t liveHandleCount();
// "N live handles (database n, memory n)": the kinds that have any, by name.
std::string liveHandleSummary();

// Allocates a memory block holding `size` bytes (zeroed) and returns its handle.
DHANDLE allocateMemory(size_t size);
// Allocates a memory block holding a copy of `data`.
DHANDLE allocateMemoryWith(const void* data, size_t size);

} // namespace sim

#endif
