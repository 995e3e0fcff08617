#include "support/ports.h"

#include <arpa/inet.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

HeldPort::HeldPort() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no loopback port");
    m_port = ntohs(address.sin_port);
}

HeldPort::~HeldPort()
{
    close(m_socket);
}

std::string HeldPort::url(const std::string& path, const std::string& host) const
{
    return "http://" + host + ":" + std::to_string(m_port) + path;
}

int connect_loopback(int port)
{
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return client;
    close(client);
    return -1;
}

int free_port()
{
    return HeldPort().port();
}

} // namespace support
