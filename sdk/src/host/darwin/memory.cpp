// Memory: the page size and the pager's page counts.
#include <mach/mach.h>

#include "host/darwin/sysctl.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {

// Each call of mach_host_self() adds a reference to the port, which must be released.
answer sources::page_size(std::uint64_t& bytes)
{
    const mach_port_t machine = mach_host_self();
    vm_size_t size = 0;
    const kern_return_t result = host_page_size(machine, &size);
    mach_port_deallocate(mach_task_self(), machine);
    bytes = size;
    return result == KERN_SUCCESS ? answer::found : answer::failed;
}

answer sources::pages(page_counts& counts)
{
    const mach_port_t machine = mach_host_self();
    vm_statistics_data_t statistics{};
    mach_msg_type_number_t words = HOST_VM_INFO_REV1_COUNT; // 14: the figures that every version of the system has
    const kern_return_t result =
        host_statistics(machine, HOST_VM_INFO, reinterpret_cast<host_info_t>(&statistics), &words);
    mach_port_deallocate(mach_task_self(), machine);
    if (result != KERN_SUCCESS)
        return answer::failed;
    counts = {statistics.free_count, statistics.active_count, statistics.inactive_count, statistics.wire_count};
    return answer::found;
}

answer sources::memory_bytes(std::uint64_t& bytes)
{
    return sysctls::number("hw.memsize", bytes);
}

// What is free, and what holds nothing that could not be read again: the pager takes inactive pages first.
answer sources::memory_available(std::uint64_t& bytes)
{
    std::uint64_t size = 0;
    page_counts counts{};
    if (page_size(size) != answer::found || pages(counts) != answer::found)
        return answer::failed;
    bytes = (counts.free + counts.inactive) * size;
    return answer::found;
}

} // namespace AnalyticsSDK::host
