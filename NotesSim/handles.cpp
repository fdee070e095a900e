#include "handles.h"

#include <cstring>
#include <unordered_map>

#include "sim_core.h"

namespace sim {
namespace {

struct Registry {
    std::unordered_map<DHANDLE, std::shared_ptr<HandleObject>> objects;
    DHANDLE next = 0x100;
};

Registry& registry()
{
    static Registry instance;
    return instance;
}

} // namespace

DHANDLE registerHandle(std::shared_ptr<HandleObject> object)
{
    Registry& reg = registry();
    do {
        ++reg.next;
    } while (reg.next == NULLHANDLE || reg.objects.count(reg.next) != 0);
    reg.objects.emplace(reg.next, std::move(object));
    return reg.next;
}

std::shared_ptr<HandleObject> findHandle(DHANDLE handle, HandleKind kind)
{
    Registry& reg = registry();
    auto it = reg.objects.find(handle);
    if (it == reg.objects.end() || it->second->kind != kind)
        return nullptr;
    return it->second;
}

bool releaseHandle(DHANDLE handle, HandleKind kind)
{
    Registry& reg = registry();
    auto it = reg.objects.find(handle);
    if (it == reg.objects.end() || it->second->kind != kind)
        return false;
    reg.objects.erase(it);
    return true;
}

size_t liveHandleCount(HandleKind kind)
{
    size_t count = 0;
    for (const auto& entry : registry().objects)
        count += entry.second->kind == kind ? 1 : 0;
    return count;
}

DHANDLE allocateMemory(size_t size)
{
    return registerHandle(std::make_shared<MemoryBlock>(size));
}

DHANDLE allocateMemoryWith(const void* data, size_t size)
{
    auto block = std::make_shared<MemoryBlock>(size);
    if (size != 0)
        std::memcpy(block->bytes.data(), data, size);
    return registerHandle(block);
}

} // namespace sim

// Runtime memory.
STATUS impl::OSMemAlloc(WORD BlkType, DWORD dwSize, DHANDLE* retHandle)
{
    (void)BlkType;
    if (retHandle == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *retHandle = NULLHANDLE;
    if (dwSize == 0)
        return NOERROR;
    try {
        *retHandle = sim::allocateMemory(dwSize);
    } catch (const std::bad_alloc&) {
        return ERR_MEMORY;
    }
    return NOERROR;
}

STATUS impl::OSMemFree(DHANDLE Handle)
{
    auto block = sim::findAs<sim::MemoryBlock>(Handle, sim::HandleKind::Memory);
    if (!block)
        return sim::STS_INVALID_HANDLE;
    if (block->locks > 0)
        return sim::STS_HANDLE_LOCKED;
    sim::releaseHandle(Handle, sim::HandleKind::Memory);
    return NOERROR;
}

STATUS impl::OSMemGetSize(DHANDLE Handle, DWORD* retSize)
{
    auto block = sim::findAs<sim::MemoryBlock>(Handle, sim::HandleKind::Memory);
    if (!block)
        return sim::STS_INVALID_HANDLE;
    if (retSize != nullptr)
        *retSize = static_cast<DWORD>(block->bytes.size());
    return NOERROR;
}

void* impl::OSLockObject(DHANDLE Handle)
{
    auto block = sim::findAs<sim::MemoryBlock>(Handle, sim::HandleKind::Memory);
    if (!block)
        return nullptr;
    ++block->locks;
    return block->bytes.data();
}

BOOL impl::OSUnlockObject(DHANDLE Handle)
{
    auto block = sim::findAs<sim::MemoryBlock>(Handle, sim::HandleKind::Memory);
    if (!block || block->locks == 0)
        return FALSE;
    --block->locks;
    return TRUE;
}
