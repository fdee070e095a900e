// The clock OSCurrentTIMEDATE reads: the real one, or one set by the control interface.
#ifndef HYSIM_CLOCK_H
#define HYSIM_CLOCK_H

namespace sim {
// Now, as seconds since 1970-01-01 GMT and hundredths of a second.
void currentUnixTime(long long& seconds, int& hundredths);
}

#endif
