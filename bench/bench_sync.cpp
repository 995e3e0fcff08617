// The portability layer against the calls that it wraps.
#include "lumo/tova/event.h"
#include "lumo/tova/mutex.h"
#include "lumo/tova/text.h"
#include "session.h"
#include "table.h"

#include <clocale>
#include <cwchar>
#include <pthread.h>
#include <string>

using namespace bench;

namespace {

const Group mutex_row("tova: mutex", [](Table& table) {
    tova_mutex ours;
    tova_mutex_create(&ours);
    // Recursive, as ours is: that costs a look at the owner.
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t bare;
    pthread_mutex_init(&bare, &recursive);
    const Figures figures = compare(
        [&](long times) {
            for (long i = 0; i < times; ++i) {
                tova_mutex_lock(&ours);
                tova_mutex_unlock(&ours);
            }
        },
        [&](long times) {
            for (long i = 0; i < times; ++i) {
                pthread_mutex_lock(&bare);
                pthread_mutex_unlock(&bare);
            }
        });
    table.row("mutex lock and unlock", "a bare recursive pthread mutex", figures, at_most(1.25, 1.10));
    tova_mutex_destroy(&ours);
    pthread_mutex_destroy(&bare);
});

// An event as one writes it by hand, with the system's mutex and condition variable.
struct BareEvent
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    bool signalled = false;

    void set()
    {
        pthread_mutex_lock(&mutex);
        signalled = true;
        pthread_cond_broadcast(&condition);
        pthread_mutex_unlock(&mutex);
    }
    void wait()
    {
        pthread_mutex_lock(&mutex);
        while (!signalled)
            pthread_cond_wait(&condition, &mutex);
        signalled = false;
        pthread_mutex_unlock(&mutex);
    }
};

const Group event_row("tova: event", [](Table& table) {
    tova_event ours;
    tova_event_create(&ours, 1);
    BareEvent bare;
    const Figures figures = compare(
        [&](long times) {
            for (long i = 0; i < times; ++i) {
                tova_event_set(&ours);
                tova_event_wait(&ours);
            }
        },
        [&](long times) {
            for (long i = 0; i < times; ++i) {
                bare.set();
                bare.wait();
            }
        });
    table.row("event set and satisfied wait", "a bare mutex and condition variable", figures, at_most(1.25, 1.10));
    tova_event_destroy(&ours);
});

const Group wide_rows("tova: UTF-8 to wide", [](Table& table) {
    if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr)
        throw std::runtime_error("mbstowcs needs the locale C.UTF-8");
    // Half of the mixed text's bytes are ASCII, the rest sequences of two and three.
    const std::string ascii = "The quick brown fox, 24!", mixed = "Zo\xC3\xAB 10 \xE2\x82\xAC, \xC3\xBC"
                                                                  "ber \xE6\x97\xA5\xE6\x9C\xAC";
    for (const bool big : {false, true})
        for (const bool plain : {true, false}) {
            const std::string& sample = plain ? ascii : mixed;
            std::string text = sample;
            while (big && text.size() < 1 << 20)
                text += sample;
            // Room for as many characters as there are bytes: no form of text needs more.
            std::wstring wide(text.size() + 1, L'\0');
            const auto size = static_cast<unsigned>(wide.size());
            const Figures figures = compare(
                [&](long times) {
                    for (long i = 0; i < times; ++i)
                        keep(tova_utf8_to_wide(wide.data(), size, text.c_str()));
                },
                [&](long times) {
                    for (long i = 0; i < times; ++i)
                        keep(std::mbstowcs(wide.data(), text.c_str(), size));
                });
            table.row(std::string("UTF-8 to wide, ") + (big ? "1 MB, " : "24 bytes, ") + (plain ? "ASCII" : "mixed"),
                      "mbstowcs", figures, at_most(1.0, 0.5));
        }
    setlocale(LC_CTYPE, "C");
});

void* nothing(void*)
{
    return nullptr;
}

const Group life_row("session: start and end", [](Table& table) {
    const Folder folder;
    analytics_config config = config_of(folder.file("events.log"), "http://127.0.0.1:1/");
    config.unique_id[0] = '\0';
    std::snprintf(config.pid_file, sizeof config.pid_file, "%s", folder.file("id").c_str());
    // libcurl and OpenSSL start up once per process; a host that uses the network has that behind it.
    analytics_session* first = analytics_initialize(&config);
    const Figures figures = compare(
        [&](long times) {
            for (long i = 0; i < times; ++i)
                analytics_shutdown(analytics_initialize(&config));
        },
        [](long times) {
            for (long i = 0; i < times; ++i) {
                pthread_t threads[2];
                for (pthread_t& thread : threads)
                    pthread_create(&thread, nullptr, nothing, nullptr);
                for (const pthread_t thread : threads)
                    pthread_join(thread, nullptr);
            }
        },
        151, Clock::wall);
    analytics_shutdown(first);
    table.row("initialize and shutdown", "create and join of two threads", figures, at_most(0, 2));
});

const Group size_row("size of the library", [](Table& table) {
    const Folder folder;
    const std::string stripped = folder.file("stripped.so");
    // Symbols and debug information are not what a host loads.
    const std::string command = "strip --strip-unneeded -o '" + stripped + "' '" BENCH_LIBRARY "'";
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("strip does not run");
    const double kb = static_cast<double>(std::filesystem::file_size(stripped)) / 1024;
    table.row("stripped shared library", "1 KB", {kb, 1, kb, "KB"}, at_most(640, 540));
});

} // namespace
