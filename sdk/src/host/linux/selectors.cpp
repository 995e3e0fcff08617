// What the selectors stand for: version, architecture, clock, memory.
#include <sys/utsname.h>

#include <cstring>

#include "host/linux/readers.h"
#include "host/sources.h"
#include "host/version.h"

namespace AnalyticsSDK::host {
namespace readers {

std::int32_t architecture_code(const char* machine)
{
    // By their start only: names of machines go on with byte orders and generations, as in "ppc64le".
    static constexpr struct
    {
        const char* start;
        std::int32_t code;
    } families[] = {{"m68k", 1}, {"ppc", 2}, {"x86_64", 10}, {"i386", 10}, {"i486", 10}, {"i586", 10}, {"i686", 10}};
    for (const auto& family : families)
        if (std::strncmp(machine, family.start, std::strlen(family.start)) == 0)
            return family.code;
    return 0;
}

} // namespace readers

answer sources::version_number(int part, std::int32_t& value)
{
    // The kernel's release: distributions number themselves each in its own way, or not at all.
    utsname kernel;
    std::int32_t numbers[3];
    if (uname(&kernel) != 0 || !parse_version(kernel.release, numbers))
        return answer::failed;
    value = numbers[part];
    return answer::found;
}

answer sources::architecture(std::int32_t& value)
{
    utsname kernel;
    if (uname(&kernel) != 0)
        return answer::failed;
    // The kernel's view: a 32-bit program on a 64-bit machine is still on that machine.
    value = readers::architecture_code(kernel.machine);
    return answer::found;
}

answer sources::clock_megahertz(std::int32_t& value)
{
    return readers::clock_megahertz("", value);
}

answer sources::memory_megabytes(std::int32_t& value)
{
    return readers::memory_megabytes("", value);
}

} // namespace AnalyticsSDK::host
