// Reachability: connecting a datagram socket makes the kernel choose a route and sends nothing.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

// The address of a root name server: it does not change, and is routed like that of any other server.
constexpr const char* fixed_address_4 = "198.41.0.4";
constexpr const char* fixed_address_6 = "2001:503:ba3e::2:30";
// Nothing is ever sent to it; only 0 is refused by some systems.
constexpr in_port_t any_port = 443;

// A datagram socket keeps no connection: to "connect" it only fixes the other end, for which the kernel needs a route.
answer look_up(int family, const void* address, socklen_t size, bool& route)
{
    const int descriptor = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return answer::failed;
    route = connect(descriptor, static_cast<const sockaddr*>(address), size) == 0;
    close(descriptor);
    return answer::found;
}

answer look_up_4(bool& route)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(any_port);
    inet_pton(AF_INET, fixed_address_4, &address.sin_addr);
    return look_up(AF_INET, &address, sizeof address, route);
}

answer look_up_6(bool& route)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(any_port);
    inet_pton(AF_INET6, fixed_address_6, &address.sin6_addr);
    return look_up(AF_INET6, &address, sizeof address, route);
}

} // namespace

answer sources::reachability(std::uint32_t& flags)
{
    bool route = false;
    const answer by_4 = look_up_4(route);
    // A machine may have one of the two families only, so a missing socket of the other is no failure.
    const answer by_6 = route ? answer::found : look_up_6(route);
    if (by_4 != answer::found && by_6 != answer::found)
        return answer::failed;
    // This system has no connections that are dialled on demand, so that flag is never set.
    flags = route ? flag_reachable : 0;
    return answer::found;
}

} // namespace AnalyticsSDK::host
