// A host program that tests run: each word of its command line is one step, "word" or "word=value".
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <curl/curl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "analytics.h"
#include "host.h"

namespace {

analytics_config config = host::configured({}, {});
analytics_session* session = nullptr;

void Say(const std::string& text)
{
    if (write(STDOUT_FILENO, text.data(), text.size()) == -1)
        std::abort();
}

void Check(uint32_t result, const char* what)
{
    if (result != ANALYTICS_OK)
        Say(std::string(what) + ' ' + std::to_string(result) + '\n');
}

/// The numbers of "FIRST:SECOND".
std::pair<long, long> Numbers(const std::string& value)
{
    return {std::stol(value), std::stol(value.substr(value.find(':') + 1))};
}

void LogNumbers(analytics_session* to, long first, long last)
{
    for (long number = first; number <= last; ++number)
        host::log_numbered(to, number, host::filling(number));
}

/// "FIRST:COUNT": eight sessions on threads of their own, all with one log; of the numbers from FIRST on the first one
/// logs COUNT, the next one the next ...
void LogFromThreads(const std::string& value)
{
    const auto [first, count] = Numbers(value);
    std::vector<std::thread> writers;
    for (long from = first; from < first + 8 * count; from += count)
        writers.emplace_back([from, last = from + count - 1] {
            analytics_session* own = analytics_initialize(&config);
            LogNumbers(own, from, last);
            analytics_shutdown(own);
        });
    for (std::thread& writer : writers)
        writer.join();
}

/// Numbered events until the host is killed, each told once it is logged.
void LogAndTell(const std::string& first)
{
    for (long number = std::stol(first);; ++number) {
        LogNumbers(session, number, number);
        Say(std::to_string(number) + '\n');
    }
}

/// "NUMBER:SYNCHRONOUS": logs and sends for ever on a thread of its own, with a session and a log of its own.
void Work(const std::string& value)
{
    analytics_config own = config; // a copy for the thread, which still looks when static objects are gone
    const auto [number, synchronous] = Numbers(value);
    host::set(own.event_log_file, config.event_log_file + std::to_string(number));
    std::thread([own, synchronous = synchronous == 1] {
        analytics_session* mine = analytics_initialize(&own);
        for (long event = 1;; ++event) {
            host::log_numbered(mine, event, 300);
            if (event % 10 == 0)
                analytics_send(mine, synchronous);
        }
    }).detach();
}

std::atomic<int> heard{0};

void Observe()
{
    for (const char* event : {"complete", "error"})
        Check(analytics_observer_add(
                  session, event,
                  [](void* name, uint32_t value, double) {
                      Say(std::string(static_cast<const char*>(name)) + ' ' + std::to_string(value) + '\n');
                      ++heard;
                  },
                  const_cast<char*>(event)),
              "observe");
}

/// Every thread of this process gets a signal, again and again, so that whatever waits is interrupted.
void InterruptEverything()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    std::thread([] {
        const long self = syscall(SYS_gettid);
        for (;;) {
            for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
                if (const long id = std::stol(thread.path().filename()); id != self)
                    syscall(SYS_tgkill, getpid(), id, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }).detach();
}

/// "ignored", "blocked" or "default": how this host treats SIGPIPE.
std::string sigpipe = "default";

void TreatSigpipe(const std::string& way)
{
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(way == "blocked" ? SIG_BLOCK : SIG_UNBLOCK, &pipe, nullptr);
    signal(SIGPIPE, way == "ignored" ? SIG_IGN : SIG_DFL);
    sigpipe = way;
}

/// Says so when the host's own treatment was changed, or a signal is left waiting.
void CheckSigpipe()
{
    struct sigaction now;
    sigset_t blocked, pending;
    sigaction(SIGPIPE, nullptr, &now);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    sigpending(&pending);
    const bool kept = (now.sa_handler == SIG_IGN) == (sigpipe == "ignored") &&
                      sigismember(&blocked, SIGPIPE) == (sigpipe == "blocked") && !sigismember(&pending, SIGPIPE);
    Say(kept ? "sigpipe kept\n" : "sigpipe changed\n");
}

void HoldDescriptors(int count)
{
    const rlimit limit = {static_cast<rlim_t>(count) + 200, static_cast<rlim_t>(count) + 200};
    setrlimit(RLIMIT_NOFILE, &limit);
    while (dup(STDIN_FILENO) < count) {
    }
}

/// A thread that asks for the time again and again, for which the C library has a lock.
void TellTheTime()
{
    std::thread([] {
        for (tm now;;) {
            const time_t moment = time(nullptr);
            localtime_r(&moment, &now);
        }
    }).detach();
}

/// A transfer of this host's own.
void Fetch()
{
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, config.upload_url);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    host::require(curl_easy_perform(curl) == CURLE_OK, "a transfer of the host's");
    curl_easy_cleanup(curl);
}

/// Such transfers on a thread of their own, one after the other, from one call to the next.
void FetchBeside()
{
    static std::atomic<bool> over{false};
    static std::thread beside;
    over = beside.joinable();
    if (over)
        beside.join();
    else
        beside = std::thread([] {
            while (!over)
                Fetch();
        });
}

const std::map<std::string, std::function<void(const std::string&)>> words = {
    {"url", [](const std::string& value) { host::set(config.upload_url, value); }},
    {"log", [](const std::string& value) { host::set(config.event_log_file, value); }},
    {"certificates", [](const std::string& value) { host::set(config.certificate_file, value); }},
    {"open", [](const std::string&) { session = analytics_initialize(&config); }},
    {"close",
     [](const std::string&) {
         analytics_shutdown(session);
         session = nullptr;
     }},
    {"threads", LogFromThreads},
    {"observe", [](const std::string&) { Observe(); }},
    {"wait_until_heard",
     [](const std::string&) {
         while (heard == 0)
             std::this_thread::sleep_for(std::chrono::milliseconds(1));
     }},
    {"send", [](const std::string&) { Say("send " + std::to_string(analytics_send(session, 1)) + '\n'); }},
    {"send_async", [](const std::string&) { Say("started " + std::to_string(analytics_send(session, 0)) + '\n'); }},
    {"say", [](const std::string& value) { Say(value + '\n'); }},
    {"interrupt", [](const std::string&) { InterruptEverything(); }},
    {"sigpipe", TreatSigpipe},
    {"check_sigpipe", [](const std::string&) { CheckSigpipe(); }},
    {"descriptors", [](const std::string& value) { HoldDescriptors(std::stoi(value)); }},
    {"numbered", [](const std::string& value) { LogNumbers(session, Numbers(value).first, Numbers(value).second); }},
    {"log_and_tell", LogAndTell},
    {"work", Work},
    {"tell_the_time", [](const std::string&) { TellTheTime(); }},
    {"fetch", [](const std::string&) { Fetch(); }},
    {"fetch_beside", [](const std::string&) { FetchBeside(); }},
    {"curl_start", [](const std::string&) { curl_global_init(CURL_GLOBAL_ALL); }},
    {"curl_end", [](const std::string&) { curl_global_cleanup(); }},
    {"sleep_us",
     [](const std::string& value) { std::this_thread::sleep_for(std::chrono::microseconds(std::stol(value))); }},
    {"abort",
     [](const std::string&) {
         const rlimit noCore = {0, 0};
         setrlimit(RLIMIT_CORE, &noCore);
         abort();
     }},
    {"exit",
     [](const std::string& value) {
         host::leaves_memory = host::leaves_memory || session;
         std::exit(std::stoi(value));
     }},
    {"quick_exit", [](const std::string& value) { _exit(std::stoi(value)); }},
};

int Run(std::vector<std::string> steps)
{
    for (size_t at = 0; at < steps.size(); ++at) {
        const size_t equals = std::min(steps[at].find('='), steps[at].size());
        const std::string word = steps[at].substr(0, equals);
        const std::string value = steps[at].substr(std::min(equals + 1, steps[at].size()));
        if (word == "fork") { // the next steps, as many as the value says, are the child's
            const size_t childs = at + 1 + std::stoul(value);
            const pid_t child = fork();
            if ((host::leaves_memory = child == 0))
                return Run({steps.begin() + static_cast<long>(at) + 1, steps.begin() + static_cast<long>(childs)});
            int status = 0;
            waitpid(child, &status, 0);
            Say("child " + std::to_string(status) + '\n');
            at = childs - 1;
        } else
            words.at(word)(value);
    }
    return 0;
}

} // namespace

int main(int count, char** arguments)
{
    const int status = Run({arguments + 1, arguments + count});
    host::leaves_memory = host::leaves_memory || session;
    return status;
}
