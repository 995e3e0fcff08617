// analytics-collector serve: puts the rooms together, and takes them apart again when it is told to end.
#include "analytics.h"
#include "commands.h"
#include "log.h"
#include "settings.h"

#include "http/client.h"
#include "http/logouts.h"
#include "http/metrics.h"
#include "http/page.h"
#include "http/private_file.h"
#include "http/readiness.h"

#include <csignal>
#include <filesystem>
#include <iostream>
#include <malloc.h>
#include <memory>
#include <sodium.h>
#include <sys/stat.h>
#include <thread>

namespace commands {
namespace {

using namespace std::chrono;

/// A reason not to start.
struct Refusal : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// One listener for both: uploads by their paths, all else is the page's.
class Both final : public http::Service
{
public:
    Both(http::Service* uploads, http::Service* page) : m_uploads(uploads), m_page(page) {}

    std::optional<http::Answer> admit(const http::Request& head, uint64_t& body_limit) override
    {
        if (http::is_health(head.path))
            return body_limit = 0, std::nullopt;
        http::Service* service = service_of(head.path);
        if (service == nullptr)
            return http::sentence(404, "there is nothing at this address");
        return service->admit(head, body_limit);
    }

    void handle(http::Request request, http::Reply reply) override
    {
        if (http::is_health(request.path))
            return reply(m_health(request));
        http::Service* service = service_of(request.path);
        service->handle(std::move(request), std::move(reply));
    }

    void refused(const http::Request& head, const http::Answer& answer) override
    {
        if (http::Service* service = service_of(head.path))
            service->refused(head, answer);
    }

    void use_health(std::function<http::Answer(const http::Request&)> health) { m_health = std::move(health); }

private:
    http::Service* service_of(const std::string& path) const
    {
        return http::Uploads::is_upload(path) ? m_uploads : m_page;
    }
    http::Service* const m_uploads;
    http::Service* const m_page;
    std::function<http::Answer(const http::Request&)> m_health;
};

constexpr seconds least_keep(45);                 // what a node's system writes to the disk late, and a little more
constexpr int64_t least_cluster_age = 40 * 86400; // seconds

bool is_loopback(const std::string& address)
{
    return address.rfind("127.", 0) == 0 || address == "::1";
}

sigset_t awaited_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

/// What the store has on this machine: itself, or the spool in front of a cluster.
std::string local_file(const Settings& settings)
{
    return store::is_file(settings.store) ? settings.store : settings.cluster.options.spool;
}

std::unique_ptr<store::Store> open_store(const Settings& settings)
{
    std::error_code none; // what fails, open() tells
    std::filesystem::create_directories(std::filesystem::path(local_file(settings)).parent_path(), none);
    auto opened = store::open(settings.store, {store::Opening::serve, milliseconds(5000), settings.cluster.options});
    if (!opened)
        throw Refusal(opened.fault().text);
    return std::move(*opened);
}

template <class View>
View value_of(store::Result<View> result)
{
    if (!result)
        throw Refusal(result.fault().text);
    return std::move(*result);
}

void check(const Settings& settings)
{
    const http::Listen page = http::parse_listen(settings.page.empty() ? settings.listen : settings.page);
    if (!is_loopback(page.address) && settings.users.empty())
        throw Refusal("a page that others can reach needs a login: name a file of users with --users, made by "
                      "\"analytics-collector user add\"");
    if (settings.tls_certificate.empty() != settings.tls_key.empty())
        throw Refusal("--tls-cert and --tls-key go together");
    if (!store::is_file(settings.store) && age_of(settings.retain).value_or(least_cluster_age) < least_cluster_age)
        throw Refusal("a cluster keeps events for 40d at least: they go by whole weeks, once the figures that outlive "
                      "them are made");
}

/// Everything that runs, in the order in which it is made; it goes in the other.
class Serving
{
public:
    explicit Serving(const Settings& settings)
        : m_settings(settings),
          m_store(open_store(settings)),
          m_keys(settings.keys),
          m_users(settings.users),
          m_tokens(settings.tokens),
          m_logouts(logouts()),
          m_sessions(settings.secret.empty() ? http::passing_secret() : http::read_secret(settings.secret), m_users,
                     *m_logouts),
          m_writer(value_of(m_store->writing())),
          m_live(*m_store),
          m_uploads(m_writer, m_keys, settings.uploads, local_file(settings)),
          m_page(*m_store, m_writer, m_live, m_users, m_sessions, m_tokens, page_settings(), surroundings()),
          m_server(settings.server, normalized(settings.proxies)),
          m_shared(&m_uploads, &m_page),
          m_uploads_alone(&m_uploads, nullptr),
          m_page_alone(nullptr, &m_page)
    {
        if (!settings.tls_certificate.empty())
            m_server.use_tls(settings.tls_certificate, settings.tls_key);
        m_uploads.on_stored = [this] { m_live.wake(); };
        m_uploads.on_loopback_limit = [](const char* limit) {
            logging::say_seldom("warning", std::string(limit) +
                                               " was reached by an address of this machine; if a front server "
                                               "sends from there, name it with --proxy");
        };
        m_uploads.on_trouble = [](const std::string& text) { logging::say_seldom("error", text); };
        for (Both* service : {&m_shared, &m_uploads_alone, &m_page_alone})
            service->use_health(
                [this](const http::Request& request) { return http::readiness_answer(request, readiness()); });
        listen();
    }

