// Reading the kernel's sysctl values, which carry most of this system's facts.
#pragma once

#include <sys/sysctl.h>

#include <cerrno>

#include "host/host.h"

namespace AnalyticsSDK::host::sysctls {

/// A number of the width that the name has. Names that this machine does not know are unsupported.
template <class Number>
answer number(const char* name, Number& value)
{
    std::size_t size = sizeof value;
    if (sysctlbyname(name, &value, &size, nullptr, 0) == 0)
        return size == sizeof value ? answer::found : answer::failed;
    return errno == ENOENT ? answer::unsupported : answer::failed;
}

/// A text with its terminator; one that does not fit has failed.
inline answer string(const char* name, text& value)
{
    std::size_t size = value.size();
    if (sysctlbyname(name, value.data(), &size, nullptr, 0) == 0)
        return answer::found;
    return errno == ENOENT ? answer::unsupported : answer::failed;
}

} // namespace AnalyticsSDK::host::sysctls
