// The table of the Linux sources; each stands in the file of its noun.
#include "host/sources.h"

namespace AnalyticsSDK::host {

const source& system_facts()
{
    static constexpr source linux_facts = {
        sources::selector, sources::processor,    sources::sysctl_text,   sources::loads,        sources::page_size,
        sources::pages,    sources::first_volume, sources::computer_name, sources::reachability, sources::uuid,
    };
    return linux_facts;
}

} // namespace AnalyticsSDK::host
