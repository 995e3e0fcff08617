#include "lumo/tova/platform/platform.h"

#include <mach/mach_time.h>

namespace tova::platform {

time_base clock_time_base()
{
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    return {base.numer, base.denom};
}

uint64_t clock_ticks()
{
    return mach_absolute_time();
}

} // namespace tova::platform
