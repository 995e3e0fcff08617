// A TCP server whose every byte the test decides, for what no well-behaved server does.
#pragma once

#include "support/ports.h"
#include "support/wait.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

class RawServer
{
public:
    /// One accepted connection, as the script sees it. When the script returns, the connection is closed.
    class Connection
    {
    public:
        /// Reads one request: headers, and the body by its Content-Length. False when the client left first.
        bool read_request();
        /// What read_request() read last.
        const std::string& request() const { return m_request; }
        /// Reads what comes next, at most `most` bytes; empty when the client has closed.
        std::string read_some(size_t most = 65536);
        /// False when the client does not take it any more.
        bool send(std::string_view text);
        /// One byte at a time with a pause after each; ends early when the client or the server goes.
        void drip(std::string_view text, milliseconds pause);
        /// Says nothing more until the client goes or the server is stopped.
        void hang();
        /// Ends the connection with a reset rather than an orderly close.
        void reset();
        int socket() const { return m_socket; }
        bool is_server_stopping() const { return m_server.m_stopping; }

    private:
        friend class RawServer;
        Connection(RawServer& server, int socket) : m_server(server), m_socket(socket) {}
        bool more();

        RawServer& m_server;
        int m_socket;
        std::string m_unread;
        std::string m_request;
    };

    /// Runs for each connection, on a thread of its own.
    using Script = std::function<void(Connection&)>;

    explicit RawServer(Script script);
    /// Reads a request, sends these bytes, closes.
    explicit RawServer(std::string reply);
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    int port() const { return m_listener.port(); }
    std::string text() const { return m_listener.text(); }
    std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const
    {
        return m_listener.url(path, host);
    }
    int connections() const { return m_connections; }
    /// Every request that was read whole, in order.
    std::vector<std::string> requests() const;
    bool wait_for_connections(int count, milliseconds limit = patience) const;

private:
    void accept_all();
    void run_script(int socket);
    bool ready(int socket, short events, milliseconds limit = patience) const;

    Script m_script;
    HeldPort m_listener;
    int m_wake[2] = {-1, -1};
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_connections{0};
    mutable std::mutex m_lock;
    std::vector<std::string> m_requests;
    std::vector<std::thread> m_threads; // of the acceptor's alone until it has been joined
    std::thread m_acceptor;
};

} // namespace support
