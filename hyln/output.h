// What hyln writes. Standard output carries only our records (text, or JSON lines
// with --json); whatever the library or the runtime print on their own is sent to
// standard error, so that piped output stays parseable.
#ifndef HYLN_OUTPUT_H
#define HYLN_OUTPUT_H

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace hyln {

struct OutputMode {
    bool json = false;
    bool progress = false; // a progress line on standard error
    bool quiet = false;    // no progress and no summary text
};

class Output {
public:
    // Takes standard output for our records and points descriptor 1 at standard error.
    bool claimStandardOutput();
    void setMode(const OutputMode& mode) { this->mode = mode; }
    const OutputMode& getMode() const { return mode; }
    void setCommand(const std::string& command) { this->command = command; }
    // The demo keeps the per-item records of its pass out of the text output.
    void showRecords(bool shown) { recordsShown = shown; }

    // A section heading of the text output (the demo's parts); nothing in JSON.
    void heading(const std::string& text);
    // One record: `text` in text mode, `fields` plus type and command in JSON.
    void record(const std::string& text, nlohmann::json fields, const char* type = "database");
    // The closing summary: `text` on standard error unless quiet, `fields` as JSON.
    void summary(const std::string& text, nlohmann::json fields);
    // A failure: the message on standard error, and an error object in JSON.
    void failure(const std::string& message, nlohmann::json fields);
    // The summary texts so far, in order, for the demo's closing overview.
    const std::vector<std::string>& summaryTexts() const { return summaries; }
    // Shows a count of what was done so far, when progress is on.
    void progress(size_t count, const char* what);
    // Ends a progress line, so that the next text on standard error starts on a line of its own.
    void clearProgress();

private:
    void writeJson(const char* type, nlohmann::json fields);

    OutputMode mode;
    std::string command;
    FILE* records = stdout;
    bool progressShown = false;
    bool recordsShown = true;
    std::vector<std::string> summaries;
};

Output& output();

} // namespace hyln

#endif
