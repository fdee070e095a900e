// The four callbacks a backup agent installs: log lines to standard error with a
// level filter, Ctrl-C as "quit" and "session lost", and the collected database records.
#ifndef HYLN_HOST_CALLBACKS_H
#define HYLN_HOST_CALLBACKS_H

#include <string>
#include <vector>

namespace hyln {

struct HostState {
    int maxLogLevel = 0;          // lines with a higher level are not shown
    bool progress = false;        // show a progress line on standard error
    std::vector<std::string> records;
    std::vector<std::string> logTexts; // every line, kept for the summary
};

HostState& host();
void installCallbacks();
bool interrupted();

} // namespace hyln

#endif
