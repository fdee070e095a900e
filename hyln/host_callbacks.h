// The four callbacks a backup agent installs: log lines to standard error with a
// level filter, Ctrl-C as "quit" and "session lost", and database records written
// out as they arrive.
#ifndef HYLN_HOST_CALLBACKS_H
#define HYLN_HOST_CALLBACKS_H

#include <string>
#include <vector>

namespace hyln {

struct HostState {
    int maxLogLevel = 0;               // lines with a higher level are not shown
    size_t recordsReceived = 0;        // database records the library sent
    std::vector<std::string> logTexts; // every line, kept for the summaries
    // While set, the library's messages (view names) are collected here instead of
    // being read as database records.
    std::vector<std::string>* messages = nullptr;
};

HostState& host();
// Installs the Ctrl-C handler and the library's callbacks.
void installCallbacks();
bool interrupted();
// Log lines received so far that begin with `prefix`.
size_t countLogs(const char* prefix);

} // namespace hyln

#endif
