// Numbers under four-character codes: version, architecture, clock, memory.
#include <sys/utsname.h>

#include <cstring>

#include "host/linux/readers.h"
#include "host/sources.h"
#include "host/version.h"

namespace AnalyticsSDK::host {
namespace readers {

std::int32_t architecture_code(const char* machine)
{
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

namespace {

answer version_number(int at, std::int32_t& value)
{
    utsname kernel;
    std::int32_t numbers[3];
    // The kernel's release: distributions number themselves each in its own way, or not at all.
    if (uname(&kernel) != 0 || !parse_version(kernel.release, numbers))
        return answer::failed;
    value = numbers[at];
    return answer::found;
}

// The kernel's numbers need not fit one digit each, so the packed form only says: read the three others.
answer packed_version(std::int32_t& value)
{
    value = 0x1040;
    return answer::found;
}

answer architecture(std::int32_t& value)
{
    utsname kernel;
    if (uname(&kernel) != 0)
        return answer::failed;
    // The kernel's view: a 32-bit program on a 64-bit machine is still on that machine.
    value = readers::architecture_code(kernel.machine);
    return answer::found;
}

constexpr struct
{
    std::uint32_t code;
    answer (*read)(std::int32_t& value);
} selectors[] = {
    {host::selector("sysv"), packed_version},
    {host::selector("sys1"), [](std::int32_t& value) { return version_number(0, value); }},
    {host::selector("sys2"), [](std::int32_t& value) { return version_number(1, value); }},
    {host::selector("sys3"), [](std::int32_t& value) { return version_number(2, value); }},
    {host::selector("sysa"), architecture},
    {host::selector("mclk"), [](std::int32_t& value) { return readers::clock_megahertz("", value); }},
    {host::selector("ramm"), [](std::int32_t& value) { return readers::memory_megabytes("", value); }},
};

} // namespace

answer sources::selector(std::uint32_t code, std::int32_t& value)
{
    for (const auto& known : selectors)
        if (known.code == code)
            return known.read(value);
    // A selector of a later version of the contract, which this system does not know yet.
    return answer::unsupported;
}

} // namespace AnalyticsSDK::host
