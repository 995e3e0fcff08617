#include "json.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace api {

std::string quoted(std::string_view text)
{
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.append(1, '\\').push_back(c);
        } else if (byte < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            out += escape;
        } else {
            out += c;
        }
    }
    return out += '"';
}

std::string quoted_or_null(const std::optional<std::string>& text)
{
    return text ? quoted(*text) : "null";
}

std::string value_of(const store::OwnedValue& value)
{
    return value.type == store::ValueType::text || value.other ? quoted(value.text) : value.text;
}

std::string number(double value)
{
    if (!std::isfinite(value))
        return "null";
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

namespace {

// The civil calendar of C++20: days since 1970 to year, month, day, without a time zone.
std::string time_text(store::Seconds seconds, const char* format)
{
    using namespace std::chrono;
    const sys_seconds moment{std::chrono::seconds(seconds)};
    const auto day = floor<days>(moment);
    const year_month_day date(day);
    const hh_mm_ss time(moment - day);
    char text[48];
    std::snprintf(text, sizeof text, format, static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
    return text;
}

} // namespace

std::string iso_time(store::Seconds seconds)
{
    return time_text(seconds, "%04d-%02u-%02uT%02d:%02d:%02dZ");
}

std::string line_time(store::Seconds seconds)
{
    return time_text(seconds, "%04d-%02u-%02u %02d:%02d:%02d");
}

namespace {

/// Reads `text` by a pattern in which 0 stands for a digit; the digits between other characters are one number each.
bool read_numbers(std::string_view text, std::string_view pattern, int* numbers)
{
    if (text.size() != pattern.size())
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (pattern[i] != '0' ? text[i] != pattern[i] : !digit)
            return false;
        if (pattern[i] != '0')
            ++numbers;
        else
            *numbers = *numbers * 10 + (text[i] - '0');
    }
    return true;
}

} // namespace

bool read_time(std::string_view text, store::Seconds& seconds)
{
    using namespace std::chrono;
    int n[7] = {};
    if (!read_numbers(text, "0000-00-00", n) &&
        (std::fill(n, n + 7, 0), !read_numbers(text, "0000-00-00T00:00:00Z", n)))
        return false;
    const year_month_day date{year(n[0]), month(static_cast<unsigned>(n[1])), day(static_cast<unsigned>(n[2]))};
    if (!date.ok() || n[3] > 23 || n[4] > 59 || n[5] > 59)
        return false;
    seconds =
        duration_cast<std::chrono::seconds>(sys_days(date).time_since_epoch()).count() + n[3] * 3600 + n[4] * 60 + n[5];
    return true;
}

void Json::separate()
{
    if (m_text.size() > 1)
        m_text += ',';
}

Json& Json::raw(std::string_view name, std::string_view json)
{
    separate();
    m_text.append(quoted(name)).append(":").append(json);
    return *this;
}

Json& Json::element(std::string_view json)
{
    separate();
    m_text.append(json);
    return *this;
}

std::string Json::end(char closing)
{
    return std::move(m_text += closing);
}

} // namespace api
