// analytics send: uploads an event log file now, and prints the outcome.
#include "commands.h"
#include "table.h"
#include "terminal.h"
#include "wire_line.h"

#include "analytics.hpp"

#include "AnalyticsSDK/ProxyUtilities.h"
#include "AnalyticsSDK/WebClient.h"
#include "UploadForm.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace commands {

namespace {

struct Options
{
    std::string file = "events.log";
    std::string url;
    std::string unique_id;
    std::string application_version;
    std::string certificate_file;
    bool keep = false;
    bool batches = false;
    unsigned wait_s = 60;
};

// On a terminal, one line that counts the seconds for as long as this object lives; elsewhere one line is enough.
class Working
{
public:
    explicit Working(const std::string& what)
    {
        if (unsigned columns = terminal::error_width()) {
            // A longer line would wrap and stay; " 123456 s" fits behind.
            m_what = table::cut(what, std::max(columns, 20u) - 10);
            show(0);
            m_thread = std::thread([this] { count(); });
        } else {
            std::cerr << what << std::endl;
        }
    }

    ~Working()
    {
        if (!m_thread.joinable())
            return;
        {
            std::lock_guard hold(m_lock);
            m_over = true;
        }
        m_changed.notify_one();
        m_thread.join();
        std::cerr << "\r\x1b[K" << std::flush;
    }

private:
    void show(int seconds) const
    {
        std::cerr << "\r\x1b[K" << m_what << (seconds ? " " + std::to_string(seconds) + " s" : "") << std::flush;
    }

    void count()
    {
        std::unique_lock hold(m_lock);
        for (int second = 1; !m_changed.wait_for(hold, std::chrono::seconds(1), [this] { return m_over; }); ++second)
            show(second);
    }

    std::string m_what;
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_over = false;
    std::thread m_thread;
};

// The id and the version that the upload goes under are those of the first event, unless they are given.
bool complete(Options& options, const std::string& text)
{
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view one = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(one.size() + 1, rest.size()));
        wire::Line line;
        if (wire::read_line(one, line))
            continue;
        if (options.unique_id.empty())
            options.unique_id = wire::unquoted(line.unique_id);
        if (options.application_version.empty())
            options.application_version = wire::unquoted(line.application_version);
        break;
    }
    return !options.unique_id.empty();
}

AnalyticsSDK::UploadFields form_of(const Options& options, const std::string& text)
{
    namespace field = AnalyticsSDK::UploadField;
    return {{field::data, text},
            {field::unique_id, options.unique_id},
            {field::token, AnalyticsSDK::UploadToken(options.unique_id.c_str())},
            {field::version, options.application_version}};
}

bool append(const std::string& path, std::string_view text)
{
    int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    bool whole = file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0)
        close(file);
    return whole;
}

// Lines that were appended during the upload are kept: the file is moved aside, so that no host writes to it any more,
// and what it holds beyond the sent text is written back. That is all of it when a host has uploaded and deleted the
// file meanwhile and begun a new one.
bool remove_sent(const std::string& path, const std::string& sent)
{
    std::string aside = path + ".sent-" + std::to_string(getpid()), text;
    if (std::rename(path.c_str(), aside.c_str()) != 0)
        return errno == ENOENT ||
               (terminal::error(path + ": sent, but it cannot be removed: " + std::strerror(errno)), false);
    if (!terminal::read_file(aside, text))
        return false;
    std::string_view rest = text;
    if (rest.substr(0, sent.size()) == sent)
        rest.remove_prefix(sent.size());
    if (!rest.empty() && !append(path, rest))
        return terminal::error("events that came during the upload stand at the end of " + aside), false;
    return std::remove(aside.c_str()) == 0;
}

// "1 event (155 bytes)"
std::string amount(const std::string& text)
{
    auto lines = std::count(text.begin(), text.end(), '\n') + (text.back() != '\n');
    return std::to_string(lines) + (lines == 1 ? " event (" : " events (") + std::to_string(text.size()) + " bytes)";
}

std::string reason(long http_status, const std::string& network)
{
    if (http_status >= 400)
        return "the server answered " + std::to_string(http_status);
    if (network.find("certificate") != network.npos)
        return network + " (--certificates FILE names the authorities to trust)";
    return network.empty() ? "no reason is known" : network;
}

