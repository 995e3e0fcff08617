/// @file
/// Who a request comes from: the peer's address, or what a trusted proxy says it is.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace http {

/// A client's address as limits count it.
struct Client
{
    std::string address; ///< one IPv4 address, or the /64 of an IPv6 address: what one subscriber commonly holds
    bool is_loopback = false;
};

/// The client behind a connection.
///
/// X-Forwarded-For is read from its right end, and only as far as the addresses are those of listed proxies: what
/// stands further left was written by whoever liked to.
/// @param peer      the connection's other end, as text
/// @param forwarded the fields' values joined by commas; empty when there is none
/// @param proxies   addresses of the proxies that are believed
Client client_of(const std::string& peer, std::string_view forwarded, const std::vector<std::string>& proxies);

/// The address in one spelling: IPv4 within IPv6 as IPv4, no zone, lower case; empty when it is no address.
std::string normalized(std::string_view address);

} // namespace http
