// The desktop and the display, by the variables that a session's programs are started with.
#include "host/environment.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {

// A list with colons where a distribution has a desktop of its own ("ubuntu:GNOME"), from the special to the general:
// the last name is the one that hosts of several distributions share.
answer readers::desktop(environment* look_up, text& value)
{
    const std::string_view names = variable(look_up, "XDG_CURRENT_DESKTOP");
    return set_text(value, names.substr(names.rfind(':') + 1));
}

// Of both, Wayland: its sessions offer X11 beside it to programs of old.
answer readers::display(environment* look_up, text& value)
{
    static constexpr struct
    {
        const char *variable, *display;
    } displays[] = {{"WAYLAND_DISPLAY", "wayland"}, {"WAYLAND_SOCKET", "wayland"}, {"DISPLAY", "x11"}};
    for (const auto& known : displays)
        if (!variable(look_up, known.variable).empty())
            return set_text(value, known.display);
    return set_text(value, "none");
}

answer sources::desktop(host::text& value)
{
    return readers::desktop(own_variable, value);
}

answer sources::display(host::text& value)
{
    return readers::display(own_variable, value);
}

} // namespace AnalyticsSDK::host
