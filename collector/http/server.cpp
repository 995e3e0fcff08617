#include "state.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <stdexcept>
#include <sys/resource.h>

namespace http {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

Server::Server(const ServerLimits& limits, std::vector<std::string> proxies)
    : m_state(std::make_unique<State>(limits, std::move(proxies)))
{}

Server::~Server() = default;

void Server::use_tls(const std::string& certificate_file, const std::string& key_file)
{
    m_state->tls = std::make_unique<Tls>(certificate_file, key_file);
}

std::string Server::reload_tls()
{
    return m_state->tls != nullptr ? m_state->tls->reload() : std::string();
}

Listen Server::add(const Listen& where, Service& service)
{
    try {
        const tcp::endpoint endpoint(asio::ip::make_address(where.address), where.port);
        tcp::acceptor acceptor(m_state->io, endpoint, true);
        const uint16_t port = acceptor.local_endpoint().port();
        m_state->listeners.push_back({std::move(acceptor), service});
        return {where.address, port};
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("cannot listen on " + where.address + " port " + std::to_string(where.port) + ": " +
                                 error.code().message());
    }
}

void Server::run()
{
    for (State::Listener& listener : m_state->listeners)
        begin_accepting(*m_state, listener);
    m_state->io.run();
}

namespace {

// Ends the wait of stop() as soon as the last connection has gone.
void leave_once_empty(Server::State& state, const std::shared_ptr<asio::steady_timer>& timer)
{
    if (state.counts.connections == 0) {
        state.leave_timer->cancel();
        return;
    }
    timer->expires_after(std::chrono::milliseconds(20));
    timer->async_wait([&state, timer](const Error&) { leave_once_empty(state, timer); });
}

} // namespace

void Server::stop()
{
    asio::post(m_state->io, [state = m_state.get()] {
        if (std::exchange(state->stopping, true))
            return;
        for (State::Listener& listener : state->listeners)
            listener.acceptor.close();
        for (auto* stream : state->idle)
            stream->cancel();
        for (const auto& feed : state->feeds)
            feed->push("");
        state->leave_timer = std::make_unique<asio::steady_timer>(state->io, state->limits.leave);
        // Waits as long as there are connections; after that whoever is left is cut.
        state->leave_timer->async_wait([state](const Error& error) {
            if (!error && state->counts.connections > 0)
                state->io.stop();
        });
        leave_once_empty(*state, std::make_shared<asio::steady_timer>(state->io));
    });
}

const ServerCounts& Server::counts() const
{
    return m_state->counts;
}

uint64_t Server::raise_descriptor_limit(uint64_t wanted)
{
    constexpr uint64_t own = 64; // the store, the log, the listeners, the readers
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return wanted;
    if (limit.rlim_cur < wanted + own && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, wanted + own);
        setrlimit(RLIMIT_NOFILE, &limit);
        getrlimit(RLIMIT_NOFILE, &limit);
    }
    return limit.rlim_cur < wanted + own ? limit.rlim_cur - std::min<rlim_t>(limit.rlim_cur, own) : wanted;
}

Listen parse_listen(const std::string& text)
{
    const auto wrong = [&] { return std::invalid_argument("\"" + text + "\" is no ADDRESS:PORT"); };
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 1 == text.size())
        throw wrong();
    Listen listen{text.substr(0, colon), 0};
    if (listen.address.size() > 1 && listen.address.front() == '[' && listen.address.back() == ']')
        listen.address = listen.address.substr(1, listen.address.size() - 2);
    if (listen.address == "localhost")
        listen.address = "127.0.0.1";
    unsigned long port = 65536;
    if (text.find_first_not_of("0123456789", colon + 1) == std::string::npos && text.size() - colon <= 6)
        port = std::stoul(text.substr(colon + 1));
    Error error;
    asio::ip::make_address(listen.address, error);
    if (error || port > 65535)
        throw wrong();
    listen.port = static_cast<uint16_t>(port);
    return listen;
}

} // namespace http
