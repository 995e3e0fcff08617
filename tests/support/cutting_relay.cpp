#include "support/cutting_relay.h"

#include "support/ports.h"

#include <algorithm>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

CuttingRelay::CuttingRelay(int server_port, size_t from_server, size_t from_client)
    : m_server_port(server_port), m_listener(bind_loopback(m_port)), m_budgets{from_client, from_server}
{
    listen(m_listener, 16);
    m_thread = std::thread([this] { run(); });
}

CuttingRelay::~CuttingRelay()
{
    m_stop = true;
    shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    close(m_listener);
}

void CuttingRelay::run()
{
    for (int client; (client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0 && !m_stop; close(client)) {
        const int server = connect_loopback(m_server_port);
        relay(client, server);
        const linger hard = {1, 0};
        setsockopt(client, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        close(server);
    }
}

void CuttingRelay::relay(int client, int server)
{
    pollfd ends[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    size_t left[] = {m_budgets[0], m_budgets[1]};
    char text[4096];
    while (left[0] > 0 && left[1] > 0 && !m_stop && poll(ends, 2, 100) >= 0) {
        const int from = ends[0].revents ? 0 : 1;
        if (!ends[from].revents)
            continue;
        const ssize_t count = recv(ends[from].fd, text, std::min(left[from], sizeof text), 0);
        if (count <= 0)
            return;
        send(ends[1 - from].fd, text, static_cast<size_t>(count), MSG_NOSIGNAL);
        left[from] -= static_cast<size_t>(count);
    }
    m_cuts += left[0] == 0 || left[1] == 0;
}

} // namespace support
