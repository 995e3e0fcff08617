// A TCP server whose every byte the test decides, for what no well-behaved server does.
#pragma once

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
        /// 1 for the first connection, 2 for the next ...
        int number() const { return m_number; }
        /// Reads one request: headers, and the body by its Content-Length or chunks. False when the client left first.
        bool read_request();
        /// What read_request() read last.
        const std::string& request() const { return m_request; }
        /// Reads what comes next, at most `most` bytes; empty when the client has closed.
        std::string read_some(size_t most = 65536);
        /// False when the client does not take it any more.
        bool send(std::string_view text);
        /// One byte at a time with a pause after each; ends early when the client or the server goes.
        bool drip(std::string_view text, milliseconds pause);
        /// Says nothing more until the client goes (true) or the server is stopped (false).
        bool hang();
        /// Ends the connection with a reset rather than an orderly close.
        void reset();

    private:
        friend class RawServer;
        Connection(RawServer& server, int socket, int number) : m_server(server), m_socket(socket), m_number(number) {}
        bool more();

        RawServer& m_server;
        int m_socket;
        int m_number;
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

    int port() const { return m_port; }
    std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const;
    int connections() const { return m_connections; }
    /// Every request that was read whole, in order.
    std::vector<std::string> requests() const;
    bool wait_for_connections(int count, milliseconds limit = patience) const;

private:
    void accept_all();
    void run_script(int socket, int number);
    bool readable(int socket, milliseconds limit) const;

    Script m_script;
    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    int m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_connections{0};
    mutable std::mutex m_lock;
    std::vector<std::string> m_requests;
    std::vector<std::thread> m_threads; // of the acceptor's alone until it has been joined
    std::thread m_acceptor;
};

} // namespace support
