#include "api.h"

#include "rows.h"
#include "words.h"

#include "store/members.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace api {

using namespace std::chrono_literals;

struct Live::State
{
    struct Listener
    {
        store::Query query;
        store::FactFilter fact;
        std::weak_ptr<void> alive;
        Push push;
    };

    std::unique_ptr<store::Reading> reading;
    store::Cursor at;
    std::mutex lock;
    std::condition_variable woken;
    bool has_news = false, stopping = false;
    bool looks_by_itself = false; ///< others store as well, and wake nobody here
    std::optional<store::Fault> fault;
    std::vector<Listener> listeners;
    std::thread thread;

    void work();
    bool wait();
    template <class T>
    void note(const store::Result<T>& result)
    {
        const std::vector<std::string> missing = reading->take_missing();
        std::lock_guard hold(lock);
        fault = result ? std::nullopt : std::optional(result.fault());
        if (!fault && !missing.empty())
            fault = {store::FaultKind::busy, missing.front()};
    }
    void pass_on(const std::vector<store::EventRow>& rows);
};

namespace {

bool matches(const store::Query& query, const store::EventRow& row)
{
    const auto is = [](const std::optional<std::string>& wanted, const std::string& text) {
        return !wanted || *wanted == text;
    };
    return row.logged_at >= query.from && row.logged_at < query.to && is(query.application, row.application) &&
           is(query.version, row.version) && is(query.installation, row.installation) &&
           (!query.name || (row.name && *query.name == *row.name));
}

} // namespace

/// Until something was stored while somebody listens. False when it is over.
bool Live::State::wait()
{
    std::unique_lock hold(lock);
    const auto is_over = [this] { return stopping || has_news; };
    if (looks_by_itself)
        woken.wait_for(hold, listeners.empty() ? 5s : 1s, is_over);
    else
        woken.wait(hold, is_over);
    has_news = false;
    std::erase_if(listeners, [](const Listener& listener) { return listener.alive.expired(); });
    return !stopping;
}

void Live::State::pass_on(const std::vector<store::EventRow>& rows)
{
    std::lock_guard hold(lock);
    for (const store::EventRow& row : rows) {
        std::string message;
        for (Listener& listener : listeners)
            if (matches(listener.query, row) && listener.fact.admits(row.members)) {
                if (message.empty())
                    message = "data: " + json_of(row) + "\n\n"; // JSON has no raw line feed
                listener.push(message);
            }
    }
}

// Nobody listening costs one look at the store's end. A burst is read in pieces; a reader that is too slow loses the
// oldest, which its feed counts.
void Live::State::work()
{
    store::Query all;
    all.limit = 1000;
    while (wait()) {
        bool nobody;
        {
            std::lock_guard hold(lock);
            nobody = listeners.empty();
        }
        if (nobody) {
            const auto end = reading->end({});
            note(end);
            at = end ? *end : at;
            continue;
        }
        for (bool more = true; more;) {
            const auto receipts = reading->receipts(all, at, {});
            note(receipts);
            if (!receipts)
                break; // looked at again when more is stored
            pass_on(receipts->rows);
            at = receipts->next;
            more = !receipts->at_end;
        }
    }
}

Live::Live(store::Store& store) : m_state(std::make_unique<State>())
{
    auto reading = store.reading();
    if (!reading)
        throw std::runtime_error(reading.fault().text);
    m_state->reading = std::move(*reading);
    m_state->looks_by_itself = store.has_other_writers();
    if (const auto end = m_state->reading->end({}))
        m_state->at = *end;
    m_state->thread = std::thread([state = m_state.get()] { state->work(); });
}

Live::~Live()
{
    {
        std::lock_guard hold(m_state->lock);
        m_state->stopping = true;
    }
    m_state->woken.notify_all();
    m_state->thread.join();
}

void Live::wake()
{
    {
        std::lock_guard hold(m_state->lock);
        m_state->has_news = true;
    }
    m_state->woken.notify_one();
}

std::optional<store::Fault> Live::fault() const
{
    std::lock_guard hold(m_state->lock);
    return m_state->fault;
}

bool Live::listen(std::string_view query, std::weak_ptr<void> alive, Push push)
{
    Words words;
    if (!read_words(query, words).empty())
        return false;
    std::lock_guard hold(m_state->lock);
    m_state->listeners.push_back({words.query, store::FactFilter(words.query.fact), std::move(alive), std::move(push)});
    return true;
}

} // namespace api
