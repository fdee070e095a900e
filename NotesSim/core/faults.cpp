// Fault injection, call counting and the call trace, with their control interface.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

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

// One entry of a fault list; `entry` -1 is "*", every call of every counted entry point.
struct FaultEntry {
    int entry = -1;
    Fault fault;
};

// Why a fault list cannot be used: the entry as written and what is wrong with it.
struct FaultListError {
    std::string entry;
    std::string reason;
};

struct ControlState {
    Fault faults[kEntryCount];
    Fault everyCall;             // "*": counts the calls of all entry points together
    std::string startupProblem;  // a malformed HYSIM_FAULTS: the runtime will not start
    unsigned long calls[kEntryCount] = {};
    bool tracing = false;        // kept in memory for HySimTraceLine
    std::vector<std::string> trace;
    std::string lineCopy;
    int traceFd = -1;            // HYSIM_TRACE=FILE or -: written as the calls happen
    std::string pendingLine;     // the streamed line of the latest call, until it is written

    ControlState()
    {
        if (const char* faultList = std::getenv("HYSIM_FAULTS")) {
            FaultListError error;
            if (setFaultList(faultList, error) < 0) {
                startupProblem = "HYSIM_FAULTS entry [" + error.entry + "]: " + error.reason;
                std::fprintf(stderr, "hysim: %s; the runtime will not start\n", startupProblem.c_str());
            }
        }
        if (const char* trace = std::getenv("HYSIM_TRACE"))
            startTrace(trace);
    }

