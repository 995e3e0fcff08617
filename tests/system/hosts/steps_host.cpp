// A host program that tests run: each word of its command line is one step, "word" or "word=value".
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "analytics.h"
#include "host.h"

namespace {

analytics_config config = host::configured({}, {});
analytics_session* session = nullptr;

template <size_t size>
void Set(char (&field)[size], const std::string& value)
{
    std::memcpy(field, value.c_str(), std::min(size, value.size() + 1));
}

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

void Log(analytics_session* to, const char* name, int number)
{
    Check(analytics_event_begin(to, name), "begin");
    Check(analytics_name_int32_add(to, "n", number), "add");
    Check(analytics_event_end(to), "end");
}

/// Several sessions on threads of their own, all with one log: events named by their writer.
void LogFromThreads(int threads, int count)
{
    std::vector<std::thread> writers;
    for (int writer = 0; writer < threads; ++writer)
        writers.emplace_back([=] {
            const std::string name = std::to_string(getpid()) + '.' + std::to_string(writer);
            analytics_session* own = analytics_initialize(&config);
            for (int number = 0; number < count; ++number)
                Log(own, name.c_str(), number);
            analytics_shutdown(own);
        });
    for (std::thread& writer : writers)
        writer.join();
}

/// "FIRST:LAST": numbered events; with "FIRST" alone until the host is killed. Each is told, or not, once it is logged.
void LogNumbered(const std::string& value, bool tell = false)
{
    const size_t colon = value.find(':');
    const long last = colon == value.npos ? -1 : std::stol(value.substr(colon + 1));
    for (long number = std::stol(value); number != last + 1; ++number) {
        host::log_numbered(session, number, host::filling(number));
        if (tell)
            Say(std::to_string(number) + '\n');
    }
}

/// "NUMBER:SYNCHRONOUS": logs and sends for ever on a thread of its own, with a session and a log of its own.
void Work(const std::string& value)
{
    analytics_config own = config; // a copy for the thread, which still looks when static objects are gone
    const int synchronous = std::stoi(value.substr(value.find(':') + 1));
    Set(own.event_log_file, std::string(config.event_log_file) + std::to_string(std::stoi(value)));
    std::thread([=] {
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

const std::map<std::string, std::function<void(const std::string&)>> words = {
    {"url", [](const std::string& value) { Set(config.upload_url, value); }},
    {"log", [](const std::string& value) { Set(config.event_log_file, value); }},
    {"id", [](const std::string& value) { Set(config.pid_file, value); }},
    {"certificates", [](const std::string& value) { Set(config.certificate_file, value); }},
    {"open", [](const std::string&) { session = analytics_initialize(&config); }},
    {"close",
     [](const std::string&) {
         analytics_shutdown(session);
         session = nullptr;
     }},
    {"begin", [](const std::string& value) { Check(analytics_event_begin(session, value.c_str()), "begin"); }},
    {"event", [](const std::string& value) { Log(session, value.c_str(), 1); }},
    {"threads",
     [](const std::string& value) { LogFromThreads(std::stoi(value), std::stoi(value.substr(value.find(':') + 1))); }},
    {"observe", [](const std::string&) { Observe(); }},
    {"wait_until_heard",
     [](const std::string&) {
         while (heard == 0)
             std::this_thread::sleep_for(std::chrono::milliseconds(1));
     }},
    {"send", [](const std::string&) { Say("send " + std::to_string(analytics_send(session, 1)) + '\n'); }},
    {"send_async", [](const std::string&) { Say("started " + std::to_string(analytics_send(session, 0)) + '\n'); }},
    {"send_in_background", [](const std::string&) { std::thread([] { analytics_send(session, 1); }).detach(); }},
    {"say", [](const std::string& value) { Say(value + '\n'); }},
    {"wait_for_file",
     [](const std::string& value) {
         while (!std::filesystem::exists(value))
             std::this_thread::sleep_for(std::chrono::milliseconds(1));
     }},
    {"interrupt", [](const std::string&) { InterruptEverything(); }},
    {"sigpipe", TreatSigpipe},
    {"check_sigpipe", [](const std::string&) { CheckSigpipe(); }},
    {"descriptors", [](const std::string& value) { HoldDescriptors(std::stoi(value)); }},
    {"numbered", [](const std::string& value) { LogNumbered(value); }},
    {"told", [](const std::string& value) { LogNumbered(value, true); }},
    {"work", [](const std::string& value) { Work(value); }},
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