    int run()
    {
        std::thread network([this] { m_server.run(); });
        logging::say("info", "serving", {{"store", m_settings.store}, {"version", ANALYTICS_VERSION}});
        wait_for_the_end();
        logging::say("info", "leaving");
        m_leaving = true;
        drain();
        m_server.stop();
        m_page.stop();
        network.join();
        m_uploads.stop();
        m_writer.stop();
        logging::say("info", "left", {{"uploads", std::to_string(m_uploads.counts().taken)}});
        return done;
    }

private:
    // A login outlives a restart only by --secret; then its end has to as well.
    std::unique_ptr<store::Logouts> logouts() const
    {
        if (auto shared = m_settings.secret.empty() ? nullptr : m_store->logouts())
            return shared;
        return std::make_unique<http::FileLogouts>(m_settings.secret.empty() ? ""
                                                                             : local_file(m_settings) + "-logouts");
    }

    http::PageSettings page_settings()
    {
        http::PageSettings settings;
        settings.hosts = m_settings.hosts;
        settings.metrics = [this] {
            return http::metrics(m_server.counts(), m_uploads, m_writer.status(), m_store->cluster_status());
        };
        return settings;
    }

    api::Surroundings surroundings()
    {
        return {ANALYTICS_VERSION, m_settings.store, [this] { return m_writer.status(); },
                [this] {
                    return http::health_json(m_server.counts(), m_uploads) +
                           (m_users.configured() ? ",\"login\":true" : ",\"login\":false");
                },
                [this] { return m_store->cluster_status(); }};
    }

    static std::vector<std::string> normalized(std::vector<std::string> proxies)
    {
        for (std::string& proxy : proxies) {
            const std::string address = http::normalized(proxy);
            if (address.empty())
                throw Refusal("--proxy takes an address, not " + proxy);
            proxy = address;
        }
        return proxies;
    }

    /// The lines on standard output are for people and scripts that wait for the server: they come once it listens.
    void listen()
    {
        const std::string scheme = m_settings.tls_certificate.empty() ? "http://" : "https://";
        const auto address = [&](const http::Listen& where) {
            const bool six = where.address.find(':') != std::string::npos;
            return scheme + (six ? "[" + where.address + "]" : where.address) + ":" + std::to_string(where.port);
        };
        const bool alone = !m_settings.page.empty();
        const http::Listen uploads =
            m_server.add(http::parse_listen(m_settings.listen), alone ? m_uploads_alone : m_shared);
        const http::Listen page = alone ? m_server.add(http::parse_listen(m_settings.page), m_page_alone) : uploads;
        std::cout << "uploads at " << address(uploads) << (m_keys.configured() ? "/u/KEY" : "/events") << "\n"
                  << "page at " << address(page) << "/" << std::endl;
    }

    http::Readiness readiness() const
    {
        return {m_leaving, m_writer.status(), m_store->cluster_status(), m_live.fault()};
    }

