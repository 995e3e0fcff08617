// What the selectors stand for: version, architecture, clock, memory, from the kernel's documented sysctl values.
#include <mach/machine.h>

#include "host/darwin/sysctl.h"
#include "host/sources.h"
#include "host/version.h"

namespace AnalyticsSDK::host {

answer sources::version_number(int part, std::int32_t& value)
{
    text product;
    std::int32_t numbers[3];
    if (const answer given = sysctls::string("kern.osproductversion", product); given != answer::found)
        return given;
    // The product's version and not the kernel's, which counts differently.
    if (!parse_version(product.data(), numbers))
        return answer::failed;
    value = numbers[part];
    return answer::found;
}

answer sources::architecture(std::int32_t& value)
{
    std::int32_t type = 0;
    const answer given = sysctls::number("hw.cputype", type);
    // Without the bit for 64: the architecture counts, not the width.
    const std::int32_t family = type & ~CPU_ARCH_MASK;
    value = family == CPU_TYPE_X86 ? 10 : family == CPU_TYPE_POWERPC ? 2 : family == CPU_TYPE_MC680x0 ? 1 : 0;
    return given;
}

// Machines whose clock is not one number do not have the value.
answer sources::clock_megahertz(std::int32_t& value)
{
    std::uint64_t hertz = 0;
    const answer given = sysctls::number("hw.cpufrequency", hertz);
    value = static_cast<std::int32_t>((hertz + 500000) / 1000000);
    return given;
}

answer sources::memory_megabytes(std::int32_t& value)
{
    // The older name for this answers in 32 bits and ends at 2 GiB.
    std::uint64_t bytes = 0;
    const answer given = sysctls::number("hw.memsize", bytes);
    value = static_cast<std::int32_t>(bytes / 1048576);
    return given;
}

} // namespace AnalyticsSDK::host
