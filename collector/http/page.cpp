#include "page.h"

#include "feed.h"

#include "intake/percent.h"
#include "web/assets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>

namespace http {
namespace {

constexpr uint64_t body_most = 64 << 10; // a login's form; nothing else the page takes has a body
constexpr size_t waiting_most = 200;
const std::string cookie_name = "analytics_session";

store::Seconds now()
{
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return text;
}

bool starts_with(const std::string& text, std::string_view beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

/// The host of a Host field, without its port, in lower case; brackets of an IPv6 address gone.
std::string host_of(const std::string& field)
{
    if (starts_with(field, "["))
        return field.substr(1, field.find(']') - 1);
    return lower(field.substr(0, field.find(':')));
}

bool is_address(const std::string& host)
{
    unsigned char bytes[16];
    return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

/// A page elsewhere can have a browser send requests here; what changes something must come from this page itself.
bool is_from_elsewhere(const Request& request)
{
    const std::string* origin = request.field("origin");
    const std::string* host = request.field("host");
    if (origin == nullptr)
        return false; // no browser, or one that asks by an ordinary link: SameSite keeps the login out of that
    const size_t scheme = origin->find("://");
    return scheme == std::string::npos || host == nullptr || lower(origin->substr(scheme + 3)) != lower(*host);
}

/// A front server before a page without login would show it to the world.
bool came_through_a_front_server(const Request& head)
{
    return std::any_of(head.fields.begin(), head.fields.end(), [](const auto& field) {
        return field.first == "forwarded" || field.first == "via" || starts_with(field.first, "x-forwarded-");
    });
}

std::string cookie_of(const Request& request)
{
    const std::string* cookies = request.field("cookie");
    std::string rest = cookies != nullptr ? *cookies : "";
    while (!rest.empty()) {
        const size_t end = std::min(rest.find(';'), rest.size());
        const std::string one = rest.substr(0, end);
        if (starts_with(one, cookie_name + "="))
            return one.substr(cookie_name.size() + 1, end - (cookie_name.size() + 1));
        rest.erase(0, end + 1);
        rest.erase(0, std::min(rest.find_first_not_of(' '), rest.size()));
    }
    return {};
}

std::string set_cookie(const Request& request, const std::string& secret)
{
    std::string field = cookie_name + "=" + secret + "; HttpOnly; SameSite=Strict; Path=/";
    if (request.is_tls)
        field += "; Secure";
    return secret.empty() ? field + "; Max-Age=0" : field;
}

Answer go_to(const char* where)
{
    Answer answer = sentence(303, std::string("see ") + where);
    answer.fields.emplace_back("Location", where);
    return answer;
}

// Scripts and styles from here alone and none within the page; no frame around it; nothing guessed about types.
void add_safeguards(Answer& answer)
{
    answer.fields.emplace_back("Content-Security-Policy",
                               "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'");
    answer.fields.emplace_back("X-Content-Type-Options", "nosniff");
    answer.fields.emplace_back("X-Frame-Options", "DENY");
    // Not no-referrer: with that a browser sends the login's form with "Origin: null", as if from elsewhere.
    answer.fields.emplace_back("Referrer-Policy", "same-origin");
    answer.fields.emplace_back("Cache-Control", "no-store");
}

/// A value of a login's form; empty when it is missing or broken.
std::string form_value(std::string_view body, std::string_view name)
{
    std::string value;
    while (!body.empty()) {
        const std::string_view field = body.substr(0, body.find('&'));
        body.remove_prefix(std::min(field.size() + 1, body.size()));
        if (field.substr(0, field.find('=')) == name && field.size() > name.size())
            intake::percent_decode(field.substr(name.size() + 1), value);
    }
    return value;
}

} // namespace

Page::Page(store::Store& store, store::Writer& writer, api::Live& live, Users& users, Sessions& sessions,
           const Tokens& tokens, const PageSettings& settings, const api::Surroundings& surroundings)
    : m_store(store),
      m_writer(writer),
      m_live(live),
      m_users(users),
      m_sessions(sessions),
      m_tokens(tokens),
      m_settings(settings),
      m_surroundings(surroundings),
      m_turns(settings.readers, waiting_most)
{}

void Page::stop()
{
    m_stop = true;
    m_turns.stop();
}

std::optional<Answer> Page::admit(const Request& head, uint64_t& body_limit)
{
    const std::string* field = head.field("host");
    const std::string host = field != nullptr ? host_of(*field) : std::string();
    std::optional<Answer> refused;
    // A page elsewhere can point its own name at this address and read the answers; under that name there is nothing.
    if (!is_address(host) && host != "localhost" &&
        std::find(m_settings.hosts.begin(), m_settings.hosts.end(), host) == m_settings.hosts.end())
        refused = sentence(421, "this page is not known by that name; see --host");
    else if (!m_users.configured() && came_through_a_front_server(head))
        refused = sentence(403, "a page behind a front server needs a login; see --users");
    else if (head.method != "GET" && head.method != "HEAD" && is_from_elsewhere(head))
        refused = sentence(403, "this request comes from another site");
    if (refused)
        add_safeguards(*refused);
    body_limit = body_most;
    return refused;
}

void Page::handle(Request request, Reply reply)
{
    const std::string client = request.client;
    const auto shared = std::make_shared<Request>(std::move(request));
    const bool queued = m_turns.add(client, [this, shared, reply] {
        Answer made;
        try {
            made = answer(*shared);
        } catch (const std::exception&) {
            made = sentence(500, "this question could not be answered");
        }
        add_safeguards(made);
        reply(std::move(made));
    });
    if (!queued)
        reply(try_again(503, 5, "too many questions wait; try again later"));
}

bool Page::is_let_in(const Request& request)
{
    const std::string* authorization = request.field("authorization");
    return !m_users.configured() || (authorization != nullptr && m_tokens.is_right(*authorization)) ||
           m_sessions.check(cookie_of(request), now());
}

Answer Page::answer(const Request& request)
{
    if (request.path == "/login" && request.method == "POST")
        return login(request);
    const bool is_open = request.path == "/login" || starts_with(request.path, "/assets/") ||
                         request.path == "/favicon.ico" || request.path == "/favicon.svg";
    if (!is_open && !is_let_in(request))
        return starts_with(request.path, "/api/") || request.path == "/metrics" ? sentence(401, "this needs a login")
                                                                                : go_to("/login");
    return inside(request);
}

Answer Page::inside(const Request& request)
{
    if (request.path == "/logout" && request.method == "POST")
        return logout(request);
    if (request.path == "/api/live")
        return live(request);
    if (starts_with(request.path, "/api/"))
        return asked(request);
    Answer answer = file(request);
    if (const auto session = m_sessions.check(cookie_of(request), now()); session && request.path == "/")
        if (const std::string later = m_sessions.renewed(*session, now()); !later.empty())
            answer.fields.emplace_back("Set-Cookie", set_cookie(request, later));
    return answer;
}

Answer Page::login(const Request& request)
{
    if (!m_users.configured())
        return go_to("/");
    if (!m_login_rate.take(request.client))
        return try_again(429, 10, "too many logins; try again later");
    const std::string name = form_value(request.body, "name");
    if (!m_users.is_right(name, form_value(request.body, "password")))
        return sentence(403, "this name and password are not known");
    Answer answer = go_to("/");
    answer.fields.emplace_back("Set-Cookie", set_cookie(request, m_sessions.open(name, now())));
    return answer;
}

Answer Page::logout(const Request& request)
{
    m_sessions.end(cookie_of(request), now());
    Answer answer = go_to(m_users.configured() ? "/login" : "/");
    answer.fields.emplace_back("Set-Cookie", set_cookie(request, ""));
    return answer;
}

Answer Page::file(const Request& request)
{
    if (request.method != "GET" && request.method != "HEAD") {
        Answer refused = sentence(405, "this address is only read");
        refused.fields.emplace_back("Allow", "GET, HEAD");
        return refused;
    }
    if (request.path == "/metrics" && m_settings.metrics) {
        Answer metrics{200, m_settings.metrics(), "text/plain; version=0.0.4; charset=utf-8", {}, {}, {}, false};
        return metrics;
    }
    const web::Asset* asset = web::asset(request.path == "/favicon.ico" ? "/favicon.svg" : request.path);
    if (asset == nullptr)
        return sentence(404, "there is nothing at this address");
    Answer answer;
    answer.type = asset->type;
    answer.body = asset->body;
    return answer;
}

Answer Page::live(const Request& request)
{
    auto feed = std::make_shared<Feed>();
    const bool listening = m_live.listen(request.query, feed, [weak = std::weak_ptr(feed)](std::string message) {
        if (const auto open = weak.lock())
            open->push(std::move(message));
    });
    if (!listening)
        return sentence(400, "these words are no question");
    Answer answer;
    answer.type = "text/event-stream";
    answer.feed = std::move(feed);
    return answer;
}

std::unique_ptr<api::Api> Page::view()
{
    {
        std::lock_guard hold(m_lock);
        if (!m_views.empty()) {
            auto view = std::move(m_views.back());
            m_views.pop_back();
            return view;
        }
    }
    auto reading = m_store.reading();
    return reading ? std::make_unique<api::Api>(m_store, std::move(*reading), &m_writer, m_surroundings) : nullptr;
}

Answer Page::asked(const Request& request)
{
    std::unique_ptr<api::Api> api = view();
    if (api == nullptr)
        return try_again(503, 5, "the store cannot be read now; try again later");
    const store::Limit limit{store::Clock::now() + m_settings.question, &m_stop};
    api::Answer given = api->answer(request.method, request.path, request.query, limit);
    {
        std::lock_guard hold(m_lock);
        m_views.push_back(std::move(api));
    }
    Answer answer;
    answer.status = given.status;
    answer.body = std::move(given.body);
    answer.type = std::move(given.type);
    answer.fields = std::move(given.fields);
    answer.more = std::move(given.more);
    return answer;
}

} // namespace http
