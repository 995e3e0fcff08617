// FOLDER URL CERTIFICATES WAY MICROSECONDS: logs and uploads from several threads at once, and leaves without a word
// after so many microseconds: exit, abort, return, or fork (the child logs, tries to send and exits with 3).

#include "host.h"

#include <atomic>
#include <chrono>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

static const char *folder, *url, *certificates; // no objects: threads still look when static ones are gone

static analytics_session* open_numbered(int number)
{
    analytics_config config = host::configured(folder, url, number);
    strncpy(config.certificate_file, certificates, sizeof config.certificate_file - 1);
    return analytics_initialize(&config);
}

// Logs for ever. A send in between takes the file away, or not.
static void work(int number, int synchronous)
{
    std::thread([=] {
        analytics_session* session = open_numbered(number);
        for (long event = 1;; ++event) {
            host::log_numbered(session, event, 300);
            if (event % 10 == 0)
                analytics_send(session, synchronous);
        }
    }).detach();
}

// What a child may do with a session of its parent: log, try to send, close.
static int be_a_child(analytics_session* session)
{
    host::log_numbered(session, 1000, 10);
    if (analytics_send(session, 1) != ANALYTICS_SEND_FAILED || analytics_send(session, 0) != ANALYTICS_SEND_FAILED)
        return 4;
    analytics_shutdown(session);
    return 3;
}

static int fork_a_child(analytics_session* session)
{
    const pid_t child = fork();
    if (child == 0)
        exit(be_a_child(session));
    int status = 0;
    host::require(waitpid(child, &status, 0) == child, "a child that ends");
    host::log_numbered(session, 1001, 10);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int main(int count, char** arguments)
{
    host::require(count == 6, "FOLDER URL CERTIFICATES WAY MICROSECONDS");
    host::leaves_memory = true;
    folder = arguments[1];
    url = arguments[2];
    certificates = arguments[3];
    const std::string way = arguments[4];
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    analytics_session* session = open_numbered(0);
    host::log_numbered(session, 1, 10);
    work(1, 1);
    work(2, 0);
    work(3, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(atol(arguments[5])));
    if (way == "abort")
        abort();
    if (way == "fork")
        _exit(fork_a_child(session));
    if (way == "exit")
        exit(3);
    return 3;
}
