#include "clock.h"

#include <chrono>
#include <mutex>

#include "HySimControl.h"
#include "sim_core.h"

namespace sim {
namespace {
struct FixedClock {
    bool set = false;
    long long seconds = 0;
    int hundredths = 0;
};
FixedClock& fixedClock()
{
    static FixedClock clock;
    return clock;
}
} // namespace

void currentUnixTime(long long& seconds, int& hundredths)
{
    const FixedClock& fixed = fixedClock();
    if (fixed.set) {
        seconds = fixed.seconds;
        hundredths = fixed.hundredths;
        return;
    }
    auto now = std::chrono::system_clock::now().time_since_epoch();
    long long centis = std::chrono::duration_cast<std::chrono::milliseconds>(now).count() / 10;
    seconds = centis / 100;
    hundredths = static_cast<int>(centis % 100);
}

} // namespace sim

HYSIM_EXPORT void HySimSetClock(long long unixSeconds, int hundredths)
{
    std::lock_guard<std::recursive_mutex> lock(sim::apiMutex());
    sim::fixedClock() = {true, unixSeconds, hundredths};
}

HYSIM_EXPORT void HySimUseRealClock(void)
{
    std::lock_guard<std::recursive_mutex> lock(sim::apiMutex());
    sim::fixedClock().set = false;
}
