#include "host/environment.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "host/sources.h"
#include "lumo/tova/tova.h"

namespace AnalyticsSDK::host {

std::string_view variable(environment* look_up, const char* name)
{
    const char* value = look_up(name);
    return value != nullptr ? value : "";
}

answer set_text(text& to, std::string_view from)
{
    if (from.size() >= to.size())
        return answer::failed;
    to[from.copy(to.data(), from.size())] = '\0';
    return answer::found;
}

// A variable that is there and empty counts as not there, as POSIX has it.
answer readers::locale(environment* look_up, text& value)
{
    std::string_view name;
    for (const char* key : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (name.empty())
            name = variable(look_up, key);
    if (name.empty() || name == "POSIX")
        return set_text(value, "C");
    // language_TERRITORY.charset@modifier: the charset tells of the terminal, the modifier may be a script.
    const std::string_view language = name.substr(0, name.find('.'));
    name.remove_prefix(language.size());
    const std::string_view modifier = name.substr(std::min(name.find('@'), name.size()));
    if (language.size() + modifier.size() >= value.size())
        return answer::failed;
    language.copy(value.data(), language.size());
    value[language.size() + modifier.copy(value.data() + language.size(), modifier.size())] = '\0';
    return answer::found;
}

namespace {

// "/usr/share/zoneinfo/posix/Europe/Berlin" is the zone Europe/Berlin; the two folders hold the same zones with and
// without leap seconds.
std::string_view zone_of_path(std::string_view path)
{
    static constexpr std::string_view folder = "zoneinfo/";
    if (const std::size_t at = path.rfind(folder); at != std::string_view::npos)
        path.remove_prefix(at + folder.size());
    for (const std::string_view part : {"posix/", "right/"})
        if (path.starts_with(part))
            path.remove_prefix(part.size());
    return path;
}

answer zone_of_link(const char* root, text& value)
{
    char path[1024], target[1024];
    tova_sprintf(path, sizeof path, "%s/etc/localtime", root);
    const ssize_t size = readlink(path, target, sizeof target);
    if (size > 0)
        return set_text(value, zone_of_path({target, static_cast<std::size_t>(size)}));
    // Without that file it is UTC; a copy of a zone's file has no name in it.
    return errno == ENOENT ? set_text(value, "UTC") : answer::unsupported;
}

} // namespace

answer readers::linked_zone(const char* root, environment* look_up, text& value)
{
    const char* zone = look_up("TZ");
    if (zone == nullptr)
        return zone_of_link(root, value);
    // A colon says that a file's name follows. A rule such as "CET-1CEST" has no other name.
    const std::string_view name = zone_of_path(*zone == ':' ? zone + 1 : zone);
    return set_text(value, name.empty() ? "UTC" : name);
}

const char* own_variable(const char* name)
{
    return std::getenv(name); // NOLINT(concurrency-mt-unsafe): read, never set
}

answer sources::kernel_release(host::text& value)
{
    utsname kernel;
    return uname(&kernel) == 0 ? set_text(value, kernel.release) : answer::failed;
}

} // namespace AnalyticsSDK::host
