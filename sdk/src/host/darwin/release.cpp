// What the system is: family, release, instruction set, language, zone, desktop.
#include <string_view>
#include <sys/utsname.h>

#include "host/darwin/sysctl.h"
#include "host/environment.h"
#include "host/sources.h"

#if __has_include(<CoreFoundation/CoreFoundation.h>)
#include <CoreFoundation/CoreFoundation.h>
#endif

namespace AnalyticsSDK::host {

answer sources::system_family(host::text& value)
{
    return set_text(value, "darwin");
}

answer sources::system_version(host::text& value)
{
    return sysctls::string("kern.osproductversion", value);
}

// Of the machine and not of the process, which may be translated; under the name that other systems have for it.
answer sources::machine(host::text& value)
{
    std::int32_t translated = 0;
    utsname kernel;
    if (uname(&kernel) != 0)
        return answer::failed;
    const bool arm = std::string_view(kernel.machine).starts_with("arm64");
    if (arm || (sysctls::number("sysctl.proc_translated", translated) == answer::found && translated == 1))
        return set_text(value, "aarch64");
    return set_text(value, kernel.machine);
}

answer sources::locale(host::text& value)
{
#if __has_include(<CoreFoundation/CoreFoundation.h>)
    // What the user chose; programs that a desktop starts have no variables for it.
    const CFLocaleRef chosen = CFLocaleCopyCurrent();
    if (!chosen)
        return answer::failed;
    const bool copied =
        CFStringGetCString(CFLocaleGetIdentifier(chosen), value.data(), value.size(), kCFStringEncodingUTF8);
    CFRelease(chosen);
    return copied ? answer::found : answer::failed;
#else
    return readers::locale(own_variable, value); // built without that framework
#endif
}

answer sources::time_zone(host::text& value)
{
    return readers::linked_zone("", own_variable, value);
}

// There is one, and no other.
answer sources::desktop(host::text& value)
{
    return set_text(value, "Aqua");
}

// Windows come from the system's own server, which is neither of the two.
answer sources::display(host::text&)
{
    return answer::unsupported;
}

} // namespace AnalyticsSDK::host
