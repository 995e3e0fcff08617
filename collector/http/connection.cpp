// Every coroutine of the collector stands here: each one costs seconds of compiling, and Beast's templates once more
// for every file that includes them.
//
// They take what is not trivial by reference, and each co_await stands in a statement of its own: g++ 12 copies the
// bytes of temporaries that live across one, which breaks every string among them.
#include "state.h"

#include "client.h"
#include "framing.h"

#include <algorithm>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <list>
#include <stdexcept>
#include <sys/resource.h>
#include <unordered_map>

namespace http {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace wire = boost::beast::http;
using asio::awaitable;
using asio::ip::tcp;
using Error = boost::system::error_code;
using Clock = std::chrono::steady_clock;
using PlainStream = beast::tcp_stream;
using TlsStream = beast::ssl_stream<beast::tcp_stream>;
using Parser = wire::request_parser<wire::buffer_body>;

namespace {

constexpr size_t header_limit = 16 << 10;
constexpr size_t piece = 64 << 10; // Beast reads 512 bytes at a time into a buffer that has no room yet
constexpr std::chrono::seconds write_time{30};
constexpr std::chrono::seconds drain_time{20};
constexpr uint64_t drain_most = 256u << 20;

template <class Stream>
PlainStream& lowest_of(Stream& stream)
{
    return beast::get_lowest_layer(stream);
}

/// One connection. The coroutines below share it; it goes when the last of them ends.
template <class Stream>
struct Connection
{
    Stream& stream;
    Server::State& server;
    Service& service;
    tcp::endpoint peer;
    beast::flat_buffer buffer{};
};

/// Turns a call that gives its answer on any thread into something to await here.
template <class Begin>
awaitable<void> answer_into(Answer& place, asio::io_context& io, Begin& begin)
{
    return asio::async_initiate<const asio::use_awaitable_t<>, void()>(
        [&io, &begin, &place](auto handler) {
            auto waiting = std::make_shared<decltype(handler)>(std::move(handler));
            auto work = asio::make_work_guard(io);
            begin([&io, &place, waiting, work](Answer answer) {
                asio::post(io, [&place, waiting, answer = std::move(answer)]() mutable {
                    place = std::move(answer);
                    (*waiting)();
                });
            });
        },
        asio::use_awaitable);
}

Request head_of(const Parser& parser, const tcp::endpoint& peer, const std::vector<std::string>& proxies)
{
    Request head;
    const auto& message = parser.get();
    head.method = std::string(message.method_string());
    const std::string_view target(message.target().data(), message.target().size());
    const size_t mark = target.find('?');
    head.path = target.substr(0, mark);
    if (mark != std::string_view::npos)
        head.query = target.substr(mark + 1);
    std::string forwarded;
    for (const auto& field : message) {
        std::string name(field.name_string());
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
        if (name == "x-forwarded-for")
            forwarded += (forwarded.empty() ? "" : ",") + std::string(field.value());
        head.fields.emplace_back(std::move(name), std::string(field.value()));
    }
    Client client = client_of(peer.address().to_string(), forwarded, proxies);
    head.client = std::move(client.address);
    head.is_loopback = client.is_loopback;
    return head;
}

// Writing answers.

wire::response<wire::string_body> response_of(const Answer& answer, unsigned version, bool keep_alive)
{
    wire::response<wire::string_body> response;
    response.version(version);
    response.result(static_cast<unsigned>(answer.status));
    response.set(wire::field::content_type, answer.type);
    for (const auto& [name, value] : answer.fields)
        response.insert(name, value);
    response.keep_alive(keep_alive);
    return response;
}

template <class Connection>
awaitable<bool> write_whole(Connection& connection, Answer& answer, unsigned version, bool keep_alive, bool head_only)
{
    auto response = response_of(answer, version, keep_alive);
    response.body() = std::move(answer.body);
    response.prepare_payload();
    if (head_only)
        response.body().clear(); // the length stays: RFC 9110, 9.3.2
    wire::response_serializer<wire::string_body> serializer(response);
    serializer.split(head_only);
    lowest_of(connection.stream).expires_after(write_time);
    Error error;
    if (head_only)
        co_await wire::async_write_header(connection.stream, serializer,
                                          asio::redirect_error(asio::use_awaitable, error));
    else
        co_await wire::async_write(connection.stream, serializer, asio::redirect_error(asio::use_awaitable, error));
    co_return !error;
}

template <class Connection>
awaitable<bool> write_text(Connection& connection, std::string_view text)
{
    lowest_of(connection.stream).expires_after(write_time);
    Error error;
    co_await asio::async_write(connection.stream, asio::buffer(text.data(), text.size()),
                               asio::redirect_error(asio::use_awaitable, error));
    co_return !error;
}

template <class Connection>
awaitable<bool> write_chunked_header(Connection& connection, const Answer& answer, unsigned version)
{
    auto response = response_of(answer, version, false);
    response.chunked(true);
    wire::response_serializer<wire::string_body> serializer(response);
    lowest_of(connection.stream).expires_after(write_time);
    Error error;
    co_await wire::async_write_header(connection.stream, serializer, asio::redirect_error(asio::use_awaitable, error));
    co_return !error;
}

std::string chunk(std::string_view text)
{
    char size[20];
    const int digits = std::snprintf(size, sizeof size, "%zx\r\n", text.size());
    return std::string(size, static_cast<size_t>(digits)).append(text).append("\r\n");
}

template <class Connection>
awaitable<void> write_in_pieces(Connection& connection, Answer& answer, unsigned version)
{
    auto& server = connection.server;
    const auto next_piece = [&server, &answer](Reply reply) {
        asio::post(server.long_answers, [more = answer.more, reply = std::move(reply)] {
            Answer part;
            try {
                part.body = more();
            } catch (const std::exception&) {
                part.status = 500; // the answer ends without its last chunk: the client sees that it is cut
            }
            reply(std::move(part));
        });
    };
    bool open = co_await write_chunked_header(connection, answer, version);
    while (open) {
        lowest_of(connection.stream).expires_never(); // the next piece may take its time
        Answer next;
        co_await answer_into(next, server.io, next_piece);
        if (next.status != 200)
            co_return;
        const std::string text = next.body.empty() ? "0\r\n\r\n" : chunk(next.body);
        open = co_await write_text(connection, text);
        open = open && !next.body.empty();
    }
}

/// Server-sent events until either side closes. A comment every 15 seconds shows that both are still there.
template <class Connection>
awaitable<void> write_feed(Connection& connection, Answer& answer, unsigned version)
{
    auto& server = connection.server;
    const std::shared_ptr<Feed> feed = answer.feed;
    auto timer = std::make_shared<asio::steady_timer>(server.io);
    feed->on_push([&io = server.io, timer] { asio::post(io, [timer] { timer->cancel(); }); });
    server.feeds.push_back(feed);
    bool open = co_await write_chunked_header(connection, answer, version);
    std::string text = ": open\n\n";
    while (open && !server.stopping) {
        text = chunk(text);
        open = co_await write_text(connection, text);
        lowest_of(connection.stream).expires_never();
        if ((text = feed->take()).empty() && !server.stopping) {
            timer->expires_after(std::chrono::seconds(15));
            Error woken;
            co_await timer->async_wait(asio::redirect_error(asio::use_awaitable, woken));
            if ((text = feed->take()).empty())
                text = ": still here\n\n";
        }
    }
    feed->on_push(nullptr);
    server.feeds.remove(feed);
}

/// Reads on and throws away, so that the client gets to read the answer that its body came too early for: closing with
/// unread bytes would reset the connection (RFC 9112, 9.6).
template <class Connection>
awaitable<void> drain(Connection& connection)
{
    auto& lowest = lowest_of(connection.stream);
    Error error;
    lowest.socket().shutdown(tcp::socket::shutdown_send, error);
    lowest.expires_after(drain_time);
    std::vector<char> rest(piece);
    for (uint64_t read = 0; !error && read < drain_most;)
        read += co_await lowest.async_read_some(asio::buffer(rest), asio::redirect_error(asio::use_awaitable, error));
}

// Reading requests.

enum class BodyEnd
{
    whole,
    refused, ///< with an answer
    gone     ///< the connection is
};

/// What a step of reading a body came to, when it is not to go on.
template <class Connection>
std::optional<BodyEnd> after_step(Connection& connection, const Error& error, bool fits, bool charged, Answer& refused)
{
    if (!fits)
        refused = sentence(413, "the body is larger than this server takes");
    else if (!charged)
        refused = try_again(503, 10, "too many uploads are on their way; try again later");
    else if (error == beast::error::timeout) {
        ++connection.server.counts.late;
        refused = sentence(408, "the body came too slowly");
    } else if (error && error != wire::error::need_buffer)
        return BodyEnd::gone;
    else
        return std::nullopt;
    return BodyEnd::refused;
}

template <class Connection>
awaitable<BodyEnd> read_body(Connection& connection, Parser& parser, uint64_t length, uint64_t limit,
                             Budget::Share& share, std::string& body, Answer& refused)
{
    auto& lowest = lowest_of(connection.stream);
    const ServerLimits& limits = connection.server.limits;
    const Clock::time_point begun = Clock::now();
    connection.buffer.reserve(piece);
    body.reserve(static_cast<size_t>(std::min(length, limit)));
    std::vector<char> part(piece);
    while (!parser.is_done()) {
        parser.get().body().data = part.data();
        parser.get().body().size = part.size();
        parser.get().body().more = true;
        // What has come pays for the time that the rest may take.
        const auto earned = std::chrono::seconds(body.size() / limits.bytes_per_second);
        lowest.expires_at(begun + std::max<Clock::duration>(limits.body, earned + limits.idle));
        Error error;
        co_await wire::async_read_some(connection.stream, connection.buffer, parser,
                                       asio::redirect_error(asio::use_awaitable, error));
        const size_t came = part.size() - parser.get().body().size;
        const bool fits = body.size() + came <= limit;
        const auto end = after_step(connection, error, fits, fits && share.charge(came), refused);
        if (end)
            co_return *end;
        body.append(part.data(), came);
    }
    co_return BodyEnd::whole;
}

enum class HeaderEnd
{
    whole,
    refused, ///< with an answer
    none     ///< no request came, or not in time
};

/// Waits for the first byte of a request. Ten thousand connections that wait must cost little, so the buffer is small.
template <class Connection>
awaitable<bool> await_request(Connection& connection)
{
    auto& lowest = lowest_of(connection.stream);
    auto& server = connection.server;
    connection.buffer.shrink_to_fit();
    connection.buffer.reserve(2048);
    lowest.expires_after(server.limits.idle);
    const auto place = server.idle.insert(server.idle.end(), &lowest);
    Error error;
    const size_t came = co_await connection.stream.async_read_some(connection.buffer.prepare(2048),
                                                                   asio::redirect_error(asio::use_awaitable, error));
    connection.buffer.commit(came);
    server.idle.erase(place);
    co_return !error;
}

/// What a header that could not be read is answered with.
HeaderEnd after_header(const Error& error, ServerCounts& counts, Answer& refused)
{
    if (!error)
        return HeaderEnd::whole;
    if (error == beast::error::timeout)
        ++counts.late;
    if (error == wire::error::header_limit)
        refused = sentence(431, "the header is larger than 16 KiB");
    else if (error.category() == wire::make_error_code(wire::error::bad_version).category() &&
             error != wire::error::end_of_stream && error != wire::error::partial_message)
        refused = sentence(400, "this is no HTTP request");
    else
        return HeaderEnd::none;
    return HeaderEnd::refused;
}

/// Waits for a request and reads its whole header.
template <class Connection>
awaitable<HeaderEnd> read_header(Connection& connection, Parser& parser, Answer& refused)
{
    if (connection.buffer.size() == 0) {
        const bool came = co_await await_request(connection);
        if (!came)
            co_return HeaderEnd::none;
    }
    lowest_of(connection.stream).expires_after(connection.server.limits.header);
    Error error;
    co_await wire::async_read_header(connection.stream, connection.buffer, parser,
                                     asio::redirect_error(asio::use_awaitable, error));
    co_return after_header(error, connection.server.counts, refused);
}

/// Whether the client waits for permission to send its body (RFC 9110, 10.1.1).
bool expects_continue(const Request& head)
{
    const std::string* expect = head.field("expect");
    return expect != nullptr && beast::iequals(*expect, "100-continue");
}

template <class Connection>
awaitable<void> refuse_and_close(Connection& connection, Answer& answer, unsigned version)
{
    const bool written = co_await write_whole(connection, answer, version, false, false);
    if (written)
        co_await drain(connection);
}

template <class Connection>
awaitable<bool> write_answer(Connection& connection, Answer& answer, unsigned version, bool keep_alive, bool head_only)
{
    bool open = false;
    if (answer.feed != nullptr)
        co_await write_feed(connection, answer, version);
    else if (answer.more)
        co_await write_in_pieces(connection, answer, version);
    else
        open = co_await write_whole(connection, answer, version, keep_alive, head_only);
    co_return open&& keep_alive;
}

template <class Connection>
bool is_let_in(Connection& connection, const Request& head, const Framing& framing, uint64_t& limit, Answer& refused)
{
    std::optional<Answer> answer, own;
    if (framing.fault != nullptr)
        own = sentence(400, framing.fault);
    else if (!(answer = connection.service.admit(head, limit)) && framing.length > limit)
        own = sentence(413, "the body is larger than this server takes");
    if (own)
        connection.service.refused(head, *own);
    if (answer || own)
        refused = std::move(own ? *own : *answer);
    return !answer && !own;
}

/// The whole of a request's body and the answer to it. True when the connection may serve another.
template <class Connection>
awaitable<bool> serve_body(Connection& connection, Parser& parser, Request& request, uint64_t length, uint64_t limit)
{
    auto& server = connection.server;
    const unsigned version = parser.get().version();
    Answer answer;
    Budget::Share share(server.budget, request.client, [&connection] { lowest_of(connection.stream).cancel(); });
    const BodyEnd end = co_await read_body(connection, parser, length, limit, share, request.body, answer);
    server.counts.memory = server.budget.used();
    server.counts.cut = server.budget.cuts();
    if (end == BodyEnd::refused) {
        connection.service.refused(request, answer);
        co_await refuse_and_close(connection, answer, version);
    }
    if (end != BodyEnd::whole)
        co_return false;
    share.settle();
    const bool head_only = request.method == "HEAD";
    lowest_of(connection.stream).expires_never();
    const auto handle = [&connection, &request](Reply reply) {
        connection.service.handle(std::move(request), std::move(reply));
    };
    co_await answer_into(answer, server.io, handle);
    const bool keep_alive = parser.get().keep_alive() && !answer.close && !server.stopping;
    const bool open = co_await write_answer(connection, answer, version, keep_alive, head_only);
    co_return open;
}

/// One request and its answer. True when the connection may serve another.
template <class Connection>
awaitable<bool> serve_one(Connection& connection)
{
    Parser parser;
    parser.header_limit(header_limit);
    parser.body_limit(std::numeric_limits<uint64_t>::max()); // none would refuse every body: the limit is ours
    Answer refused;
    const HeaderEnd end = co_await read_header(connection, parser, refused);
    if (end == HeaderEnd::refused)
        co_await refuse_and_close(connection, refused, 11);
    if (end != HeaderEnd::whole)
        co_return false;
    Request request = head_of(parser, connection.peer, connection.server.proxies);
    request.is_tls = std::is_same_v<decltype(connection.stream), TlsStream&>;
    const Framing framing = framing_of(request);
    uint64_t limit = 0;
    if (!is_let_in(connection, request, framing, limit, refused)) {
        co_await refuse_and_close(connection, refused, parser.get().version());
        co_return false;
    }
    if (expects_continue(request)) {
        const bool open = co_await write_text(connection, "HTTP/1.1 100 Continue\r\n\r\n");
        if (!open)
            co_return false;
    }
    const bool again = co_await serve_body(connection, parser, request, framing.length, limit);
    co_return again;
}

awaitable<bool> handshake(Connection<PlainStream>&)
{
    co_return true;
}

awaitable<bool> handshake(Connection<TlsStream>& connection)
{
    lowest_of(connection.stream).expires_after(connection.server.limits.header);
    Error error;
    co_await connection.stream.async_handshake(asio::ssl::stream_base::server,
                                               asio::redirect_error(asio::use_awaitable, error));
    co_return !error;
}

awaitable<void> goodbye(Connection<PlainStream>& connection)
{
    Error error;
    connection.stream.socket().shutdown(tcp::socket::shutdown_send, error);
    co_return;
}

awaitable<void> goodbye(Connection<TlsStream>& connection)
{
    lowest_of(connection.stream).expires_after(std::chrono::seconds(2));
    Error error;
    co_await connection.stream.async_shutdown(asio::redirect_error(asio::use_awaitable, error));
}

template <class Stream>
awaitable<void> serve(Stream& stream, Server::State& server, Service& service, tcp::endpoint peer)
{
    Connection<Stream> connection{stream, server, service, peer};
    bool open = co_await handshake(connection);
    const bool greeted = open;
    while (open)
        open = co_await serve_one(connection);
    if (greeted)
        co_await goodbye(connection);
}

/// Counts a connection for as long as it lives.
class Counted
{
public:
    Counted(Server::State& server, std::string client) : m_server(server), m_client(std::move(client))
    {
        ++m_server.counts.connections;
        ++m_server.by_client[m_client];
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted()
    {
        --m_server.counts.connections;
        const auto entry = m_server.by_client.find(m_client);
        if (--entry->second == 0)
            m_server.by_client.erase(entry);
    }
    static bool is_too_many(const Server::State& server, const std::string& client)
    {
        const ServerLimits& limits = server.limits;
        if (limits.connections != 0 && server.counts.connections >= limits.connections)
            return true;
        const auto entry = server.by_client.find(client);
        return limits.connections_address != 0 && entry != server.by_client.end() &&
               entry->second >= limits.connections_address;
    }

private:
    Server::State& m_server;
    const std::string m_client;
};

awaitable<void> serve_socket(tcp::socket socket, Server::State& server, Service& service, tcp::endpoint peer,
                             std::string client)
{
    const Counted counting(server, std::move(client));
    try {
        if (server.tls != nullptr) {
            const auto context = server.tls->context(); // outlives the stream that uses it
            TlsStream stream(PlainStream(std::move(socket)), *context);
            co_await serve(stream, server, service, peer);
        } else {
            PlainStream stream(std::move(socket));
            co_await serve(stream, server, service, peer);
        }
    } catch (const std::exception&) {
        // Memory ran out, or the peer's end came at an odd moment: this connection ends, the others go on.
    }
}

awaitable<void> accept(Server::State& server, Server::State::Listener& listener)
{
    asio::steady_timer pause(server.io);
    while (!server.stopping) {
        Error error;
        tcp::socket socket = co_await listener.acceptor.async_accept(asio::redirect_error(asio::use_awaitable, error));
        if (error && !server.stopping) { // no descriptor left: without a pause this loop would spin
            pause.expires_after(std::chrono::milliseconds(50));
            co_await pause.async_wait(asio::redirect_error(asio::use_awaitable, error));
            continue;
        }
        if (error)
            continue;
        ++server.counts.accepted;
        const tcp::endpoint peer = socket.remote_endpoint(error);
        std::string client = client_of(peer.address().to_string(), "", {}).address;
        // A trusted proxy carries many clients: its connections are bounded by the whole alone.
        const bool is_proxy = std::find(server.proxies.begin(), server.proxies.end(), client) != server.proxies.end();
        if (error || Counted::is_too_many(server, is_proxy ? std::string() : client)) {
            ++server.counts.refused_connections;
            continue; // closed by the socket's end
        }
        socket.set_option(tcp::no_delay(true), error);
        asio::co_spawn(server.io,
                       serve_socket(std::move(socket), server, listener.service, peer, is_proxy ? "" : client),
                       asio::detached);
    }
}

} // namespace

void begin_accepting(Server::State& server, Server::State::Listener& listener)
{
    asio::co_spawn(server.io, accept(server, listener), asio::detached);
}

} // namespace http
