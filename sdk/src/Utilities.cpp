#include "AnalyticsSDK/Utilities.h"

#include "lumo/common.h"
#include "lumo/dir.h"
#include "lumo/strings.h"
#include "lumo/tova/clock.h"
#include "lumo/tova/file.h"
#include "lumo/tova/own/internal.h"
#include "lumo/uri.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace AnalyticsSDK {

// The rules are in lumo/strings.h; here each has a function for either kind of string.
std::string& TrimLeft(std::string& s, const std::string& chars)
{
    return lumo::trim_left<char>(s, chars);
}
std::wstring& TrimLeft(std::wstring& s, const std::wstring& chars)
{
    return lumo::trim_left<wchar_t>(s, chars);
}
std::string& TrimRight(std::string& s, const std::string& chars)
{
    return lumo::trim_right<char>(s, chars);
}
std::wstring& TrimRight(std::wstring& s, const std::wstring& chars)
{
    return lumo::trim_right<wchar_t>(s, chars);
}
std::string& Trim(std::string& s, const std::string& chars)
{
    return lumo::trim<char>(s, chars);
}
std::wstring& Trim(std::wstring& s, const std::wstring& chars)
{
    return lumo::trim<wchar_t>(s, chars);
}

bool StartsWith(const std::string& s, const std::string& prefix)
{
    return lumo::starts_with<char>(s, prefix);
}
bool StartsWith(const std::wstring& s, const std::wstring& prefix)
{
    return lumo::starts_with<wchar_t>(s, prefix);
}
bool EndsWith(const std::string& s, const std::string& suffix)
{
    return lumo::ends_with<char>(s, suffix);
}
bool EndsWith(const std::wstring& s, const std::wstring& suffix)
{
    return lumo::ends_with<wchar_t>(s, suffix);
}

void Tokenize(const std::string& s, std::vector<std::string>& out, const std::string& delimiters)
{
    lumo::tokenize<char>(s, out, delimiters);
}

void Tokenize(const std::wstring& s, std::vector<std::wstring>& out, const std::wstring& delimiters)
{
    lumo::tokenize<wchar_t>(s, out, delimiters);
}

void BytesToString(const unsigned char* bytes, long count, std::string& out)
{
    // A negative count must not become a size.
    if (count > 0)
        lumo::append_hexadecimal(bytes, static_cast<std::size_t>(count), out);
}

bool GetAbsolutePath(const char* relative, std::string& out)
{
    std::string path = lumo::dir::process();
    // A leading "/" is not checked for: the header says why.
    if (relative != nullptr && *relative != '\0') {
        if (!path.empty() && path.back() != '/')
            path += '/';
        path += relative;
    }
    out = std::move(path);
    return true;
}

bool GetHostFromUrl(const char* url, std::string& host)
{
    if (url == nullptr)
        return false;
    const lumo::uri parsed(url);
    // Without a scheme the host cannot be told for certain, and proxies are chosen by it.
    const bool has_scheme = !parsed.scheme().empty();
    host = has_scheme ? parsed.host() : std::string();
    return has_scheme;
}

namespace {

// The time of an event is formatted here and not by strftime(), which reads the locale and, on some systems, the time
// zone under a lock of the C library that can stay locked for ever in a forked child. False when there is more in
// `format`.
bool FormatNumbers(const std::tm& time, const char* format, std::string& text)
{
    static constexpr struct
    {
        char directive;
        int std::tm::*field;
        int first, width;
    } numbers[] = {{'Y', &std::tm::tm_year, 1900, 1}, {'m', &std::tm::tm_mon, 1, 2}, {'d', &std::tm::tm_mday, 0, 2},
                   {'H', &std::tm::tm_hour, 0, 2},    {'M', &std::tm::tm_min, 0, 2}, {'S', &std::tm::tm_sec, 0, 2}};
    for (; *format != '\0'; ++format) {
        if (*format != '%') {
            text += *format;
            continue;
        }
        ++format;
        const auto number = std::find_if(std::begin(numbers), std::end(numbers),
                                         [=](const auto& each) { return each.directive == *format; });
        if (number == std::end(numbers))
            return false;
        text += lumo::write(time.*number->field + number->first, 10, number->width, '0');
    }
    return true;
}

} // namespace

bool GetCurrentDateTime(std::string& out, const char* format)
{
    constexpr std::size_t longest = 21; // characters; see the header
    std::tm utc;
    if (!tova::time_utc_from(std::time(nullptr), &utc))
        return false;
    std::string text;
    if (!FormatNumbers(utc, format, text)) {
        char formatted[longest + 1] = {};
        text.assign(formatted, std::strftime(formatted, sizeof formatted, format, &utc));
    }
    // A result that does not fit counts as none, and so does an empty one: strftime() tells both by 0.
    if (text.empty() || text.size() > longest)
        return false;
    out = std::move(text);
    return true;
}

double GetCurrentTimeInMillis()
{
    // Not the time of day, despite the name: setting the clock would make every transfer look stalled.
    return static_cast<double>(tova_time_ms(tova_time_units()));
}

bool CheckFileExists(const char* path)
{
    return tova_file_exists(path) != 0;
}

// Hosts that call this must be prepared for a machine without network cards anyway.
bool GetMACAddresses(std::vector<std::string>&)
{
    return false;
}

} // namespace AnalyticsSDK
