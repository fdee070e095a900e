// What the per-note jobs share: durable files, DXL export into memory and stubbing.
#ifndef HYLN_NOTES_H
#define HYLN_NOTES_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "commands.h"

namespace hyln {

// The item that marks a stubbed note; its value is the note ID it had.
constexpr char kStubMarker[] = "StubData";

// Writes `data` whole and flushed to disk under `target`, or leaves nothing there.
bool writeWhole(const std::filesystem::path& target, const unsigned char* data, size_t size);
bool readWholeFile(const std::filesystem::path& path, std::vector<unsigned char>& data);
// The note's DXL through the library's stream callback.
HyLNError exportToBuffer(HyLNDataDocument& note, unsigned int exporter, std::vector<unsigned char>& dxl);
// Some operations report a runtime failure as a code only, without the error flag.
bool failed(HyLNError status);
// Records the attachment names, removes attachments, body and seals, marks and saves the
// note in one update; the caller has gathered its details. Returns an exit code.
int stubInPlace(HyLNDataDocument& note, NOTEID id, const Options& options);
// A call that answers no status failed: "CALL returned: [VALUE] WHY", for the job's failure line.
std::string unanswered(const char* call, unsigned long value, const std::string& why);
// For a release that a destructor runs, which may let nothing out: `release` returns
// whether it succeeded, a failed one is tried once more (the handle is still held), and
// an exception from the runtime ends only the release, with a line naming `what`.
void releaseInDestructor(const char* what, const std::function<bool()>& release) noexcept;

} // namespace hyln

#endif
