// Numbers by four-character code. The system service of that kind does not exist any more, so each code stands for a
// fact that the system's folder reads.
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

// The packed form has one digit for each number, too few for today's versions: its value only says that the others must
// be read.
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
