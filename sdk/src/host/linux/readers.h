/// @file
/// The Linux facts that are read from files. Each reader takes the folder that holds /proc and /sys, so that samples of
/// other machines can be read too: "" is the machine itself.
#pragma once

#include "host/host.h"

namespace AnalyticsSDK::host::readers {

/// The first processor's name in /proc/cpuinfo, under whichever key its architecture writes it.
answer processor_name(const char* root, text& name);

/// The first processor's clock in /proc/cpuinfo, else its highest clock as the frequency driver tells it.
answer clock_megahertz(const char* root, std::int32_t& megahertz);

/// The counters of every processor in /proc/stat.
answer loads(const char* root, load_visitor* visit, void* context);

/// The counts of /proc/meminfo, in pages of `page_size` bytes.
answer pages(const char* root, std::uint64_t page_size, page_counts& counts);

/// MemTotal of /proc/meminfo in units of 1,048,576 bytes.
answer memory_megabytes(const char* root, std::int32_t& megabytes);

/// The model as the firmware tells it: DMI's product name, else the device tree's model.
answer model(const char* root, text& value);

/// The code that selector 'sysa' answers for a machine as uname(2) names it.
std::int32_t architecture_code(const char* machine);

} // namespace AnalyticsSDK::host::readers
