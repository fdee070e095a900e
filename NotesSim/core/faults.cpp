// Fault injection, call counting and the call trace, with their control interface.
#include <cstdlib>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "HySimControl.h"
#include "sim_core.h"

namespace sim {
namespace {

struct Fault {
    bool armed = false;
    bool raise = false;
    STATUS status = 0;
    unsigned long delayMs = 0;   // a slow call instead of a failing one
    unsigned long remaining = 0; // 0 = every call; otherwise calls until it fires
};

struct ControlState {
    Fault faults[kEntryCount];
    unsigned long calls[kEntryCount] = {};
    bool tracing = false;
    std::vector<std::string> trace;
    std::string lineCopy;

    ControlState()
    {
        if (const char* faultList = std::getenv("HYSIM_FAULTS"))
            parseFaultList(faultList);
        if (const char* on = std::getenv("HYSIM_TRACE"))
            tracing = std::strcmp(on, "0") != 0 && *on != '\0';
    }

    int parseFaultList(const std::string& faultList);
};

ControlState& control()
{
    static ControlState state;
    return state;
}

bool parseNumber(const std::string& text, unsigned long& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    value = std::strtoul(text.c_str(), &end, 0);
    return end != nullptr && *end == '\0';
}

int ControlState::parseFaultList(const std::string& faultList)
{
    int count = 0;
    size_t start = 0;
    while (start <= faultList.size()) {
        size_t end = faultList.find(';', start);
        if (end == std::string::npos)
            end = faultList.size();
        std::string item = faultList.substr(start, end - start);
        start = end + 1;
        if (item.empty())
            continue;
        size_t equals = item.find('=');
        if (equals == std::string::npos)
            return -1;
        std::string name = item.substr(0, equals);
        std::string what = item.substr(equals + 1);
        unsigned long nth = 0;
        size_t at = what.find('@');
        if (at != std::string::npos) {
            if (!parseNumber(what.substr(at + 1), nth))
                return -1;
            what = what.substr(0, at);
        }
        int index = entryIndex(name.c_str());
        if (index < 0)
            return -1;
        Fault& fault = faults[index];
        fault.armed = true;
        fault.remaining = nth;
        fault.raise = what == "throw";
        fault.delayMs = 0;
        unsigned long status = 0;
        const std::string delayPrefix = "delay:";
        if (what.compare(0, delayPrefix.size(), delayPrefix) == 0) {
            if (!parseNumber(what.substr(delayPrefix.size()), fault.delayMs))
                return -1;
        } else if (!fault.raise && !parseNumber(what, status)) {
            return -1;
        }
        fault.status = static_cast<STATUS>(status);
        ++count;
    }
    return count;
}

} // namespace

std::recursive_mutex& apiMutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

FaultDecision checkFault(int entry)
{
    FaultDecision decision;
    Fault& fault = control().faults[entry];
    if (!fault.armed)
        return decision;
    if (fault.remaining > 1) {
        --fault.remaining;
        return decision;
    }
    if (fault.remaining == 1)
        fault.armed = false;
    if (fault.delayMs > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(fault.delayMs));
        return decision;
    }
    decision.fire = true;
    decision.raise = fault.raise;
    decision.status = fault.status;
    return decision;
}

void raiseInjectedFault(const char* name)
{
    throw HySimInjectedFault(std::string("injected exception in ") + name);
}

bool tracing()
{
    return control().tracing;
}

void countCall(int entry)
{
    ++control().calls[entry];
}

void beginTrace(const char* name, const std::string& args)
{
    control().trace.push_back(std::string(name) + "(" + args + ")");
}

void traceDetail(const char* entry, const std::string& text)
{
    ControlState& state = control();
    if (!state.tracing || state.trace.empty())
        return;
    std::string& line = state.trace.back();
    size_t length = std::strlen(entry);
    if (line.compare(0, length, entry) == 0 && line.size() > length && line[length] == '(')
        line += " [" + text + "]";
}

} // namespace sim

using sim::apiMutex;
using sim::control;

HYSIM_EXPORT int HySimSetFault(const char* name, unsigned short status, unsigned int nth, int mode)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    int index = name == nullptr ? -1 : sim::entryIndex(name);
    if (index < 0)
        return -1;
    sim::Fault& fault = control().faults[index];
    fault.armed = true;
    fault.status = status;
    fault.remaining = nth;
    fault.raise = mode == HYSIM_FAULT_THROW;
    fault.delayMs = 0;
    return 0;
}

HYSIM_EXPORT void HySimClearFaults(void)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    for (sim::Fault& fault : control().faults)
        fault = sim::Fault();
}

HYSIM_EXPORT int HySimSetFaultList(const char* faultList)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    return faultList == nullptr ? -1 : control().parseFaultList(faultList);
}

HYSIM_EXPORT void HySimTraceEnable(int on)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    control().tracing = on != 0;
}

HYSIM_EXPORT void HySimTraceClear(void)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    control().trace.clear();
    for (unsigned long& count : control().calls)
        count = 0;
}

HYSIM_EXPORT size_t HySimTraceCount(void)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    return control().trace.size();
}

HYSIM_EXPORT const char* HySimTraceLine(size_t i)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    sim::ControlState& state = control();
    if (i >= state.trace.size())
        return nullptr;
    state.lineCopy = state.trace[i];
    return state.lineCopy.c_str();
}

HYSIM_EXPORT unsigned long HySimCallCount(const char* name)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    int index = name == nullptr ? -1 : sim::entryIndex(name);
    return index < 0 ? 0 : control().calls[index];
}
