// Reachability: the system's own judgement from its routing tables.
#include "host/sources.h"

#if __has_include(<SystemConfiguration/SystemConfiguration.h>)
#include <SystemConfiguration/SystemConfiguration.h>
#endif

namespace AnalyticsSDK::host {

answer sources::reachability([[maybe_unused]] std::uint32_t& flags)
{
#if __has_include(<SystemConfiguration/SystemConfiguration.h>)
    // A root name server's address stands for the name, so that nothing has to be looked up. Deliberate: the object is
    // never released, because every call queries the same one for as long as the process runs.
    static const SCNetworkReachabilityRef target = SCNetworkReachabilityCreateWithName(nullptr, "198.41.0.4");
    SCNetworkReachabilityFlags read = 0;
    if (!target || !SCNetworkReachabilityGetFlags(target, &read))
        return answer::failed;
    flags = read;
    return answer::found;
#else
    return answer::unsupported; // built without that framework: counts as offline
#endif
}

} // namespace AnalyticsSDK::host
