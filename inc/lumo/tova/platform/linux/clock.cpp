#include "lumo/tova/platform/platform.h"

namespace tova::platform {

// CLOCK_MONOTONIC counts nanoseconds, so a tick is one.
time_base clock_time_base()
{
    return {1, 1};
}

uint64_t clock_ticks()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// The kernel's zone record, which gettimeofday gives, is always zero: the zone in force is the one localtime_r used.
int32_t minutes_west(const tm& local)
{
    return static_cast<int32_t>(-(local.tm_gmtoff / 60));
}

} // namespace tova::platform
