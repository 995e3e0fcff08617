// Events on their way to disk.
#include "AnalyticsSDK/EventManager.h"
#include "lines.h"
#include "session.h"
#include "sinks.h"
#include "table.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sqlite3.h>
#include <thread>
#include <unistd.h>

using namespace bench;

namespace {

// The three calls without which no line reaches a file that nobody keeps open.
void append_raw(const std::string& path, const std::string& line)
{
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        throw std::runtime_error("no room for the bench's files");
    close(file);
}

Work raw_appends(const std::string& path, const std::string& line)
{
    return [=](long times) {
        for (long i = 0; i < times; ++i)
            append_raw(path, line);
        std::filesystem::remove(path);
    };
}

/// The line that a session logs for the bench's event: what the references write is then as long as ours, to the byte.
std::string line_of(const Folder& folder)
{
    const std::string path = folder.file("one.log");
    {
        const Session session(path);
        log_event(session.get());
    }
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line + "\n";
}

Work whole_events(analytics_session* session, const std::string& path)
{
    return [=](long times) {
        for (long i = 0; i < times; ++i)
            log_event(session);
        // Within the turn, as the reference does it too: the file must not grow from turn to turn.
        std::filesystem::remove(path);
    };
}

const Group append_row("log: append", [](Table& table) {
    const Folder folder;
    const std::string line = line_of(folder), path = folder.file("events.log");
    AnalyticsSDK::EventManager manager("http://127.0.0.1:1/");
    manager.SetEventLogFilePath(path.c_str());
    manager.SetLogVersion(3);
    manager.SetUniqueId("0F5A9C1E-6B2D-4C8F-9E37-1A2B3C4D5E6F");
    manager.SetApplicationId("com.example.bench");
    manager.SetApplicationVersion("4.2.1");
    ClassSink sink;
    write_event(sink);
    sink.root.EndObject();
    const Work ours = [&](long times) {
        for (long i = 0; i < times; ++i)
            manager.LogEvent("bench", &sink.root);
        std::filesystem::remove(path);
    };
    table.row("LogEvent of a finished document", "open, write, close of a line of that length",
              compare(ours, raw_appends(folder.file("raw.log"), line)), at_most(1.25, 1.15));
});

const Group event_row("log: whole event", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("events.log");
    const Session session(path);
    table.row("whole event, one thread", "open, write, close of a line of that length",
              compare(whole_events(session.get(), path), raw_appends(folder.file("raw.log"), line_of(folder))),
              at_most(1.80, 1.45));
});

/// A session that delivers in batches, for as long as the bench takes to no server.
class BatchSession : public Session
{
public:
    explicit BatchSession(const std::string& path) : Session(path)
    {
        for (const auto& [key, value] : {std::pair("delivery", "batches"), std::pair("interval_ms", "2147483647"),
                                         std::pair("retry_first_ms", "86400000")})
            if (analytics_option_set(get(), key, value) != ANALYTICS_OK)
                throw std::runtime_error("no delivery in batches");
    }
};

/// Takes away what a session has written beside its log, sealed or not.
void remove_outbox(const std::string& path)
{
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path()))
        if (entry.path().string().rfind(path + ".", 0) == 0)
            std::filesystem::remove(entry.path());
}

const Group batch_row("log: whole event in batches", [](Table& table) {
    const Folder folder, raw;
    const std::string path = folder.file("events.log"), line = line_of(raw);
    const BatchSession session(path);
    const Work ours = [&](long times) {
        for (long i = 0; i < times; ++i)
            log_event(session.get());
        remove_outbox(path);
    };
    table.row("whole event in batches, one thread", "open, write, close of a line of that length",
              compare(ours, raw_appends(raw.file("raw.log"), line)), at_most(1.45, 1.25));
});

// Nanoseconds per turn when two threads take `times` turns each.
double on_two_threads(const Work& first, const Work& second, long times)
{
    return seconds_of([&] {
               std::thread other([&] { second(times); });
               first(times);
               other.join();
           }) *
           1e9 / static_cast<double>(2 * times);
}

// Two sessions on one log, each on a thread of its own, against raw calls of as many threads. Both begin with a new
// file: appending to a long one costs the file system more.
template <class AnySession>
Figures events_on_two_threads()
{
    const Folder folder, other;
    const std::string path = folder.file("events.log"), raw = other.file("raw.log"), line = line_of(other);
    const AnySession first(path), second(path);
    const auto turns = [](analytics_session* session) {
        return [=](long times) {
            for (long i = 0; i < times; ++i)
                log_event(session);
        };
    };
    const Work call = [&](long times) {
        for (long i = 0; i < times; ++i)
            append_raw(raw, line);
    };
    constexpr long times = 3000;
    return compare_figures(
        [&] {
            std::filesystem::remove(path);
            remove_outbox(path);
            return on_two_threads(turns(first.get()), turns(second.get()), times);
        },
        [&] {
            std::filesystem::remove(raw);
            return on_two_threads(call, call, times);
        },
        "ns", 25);
}

const Group threads_row("log: two threads", [](Table& table) {
    table.row("whole event, two threads, one file", "two threads of raw calls, no lock",
              events_on_two_threads<Session>(), at_most(4, 1.7));
});

