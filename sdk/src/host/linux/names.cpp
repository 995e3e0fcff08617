// The names that the kernel holds: the model's from the firmware, the machine's own.
#include <unistd.h>

#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {

answer readers::model(const char* root, text& value)
{
    static constexpr const char* origins[] = {"/sys/class/dmi/id/product_name", "/proc/device-tree/model"};
    for (const char* origin : origins) {
        files::line_file file(root, origin);
        std::string_view line;
        // An empty name counts as none: some firmware leaves it blank.
        if (!file.is_open() || !file.next(line) || (line = files::trim(line)).empty())
            continue;
        // Part of a model's name would be counted as another model.
        if (line.size() >= value.size())
            return answer::failed;
        value[line.copy(value.data(), value.size() - 1)] = '\0';
        return answer::found;
    }
    return answer::unsupported;
}

answer sources::sysctl_text(sysctl_name name, text& value)
{
    if (name == sysctl_name::hw_model)
        return readers::model("", value);
    // The kernel's own name: asking for the full one would go to a name server.
    return gethostname(value.data(), value.size()) == 0 ? answer::found : answer::failed;
}

} // namespace AnalyticsSDK::host
