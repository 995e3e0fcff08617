// The name that the owner gave the machine: the host name, there is no other.
#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::computer_name(text& value)
{
    return sysctl_text(sysctl_name::kern_hostname, value);
}

} // namespace AnalyticsSDK::host
