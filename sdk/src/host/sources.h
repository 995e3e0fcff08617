/// @file
/// The members of host::source as the system's folder defines them, one file per noun; see there for each contract.
#pragma once

#include "host/host.h"

namespace AnalyticsSDK::host::sources {

answer selector(std::uint32_t code, std::int32_t& value);
answer processor(processor_identity& identity);
answer sysctl_text(sysctl_name name, text& value);
answer loads(load_visitor* visit, void* context);
answer page_size(std::uint64_t& bytes);
answer pages(page_counts& counts);
answer first_volume(volume& start_up);
answer computer_name(text& value);
answer reachability(std::uint32_t& flags);
answer uuid(uuid_bytes& bytes);

} // namespace AnalyticsSDK::host::sources
