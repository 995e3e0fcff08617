// Numbers under four-character codes. The service that once had them is gone from every system of today, so each code
// stands for one of the facts that the system's folder tells.
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

// The packed form has one digit for each number, which today's versions do not fit: it only says to read the others.
answer packed_version(std::int32_t& value)
{
    value = 0x1040;
    return answer::found;
}

constexpr struct
{
    std::uint32_t code;
    answer (*read)(std::int32_t& value);
} selectors[] = {
    {host::selector("sysv"), packed_version},
    {host::selector("sys1"), [](std::int32_t& value) { return sources::version_number(0, value); }},
    {host::selector("sys2"), [](std::int32_t& value) { return sources::version_number(1, value); }},
    {host::selector("sys3"), [](std::int32_t& value) { return sources::version_number(2, value); }},
    {host::selector("sysa"), sources::architecture},
    {host::selector("mclk"), sources::clock_megahertz},
    {host::selector("ramm"), sources::memory_megabytes},
};

} // namespace

answer sources::selector(std::uint32_t code, std::int32_t& value)
{
    for (const auto& known : selectors)
        if (known.code == code)
            return known.read(value);
    return answer::unsupported;
}

} // namespace AnalyticsSDK::host
