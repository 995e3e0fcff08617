#include "client.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>

namespace http {
namespace {

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

std::string text_of(int family, const void* bytes)
{
    char text[INET6_ADDRSTRLEN] = "";
    return inet_ntop(family, bytes, text, sizeof text) != nullptr ? text : "";
}

// The /64: whoever has one IPv6 address mostly has all of that network.
Client counted(const std::string& address)
{
    in6_addr six{};
    if (inet_pton(AF_INET6, address.c_str(), &six) != 1)
        return {address, address.rfind("127.", 0) == 0};
    const bool loopback = IN6_IS_ADDR_LOOPBACK(&six);
    std::memset(six.s6_addr + 8, 0, 8);
    return {loopback ? address : text_of(AF_INET6, &six) + "/64", loopback};
}

} // namespace

std::string normalized(std::string_view address)
{
    std::string text(trimmed(address));
    if (text.size() > 1 && text.front() == '[') { // RFC 7239 and many proxies: "[2001:db8::1]:4711"
        text = text.substr(1, text.find(']') - 1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        text.resize(text.find(':'));
    }
    text.resize(std::min(text.find('%'), text.size()));
    in_addr four{};
    in6_addr six{};
    if (inet_pton(AF_INET, text.c_str(), &four) == 1)
        return text_of(AF_INET, &four);
    if (inet_pton(AF_INET6, text.c_str(), &six) != 1)
        return {};
    return IN6_IS_ADDR_V4MAPPED(&six) ? text_of(AF_INET, six.s6_addr + 12) : text_of(AF_INET6, &six);
}

Client client_of(const std::string& peer, std::string_view forwarded, const std::vector<std::string>& proxies)
{
    std::string address = normalized(peer);
    const auto is_proxy = [&] { return std::find(proxies.begin(), proxies.end(), address) != proxies.end(); };
    while (!forwarded.empty() && is_proxy()) {
        const size_t comma = forwarded.rfind(',');
        const std::string next = normalized(forwarded.substr(comma == std::string_view::npos ? 0 : comma + 1));
        if (next.empty())
            break;
        address = next;
        forwarded = forwarded.substr(0, comma == std::string_view::npos ? 0 : comma);
    }
    return counted(address);
}

} // namespace http
