#include "support/ports.h"

#include <arpa/inet.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

int bind_loopback(int& port)
{
    int held = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (held < 0 || bind(held, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(held, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no loopback port");
    port = ntohs(address.sin_port);
    return held;
}

HeldPort::HeldPort()
{
    m_socket = bind_loopback(m_port);
}

HeldPort::~HeldPort()
{
    close(m_socket);
}

std::string HeldPort::url(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

int free_port()
{
    return HeldPort().port();
}

} // namespace support
