// The Linux facts that are read from files. Each reader takes the folder that holds /proc and /sys, so that samples of
// other machines can be read too: "" is the machine itself.
#pragma once

#include <string_view>

#include "host/environment.h"
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

/// PRETTY_NAME of os-release(5).
answer release(const char* root, text& value);

/// The zone of local time: linked_zone(), else Debian's /etc/timezone.
answer time_zone(const char* root, environment* look_up, text& value);

/// The most general name in XDG_CURRENT_DESKTOP (freedesktop.org's desktop entries); empty without one.
answer desktop(environment* look_up, text& value);

/// What WAYLAND_DISPLAY, WAYLAND_SOCKET and DISPLAY offer to a program.
answer display(environment* look_up, text& value);

/// "container", the hypervisor's name, "unknown" for one without a known name, or "no". `signature` is what the
/// processor says of its hypervisor, empty where it says nothing.
answer virtualized(const char* root, environment* look_up, std::string_view signature, text& value);

/// The processors that run: /sys/devices/system/cpu/online, else those of /proc/stat.
answer processors(const char* root, std::uint64_t& count);

/// MemTotal and MemAvailable of /proc/meminfo; the latter is not told by kernels before 3.14.
answer memory_bytes(const char* root, std::uint64_t& bytes);
answer memory_available(const char* root, std::uint64_t& bytes);

/// The first number of /proc/uptime, whole seconds.
answer boot_seconds(const char* root, std::uint64_t& seconds);

/// The code that selector 'sysa' answers for a machine as uname(2) names it.
std::int32_t architecture_code(const char* machine);

} // namespace AnalyticsSDK::host::readers
