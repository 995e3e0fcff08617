// The running system's facts as tables; what each member calls stands in the system's folder.
#include "host/sources.h"

namespace AnalyticsSDK::host {

const source& system_facts()
{
    static constexpr source sources_of_this_system = {
        sources::selector,     sources::processor, sources::sysctl_text,  sources::loads,
        sources::page_size,    sources::pages,     sources::first_volume, sources::computer_name,
        sources::reachability, sources::uuid,      sources::fact_text,    sources::fact_number,
    };
    return sources_of_this_system;
}

// In the order of their enumerations.

answer sources::fact_text(text_fact fact, text& value)
{
    static constexpr answer (*read[])(text&) = {system_family, system_version, kernel_release, machine,    locale,
                                                time_zone,     desktop,        display,        virtualized};
    static_assert(sizeof read / sizeof *read == static_cast<std::size_t>(text_fact::count));
    return read[static_cast<std::size_t>(fact)](value);
}

answer sources::fact_number(number_fact fact, std::uint64_t& value)
{
    static constexpr answer (*read[])(std::uint64_t&) = {processors, memory_bytes, memory_available, boot_seconds};
    static_assert(sizeof read / sizeof *read == static_cast<std::size_t>(number_fact::count));
    return read[static_cast<std::size_t>(fact)](value);
}

} // namespace AnalyticsSDK::host
