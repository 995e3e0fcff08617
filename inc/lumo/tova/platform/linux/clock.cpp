#include "lumo/tova/platform/platform.h"

#include <ctime>

namespace tova::platform {

// CLOCK_MONOTONIC counts nanoseconds, so a tick is one.
time_base clock_time_base()
{
    return {1, 1};
}

uint64_t clock_ticks()
{
    timespec now;
    // It does not follow changes of the date, and cannot fail: every Linux has it.
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

} // namespace tova::platform
