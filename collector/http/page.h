/// @file
/// The service behind the page's listener: who may look, the page's own files, the API, the live stream, metrics.
#pragma once

#include "message.h"
#include "rates.h"
#include "sessions.h"
#include "turns.h"
#include "users.h"

#include "api/api.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace http {

struct PageSettings
{
    std::vector<std::string> hosts;    ///< names under which the page may be asked for, beside addresses and localhost
    unsigned readers = 2;              ///< threads that ask the store
    std::chrono::seconds question{20}; ///< what one question may take
    std::function<std::string()> metrics; ///< in Prometheus' text format
};

class Page final : public Service
{
public:
    /// @param writer deletions go through it
    Page(store::Store& store, store::Writer& writer, api::Live& live, Users& users, Sessions& sessions,
         const Tokens& tokens, const PageSettings& settings, const api::Surroundings& surroundings);

    std::optional<Answer> admit(const Request& head, uint64_t& body_limit) override;
    void handle(Request request, Reply reply) override;
    /// Ends questions under way.
    void stop();

private:
    Answer answer(const Request& request);
    Answer inside(const Request& request);
    Answer asked(const Request& request);
    Answer file(const Request& request);
    Answer live(const Request& request);
    Answer login(const Request& request);
    Answer logout(const Request& request);
    bool is_let_in(const Request& request);
    std::unique_ptr<api::Api> view();

    store::Store& m_store;
    store::Writer& m_writer;
    api::Live& m_live;
    Users& m_users;
    Sessions& m_sessions;
    const Tokens& m_tokens;
    const PageSettings m_settings;
    const api::Surroundings m_surroundings;
    Rates m_login_rate{0.5};
    std::atomic<bool> m_stop{false};
    std::mutex m_lock;
    std::vector<std::unique_ptr<api::Api>> m_views; ///< that no thread uses now
    Turns m_turns;                                  ///< last: its threads use what stands above
};

} // namespace http
