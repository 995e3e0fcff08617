// Loopback ports.
#pragma once

#include <string>

namespace support {

/// A socket bound to a loopback port that the system chooses. Unless somebody listens on it, connecting to the port is
/// refused for as long as this object lives.
class HeldPort
{
public:
    HeldPort();
    ~HeldPort();
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;
    int socket() const { return m_socket; }
    int port() const { return m_port; }
    /// "127.0.0.1:port", as a proxy is named.
    std::string text() const { return "127.0.0.1:" + std::to_string(m_port); }
    std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const;

private:
    int m_socket;
    int m_port = 0;
};

/// A connection to a loopback port, -1 when nobody listens. The caller closes it.
int connect_loopback(int port);
/// A port that was free a moment ago, for a program that must be told its port. Prefer a server that picks its own.
int free_port();

} // namespace support
