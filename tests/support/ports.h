// Loopback ports.
#pragma once

#include <string>

namespace support {

/// A port that is bound and never listened on: connecting to it is refused for as long as this object lives.
class HeldPort
{
public:
    HeldPort();
    ~HeldPort();
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;
    int port() const { return m_port; }
    std::string url(const std::string& path = "/") const;

private:
    int m_socket = -1;
    int m_port = 0;
};

/// A socket bound to a loopback port that the system chooses. The caller closes it.
int bind_loopback(int& port);
/// A connection to a loopback port, -1 when nobody listens. The caller closes it.
int connect_loopback(int port);
/// A port that was free a moment ago, for a program that must be told its port. Prefer a server that picks its own.
int free_port();

} // namespace support
