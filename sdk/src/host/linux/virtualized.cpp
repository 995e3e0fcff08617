// Whether the machine is one: what container managers leave behind, and what hypervisors say of themselves.
#include <cstring>

#if __has_include(<cpuid.h>)
#include <cpuid.h>
#endif

#include "host/environment.h"
#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

// Files that systemd's container interface, podman and docker put there, in this order.
bool in_container(const char* root, environment* look_up)
{
    for (const char* path : {"/run/systemd/container", "/run/.containerenv", "/.dockerenv"})
        if (files::line_file(root, path).is_open())
            return true;
    return !variable(look_up, "container").empty();
}

// Words that begin the processor's signature or the firmware's texts, and whose they are.
constexpr struct
{
    std::string_view start, name;
} hypervisors[] = {{"KVM", "kvm"},       {"Microsoft Hv", "hyperv"}, {"Virtual Machine", "hyperv"},
                   {"VMware", "vmware"}, {"VBox", "virtualbox"},     {"VirtualBox", "virtualbox"},
                   {"Xen", "xen"},       {"HVM domU", "xen"},        {"TCG", "qemu"},
                   {"QEMU", "qemu"},     {"Standard PC", "qemu"},    {"bhyve", "bhyve"},
                   {"BHYVE", "bhyve"},   {" lrpepyh", "parallels"},  {"Parallels", "parallels"},
                   {"ACRN", "acrn"},     {"Google Compute", "kvm"},  {"Apple Virtualization", "apple"}};

std::string_view known(std::string_view words)
{
    for (const auto& hypervisor : hypervisors)
        if (words.starts_with(hypervisor.start))
            return hypervisor.name;
    return {};
}

// The flag that the processor shows to its guests alone.
bool has_hypervisor_flag(const char* root)
{
    files::line_file file(root, "/proc/cpuinfo");
    std::string_view line, key, value;
    while (file.is_open() && file.next(line))
        if (files::split_pair(line, key, value) && key == "flags")
            return value.find("hypervisor") != std::string_view::npos;
    return false;
}

// The processor's own words, leaf 0x40000000 of its identification; where it has none, nothing is asked.
std::string_view processor_signature([[maybe_unused]] char (&words)[13])
{
#if __has_include(<cpuid.h>)
    unsigned int a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c >> 31) == 0)
        return {};
    __cpuid(0x40000000, a, b, c, d);
    const unsigned int parts[] = {b, c, d};
    std::memcpy(words, parts, sizeof parts);
    return words;
#else
    return {};
#endif
}

} // namespace

// A container inside a virtual machine is a container: that is what confines the process.
answer readers::virtualized(const char* root, environment* look_up, std::string_view signature, text& value)
{
    if (in_container(root, look_up))
        return set_text(value, "container");
    if (const std::string_view name = known(signature); !name.empty())
        return set_text(value, name);
    for (const char* path :
         {"/sys/class/dmi/id/product_name", "/sys/class/dmi/id/sys_vendor", "/sys/hypervisor/type"}) {
        files::line_file file(root, path);
        std::string_view line;
        if (!file.is_open() || !file.next(line))
            continue;
        line = files::trim(line);
        if (const std::string_view name = line == "xen" ? line : known(line); !name.empty())
            return set_text(value, name);
    }
    return set_text(value, has_hypervisor_flag(root) || !signature.empty() ? "unknown" : "no");
}

answer sources::virtualized(host::text& value)
{
    char words[13] = "";
    return readers::virtualized("", own_variable, processor_signature(words), value);
}

} // namespace AnalyticsSDK::host
