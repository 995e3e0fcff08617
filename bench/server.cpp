#include "server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// Otherwise the kernel may hold an answer back until more is to be sent, for up to 40 ms.
void send_at_once(int connection)
{
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

} // namespace

Descriptor::~Descriptor()
{
    close(number);
}

Server::Server() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener.get(), 16) != 0 ||
        getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no loopback server");
    port = ntohs(address.sin_port);
    acceptor = std::thread([this] {
        for (;;) {
            const int connection = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
            // The destructor's shutdown() is what ends the wait.
            if (ending || connection < 0)
                return;
            send_at_once(connection);
            const std::lock_guard<std::mutex> hold(lock);
            connections.push_back(connection);
            threads.emplace_back([this, connection] { serve(connection); });
        }
    });
}

Server::~Server()
{
    // Descriptors are closed last: a number that is reused while a thread still reads from it would be another
    // connection.
    ending = true;
    shutdown(listener.get(), SHUT_RDWR);
    acceptor.join();
    for (const int connection : connections)
        shutdown(connection, SHUT_RDWR);
    for (std::thread& thread : threads)
        thread.join();
    for (const int connection : connections)
        close(connection);
}

std::string Server::url() const
{
    return "http://127.0.0.1:" + std::to_string(port) + "/";
}

int Server::connect() const
{
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no connection to the loopback server");
    send_at_once(connection);
    return connection;
}

namespace {

std::size_t content_length(const std::string& head)
{
    for (std::size_t line = head.find("\r\n"); line != std::string::npos; line = head.find("\r\n", line + 2))
        if (strncasecmp(head.c_str() + line + 2, "content-length:", 15) == 0)
            return std::strtoull(head.c_str() + line + 17, nullptr, 10);
    return 0;
}

} // namespace

// One request: its head into `buffer`, its body through it.
bool Server::take_request(int connection, std::string& buffer)
{
    char piece[256 * 1024];
    buffer.clear();
    std::size_t head = std::string::npos;
    while (head == std::string::npos) {
        const ssize_t got = recv(connection, piece, sizeof piece, 0);
        if (got <= 0)
            return false;
        buffer.append(piece, static_cast<std::size_t>(got));
        head = buffer.find("\r\n\r\n");
    }
    const std::size_t size = content_length(buffer);
    // A client that asks first waits a second for this.
    if (buffer.find("100-continue") < head)
        send_all(connection, "HTTP/1.1 100 Continue\r\n\r\n");
    for (std::size_t have = buffer.size() - head - 4; have < size;) {
        const ssize_t got = recv(connection, piece, sizeof piece, 0);
        if (got <= 0)
            return false;
        have += static_cast<std::size_t>(got);
    }
    bytes += head + 4 + size;
    return true;
}

void Server::serve(int connection)
try {
    std::string buffer;
    while (take_request(connection, buffer)) {
        send_all(connection, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    }
} catch (const std::exception&) {
    // The client has closed the connection, which is no error.
}

void send_all(int connection, const std::string& bytes)
{
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t now = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (now <= 0)
            throw std::runtime_error("the other side is gone");
        sent += static_cast<std::size_t>(now);
    }
}

void read_answer(int connection)
{
    std::string answer;
    char piece[512];
    while (answer.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = recv(connection, piece, sizeof piece, 0);
        if (got <= 0)
            throw std::runtime_error("no answer");
        answer.append(piece, static_cast<std::size_t>(got));
    }
}

} // namespace bench
