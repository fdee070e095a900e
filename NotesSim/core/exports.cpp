// The exported C entry points. Each one takes the API lock, records the call,
// applies any injected fault, and runs the implementation in namespace impl.
// Entry points nothing implements yet fall back to a weak default that returns
// the "does not provide" status.
#include <cstring>

#include "HYLNTool_HostInterface.h"
#include "sim_core.h"

namespace sim {

const char* const kEntryNames[kEntryCount] = {
#define HY_ENTRY(ret, name, params, args) #name,
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
};

int entryIndex(const char* name)
{
    for (size_t i = 0; i < kEntryCount; ++i)
        if (std::strcmp(kEntryNames[i], name) == 0)
            return static_cast<int>(i);
    return -1;
}

bool isStatusType(const char* returnType)
{
    return std::strcmp(returnType, "STATUS") == 0;
}

} // namespace sim

namespace {
template <class R>
R firedFault(const sim::FaultDecision& fault, const char* name)
{
    if (fault.raise)
        sim::raiseInjectedFault(name);
    return sim::statusAs<R>(fault.status);
}
} // namespace

// The weak defaults ignore their arguments.
#pragma GCC diagnostic ignored "-Wunused-parameter"

#define HY_ENTRY(ret, name, params, args)                                          \
    namespace impl {                                                               \
    __attribute__((weak)) ret name params { return sim::notProvided<ret>(#name, sim::isStatusType(#ret)); } \
    }                                                                              \
    HYSIM_EXPORT ret name params                                                   \
    {                                                                              \
        static const int entry = sim::entryIndex(#name);                          \
        std::lock_guard<std::recursive_mutex> lock(sim::apiMutex());               \
        sim::CallEnd end;                                                          \
        sim::countCall(entry);                                                     \
        if (sim::tracing())                                                        \
            sim::beginTrace(#name, sim::describeArgs args);                        \
        sim::FaultDecision fault = sim::checkFault(entry);                         \
        if (fault.fire)                                                            \
            return firedFault<ret>(fault, #name);                                  \
        return impl::name args;                                                    \
    }
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
