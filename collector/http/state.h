/// @file
/// What the listeners and connections of one server share: one thread's sockets, limits and counts.
#pragma once

#include <utility> // before Boost 1.74's coroutine headers, which use std::exchange without it

#include "budget.h"
#include "feed.h"
#include "server.h"
#include "tls.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <list>
#include <unordered_map>

namespace http {

struct Server::State
{
    State(const ServerLimits& server_limits, std::vector<std::string> trusted)
        : limits(server_limits), proxies(std::move(trusted)), budget(server_limits.memory), long_answers(1)
    {}

    struct Listener
    {
        boost::asio::ip::tcp::acceptor acceptor;
        Service& service;
    };

    const ServerLimits limits;
    std::vector<std::string> proxies;
    Budget budget;
    ServerCounts counts;
    std::unique_ptr<Tls> tls;
    std::unordered_map<std::string, unsigned> by_client;
    std::list<boost::beast::tcp_stream*> idle; ///< connections between two requests, which stop() ends at once
    std::list<std::shared_ptr<Feed>> feeds;
    bool stopping = false;
    /// Its end destroys the coroutines of connections that were cut at the end of the leave, and those use all above.
    boost::asio::io_context io{1};
    std::list<Listener> listeners;
    boost::asio::thread_pool long_answers; ///< makes the pieces of long answers
    std::unique_ptr<boost::asio::steady_timer> leave_timer;
};

/// Takes the listener's connections until the server stops; the calls are made by its thread, in run().
void begin_accepting(Server::State& server, Server::State::Listener& listener);

} // namespace http
