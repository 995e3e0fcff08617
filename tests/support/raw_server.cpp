#include "support/raw_server.h"

#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

using Connection = RawServer::Connection;

RawServer::RawServer(Script script) : m_script(std::move(script))
{
    if (listen(m_listener.socket(), 128) != 0 || pipe2(m_wake, O_CLOEXEC) != 0)
        throw std::runtime_error("the raw server cannot listen");
    m_acceptor = std::thread([this] { accept_all(); });
}

RawServer::RawServer(std::string reply)
    : RawServer([reply = std::move(reply)](Connection& client) {
          if (client.read_request())
              client.send(reply);
      })
{}

RawServer::~RawServer()
{
    m_stopping = true;
    close(m_wake[1]); // every poll() of ours sees the other end hang up
    m_acceptor.join();
    for (std::thread& thread : m_threads)
        thread.join();
    close(m_wake[0]);
}

// False when the limit is over or the server is to stop.
bool RawServer::ready(int socket, short events, milliseconds limit) const
{
    pollfd ends[] = {{socket, events, 0}, {m_wake[0], POLLIN, 0}};
    poll(ends, 2, static_cast<int>(limit.count()));
    return !m_stopping && ends[0].revents != 0;
}

void RawServer::accept_all()
{
    while (!m_stopping) {
        if (!ready(m_listener.socket(), POLLIN))
            continue;
        const int socket = accept4(m_listener.socket(), nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0) {
            ++m_connections;
            m_threads.emplace_back([this, socket] { run_script(socket); });
        }
    }
}

void RawServer::run_script(int socket)
{
    Connection connection(*this, socket);
    m_script(connection);
    // What the client still sends would turn an orderly close into a reset that may overtake the reply.
    if (connection.m_socket >= 0) {
        shutdown(socket, SHUT_WR);
        while (ready(socket, POLLIN, milliseconds(200)) && !connection.read_some().empty()) {
        }
        close(socket);
    }
}

std::vector<std::string> RawServer::requests() const
{
    std::lock_guard hold(m_lock);
    return m_requests;
}

bool RawServer::wait_for_connections(int count, milliseconds limit) const
{
    return wait_until([&] { return connections() >= count; }, limit);
}

std::string Connection::read_some(size_t most)
{
    if (m_unread.empty() && !more())
        return {};
    std::string piece = m_unread.substr(0, most);
    m_unread.erase(0, piece.size());
    return piece;
}

namespace {

// How many bytes of the text make one whole request; npos while some are missing.
size_t whole_request(const std::string& text)
{
    size_t body = text.find("\r\n\r\n");
    if (body == text.npos)
        return text.npos;
    body += 4;
    std::string head = text.substr(0, body);
    std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return std::tolower(c); });
    size_t length = head.find("\r\ncontent-length:");
    size_t size = length == head.npos ? 0 : std::stoul(head.substr(length + 17));
    return text.size() < body + size ? text.npos : body + size;
}

} // namespace

bool Connection::more()
{
    std::string piece(65536, '\0');
    if (m_socket < 0 || !m_server.ready(m_socket, POLLIN))
        return false;
    ssize_t count = recv(m_socket, piece.data(), piece.size(), 0);
    if (count <= 0)
        return false;
    m_unread.append(piece, 0, static_cast<size_t>(count));
    return true;
}

bool Connection::read_request()
{
    size_t size;
    while ((size = whole_request(m_unread)) == std::string::npos) {
        if (!more())
            return false;
    }
    m_request = m_unread.substr(0, size);
    m_unread.erase(0, size);
    std::lock_guard hold(m_server.m_lock);
    m_server.m_requests.push_back(m_request);
    return true;
}

bool Connection::send(std::string_view text)
{
    while (!text.empty() && m_socket >= 0) {
        if (!m_server.ready(m_socket, POLLOUT))
            return false;
        ssize_t count = ::send(m_socket, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count <= 0)
            return false;
        text.remove_prefix(static_cast<size_t>(count));
    }
    return m_socket >= 0;
}

void Connection::drip(std::string_view text, milliseconds pause)
{
    for (char byte : text) {
        if (!send({&byte, 1}))
            return;
        m_server.ready(-1, 0, pause); // a pause that the end of the server cuts short
    }
}

void Connection::hang()
{
    while (more())
        m_unread.clear();
}

void Connection::reset()
{
    linger hard{1, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    close(m_socket);
    m_socket = -1;
}

} // namespace support
