#include "AnalyticsSDK/Utilities.h"

#include "lumo/dir.h"
#include "lumo/strings.h"
#include "lumo/tova/clock.h"
#include "lumo/tova/file.h"
#include "lumo/uri.h"

#include <ctime>

namespace AnalyticsSDK {

// The rules stand once, in lumo/strings.h; here each gets a function for either kind of string.
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
    // Not asked whether `relative` begins with "/": it counts as relative whatever it looks like.
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
    // Without a scheme there is no telling where a host would begin, and proxies are chosen by it: no guess.
    const bool has_scheme = !parsed.scheme().empty();
    host = has_scheme ? parsed.host() : std::string();
    return has_scheme;
}

bool GetCurrentDateTime(std::string& out, const char* format)
{
    const std::time_t now = std::time(nullptr);
    // gmtime() would share its record with the host's other threads.
    std::tm utc;
    if (gmtime_r(&now, &utc) == nullptr)
        return false;
    // The 21 characters that are promised, and a terminator.
    char text[22] = {};
    // A result that does not fit counts as none, and so does an empty one: strftime() tells both by 0.
    const std::size_t length = std::strftime(text, sizeof text, format, &utc);
    if (length == 0)
        return false;
    out.assign(text, length);
    return true;
}

double GetCurrentTimeInMillis()
{
    // Not the time of day, whatever the name says: somebody who sets the clock would make every transfer look stalled.
    return static_cast<double>(tova_time_ms(tova_time_units()));
}

bool CheckFileExists(const char* path)
{
    return tova_file_exists(path) != 0;
}

// For hosts that ask all the same: the answer is the one they must be ready for anyway, that there are none.
bool GetMACAddresses(std::vector<std::string>&)
{
    return false;
}

} // namespace AnalyticsSDK
