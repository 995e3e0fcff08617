// The name that the owner gave the machine, from the system configuration store.
#include "host/sources.h"

#if __has_include(<SystemConfiguration/SystemConfiguration.h>)
#include <SystemConfiguration/SystemConfiguration.h>
#endif

namespace AnalyticsSDK::host {

answer sources::computer_name([[maybe_unused]] text& value)
{
#if __has_include(<SystemConfiguration/SystemConfiguration.h>)
    const CFStringRef name = SCDynamicStoreCopyComputerName(nullptr, nullptr);
    if (!name)
        return answer::failed;
    // False also when the name does not fit: a part of it would be another name.
    const bool copied = CFStringGetCString(name, value.data(), value.size(), kCFStringEncodingUTF8);
    CFRelease(name);
    return copied ? answer::found : answer::failed;
#else
    return answer::unsupported; // built without that framework: there is no other source
#endif
}

} // namespace AnalyticsSDK::host
