// Load counters of every processor, in ticks since the machine started.
#include <mach/mach.h>

#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::loads(load_visitor* visit, void* context)
{
    const mach_port_t machine = mach_host_self();
    natural_t processors = 0;
    processor_info_array_t info = nullptr;
    mach_msg_type_number_t words = 0;
    const kern_return_t result = host_processor_info(machine, PROCESSOR_CPU_LOAD_INFO, &processors, &info, &words);
    mach_port_deallocate(mach_task_self(), machine);
    if (result != KERN_SUCCESS)
        return answer::failed;
    // One record of tick counts for each processor, returned as an array of words.
    const auto* loads = reinterpret_cast<const processor_cpu_load_info_data_t*>(info);
    for (natural_t at = 0; at < processors; ++at) {
        const auto& ticks = loads[at].cpu_ticks;
        visit(context, {ticks[CPU_STATE_USER], ticks[CPU_STATE_SYSTEM], ticks[CPU_STATE_IDLE]});
    }
    // The kernel allocated the array in this process, which must free it.
    vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(info), words * sizeof *info);
    return answer::found;
}

} // namespace AnalyticsSDK::host
