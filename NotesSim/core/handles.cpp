#include "handles.h"

#include <cstring>
#include <unordered_map>

#include "HySimControl.h"
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

size_t liveHandleCount()
{
    return registry().objects.size();
}

std::string liveHandleSummary()
{
    static const std::pair<HandleKind, const char*> kinds[] = {
        {HandleKind::Memory, "memory"},          {HandleKind::IdTable, "ID table"},
        {HandleKind::Database, "database"},      {HandleKind::Note, "note"},
        {HandleKind::Collection, "collection"},  {HandleKind::DxlExporter, "DXL exporter"},
        {HandleKind::DxlImporter, "DXL importer"}, {HandleKind::Compute, "compute"}};
    std::string byKind;
    for (const auto& kind : kinds)
        if (size_t count = liveHandleCount(kind.first))
            byKind += (byKind.empty() ? "" : ", ") + std::string(kind.second) + " " + std::to_string(count);
    return std::to_string(liveHandleCount()) + " live handles" + (byKind.empty() ? "" : " (" + byKind + ")");
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

HYSIM_EXPORT size_t HySimLiveHandleCount(void)
{
    std::lock_guard<std::recursive_mutex> lock(sim::apiMutex());
    return sim::liveHandleCount();
}
