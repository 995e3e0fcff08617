/// @file
/// The listeners and connections of the collector: sockets, TLS, deadlines and limits. Knows no event and no store.
///
/// One thread runs it all. Every step of a connection has a deadline of its own, so that a client that sends a byte a
/// second is dropped, and memory is charged as bytes arrive.
#pragma once

#include "message.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace http {

/// Where to listen.
struct Listen
{
    std::string address; ///< an IPv4 or IPv6 address, without brackets
    uint16_t port = 0;   ///< 0 takes a free one
};

/// Reads "ADDRESS:PORT" or "[ADDRESS]:PORT". @throws std::invalid_argument with a sentence
Listen parse_listen(const std::string& text);

struct ServerLimits
{
    unsigned connections = 10000;       ///< 0: no limit
    unsigned connections_address = 100; ///< of one client; 0: no limit
    std::chrono::seconds header{10};    ///< from the first byte to the blank line
    std::chrono::seconds idle{30};      ///< without a byte between two requests
    std::chrono::seconds body{60};      ///< for a body, however small; a larger one must come at bytes_per_second
    uint64_t bytes_per_second = 4096;   ///< what a body that takes longer must come at
    std::chrono::seconds leave{8};      ///< after stop(): what a request under way may still take
    uint64_t memory = 160u << 20;       ///< of all bodies in flight, bytes
};

/// What the server counts; read on any thread.
struct ServerCounts
{
    std::atomic<uint64_t> connections{0}; ///< open now
    std::atomic<uint64_t> accepted{0};
    std::atomic<uint64_t> refused_connections{0}; ///< closed for a limit
    std::atomic<uint64_t> late{0};                ///< dropped by a deadline
    std::atomic<uint64_t> cut{0};                 ///< bodies that made way for others
    std::atomic<uint64_t> memory{0};              ///< bytes of bodies in flight
};

class Server
{
public:
    struct State; ///< the sockets, in server.cpp alone

    /// @param proxies addresses whose X-Forwarded-For is believed
    Server(const ServerLimits& limits, std::vector<std::string> proxies);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// TLS for every listener, from PEM files. @throws std::runtime_error with a sentence
    void use_tls(const std::string& certificate_file, const std::string& key_file);
    /// Reads the PEM files again, for new connections; on failure the old ones stay. Any thread. @return the failure
    std::string reload_tls();
    /// Binds and listens; connections are taken once run() runs. @return the address with the port that was taken
    /// @throws std::runtime_error with a sentence
    Listen add(const Listen& where, Service& service);
    /// Serves until stop() and until every connection has ended.
    void run();
    /// Accepts no more, ends idle connections at once, lets requests under way finish. Any thread, any number of times.
    void stop();
    const ServerCounts& counts() const;
    /// The number of connections that the system's limit on descriptors leaves, after raising it as far as allowed.
    static uint64_t raise_descriptor_limit(uint64_t wanted);

private:
    std::unique_ptr<State> m_state;
};

} // namespace http
