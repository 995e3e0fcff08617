// Numbers under four-character codes: version, architecture, clock, memory. The selectors' own service is gone from
// today's systems, so the kernel's documented sysctl values answer in its place.
#include <mach/machine.h>

#include "host/darwin/sysctl.h"
#include "host/sources.h"
#include "host/version.h"

namespace AnalyticsSDK::host {
namespace {

answer version_number(int at, std::int32_t& value)
{
    text product;
    std::int32_t numbers[3];
    if (const answer given = sysctls::string("kern.osproductversion", product); given != answer::found)
        return given;
    // The product's version and not the kernel's, which counts differently.
    if (!parse_version(product.data(), numbers))
        return answer::failed;
    value = numbers[at];
    return answer::found;
}

// Later versions do not fit one digit for each number, so the packed form only says: read the three others.
answer packed_version(std::int32_t& value)
{
    value = 0x1040;
    return answer::found;
}

answer architecture(std::int32_t& value)
{
    std::int32_t type = 0;
    const answer given = sysctls::number("hw.cputype", type);
    // Without the bit for 64: the architecture counts, not the width.
    const std::int32_t family = type & ~CPU_ARCH_MASK;
    value = family == CPU_TYPE_X86 ? 10 : family == CPU_TYPE_POWERPC ? 2 : family == CPU_TYPE_MC680x0 ? 1 : 0;
    return given;
}

// Machines whose clock is not one number do not have the value.
answer clock_megahertz(std::int32_t& value)
{
    std::uint64_t hertz = 0;
    const answer given = sysctls::number("hw.cpufrequency", hertz);
    value = static_cast<std::int32_t>((hertz + 500000) / 1000000);
    return given;
}

answer memory_megabytes(std::int32_t& value)
{
    // The older name for this answers in 32 bits and ends at 2 GiB.
    std::uint64_t bytes = 0;
    const answer given = sysctls::number("hw.memsize", bytes);
    value = static_cast<std::int32_t>(bytes / 1048576);
    return given;
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
    {host::selector("mclk"), clock_megahertz},
    {host::selector("ramm"), memory_megabytes},
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
