#include "system/life_run.h"

#include "support/certificates.h"
#include "support/child.h"
#include "support/http_server.h"
#include "support/scratch.h"
#include "system/numbered_log.h"

#include <atomic>
#include <csignal>
#include <random>

namespace {

struct Way
{
    const char* name;
    int status;
};
constexpr Way ways[] = {{"exit", 3},
                        {"abort", 128 + SIGABRT},
                        {"return", 3},
#if !defined(__SANITIZE_THREAD__) // its own locks are not safe in a child of a process with busy threads
                        {"fork", 3}
#endif
};

// What the hosts' sessions left behind. A last line without its end is no fault: leaving cuts through a write of a
// thread of its own, as a kill does.
std::string judge_logs(const std::string& folder)
{
    for (int number = 0; number < 4; ++number) {
        const NumberedLog found = numbered_log(support::read_file(host::log_file(folder, number)));
        if (!found.broken.empty())
            return "a broken line: " + found.broken[0];
    }
    return {};
}

std::string run_one(const std::string& host, const Way& way, const support::HttpServer& server,
                    const std::string& certificates, long microseconds)
{
    support::ScratchFolder folder;
    const auto ended = support::run(
        {host, folder.path().string(), server.url(), certificates, way.name, std::to_string(microseconds)});
    if (ended.status != way.status)
        return std::string(way.name) + " after " + std::to_string(microseconds) + " us ended with " +
               std::to_string(ended.status) + ": " + ended.errors;
    return judge_logs(folder.path().string());
}

} // namespace

LifeReport leave_again_and_again(const std::string& host, int rounds, unsigned seed)
{
    std::mt19937 random(seed);
    LifeReport report;
    support::CertificateAuthority authority;
    std::atomic<int> count{0};
    const auto answer = [&](const support::Request&) {
        return support::Reply{++count % 3 ? 200 : 500, std::string(20'000, 'x')};
    };
    support::HttpServer plain(answer);
    support::HttpsServer secure(authority.issue({"127.0.0.1"}), answer);
    for (int round = 0; round < rounds; ++round)
        for (const Way& way : ways)
            for (const support::HttpServer* server : {&plain, static_cast<support::HttpServer*>(&secure)}) {
                if (report.finding.empty())
                    report.finding =
                        run_one(host, way, *server, authority.file(), static_cast<long>(random() % 60'000));
                ++report.hosts;
            }
    report.requests = count;
    return report;
}