    void wait_for_the_end()
    {
        const sigset_t signals = awaited_signals();
        for (;;) {
            retain();
            const timespec hour{3600, 0};
            const int signal = sigtimedwait(&signals, nullptr, &hour);
            if (signal == SIGTERM || signal == SIGINT)
                return;
            if (signal == SIGHUP)
                reload();
        }
    }

    // A balancer that asks /healthz sends elsewhere before the door is closed; a second signal ends the wait.
    void drain()
    {
        sigset_t signals = awaited_signals();
        const timespec wait{static_cast<time_t>(m_settings.drain_seconds), 0};
        if (m_settings.drain_seconds != 0)
            sigtimedwait(&signals, nullptr, &wait);
    }

    void reload()
    {
        const std::string fault = m_server.reload_tls();
        if (fault.empty())
            logging::say("info", "read the certificate again");
        else
            logging::say("error", fault, {{"kept", "the certificate from before"}});
    }

    void retain()
    {
        const auto before = [](const std::string& age) -> std::optional<store::Milliseconds> {
            const auto seconds = age_of(age);
            const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
            return seconds ? std::optional<store::Milliseconds>(now - *seconds * 1000) : std::nullopt;
        };
        const store::Retention retention{before(m_settings.retain), before(m_settings.retain_rollups)};
        if (retention.raw_before || retention.rollups_before)
            m_writer.run([this, retention](store::Writing& writing) { retain_step(writing, retention); });
    }

    /// A little, then the uploads that wait, then a little more.
    void retain_step(store::Writing& writing, const store::Retention& retention)
    {
        const auto progress = writing.retain(retention);
        if (!progress)
            logging::say("error", "old events could not be deleted: " + progress.fault().text);
        else if (!progress->finished)
            m_writer.run([this, retention](store::Writing& again) { retain_step(again, retention); });
    }

    const Settings m_settings;
    std::atomic<bool> m_leaving{false};
    std::unique_ptr<store::Store> m_store;
    http::Keys m_keys;
    http::Users m_users;
    http::Tokens m_tokens;
    std::unique_ptr<store::Logouts> m_logouts;
    http::Sessions m_sessions;
    store::Writer m_writer;
    api::Live m_live;
    http::Uploads m_uploads;
    http::Page m_page;
    http::Server m_server;
    Both m_shared, m_uploads_alone, m_page_alone;
};

void prepare(Settings& settings)
{
    logging::use(settings.log == "json" ? logging::Format::json : logging::Format::text);
    if (settings.store.empty())
        settings.store = default_store();
    settings.cluster.options = cluster_options(settings.cluster, settings.secret);
    if (!store::is_file(settings.store) && settings.cluster.options.keep < least_keep)
        logging::say("warning", "with --keep below 45 s a cut of power may take lines that no spool has any more");
    settings.server.header = seconds(settings.header_seconds != 0 ? settings.header_seconds : 86400);
    // Bodies come and go: kept on the heap they would leave it in pieces, and the memory would never go back.
    mallopt(M_MMAP_THRESHOLD, 256 << 10);
    mallopt(M_ARENA_MAX, 2);
    const sigset_t signals = awaited_signals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // before any thread starts, so that all of them inherit it
    std::signal(SIGPIPE, SIG_IGN);
    umask(077);
    const uint64_t wanted = settings.server.connections != 0 ? settings.server.connections : 100000;
    const uint64_t left = http::Server::raise_descriptor_limit(wanted);
    if (left < wanted)
        logging::say("warning", "the system's limit on open files leaves room for fewer connections",
                     {{"connections", std::to_string(left)}});
}

int serve(Settings& settings)
{
    try {
        if (sodium_init() < 0)
            throw Refusal("the system gives no random numbers");
        prepare(settings);
        check(settings);
        return Serving(settings).run();
    } catch (const std::exception& error) {
        fail(error.what());
        return usage;
    }
}

} // namespace

void add_serve(CLI::App& program, int& status)
{
    const auto settings = std::make_shared<Settings>();
    CLI::App* command = program.add_subcommand("serve", "Takes uploads and shows them, until it is told to end.");
    add_settings(*command, *settings);
    command->callback([command, settings, &status] {
        read_config(*command, settings->config);
        status = serve(*settings);
    });
}

} // namespace commands