    // "1": in memory; "-": standard error; any other text but "0" and "": a file,
    // appended to, so that several processes can share one.
    void startTrace(const std::string& setting)
    {
        if (setting.empty() || setting == "0")
            return;
        if (setting == "1") {
            tracing = true;
            return;
        }
        if (setting == "-") {
            traceFd = STDERR_FILENO;
            return;
        }
        traceFd = open(setting.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (traceFd < 0)
            std::fprintf(stderr, "hysim: HYSIM_TRACE: cannot write %s (%s); no trace is written\n", setting.c_str(),
                         std::strerror(errno));
    }

    Fault& faultOf(int entry) { return entry < 0 ? everyCall : faults[entry]; }
    // Sets every fault of the list, or none of them when an entry is malformed.
    int setFaultList(const std::string& faultList, FaultListError& error);
};

ControlState& control()
{
    static ControlState state;
    return state;
}

// A number in C notation (decimal, 0x hex or 0 octal), nothing before or after it.
bool parseNumber(const std::string& text, unsigned long& value)
{
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoul(text.c_str(), &end, 0);
    return errno == 0 && end != nullptr && *end == '\0';
}

std::string trimmed(const std::string& text)
{
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool parseFaultEntry(const std::string& item, FaultEntry& parsed, std::string& reason)
{
    size_t equals = item.find('=');
    if (equals == std::string::npos) {
        reason = "no '=' between the entry point and the fault";
        return false;
    }
    std::string name = trimmed(item.substr(0, equals));
    std::string what = trimmed(item.substr(equals + 1));
    parsed.entry = name == "*" ? -1 : entryIndex(name.c_str());
    if (name != "*" && parsed.entry < 0) {
        reason = "no entry point is named '" + name + "'";
        return false;
    }
    Fault& fault = parsed.fault;
    fault.armed = true;
    size_t at = what.find('@');
    if (at != std::string::npos) {
        if (!parseNumber(trimmed(what.substr(at + 1)), fault.remaining) || fault.remaining == 0) {
            reason = "'@' must be followed by the number of the call, 1 or more";
            return false;
        }
        what = trimmed(what.substr(0, at));
    }
    const std::string delayPrefix = "delay:";
    unsigned long status = 0;
    if (what == "throw") {
        fault.raise = true;
    } else if (what.compare(0, delayPrefix.size(), delayPrefix) == 0) {
        if (!parseNumber(what.substr(delayPrefix.size()), fault.delayMs)) {
            reason = "'delay:' must be followed by milliseconds";
            return false;
        }
    } else if (parseNumber(what, status) && status <= 0xFFFF) {
        fault.status = static_cast<STATUS>(status);
    } else {
        reason = "'" + what + "' is no STATUS (0 to 0xFFFF), throw or delay:MS";
        return false;
    }
    return true;
}

int ControlState::setFaultList(const std::string& faultList, FaultListError& error)
{
    std::vector<FaultEntry> parsed;
    size_t start = 0;
    while (start <= faultList.size()) {
        size_t end = faultList.find(';', start);
        if (end == std::string::npos)
            end = faultList.size();
        std::string item = trimmed(faultList.substr(start, end - start));
        start = end + 1;
        if (item.empty())
            continue;
        FaultEntry entry;
        if (!parseFaultEntry(item, entry, error.reason)) {
            error.entry = item;
            return -1;
        }
        parsed.push_back(entry);
    }
    for (const FaultEntry& entry : parsed)
        faultOf(entry.entry) = entry.fault;
    return static_cast<int>(parsed.size());
}

// Whether `fault` fires on this call; counts the call towards an N-th-call fault and
// waits out a delay.
FaultDecision consult(Fault& fault)
{
    FaultDecision decision;
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

// The entry points a "*" fault leaves alone, so that a host can still shut down
// and report what went wrong.
bool exemptFromEveryCallFault(int entry)
{
    static const int exempt[] = {entryIndex("NotesTerm"), entryIndex("NotesTermThread"), entryIndex("OSLoadString")};
    return std::find(std::begin(exempt), std::end(exempt), entry) != std::end(exempt);
}

} // namespace

const std::string& faultListProblem()
{
    return control().startupProblem;
}

std::recursive_mutex& apiMutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

FaultDecision checkFault(int entry)
{
    ControlState& state = control();
    FaultDecision decision = consult(state.faults[entry]);
    if (!exemptFromEveryCallFault(entry)) {
        FaultDecision everyCall = consult(state.everyCall);
        if (!decision.fire)
            decision = everyCall;
    }
    return decision;
}

void raiseInjectedFault(const char* name)
{
    throw HySimInjectedFault(std::string("injected exception in ") + name);
}

namespace {

// One line per write, so that lines of several processes appending to one file
// do not mix; each starts with the writer's process ID.
void writeTraceLine(int fd, const std::string& line)
{
    std::string text = std::to_string(getpid()) + " " + line + "\n";
    size_t done = 0;
    while (done < text.size()) {
        ssize_t wrote = write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return;
        done += static_cast<size_t>(wrote);
    }
}

void flushPendingLine(ControlState& state)
{
    if (state.traceFd < 0 || state.pendingLine.empty())
        return;
    writeTraceLine(state.traceFd, state.pendingLine);
    state.pendingLine.clear();
}

bool addDetail(std::string& line, const char* entry, const std::string& text)
{
    size_t length = std::strlen(entry);
    if (line.compare(0, length, entry) != 0 || line.size() <= length || line[length] != '(')
        return false;
    line += " [" + text + "]";
    return true;
}

} // namespace

bool tracing()
{
    return control().tracing || control().traceFd >= 0;
}

void countCall(int entry)
{
    ++control().calls[entry];
}

// A streamed line waits for the details its call adds, and is written when the call
// returns or when a call it makes (a callback re-entering the API) begins.
void beginTrace(const char* name, const std::string& args)
{
    ControlState& state = control();
    std::string line = std::string(name) + "(" + args + ")";
    if (state.tracing)
        state.trace.push_back(line);
    if (state.traceFd >= 0) {
        flushPendingLine(state);
        state.pendingLine = line;
    }
}

void endCall()
{
    flushPendingLine(control());
}

void traceNote(const std::string& line)
{
    ControlState& state = control();
    flushPendingLine(state);
    if (state.traceFd >= 0)
        writeTraceLine(state.traceFd, line);
}

void traceDetail(const char* entry, const std::string& text)
{
    ControlState& state = control();
    if (state.tracing && !state.trace.empty())
        addDetail(state.trace.back(), entry, text);
    if (state.traceFd >= 0)
        addDetail(state.pendingLine, entry, text);
}

} // namespace sim

using sim::apiMutex;
using sim::control;

HYSIM_EXPORT int HySimSetFault(const char* name, unsigned short status, unsigned int nth, int mode)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    bool everyEntry = name != nullptr && std::strcmp(name, "*") == 0;
    int index = name == nullptr || everyEntry ? -1 : sim::entryIndex(name);
    if (index < 0 && !everyEntry)
        return -1;
    sim::Fault& fault = control().faultOf(index);
    fault = sim::Fault();
    fault.armed = true;
    fault.status = status;
    fault.remaining = nth;
    fault.raise = mode == HYSIM_FAULT_THROW;
    return 0;
}

HYSIM_EXPORT void HySimClearFaults(void)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    for (sim::Fault& fault : control().faults)
        fault = sim::Fault();
    control().everyCall = sim::Fault();
}

HYSIM_EXPORT int HySimSetFaultList(const char* faultList)
{
    std::lock_guard<std::recursive_mutex> lock(apiMutex());
    sim::FaultListError ignored;
    return faultList == nullptr ? -1 : control().setFaultList(faultList, ignored);
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
