#include "support/cutting_relay.h"

#include "support/ports.h"

#include <algorithm>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

namespace {

// Hands on until a side has spent what it may send (true) or leaves.
bool relay(RawServer::Connection& client, int server, size_t from_client, size_t from_server)
{
    pollfd ends[] = {{client.socket(), POLLIN, 0}, {server, POLLIN, 0}};
    size_t left[] = {from_client, from_server};
    char text[4096];
    while (left[0] > 0 && left[1] > 0) {
        if (poll(ends, 2, 100) < 0 || client.is_server_stopping())
            return false;
        const int from = ends[0].revents ? 0 : 1;
        if (!ends[from].revents)
            continue;
        const ssize_t count = recv(ends[from].fd, text, std::min(left[from], sizeof text), 0);
        if (count <= 0)
            return false;
        send(ends[1 - from].fd, text, static_cast<size_t>(count), MSG_NOSIGNAL);
        left[from] -= static_cast<size_t>(count);
    }
    return true;
}

} // namespace

CuttingRelay::CuttingRelay(int server_port, size_t from_server, size_t from_client)
    : m_clients([=, this](RawServer::Connection& client) {
          const int server = connect_loopback(server_port);
          m_cuts += relay(client, server, from_client, from_server);
          close(server);
          client.reset();
      })
{}

} // namespace support
