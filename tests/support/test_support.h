// Shared test helpers: a captured log callback, the simulated runtime's control
// functions, and throw-away data directories with a notes.ini.
#ifndef HYLN_TEST_SUPPORT_H
#define HYLN_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HYLNTool.h"

namespace hyln_test {

struct LogLine {
    std::string function;
    int level;
    std::string file;
    int line;
    std::string text;
};

// Every line the library logged since the last clear.
std::vector<LogLine>& capturedLog();
void captureLog(); // installs the capturing callback and clears the capture
// The texts alone, in order.
std::vector<std::string> logTexts();
// True when some captured line has exactly this text (and level, when given).
bool logged(const std::string& text);
bool logged(const std::string& function, int level, const std::string& text);

// Everything written to stdout / stderr while `action` runs.
struct Output {
    std::string out;
    std::string err;
};
template <class F>
Output captureOutput(F action);
Output captureOutputOf(void (*action)(void*), void* context);

std::string dominoDir();           // program directory of the simulated runtime
std::string missingLastDir();      // variant lacking TimeLocalToGM
std::string missingFirstDir();     // variant lacking ConvertTextToTIMEDATE
std::string sharedDir();           // ../shared, may be absent
std::string seederPath();          // the seeding tool

// printf into a std::string (up to 2047 bytes), for expected log lines.
std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A fresh empty directory under the build's temp area, removed by the caller (or left).
std::string makeTempDir(const std::string& tag);
// Writes <dir>/notes.ini with Directory=<dir> (and ServerName, when given) plus extra lines.
void writeNotesIni(const std::string& dir, const std::string& serverName = "CN=HySrv01/O=HyOrg",
                   const std::string& extraLines = "");

// Loads the simulated runtime through the library's loader (once per process).
void loadSimulatedRuntime();
// Loads and starts the runtime on a data directory that has a notes.ini.
void startRuntime(const std::string& dataDir);

// Control functions of the loaded simulated runtime.
struct SimControl {
    int (*setFault)(const char* name, unsigned short status, unsigned int nth, int mode);
    void (*clearFaults)();
    void (*traceEnable)(int on);
    void (*traceClear)();
    size_t (*traceCount)();
    const char* (*traceLine)(size_t i);
    unsigned long (*callCount)(const char* name);
    void (*setClock)(long long unixSeconds, int hundredths);
    void (*useRealClock)();
    unsigned short (*setUnread)(unsigned int database, const char* userName, unsigned int noteId, int unread);
};
SimControl& sim();
std::vector<std::string> simTrace();

// A forked child leaves through _exit, which skips the flush of coverage counters.
// In a coverage build the child starts from zeroed counters and writes its own out
// before leaving; otherwise both do nothing.
void startChildCoverage();
void flushChildCoverage();

// Fixture: captures the log, loads the runtime, clears faults before and after each test.
class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// Fixture with a started runtime on a fresh data directory (dataDir).
class RuntimeTest : public LibraryTest {
protected:
    void SetUp() override;
    std::string dataDir;
};

template <class F>
Output captureOutput(F action)
{
    return captureOutputOf([](void* context) { (*static_cast<F*>(context))(); }, &action);
}

} // namespace hyln_test

#endif
