// What the system is: family, release, instruction set, language, zone.
#include <sys/utsname.h>

#include "host/environment.h"
#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

// A value as os-release(5) writes it, like a shell: in quotes of either kind or none, a backslash before what would end
// them. Written over the text itself, which only gets shorter.
answer unquote(std::string_view from, text& value)
{
    if (from.size() >= value.size())
        return answer::failed;
    std::size_t size = 0;
    for (std::size_t at = 0; at < from.size(); ++at) {
        if (from[at] == '"' || from[at] == '\'')
            continue;
        if (from[at] == '\\' && at + 1 < from.size())
            ++at;
        value[size++] = from[at];
    }
    value[size] = '\0';
    return size != 0 ? answer::found : answer::unsupported;
}

} // namespace

answer readers::release(const char* root, text& value)
{
    static constexpr std::string_view key = "PRETTY_NAME=";
    // The first is the administrator's, mostly a link to the second, which comes with the distribution.
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        files::line_file file(root, path);
        std::string_view line;
        while (file.is_open() && file.next(line))
            if (line = files::trim(line); line.starts_with(key))
                return unquote(line.substr(key.size()), value);
    }
    return answer::unsupported;
}

answer readers::time_zone(const char* root, environment* look_up, text& value)
{
    if (const answer given = linked_zone(root, look_up, value); given != answer::unsupported)
        return given;
    // Where /etc/localtime is a copy, Debian keeps the name beside it.
    files::line_file file(root, "/etc/timezone");
    std::string_view line;
    if (!file.is_open() || !file.next(line) || (line = files::trim(line)).empty())
        return answer::unsupported;
    return set_text(value, line);
}

answer sources::system_family(host::text& value)
{
    return set_text(value, "linux");
}

answer sources::system_version(host::text& value)
{
    return readers::release("", value);
}

answer sources::machine(host::text& value)
{
    utsname kernel;
    return uname(&kernel) == 0 ? set_text(value, kernel.machine) : answer::failed;
}

answer sources::locale(host::text& value)
{
    return readers::locale(own_variable, value);
}

answer sources::time_zone(host::text& value)
{
    return readers::time_zone("", own_variable, value);
}

} // namespace AnalyticsSDK::host