// Output may end up in logs, so it must not contain a login. A password may hold any character, "/" and "@" included,
// so all before the last "@" is left out, but for a scheme.
std::string without_login(std::string url)
{
    const size_t at = url.rfind('@'), colon = url.find_first_of(":/@");
    const size_t start = url.compare(std::min(colon, url.size()), 3, "://") == 0 ? colon + 3 : 0;
    return at == url.npos || at < start ? url : url.replace(start, at - start, "*****");
}

int send(const Options& options, const std::string& text)
{
    auto form = form_of(options, text);
    std::string what = amount(text) + " to " + wire::printable(without_login(options.url));
    AnalyticsSDK::CProxyManager no_proxies; // without a manager libcurl would obey http_proxy
    AnalyticsSDK::WebClient client;
    client.SetProxyManager(&no_proxies);
    client.SetCertificateFile(options.certificate_file.c_str());
    long http_status = 0;
    bool taken;
    {
        Working working("sending " + what);
        taken = client.ExecRequest(options.url.c_str(), nullptr, http_status, AnalyticsSDK::RequestTypePost, &form);
    }
    if (!taken)
        return terminal::error("sending failed: " + reason(http_status, client.GetLastError())), failed;
    std::cout << "sent " << what << "; the server answered " << http_status << std::endl;
    return options.keep || options.file == "-" || remove_sent(options.file, text) ? done : failed;
}

// A session of the command's own takes the file over and sends it, and whatever hosts have left beside it: servers
// that know batches keep each line once, however often this is repeated.
int send_in_batches(Options options)
{
    std::string text;
    if (options.file == "-" || options.keep)
        return terminal::error("--batches moves the file into batches: it takes neither - nor --keep"), failed;
    if (access(options.file.c_str(), F_OK) == 0 && !terminal::read_file(options.file, text))
        return failed;
    complete(options, text); // batches may wait where no file does
    analytics::settings settings;
    settings.upload_url = options.url;
    settings.event_log_file = options.file;
    settings.unique_id = options.unique_id;
    settings.application_version = options.application_version;
    settings.certificate_file = options.certificate_file;
    analytics::session session(settings);
    auto result = session.set_option("delivery", "batches");
    if (result != analytics::result::ok)
        return terminal::error(options.file + ": batches cannot be named after it"), failed;
    {
        Working working("sending what waits in " + options.file + " to " + wire::printable(without_login(options.url)));
        result = session.send_for(std::chrono::seconds(options.wait_s));
    }
    const analytics_stats stats = session.stats();
    std::cout << "sent " << stats.events_delivered << " events in " << stats.requests << " requests; "
              << stats.bytes_waiting << " bytes wait" << std::endl;
    if (result == analytics::result::ok)
        return done;
    const std::string why = session.last_error();
    return terminal::error("sending failed: " + (why.empty() ? analytics::text(result) : why)), failed;
}

int run(Options options)
{
    std::string text;
    if (options.batches)
        return send_in_batches(options);
    if (!terminal::read_file(options.file, text))
        return failed;
    if (text.empty()) {
        std::cout << wire::printable(options.file) << " holds no events" << std::endl;
        return done;
    }
    if (text.find('\0') != text.npos)
        return terminal::error(options.file + " holds a NUL byte: it is no event log file"), failed;
    if (!complete(options, text))
        return terminal::error("no event says whose id this is; give it with --id"), failed;
    return send(options, text);
}

} // namespace

void add_send(CLI::App& program, int& status)
{
    auto options = std::make_shared<Options>();
    CLI::App* word = program.add_subcommand("send", "Upload an event log file, and remove it once the server took it.");
    word->add_option("FILE", options->file, "the event log file; - is standard input")->capture_default_str();
    word->add_option("--url", options->url, "the collection server's address")->required();
    word->add_option("--id", options->unique_id, "the unique id (default: the first event's)");
    word->add_option("--app-version", options->application_version, "the version (default: the first event's)");
    word->add_option("--certificates", options->certificate_file,
                     "certificate authorities (PEM) for https (default: cacert.pem beside the command)");
    word->add_flag("--keep", options->keep, "leave the file as it is");
    word->add_flag("--batches", options->batches, "send in batches, with those that wait beside the file");
    word->add_option("--wait", options->wait_s, "with --batches: seconds at most")->check(CLI::Range(1u, 86400u));
    word->callback([options, &status] { status = run(*options); });
}

} // namespace commands
