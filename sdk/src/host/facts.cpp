// The running system's facts as one table; what each member calls stands in the system's folder.
#include "host/sources.h"

namespace AnalyticsSDK::host {

const source& system_facts()
{
    static constexpr source sources_of_this_system = {
        sources::selector, sources::processor,    sources::sysctl_text,   sources::loads,        sources::page_size,
        sources::pages,    sources::first_volume, sources::computer_name, sources::reachability, sources::uuid,
    };
    return sources_of_this_system;
}

} // namespace AnalyticsSDK::host
