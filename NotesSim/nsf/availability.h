// Whether a database file may be opened: in use by handles of this process, or
// taken offline (NSFTakeDatabaseOffline) until brought back online.
#ifndef HYSIM_AVAILABILITY_H
#define HYSIM_AVAILABILITY_H

#include <string>

namespace sim {

// `file` is the absolute path of a database file.
bool databaseInUse(const std::string& file);
bool databaseOffline(const std::string& file);

} // namespace sim

#endif
