/// @file
/// What passes between a connection and the services behind it: one request, one answer. No socket, no event.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace http {

class Feed;

using Fields = std::vector<std::pair<std::string, std::string>>;

/// One request as it came, body included once it is there.
struct Request
{
    std::string method;
    std::string path;         ///< of the target, as sent, without the query
    std::string query;        ///< what follows the "?", as sent
    Fields fields;            ///< names in lower case, in the order of the request
    std::string body;         ///< as sent: still compressed when Content-Encoding says so
    std::string client;       ///< the client's address, or the network that counts as one client (see client_of)
    bool is_loopback = false; ///< the client is this machine
    bool is_tls = false;

    /// The first field of that name (lower case); null when there is none.
    const std::string* field(std::string_view name) const;
    /// How many fields have that name.
    size_t count(std::string_view name) const;
};

/// One answer. Either `body`, or `more` (a long answer in pieces), or `feed` (server-sent events without an end).
struct Answer
{
    int status = 200;
    std::string body;
    std::string type = "text/plain; charset=utf-8";
    Fields fields;                          ///< further header fields
    std::function<std::string()> more = {}; ///< called for the next piece, off the network thread; empty ends it
    std::shared_ptr<Feed> feed = {};        ///< messages are sent as they come, until either side closes
    bool close = false;                     ///< the connection ends after this answer
};

/// One sentence as an answer; a line feed is added.
Answer sentence(int status, std::string_view text);
/// The same with Retry-After.
Answer try_again(int status, unsigned seconds, std::string_view text);

/// Gives the answer to a request: exactly one call, on any thread.
using Reply = std::function<void(Answer)>;

/// What a listener serves. Called on the network thread, so neither call may wait or compute for long.
class Service
{
public:
    virtual ~Service() = default;
    /// Looks at a request before its body is read: an answer refuses it, none lets the body come.
    /// @param body_limit what the body may have at most, in bytes; to be set where the body is let in
    virtual std::optional<Answer> admit(const Request& head, uint64_t& body_limit) = 0;
    /// Takes a request with its whole body.
    virtual void handle(Request request, Reply reply) = 0;
    /// Told of a request that the connection itself refused: a broken frame, a body too large, too slow or of too many.
    virtual void refused(const Request&, const Answer&) {}
};

} // namespace http
