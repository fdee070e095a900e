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