const Group batch_threads_row("log: two threads in batches", [](Table& table) {
    table.row("whole event in batches, two threads", "two threads of raw calls, no lock",
              events_on_two_threads<BatchSession>(), at_most(2.5, 1.7));
});

// SQLite with one row per event, as the applications do that keep their events in a database.
class Database
{
public:
    explicit Database(const std::string& path)
    {
        sqlite3_open(path.c_str(), &database);
        sqlite3_exec(database, "pragma journal_mode=WAL; pragma synchronous=NORMAL; create table event (line text)",
                     nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(database, "insert into event values (?)", -1, &insert, nullptr);
    }
    ~Database()
    {
        sqlite3_finalize(insert);
        sqlite3_close(database);
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void add(const std::string& line)
    {
        sqlite3_bind_text(insert, 1, line.data(), static_cast<int>(line.size()), SQLITE_STATIC);
        if (sqlite3_step(insert) != SQLITE_DONE)
            throw std::runtime_error("SQLite refuses a row");
        sqlite3_reset(insert);
    }

private:
    sqlite3* database = nullptr;
    sqlite3_stmt* insert = nullptr;
};

/// The bench's event as a tree of nlohmann's.
struct TreeSink
{
    void text(const char* name, const char* value) { (*top)[name] = value; }
    void integer(const char* name, int value) { (*top)[name] = value; }
    void long_integer(const char* name, long long value) { (*top)[name] = value; }
    void number(const char* name, double value) { (*top)[name] = value; }
    void boolean(const char* name, bool value) { (*top)[name] = value; }
    void object(const char* name) { top = &(root[name] = nlohmann::json::object()); }
    void end_object() { top = &root; }
    void array(const char* name) { top = &(root[name] = nlohmann::json::array()); }
    void element(int value) { top->push_back(value); }
    void end_array() { top = &root; }

    nlohmann::json root;
    nlohmann::json* top = &root;
};

const Group peer_rows("log: peers", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("events.log"), line = line_of(folder);
    const Session session(path);
    const Work ours = whole_events(session.get(), path);

    Database database(folder.file("events.sqlite"));
    const auto rows = [&](long times) {
        for (long i = 0; i < times; ++i)
            database.add(line);
    };
    // Turns long enough to hold SQLite's checkpoints, which are part of what an insert costs.
    constexpr long inserts = 4000;
    const auto each_ns = [](const Work& work) { return seconds_of([&] { work(inserts); }) * 1e9 / inserts; };
    table.row("whole event", "SQLite insert of the line (WAL, NORMAL)",
              compare_figures([&] { return each_ns(ours); }, [&] { return each_ns(rows); }, "ns", 9), at_most(0, 0.15));

    const auto logger = spdlog::basic_logger_mt("bench", folder.file("spdlog.log"));
    // Only the line, without time and level, and flushed before the next one.
    logger->set_pattern("%v");
    logger->flush_on(spdlog::level::trace);
    const auto lines = [&](long times) {
        for (long i = 0; i < times; ++i)
            logger->info(line);
    };
    table.row("whole event", "spdlog of the line, flush per line", compare(ours, lines));
    spdlog::drop_all();

    const auto trees = [&](long times) {
        for (long i = 0; i < times; ++i) {
            TreeSink sink;
            write_event(sink);
            std::ofstream(folder.file("tree.log"), std::ios::app) << sink.root.dump() << std::endl;
        }
    };
    table.row("whole event", "nlohmann-json tree, dump, ofstream append", compare(ours, trees));
});

long resident_kb()
{
    std::ifstream file("/proc/self/statm");
    long pages = 0, resident = 0;
    file >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

const Group tail_rows("log: a million events", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("events.log");
    const Session session(path);
    constexpr long events = 1000000;
    std::vector<float> ends_ns;
    // The memory for the figures is allocated before the measurement, and so is what a session keeps between events.
    ends_ns.reserve(events);
    log_event(session.get());
    const long before_kb = resident_kb();
    using clock = std::chrono::steady_clock;
    const double taken = seconds_of([&] {
        for (long i = 0; i < events; ++i) {
            // A million lines would fill hundreds of megabytes of the disk.
            if (i % 100000 == 0)
                std::filesystem::remove(path);
            analytics_event_begin(session.get(), "bench");
            SessionSink sink(session.get());
            write_event(sink);
            const auto start = clock::now();
            analytics_event_end(session.get());
            ends_ns.push_back(std::chrono::duration<float, std::nano>(clock::now() - start).count());
        }
    });
    std::sort(ends_ns.begin(), ends_ns.end());
    const auto percentile = [&](double part) { return ends_ns[static_cast<std::size_t>(part * (events - 1))] / 1000; };
    char text[160];
    std::snprintf(text, sizeof text,
                  "%.0f events per second; analytics_event_end: %.2f us (50th), %.2f us (99th), %.2f us (99.9th)",
                  static_cast<double>(events) / taken, percentile(0.5), percentile(0.99), percentile(0.999));
    table.note("a million events", text);
    const long samples_kb = static_cast<long>(events * sizeof(float) / 1024);
    std::snprintf(text, sizeof text, "%ld KB resident, of which the figures above %ld KB; %ld KB before", resident_kb(),
                  samples_kb, before_kb);
    table.note("memory after a million events", text);
});

} // namespace
