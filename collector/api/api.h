/// @file
/// The questions that the page and scripts ask by HTTP: an address and query words in, JSON out. No socket, no SQL.
#pragma once

#include "store/store.h"
#include "store/writer.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace api {

/// An answer as HTTP has it. Either `body`, or `more`: called for the next piece until it gives an empty one.
struct Answer
{
    int status = 200;
    std::string body;
    std::string type = "application/json";
    std::vector<std::pair<std::string, std::string>> fields;
    std::function<std::string()> more = {};
};

/// What the process around the API knows and the store does not: shown by /api/health.
struct Surroundings
{
    std::string version;       ///< of this program
    std::string store_address; ///< as given to store::open
    std::function<store::WriterStatus()> writer;
    std::function<std::string()> more_json; ///< members for /api/health, such as `"uploads":{...}`; may be empty
    std::function<std::optional<store::ClusterStatus>()> cluster = {};
};

/// Answers questions. One object for each thread that asks; it owns its view of the store.
class Api
{
public:
    /// @param store   for long answers, which take a view of their own @param writer deletions go through it; null:
    /// they
    ///                are refused
    Api(store::Store& store, std::unique_ptr<store::Reading> reading, store::Writer* writer,
        const Surroundings& surroundings);
    ~Api();

    /// @param path  as sent, "/api/..." @param query what follows the "?", percent-encoded
    /// @return 404 for an address that is none, 405, 400 with a sentence for words that are none, 503 with Retry-After
    ///         when the store is busy or time ran out
    Answer answer(std::string_view method, std::string_view path, std::string_view query, const store::Limit& limit);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// The live stream: follows the store and gives each listener the new events that match its words.
class Live
{
public:
    using Push = std::function<void(std::string)>; ///< a whole message of server-sent events; called on Live's thread

    /// Starts the thread. @throws std::runtime_error when the store gives no view
    explicit Live(store::Store& store);
    ~Live();
    Live(const Live&) = delete;
    Live& operator=(const Live&) = delete;

    /// Something was stored. Any thread; never waits.
    void wake();
    /// @param query as in Api::answer @return false when its words are none
    bool listen(std::string_view query, std::weak_ptr<void> alive, Push push);
    /// Why the store could not be read when it was looked at last; none when it could. Any thread.
    std::optional<store::Fault> fault() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace api
