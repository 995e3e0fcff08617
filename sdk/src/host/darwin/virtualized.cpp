// Whether the machine is virtual: the kernel's own judgement, and whose by the model's name.
#include <string_view>

#include "host/darwin/sysctl.h"
#include "host/environment.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::virtualized(host::text& value)
{
    static constexpr struct
    {
        std::string_view start, name;
    } models[] = {
        {"VMware", "vmware"}, {"Parallels", "parallels"}, {"VirtualMac", "apple"}, {"VirtualBox", "virtualbox"}};
    std::int32_t present = 0;
    if (const answer given = sysctls::number("kern.hv_vmm_present", present); given != answer::found)
        return given;
    if (present == 0)
        return set_text(value, "no");
    host::text model;
    if (sysctls::string("hw.model", model) == answer::found)
        for (const auto& known : models)
            if (std::string_view(model.data()).starts_with(known.start))
                return set_text(value, known.name);
    return set_text(value, "unknown");
}

} // namespace AnalyticsSDK::host
