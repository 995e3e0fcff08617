#include "collector_events.h"

#include "intake/intake.h"
#include "table.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <sqlite3.h>

namespace bench {

namespace {

constexpr int g_installations = 20000, g_names = 40, g_versions = 3;
constexpr time_t g_start = 1793491200; // 2026-11-01

// The same numbers in every run, so that runs can be compared.
unsigned mixed(unsigned number)
{
    number = (number ^ 61) ^ number >> 16;
    number *= 0x27d4eb2d;
    return number ^ number >> 15;
}

} // namespace

store::Seconds collector_start()
{
    return g_start;
}

std::string collector_lines(int number, store::Seconds between, int events)
{
    std::string lines;
    char line[400], text[32];
    unsigned installation = mixed(static_cast<unsigned>(number)) % g_installations;
    for (int i = 0; i < events; ++i) {
        unsigned chance = mixed(static_cast<unsigned>(number * 1000 + i));
        time_t at = g_start + number * between + i;
        tm parts;
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime_r(&at, &parts));
        snprintf(line, sizeof line,
                 "[ 3, \"%s\", \"editor\", \"2.%u\", \"6f1c2a90-3b7e-4d25-9a61-%012x\", \"name_%u\", { \"size\": %u, "
                 "\"theme\": \"%s\", \"ok\": %s, \"ms\": %u.5, \"mode\": \"m%u\" } ]\n",
                 text, installation % g_versions, installation, chance % g_names, chance % 700,
                 chance % 3 != 0 ? "dark" : "light", chance % 5 != 0 ? "true" : "false", chance >> 8 & 255,
                 chance >> 16 & 15);
        lines += line;
    }
    return lines;
}

std::vector<store::Upload> collector_uploads(int first, int count, store::Seconds between, int events)
{
    std::vector<store::Upload> uploads;
    for (int i = first; i < first + count; ++i) {
        intake::Form form;
        form.data = collector_lines(i, between, events);
        form.sender = "bench";
        memcpy(form.batch.emplace().data(), &i, sizeof i);
        store::Milliseconds received_at = (g_start + i * between) * 1000;
        intake::read_lines(std::move(form), std::nullopt, received_at, {}, uploads.emplace_back());
    }
    return uploads;
}

void remove_store(const std::string& path)
{
    for (const char* end : {"", "-wal", "-shm", "-serve"})
        std::filesystem::remove(path + end);
}

double plain_insert(const std::string& path, const std::vector<store::Upload>& uploads)
{
    remove_store(path);
    sqlite3* database = nullptr;
    sqlite3_stmt* insert = nullptr;
    sqlite3_open(path.c_str(), &database);
    sqlite3_exec(database,
                 "PRAGMA page_size=8192; PRAGMA journal_mode=wal; PRAGMA synchronous=full; CREATE TABLE events("
                 "id INTEGER PRIMARY KEY, application, version, installation, name, logged_at, members); BEGIN",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(database, "INSERT INTO events VALUES(NULL, ?, ?, ?, ?, ?, ?)", -1, &insert, nullptr);
    auto text = [&](int at, std::string_view value) {
        sqlite3_bind_text(insert, at, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    };
    long rows = 0;
    double seconds = seconds_of([&] {
        for (const store::Upload& upload : uploads) {
            rows += static_cast<long>(upload.events.size());
            for (const store::Event& event : upload.events) {
                text(1, event.application);
                text(2, event.version);
                text(3, event.installation);
                text(4, *event.name);
                sqlite3_bind_int64(insert, 5, event.logged_at);
                text(6, event.members);
                sqlite3_step(insert);
                sqlite3_reset(insert);
            }
        }
        sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
    });
    sqlite3_finalize(insert);
    sqlite3_close(database);
    remove_store(path);
    return static_cast<double>(rows) / seconds;
}

} // namespace bench
