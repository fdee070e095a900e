// Runtime memory blocks: allocation, size, locking and release through their handles.
#include <new>

#include "handles.h"
#include "sim_core.h"

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
    return block->address();
}

BOOL impl::OSUnlockObject(DHANDLE Handle)
{
    auto block = sim::findAs<sim::MemoryBlock>(Handle, sim::HandleKind::Memory);
    if (!block || block->locks == 0)
        return FALSE;
    --block->locks;
    return TRUE;
}
