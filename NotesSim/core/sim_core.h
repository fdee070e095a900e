// Shared internals of the simulated runtime: the API lock, entry-point table,
// fault injection, tracing and the runtime's own status codes.
#ifndef HYSIM_CORE_H
#define HYSIM_CORE_H

#include <cstddef>
#include <mutex>
#include <string>
#include <type_traits>

#include "HYLNTool_NotesAPI.h"

#define HYSIM_EXPORT extern "C" __attribute__((visibility("default")))

// The exported entry points (exports.cpp) ...
extern "C" {
#define HY_ENTRY(ret, name, params, args) ret name params;
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
}

// ... and their implementations, one per entry point, in the file of their service.
namespace impl {
#define HY_ENTRY(ret, name, params, args) ret name params;
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
}

namespace sim {

// Status codes of the simulated runtime's own failures (PKG 0x3E00/0x3F00 are unused by Domino
// codes the library meets). Each has a text in OSLoadString.
enum : STATUS {
    // 0x3E00 + index of the entry point in the loader's order: "does not provide NAME".
    STS_NOT_PROVIDED_BASE = 0x3E00,
    STS_INVALID_HANDLE = 0x3F01,     // a handle that is unknown, freed, or of another kind
    STS_STORAGE = 0x3F02,            // the storage engine failed (I/O, corrupt file)
    STS_NOT_INITIALIZED = 0x3F03,    // NotesInitExtended has not succeeded
    STS_INI_MISSING = 0x3F04,        // notes.ini could not be read
    STS_BAD_ARGUMENT = 0x3F05,       // a null or malformed argument
    STS_HANDLE_LOCKED = 0x3F06,      // freeing a memory handle that is still locked
    STS_SERVER_NOT_RESPONDING = 0x3F07, // a server other than the local one
    STS_PATH_OUTSIDE = 0x3F08,       // a relative path that leaves the data directory
    STS_UNSUPPORTED = 0x3F09,        // a mode or option the simulation does not support
    STS_FORMULA_EVALUATION = 0x3F0A, // a formula met a value of the wrong type, or divided by zero
    STS_FORMULA_RESULT_TOO_LARGE = 0x3F0B, // a formula result does not fit its WORD length
    // The DXL exporter or importer met something it cannot convert; the handle's result
    // log says what (the published codes of these failures are not known).
    STS_DXL_EXPORT_FAILED = 0x3F0C,
    STS_DXL_IMPORT_FAILED = 0x3F0D,
    STS_FAULT_LIST = 0x3F0E,         // HYSIM_FAULTS has a malformed entry: the runtime will not start
    STS_NOT_A_FOLDER = 0x3F0F,       // a folder operation on a note that is not a folder (no published code)
};

constexpr size_t kEntryCount = 0
#define HY_ENTRY(ret, name, params, args) +1
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
    ;
static_assert(kEntryCount == 123, "the API list must hold 123 entry points");

extern const char* const kEntryNames[kEntryCount];
// Index of an entry name, or -1.
int entryIndex(const char* name);
// Whether a return type, as the entry list spells it, is a STATUS.
bool isStatusType(const char* returnType);

// All API calls are serialised; callbacks may re-enter on the same thread.
std::recursive_mutex& apiMutex();

// Fault injection: consulted on every call before the implementation runs.
struct FaultDecision {
    bool fire = false;
    bool raise = false;
    STATUS status = 0;
};
FaultDecision checkFault(int entry);
// What is wrong with the HYSIM_FAULTS the runtime started with; "" when nothing is.
const std::string& faultListProblem();
[[noreturn]] void raiseInjectedFault(const char* name);

// Tracing.
bool tracing();
void countCall(int entry);
void beginTrace(const char* name, const std::string& args);
// Every exported call ends here, however it returns (a streamed trace line is written).
void endCall();
struct CallEnd {
    CallEnd() = default;
    CallEnd(const CallEnd&) = delete;
    CallEnd& operator=(const CallEnd&) = delete;
    ~CallEnd() { endCall(); }
};
// Writes a line of the runtime's own to a streamed trace (HYSIM_TRACE=FILE or -).
void traceNote(const std::string& line);
// Adds a key text (a path, a name) to the trace line of the call in progress when that
// call is `entry` itself, not an entry point another one runs internally.
void traceDetail(const char* entry, const std::string& text);

template <class T>
std::string describeArg(const T& value)
{
    if constexpr (std::is_pointer_v<T>)
        return value == nullptr ? "null" : "*";
    else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>)
        return std::to_string(static_cast<long long>(value));
    else if constexpr (std::is_same_v<T, TIMEDATE>)
        return "{" + std::to_string(value.Innards[0]) + "," + std::to_string(value.Innards[1]) + "}";
    else
        return "{...}";
}
inline std::string describeArgs() { return std::string(); }
template <class T, class... Rest>
std::string describeArgs(const T& first, const Rest&... rest)
{
    std::string text = describeArg(first);
    if constexpr (sizeof...(rest) > 0)
        text += ", " + describeArgs(rest...);
    return text;
}

template <class R>
R statusAs(STATUS status)
{
    if constexpr (std::is_void_v<R>)
        return;
    else if constexpr (std::is_pointer_v<R>)
        return nullptr;
    else
        return static_cast<R>(status);
}

// The default of every entry point until the simulation provides it: STATUS
// functions fail with their own "does not provide" code; functions answering a
// BOOL, a length or a pointer answer FALSE, 0 or null, which is their failure.
template <class R>
R notProvided(const char* name, bool returnsStatus)
{
    if constexpr (std::is_void_v<R>)
        return;
    else if (returnsStatus)
        return statusAs<R>(static_cast<STATUS>(STS_NOT_PROVIDED_BASE + entryIndex(name)));
    else
        return R{};
}

} // namespace sim

#endif
