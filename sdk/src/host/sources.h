// The members of host::source, one file per noun; see there for each contract. The system's folder defines them, but
// for the selectors, whose table is the same everywhere: for these the folder tells the four facts behind them.
#pragma once

#include "host/host.h"

namespace AnalyticsSDK::host::sources {

answer selector(std::uint32_t code, std::int32_t& value); // host/selectors.cpp
/// The system's version: part 0 is its major number, 1 the minor one, 2 the bug-fix.
answer version_number(int part, std::int32_t& value);
/// 2 for PowerPC, 10 for x86, 1 for 68K, 0 for what has no code.
answer architecture(std::int32_t& value);
answer clock_megahertz(std::int32_t& value);
answer memory_megabytes(std::int32_t& value);
answer processor(processor_identity& identity);
answer sysctl_text(sysctl_name name, text& value);
answer loads(load_visitor* visit, void* context);
answer page_size(std::uint64_t& bytes);
answer pages(page_counts& counts);
answer first_volume(volume& start_up);
answer computer_name(text& value);
answer reachability(std::uint32_t& flags);
answer uuid(uuid_bytes& bytes);

answer fact_text(text_fact fact, text& value);              // host/facts.cpp
answer fact_number(number_fact fact, std::uint64_t& value); // host/facts.cpp
answer kernel_release(text& value);                         // host/environment.cpp
answer time_zone(text& value);
answer system_family(text& value);
answer system_version(text& value);
answer machine(text& value);
answer locale(text& value);
answer desktop(text& value);
answer display(text& value);
answer virtualized(text& value);
answer processors(std::uint64_t& count);
answer memory_bytes(std::uint64_t& bytes);
answer memory_available(std::uint64_t& bytes);
answer boot_seconds(std::uint64_t& seconds);

} // namespace AnalyticsSDK::host::sources
