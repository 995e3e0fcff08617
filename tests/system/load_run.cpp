#include "support/child.h"
#include "support/http_server.h"
#include "support/scratch.h"
#include "system/numbered_log.h"
#include "system/programs.h"
#include "system/runs.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

namespace {

// What is known of one session: its uploads that were accepted, its files that were deleted, in their order.
struct Account
{
    std::vector<size_t> read, deleted; // bytes
    std::vector<long> numbers;         // received, then those still waiting
};

size_t line_size(long number)
{
    return host::line_start().size() + host::numbered_text(number, static_cast<size_t>(number % 50)).size() + 1;
}

class Load
{
public:
    Load(const std::string& folder, int sessions, long events)
        : m_folder(folder), m_sessions(sessions), m_events(events), m_accounts(static_cast<size_t>(sessions))
    {}

    LoadReport run()
    {
        support::HttpServer server([this](const support::Request& request) { return answer(request); });
        const auto ended = support::run(
            {host_program("load_host"), m_folder, server.url(), std::to_string(m_sessions), std::to_string(m_events)},
            {}, support::milliseconds(20 * 60 * 1000));
        if (ended.status != 0)
            find("the host ended with " + std::to_string(ended.status) + ": " + ended.errors);
        server.stop();
        read_words(ended.output);
        for (int session = 0; session < m_sessions; ++session)
            settle(session);
        m_report.events = m_events * m_sessions;
        if (m_report.received + m_report.waiting + m_report.in_window != m_report.events)
            find("received, waiting and in the window do not add up to what was logged");
        return m_report;
    }

private:
    void find(const std::string& what)
    {
        if (m_report.finding.empty())
            m_report.finding = what;
    }
    Account& account(int session) { return m_accounts[static_cast<size_t>(session)]; }

    // Accepts two of three uploads. The path tells the session: each posts to its own.
    support::Reply answer(const support::Request& request)
    {
        const std::string data = request.form.count("data") ? request.form.at("data") : "";
        const int session = std::stoi(request.target.substr(request.target.rfind('/') + 1)) - 1;
        std::lock_guard hold(m_lock);
        if (++m_report.uploads % 3 == 0)
            return {500};
        ++m_report.accepted;
        account(session).read.push_back(data.size());
        receive(session, data);
        return {};
    }

    void receive(int session, const std::string& text)
    {
        const NumberedLog found = numbered_log(text);
        if (!found.broken.empty() || !found.tail.empty())
            find("an upload with a broken line: " + (found.broken.empty() ? found.tail : found.broken[0]));
        auto& numbers = account(session).numbers;
        numbers.insert(numbers.end(), found.numbers.begin(), found.numbers.end());
    }

    void read_words(const std::string& output)
    {
        std::istringstream lines(output);
        size_t quarter = 0;
        for (std::string word, path; lines >> word;) {
            if (word == "deleted") {
                size_t size;
                lines >> path >> size;
                const size_t digits = path.find_last_of("0123456789");
                const size_t start = path.find_last_not_of("0123456789", digits) + 1;
                account(std::stoi(path.substr(start)) - 1).deleted.push_back(size);
            } else {
                long threads;
                lines >> m_report.descriptors[quarter & 3] >> threads >> m_report.kilobytes[quarter & 3];
                ++quarter;
            }
        }
    }

    // Events that are logged between an upload's reading of the file and its deletion (the window) are lost, by
    // contract. No other may be missing: what is missing must measure as many bytes as came into the windows.
    void settle(int session)
    {
        Account& own = account(session);
        m_report.received += static_cast<long>(own.numbers.size());
        const NumberedLog waiting = numbered_log(support::read_file(host::log_file(m_folder, session + 1)));
        if (!waiting.broken.empty() || !waiting.tail.empty())
            find("a broken line is waiting");
        m_report.waiting += static_cast<long>(waiting.numbers.size());
        own.numbers.insert(own.numbers.end(), waiting.numbers.begin(), waiting.numbers.end());
        if (std::adjacent_find(own.numbers.begin(), own.numbers.end(), std::greater_equal<>()) != own.numbers.end())
            find("an event came twice, or out of order");
        if (own.read.size() != own.deleted.size())
            return find(std::to_string(own.read.size()) + " uploads were accepted, " +
                        std::to_string(own.deleted.size()) + " files deleted");
        settle_windows(own);
    }

    void settle_windows(const Account& own)
    {
        size_t window = 0, missing = 0;
        for (size_t i = 0; i < own.read.size(); ++i)
            window += own.deleted[i] - own.read[i];
        auto next = own.numbers.begin();
        for (long number = 1; number <= m_events; ++number) {
            if (next != own.numbers.end() && *next == number) {
                ++next;
                continue;
            }
            ++m_report.in_window;
            missing += line_size(number);
        }
        if (missing != window)
            find("missing events measure " + std::to_string(missing) + " bytes, the windows " + std::to_string(window));
        m_report.window_bytes += static_cast<long>(window);
    }

    std::string m_folder;
    int m_sessions;
    long m_events;
    std::mutex m_lock;
    std::vector<Account> m_accounts;
    LoadReport m_report;
};

} // namespace

LoadReport load(const std::string& folder, int sessions, long events_each)
{
    return Load(folder, sessions, events_each).run();
}
