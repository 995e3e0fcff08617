#include "support/certificates.h"
#include "support/child.h"
#include "support/http_server.h"
#include "support/scratch.h"
#include "system/numbered_log.h"
#include "system/programs.h"
#include "system/runs.h"

#include <atomic>
#include <csignal>
#include <random>
#include <vector>

namespace {

// How a busy host leaves, and how it ends then.
const struct Way
{
    std::vector<std::string> steps;
    int status;
    const char* says = "";
} ways[] = {{{"exit=3"}, 3},
            {{"abort"}, 128 + SIGABRT},
            {{"say=returns"}, 0, "returns\n"},
#ifndef ANALYTICS_SANITIZED // the sanitizers' own locks are not safe in a child of a process with busy threads
            {{"fork=8", "numbered=1000:1000", "send", "send_async", "close", "open", "numbered=1002:1002", "close",
              "exit=0", "numbered=1001:1001", "quick_exit=3"},
             3,
             "send 200\nstarted 200\nchild 0\n"}
#endif
};

// What the host's sessions left behind. A last line without its end is no fault: the end of the process cuts a write of
// another thread, as a kill does.
std::string judge_logs(const std::string& log)
{
    for (const char* number : {"", "1", "2", "3"}) {
        const NumberedLog found = numbered_log(support::read_file(log + number));
        if (!found.broken.empty())
            return "a broken line: " + found.broken[0];
    }
    return {};
}

std::string run_one(const Way& way, const support::HttpServer& server, const std::string& certificates,
                    long microseconds)
{
    support::ScratchFolder folder;
    std::vector<std::string> command = host_steps(folder, server.url(),
                                                  {"certificates=" + certificates, "open", "numbered=1:1", "work=1:1",
                                                   "work=2:0", "work=3:0", "sleep_us=" + std::to_string(microseconds)});
    command.insert(command.end(), way.steps.begin(), way.steps.end());
    const auto ended = support::run(command);
    if (ended.status != way.status || ended.output != way.says)
        return way.steps[0] + " after " + std::to_string(microseconds) + " us ended with " +
               std::to_string(ended.status) + ": " + ended.output + ended.errors;
    return judge_logs(folder.file("log"));
}

} // namespace

LifeReport leave_again_and_again(int rounds, unsigned seed)
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
                    report.finding = run_one(way, *server, authority.file(), static_cast<long>(random() % 60'000));
                ++report.hosts;
            }
    report.requests = count;
    return report;
}
