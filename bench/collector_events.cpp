#include "collector_events.h"

#include "intake/intake.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace bench {

namespace {

constexpr int g_installations = 20000, g_names = 40, g_versions = 3;
constexpr time_t g_start = 1793491200;   // 2026-11-01
constexpr time_t g_between_uploads = 26; // seconds: 100,000 uploads are 30 days

// The same numbers in every run, so that runs can be compared.
unsigned mixed(unsigned number)
{
    number = (number ^ 61) ^ number >> 16;
    number *= 0x27d4eb2d;
    return number ^ number >> 15;
}

} // namespace

std::string collector_lines(int number, int events)
{
    std::string lines;
    char line[400], text[32];
    unsigned installation = mixed(static_cast<unsigned>(number)) % g_installations;
    for (int i = 0; i < events; ++i) {
        unsigned chance = mixed(static_cast<unsigned>(number * 1000 + i));
        time_t at = g_start + number * g_between_uploads + i;
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

std::vector<store::Upload> collector_uploads(int count, int events)
{
    std::vector<store::Upload> uploads;
    for (int i = 0; i < count; ++i) {
        intake::Form form;
        form.data = collector_lines(i, events);
        form.sender = "bench";
        memcpy(form.batch.emplace().data(), &i, sizeof i);
        store::Milliseconds received_at = (g_start + i * g_between_uploads) * 1000;
        intake::read_lines(std::move(form), std::nullopt, received_at, {}, uploads.emplace_back());
    }
    return uploads;
}

} // namespace bench
