// Runtime start-up and the notes.ini settings.
#ifndef HYSIM_ENVIRONMENT_H
#define HYSIM_ENVIRONMENT_H

#include <string>

namespace sim {

bool runtimeInitialized();
// How many times the runtime has started in this process: state kept for one run
// (an archiving session, offline databases) ends when this changes.
unsigned long runtimeStarts();
// Data directory from the ini's Directory= (no trailing slash), or "" before start-up.
const std::string& dataDirectory();
const std::string& programDirectory();
const std::string& iniPath();
// The ini value of `name` (case-insensitive), or false when absent.
bool iniValue(const std::string& name, std::string& value);
// The local server's name (ini ServerName), "" when the ini names none.
std::string localServerName();

} // namespace sim

#endif
