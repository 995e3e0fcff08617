#include "lumo/tova/platform/platform.h"

#include <mach/mach_time.h>

namespace tova::platform {

// Ticks are the processor's own, and how long one lasts differs between machines: 1 ns with one maker, 125/3 ns with
// another.
time_base clock_time_base()
{
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    return {base.numer, base.denom};
}

// It stands still while the machine sleeps, which durations of work should not count anyway.
uint64_t clock_ticks()
{
    return mach_absolute_time();
}

} // namespace tova::platform
