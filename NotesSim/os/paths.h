// Path names as the NSF entry points take them: relative to the data directory,
// absolute, or in the network form "server!!path" for the local server.
#ifndef HYSIM_PATHS_H
#define HYSIM_PATHS_H

#include <string>

#include "HYLNTool_NotesAPI.h"

namespace sim {

// The absolute local path of `pathName` (null or "" = the data directory).
// STS_SERVER_NOT_RESPONDING for another server, STS_PATH_OUTSIDE for a relative
// path whose ".." leaves the data directory.
STATUS resolvePathName(const char* pathName, std::string& absolute);
// A database name may omit ".nsf": the file to open for `absolute`.
std::string existingDatabaseFile(const std::string& absolute);
// The file to create for `absolute` (".nsf" added when the name has no extension).
std::string newDatabaseFile(const std::string& absolute);
// Relative to the data directory when inside it, otherwise the absolute path.
std::string canonicalPathOf(const std::string& absolute);
// True for "" and for the local server's name, canonical or abbreviated, in any case.
bool isLocalServer(const std::string& server);

} // namespace sim

#endif
