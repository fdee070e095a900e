// TIMEDATE helpers for the other services of the simulated runtime.
#ifndef HYSIM_TIMEDATE_H
#define HYSIM_TIMEDATE_H

#include "HYLNTool_NotesAPI.h"

namespace sim {

// A moment given as seconds since 1970-01-01 GMT (plus hundredths), stamped with
// the runtime's zone.
TIMEDATE timedateFromUnix(long long seconds, int hundredths);
// Now, from the runtime's clock.
TIMEDATE nowTimedate();
// Seconds since 1970-01-01 GMT of a TIMEDATE that has both a date and a time;
// false for a value with a wildcard part.
bool unixFromTimedate(const TIMEDATE& value, long long& seconds);

} // namespace sim

#endif
