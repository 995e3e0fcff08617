// LIBRARY FOLDER URL ROUNDS: loads the library, runs a session with an upload, unloads the library, again and again.
// Prints how many descriptors, threads and kilobytes it held after a tenth of the rounds and at the end. Then it
// unloads the library once more, with a session open whose upload has yet to be made.

#include "host.h"

#include <chrono>
#include <dlfcn.h>
#include <thread>

using host::require;

namespace {

template <typename Function>
Function* symbol(void* library, const char* name)
{
    void* found = dlsym(library, name);
    require(found != nullptr, name);
    return reinterpret_cast<Function*>(found);
}

analytics_session* log_one(void* library, const analytics_config& config)
{
    analytics_session* session = symbol<decltype(analytics_initialize)>(library, "analytics_initialize")(&config);
    require(session != nullptr, "a session");
    require(symbol<decltype(analytics_event_begin)>(library, "analytics_event_begin")(session, "e") == 0, "begin");
    require(symbol<decltype(analytics_property_add)>(library, "analytics_property_add")(session, "cpu") == 0, "cpu");
    require(symbol<decltype(analytics_event_end)>(library, "analytics_event_end")(session) == 0, "end");
    return session;
}

void run_a_session(void* library, const analytics_config& config)
{
    analytics_session* session = log_one(library, config);
    require(symbol<decltype(analytics_send)>(library, "analytics_send")(session, 1) == 0, "send");
    symbol<decltype(analytics_shutdown)>(library, "analytics_shutdown")(session);
}

void unload_under_a_session(void* library, const analytics_config& config)
{
    analytics_session* session = log_one(library, config);
    const auto send = symbol<decltype(analytics_send)>(library, "analytics_send");
    require(dlclose(library) == 0, "unloading with a session open");
    require(send(session, 0) == 0, "send from a library that the host has let go");
    while (std::filesystem::exists(config.event_log_file)) // until its thread has done the upload
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void tell()
{
    printf("%ld %ld %ld\n", host::entries("/proc/self/fd"), host::entries("/proc/self/task"), host::resident_kb());
}

} // namespace

int main(int count, char** arguments)
{
    require(count == 5, "LIBRARY FOLDER URL ROUNDS");
    // LeakSanitizer follows thread-local memory of libraries, unloaded ones too, and crashes; what stays behind shows
    // in the figures that this host prints.
    host::leaves_memory = true;
    const analytics_config config = host::configured(arguments[2], arguments[3]);
    const int rounds = atoi(arguments[4]);
    for (int round = 1; round <= rounds; ++round) {
        void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
        require(library != nullptr, "loading");
        run_a_session(library, config);
        require(dlclose(library) == 0, "unloading");
        if (round == rounds / 10 || round == rounds)
            tell();
    }
    unload_under_a_session(dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL), config);
    return 0;
}
