// A small collection server: takes uploads on a loopback port that it picks itself, checks their tokens, and prints the
// events as a table. SIGINT or SIGTERM ends it, with a sum of what it received.
//
// For one machine and for looking at what the library sends; a server that faces a network needs more than this.
#include "AnalyticsSDK/Identity.h"
#include "UploadForm.h"
#include "form.h"
#include "repetition.h"
#include "table.h"
#include "wire_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <fstream>
#include <httplib.h>
#include <iostream>
#include <mutex>
#include <thread>

namespace {

namespace field = AnalyticsSDK::UploadField;
using collector::Form;
using collector::hex_digit;
using collector::parse_form;

struct Options
{
    std::string url_file;
    std::string events_file;
    unsigned idle_seconds = 0;
    bool strict = false;
    bool is_online = false;
};

// The token is a salted hash of the unique id, so that it differs in every upload and can only be tested.
bool token_is_good(const std::string& unique_id, const std::string& token)
{
    std::vector<unsigned char> record;
    for (size_t i = 0; i + 1 < token.size(); i += 2) {
        int high = hex_digit(token[i]), low = hex_digit(token[i + 1]);
        if (high < 0 || low < 0)
            return false;
        record.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return token.size() % 2 == 0 &&
           AnalyticsSDK::TestHash(unique_id.c_str(), record.data(), static_cast<long>(record.size()));
}

class Collector
{
public:
    explicit Collector(const Options& options)
    {
        if (!options.events_file.empty())
            m_events.open(options.events_file, std::ios::binary | std::ios::trunc);
    }

    /// Takes one upload and says what to answer: 200 taken, 400 no upload, 403 a wrong token.
    int take(const Form& form, std::string& answer)
    {
        std::lock_guard hold(m_lock);
        for (const char* name : {field::data, field::uniqueId, field::token, field::version}) {
            if (form.count(name) == 0)
                return ++m_refused, answer = std::string("the field ") + name + " is missing\n", 400;
        }
        if (!token_is_good(form.at(field::uniqueId), form.at(field::token)))
            return ++m_refused, answer = "the token does not belong to this unique id\n", 403;
        std::string_view data = form.at(field::data),
                         known = data.substr(0, m_repetitions.take(form.at(field::uniqueId), data));
        auto repeated = std::count(known.begin(), known.end(), '\n') + (!known.empty() && known.back() != '\n');
        size_t before = m_received;
        std::string rows = take_lines(data.substr(known.size()));
        m_repeated += static_cast<size_t>(repeated);
        answer = "taken: " + std::to_string(m_received - before) + " events\n";
        std::cout << "\nupload " << ++m_uploads << ": " << m_received - before << " events, " << repeated
                  << " repeated, token good, from version " << wire::printable(form.at(field::version)) << "\n\n"
                  << rows << std::flush;
        return 200;
    }

    bool summary()
    {
        std::lock_guard hold(m_lock);
        std::cout << "\n"
                  << m_received << " events in " << m_uploads << " uploads; " << m_repeated << " repeated, " << m_broken
                  << " broken, " << m_refused << " uploads refused" << std::endl;
        return m_repeated + m_broken + m_refused == 0;
    }

private:
    std::string take_lines(std::string_view data)
    {
        std::vector<table::Row> rows = {{"TIME (UTC)", "APP", "VERSION", "ID", "NAME", "EVENT"}};
        while (!data.empty()) {
            std::string_view text = data.substr(0, data.find('\n'));
            data.remove_prefix(std::min(text.size() + 1, data.size()));
            rows.push_back(take_line(text));
        }
        return table::lines(rows);
    }

    table::Row take_line(std::string_view text)
    {
        wire::Line line;
        if (auto fault = wire::read_line(text, line)) {
            ++m_broken;
            return {
                "broken", "",
                "",       "",
                "",       fault->what + " (column " + std::to_string(fault->column) + "): " + wire::printable(text)};
        }
        ++m_received;
        m_events << line.event << "\n" << std::flush;
        table::Row row;
        for (std::string_view part : {line.time, line.application, line.application_version, line.unique_id, line.name})
            row.push_back(wire::printable(wire::unquoted(part)));
        row.push_back(wire::printable(line.event));
        return row;
    }

    std::mutex m_lock;
    std::ofstream m_events;
    collector::Repetitions m_repetitions;
    size_t m_uploads = 0, m_received = 0, m_repeated = 0, m_broken = 0, m_refused = 0;
};

// Until a signal ends it, or nothing has come for as long as was asked for.
void wait_for_the_end(const sigset_t& signals, const std::atomic<unsigned>& requests, unsigned idle_seconds)
{
    unsigned seen = 0, quiet = 0;
    timespec second{1, 0};
    while (sigtimedwait(&signals, nullptr, &second) < 0) {
        quiet = requests == seen ? quiet + 1 : 0;
        seen = requests;
        if (idle_seconds != 0 && quiet >= idle_seconds)
            return;
    }
}

bool announce(int port, const std::string& file)
{
    std::string url = "http://127.0.0.1:" + std::to_string(port) + "/events";
    std::cout << "collecting on " << url << std::endl;
    if (file.empty())
        return true;
    // Whole or not at all: whoever waits for the file must not read half an address.
    std::ofstream(file + ".new") << url << "\n";
    return std::rename((file + ".new").c_str(), file.c_str()) == 0;
}

int serve(const Options& options)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // before any thread starts, so that all of them inherit it

    Collector collector(options);
    std::atomic<unsigned> requests{0};
    httplib::Server server;
    server.set_keep_alive_timeout(1);
    server.Post(".*",
                [&](const httplib::Request& got, httplib::Response& answer, const httplib::ContentReader& reader) {
                    std::string body, words = "uploads come as URL-encoded forms\n";
                    ++requests;
                    answer.status = 400;
                    if (!got.is_multipart_form_data() &&
                        reader([&](const char* data, size_t size) { return body.append(data, size), true; }))
                        answer.status = collector.take(parse_form(body), words);
                    answer.set_content(words, "text/plain");
                });
    int port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0)
        return std::cerr << "collector: no loopback port\n", 2;
    std::thread serving([&] { server.listen_after_bind(); });
    while (!server.is_running())
        std::this_thread::yield();
    bool announced = announce(port, options.url_file);
    if (announced)
        wait_for_the_end(signals, requests, options.idle_seconds);
    else
        std::cerr << "collector: cannot write " << wire::printable(options.url_file) << "\n";
    server.stop();
    serving.join();
    bool clean = collector.summary();
    return !announced ? 2 : options.strict && !clean ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App program("Receives events on a loopback port and prints them.");
    program.add_option("--url-file", options.url_file, "write the address to this file once it can be used");
    program.add_option("--events", options.events_file, "write the received event objects to this file, one a line");
    program.add_option("--idle", options.idle_seconds, "end after so many seconds without a request");
    program.add_flag("--strict", options.strict, "exit status 1 when anything was repeated, broken or refused");
    program.add_flag("--is-online", options.is_online, "only say whether the library counts this machine as online");
    CLI11_PARSE(program, argc, argv);
    if (options.is_online)
        return AnalyticsSDK::IsOnline() ? 0 : 1;
    return serve(options);
}
