// What every fuzz target shares: the simulated runtime loaded through the library's
// own loader, scratch data directories, the runtime's control functions, and a
// reader that splits a fuzz input into fields.
#ifndef HYLN_FUZZ_SUPPORT_H
#define HYLN_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "HYLNTool.h"

namespace hyln_fuzz {

// Loads the runtime (once) and installs host callbacks that format every log line
// and accept every record, so the library runs the paths a real host sees.
void loadRuntime();

// A fresh directory under the build's fuzz work area, removed when the process exits.
std::string makeWorkDir(const std::string& tag);

// Writes <dir>/notes.ini naming <dir> as the data directory, plus `extraLines`.
std::string writeNotesIni(const std::string& dir, const std::string& extraLines = "");

// Starts the runtime on the notes.ini at `iniPath`; returns its status.
STATUS startRuntime(const std::string& iniPath);

// The local server name the scratch notes.ini files give.
extern const char kServerName[];

// A function the runtime exports besides the C API (its control interface).
void* controlFunction(const char* name);

// Records the library sent to the host since the last clear.
std::vector<std::string>& sentRecords();

// Reads a fuzz input front to back: single bytes, then NUL-separated texts.
class Fields {
public:
    Fields(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte();                 // 0 once the input is used up
    std::string text();             // up to the next NUL (or the end)
    std::string rest();             // everything not read yet
    bool empty() const { return at_ >= size_; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

// Stops the run with a message when a property of the code under test fails;
// libFuzzer reports the abort and keeps the input.
[[noreturn]] void fail(const std::string& what);

} // namespace hyln_fuzz

#endif
