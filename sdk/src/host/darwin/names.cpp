// The names that the kernel holds. The name that the owner gave the machine stands in computer_name.cpp.
#include "host/darwin/sysctl.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::sysctl_text(sysctl_name name, text& value)
{
    return sysctls::string(name == sysctl_name::hw_model ? "hw.model" : "kern.hostname", value);
}

} // namespace AnalyticsSDK::host
