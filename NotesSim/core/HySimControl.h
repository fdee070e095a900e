// Control interface of the simulated runtime, for tests and hosts.
// Also reachable from another process through the environment variable
// HYSIM_FAULTS, e.g. "NSFDbOpen=0x0103;NSFNoteUpdate=throw@3;OSLoadString=0@1".
//   NAME=STATUS      every call of NAME returns STATUS (0 to 0xFFFF)
//   NAME=STATUS@N    only the N-th call (counted from when the fault is set), N >= 1
//   NAME=throw[@N]   the call throws a C++ exception (HySimInjectedFault)
//   NAME=delay:MS[@N] the call succeeds after MS milliseconds (a slow server)
//   *=...[@N]        the same for the calls of all entry points counted together:
//                    *=0x0103@40 fails the 40th call, whichever entry point it is.
//                    NotesTerm, NotesTermThread and OSLoadString are not counted and
//                    never fail this way, so that a host can still report the failure
//                    and shut down; the control functions below are not entry points.
// A malformed HYSIM_FAULTS (unknown name, a fault that is no STATUS, throw or delay,
// a missing '=', a bad @N) sets no fault at all: the runtime writes one line naming
// the entry to standard error, and NotesInitExtended fails with a status whose
// OSLoadString text names it too.
// HYSIM_TRACE=1 switches the in-memory call trace on from the start; HYSIM_TRACE=FILE
// appends each call's line to FILE as the call happens ("-": standard error), as
// "PID Name(args) [details]", so other processes can read it (NotesSim/README.md).
#ifndef HYSIM_CONTROL_H
#define HYSIM_CONTROL_H

#include <stddef.h>

#ifdef __cplusplus
#include <stdexcept>
// The exception an injected "throw" raises.
class __attribute__((visibility("default"))) HySimInjectedFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
extern "C" {
#endif

#define HYSIM_FAULT_RETURN 0
#define HYSIM_FAULT_THROW 1

// Make entry point `name` ("*": all counted entry points together) fail.
// nth = 0: every call; nth = N: only the N-th call from now.
// For entry points that return no STATUS the status is converted to the return type
// (BOOL/WORD/DWORD get the number, pointers get null, void returns at once).
// Returns 0 on success, -1 for an unknown entry name.
int HySimSetFault(const char* name, unsigned short status, unsigned int nth, int mode);
void HySimClearFaults(void);
// Parse a HYSIM_FAULTS style fault list; returns the number of faults set, or -1 (and
// sets none of them) when an entry is malformed.
int HySimSetFaultList(const char* faultList);

// Call trace: one line per API call, "Name(arg, arg, ...)" with integral arguments in
// decimal, pointers as '*' or 'null', plus key texts some calls add (e.g. paths).
void HySimTraceEnable(int on);
void HySimTraceClear(void);
size_t HySimTraceCount(void);
// Line i of the trace; null past the end. Valid until the next trace call.
const char* HySimTraceLine(size_t i);
// How many times `name` was called since the last HySimTraceClear (counted even with tracing off).
unsigned long HySimCallCount(const char* name);

// Handles of every kind (memory, ID tables, databases, notes, ...) not freed or closed
// yet. With HYSIM_TRACE=FILE or -, NotesTerm also writes this count (and how many of
// each kind) as the last trace line, "PID NotesTerm: N live handles (kind n, ...)".
size_t HySimLiveHandleCount(void);

// Clock for OSCurrentTIMEDATE: seconds since 1970-01-01 GMT plus hundredths.
void HySimSetClock(long long unixSeconds, int hundredths);
void HySimUseRealClock(void);

// The result log of a DXL exporter or importer handle (XML text; empty when the last
// export or import went well); null for an unknown handle. Valid until the next call.
const char* HySimDxlResultLog(unsigned int handle);

// Unread marks as NSFDbGetUnreadNoteTable reads them, kept per user and database:
// marks note `noteId` of the open database `database` unread (unread != 0) or read for
// `userName` (a canonical name; case does not matter). The first mark gives the user a
// stored list, after which the notes not marked count as read. Returns a STATUS: 0,
// ERR_INVALID_NOTE for an unknown note, ERR_NOTE_DELETED for a deletion stub.
unsigned short HySimSetUnread(unsigned int database, const char* userName, unsigned int noteId, int unread);

#ifdef __cplusplus
}
#endif
#endif
