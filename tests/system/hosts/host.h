// What the small hosts of the system tests share: a session in a folder.
#pragma once

#include "analytics.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace host {

/// Set where the leak checker must not look: in a child made by fork(), whose memory only its parent's threads point
/// to, and in a host that leaves without closing its sessions.
inline bool leaves_memory = false;

inline constexpr char id[] = "host-id";

/// Ends the host with a message and a status that the tests know.
[[noreturn]] inline void fail(const std::string& what)
{
    fprintf(stderr, "host: %s\n", what.c_str());
    _Exit(99);
}

inline void require(bool holds, const char* what)
{
    if (!holds)
        fail(what);
}

/// How many entries a folder has: of /proc/self/fd the descriptors, of /proc/self/task the threads.
inline long entries(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

/// The memory that this process holds.
inline long resident_kb()
{
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4;
}

/// The event log file and the id file of a host stand in its folder; `number` tells several log files apart.
inline std::string log_file(const std::string& folder, int number = 0)
{
    return folder + "/events" + (number ? std::to_string(number) : "") + ".log";
}

/// Fills a field of the configuration.
template <size_t size>
void set(char (&field)[size], const std::string& value)
{
    strncpy(field, value.c_str(), size - 1);
}

inline analytics_config configured(const std::string& folder, const std::string& url, int number = 0)
{
    analytics_config config = {};
    set(config.upload_url, url);
    set(config.event_log_file, log_file(folder, number));
    set(config.unique_id, id);
    set(config.application_id, "host");
    set(config.application_version, "1.0");
    return config;
}

inline analytics_session* open(const std::string& folder, const std::string& url, int number = 0)
{
    const analytics_config config = configured(folder, url, number);
    analytics_session* session = analytics_initialize(&config);
    require(session != nullptr, "a session");
    return session;
}

/// How long the filling of a numbered event is: short ones, and every fifth one several pages long, so that its write
/// can be cut.
inline size_t filling(long number)
{
    return number % 5 ? 20 + number % 200 : 8000 + number % 50000;
}

/// Logs `{ "n": number, "fill": "xxx..." }` under the name "e".
inline void log_numbered(analytics_session* session, long number, size_t fill)
{
    const std::string text(fill, 'x');
    require(analytics_event_begin(session, "e") == 0 && analytics_name_int64_add(session, "n", number) == 0 &&
                analytics_name_string_add(session, "fill", text.c_str()) == 0 && analytics_event_end(session) == 0,
            "an event");
}

/// What its line ends with, behind the common fields and without the line feed.
inline std::string numbered_text(long number, size_t fill)
{
    return "\"e\", { \"n\": " + std::to_string(number) + ", \"fill\": \"" + std::string(fill, 'x') + "\" } ]";
}

/// What every line begins with, of the same length always.
inline std::string line_start()
{
    return "[ 3, \"0000-00-00 00:00:00\", \"host\", \"1.0\", \"" + std::string(id) + "\", ";
}

} // namespace host

/// Asked by the leak checker of sanitizer builds, when a process ends.
extern "C" inline __attribute__((used, visibility("default"))) int __lsan_is_turned_off()
{
    return host::leaves_memory;
}
