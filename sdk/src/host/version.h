// Version numbers out of a text, for the systems that tell their version as one.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace AnalyticsSDK::host {

/// Reads up to three numbers with points between them ("6.1.0-13-amd64", "14.2"); numbers that are not there are 0.
/// Returns false when `from` does not start with a number.
inline bool parse_version(std::string_view from, std::int32_t (&numbers)[3])
{
    const char* at = from.data();
    const char* end = at + from.size();
    int count = 0;
    for (auto& number : numbers)
        number = 0;
    while (count < 3) {
        const auto read = std::from_chars(at, end, numbers[count]);
        if (read.ec != std::errc())
            break;
        ++count;
        at = read.ptr;
        if (at == end || *at != '.')
            break;
        ++at;
    }
    return count > 0;
}

} // namespace AnalyticsSDK::host
