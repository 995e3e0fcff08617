#include "log.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <mutex>
#include <unistd.h>

namespace logging {
namespace {

Format g_format = Format::text;

std::string now()
{
    const time_t seconds = std::time(nullptr);
    tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string quoted(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.append(1, '\\').push_back(c);
        } else if (byte < 0x20 || byte == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            out += escape;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

} // namespace

void use(Format format)
{
    g_format = format;
}

// One write for the whole line: lines of several threads do not mix.
void say(std::string_view level, std::string_view sentence, std::initializer_list<Field> fields)
{
    std::string line;
    if (g_format == Format::json) {
        line = "{\"time\":" + quoted(now()) + ",\"level\":" + quoted(level) + ",\"message\":" + quoted(sentence);
        for (const auto& [name, value] : fields)
            line.append(",").append(quoted(name)).append(":").append(quoted(value));
        line += "}";
    } else {
        line = now() + " " + std::string(level) + " " + std::string(sentence);
        for (const auto& [name, value] : fields)
            line.append(" ").append(name).append("=").append(quoted(value));
    }
    line += "\n";
    if (write(STDERR_FILENO, line.data(), line.size()) < 0)
        return; // nobody reads the log: the program serves on
}

void say_seldom(std::string_view level, const std::string& sentence, std::initializer_list<Field> fields)
{
    using Clock = std::chrono::steady_clock;
    struct Said
    {
        Clock::time_point at;
        unsigned left_out = 0;
    };
    static std::mutex lock;
    static std::map<std::string, Said> all;
    unsigned left_out = 0;
    {
        std::lock_guard hold(lock);
        const auto [entry, first] = all.try_emplace(sentence, Said{Clock::now()});
        if (!first && Clock::now() - entry->second.at < std::chrono::minutes(1)) {
            ++entry->second.left_out;
            return;
        }
        left_out = std::exchange(entry->second.left_out, 0);
        entry->second.at = Clock::now();
    }
    say(level, left_out == 0 ? sentence : sentence + " (and " + std::to_string(left_out) + " times since)", fields);
}

} // namespace logging
