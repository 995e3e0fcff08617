// The processors: how many run, for how long, and their load counters, in ticks since the machine started.
#include <ctime>
#include <mach/mach.h>
#include <sys/time.h>

#include "host/darwin/sysctl.h"
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

answer sources::processors(std::uint64_t& count)
{
    std::int32_t running = 0;
    const answer given = sysctls::number("hw.logicalcpu", running);
    count = static_cast<std::uint64_t>(running);
    return given;
}

answer sources::boot_seconds(std::uint64_t& seconds)
{
    timeval started{};
    const answer given = sysctls::number("kern.boottime", started);
    const auto passed = std::time(nullptr) - started.tv_sec;
    // The clock may have been set back since.
    seconds = passed > 0 ? static_cast<std::uint64_t>(passed) : 0;
    return given;
}

} // namespace AnalyticsSDK::host
