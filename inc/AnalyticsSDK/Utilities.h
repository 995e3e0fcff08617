// Small helpers on strings, paths and time that the rest of the library shares.
//
// All are free of state and may be called from any thread. Narrow strings are 8-bit (UTF-8 where they are text), wide
// ones the platform's wide characters; both forms of a function behave alike. Running out of memory throws
// std::bad_alloc; all other failures are results.
#pragma once

#include "lumo/tova/base.h"

#include <string>
#include <vector>

namespace AnalyticsSDK {

/// Removes from the front every character contained in `chars`; returns `s`. Empty `chars` removes nothing.
TOVA_API std::string& TrimLeft(std::string& s, const std::string& chars);
/// The same for wide text.
TOVA_API std::wstring& TrimLeft(std::wstring& s, const std::wstring& chars);
/// The same from the back.
TOVA_API std::string& TrimRight(std::string& s, const std::string& chars);
/// The same for wide text.
TOVA_API std::wstring& TrimRight(std::wstring& s, const std::wstring& chars);
/// The same from both ends.
TOVA_API std::string& Trim(std::string& s, const std::string& chars);
/// The same for wide text.
TOVA_API std::wstring& Trim(std::wstring& s, const std::wstring& chars);

/// Whether `s` begins with `prefix`. An empty prefix always matches.
TOVA_API bool StartsWith(const std::string& s, const std::string& prefix);
/// The same for wide text.
TOVA_API bool StartsWith(const std::wstring& s, const std::wstring& prefix);

/// Whether `s` ends with `suffix`. An empty suffix always matches.
TOVA_API bool EndsWith(const std::string& s, const std::string& suffix);
/// The same for wide text.
TOVA_API bool EndsWith(const std::wstring& s, const std::wstring& suffix);

/// Appends the tokens of `s` to `out`, which is not cleared: the non-empty stretches between characters of
/// `delimiters`.
TOVA_API void Tokenize(const std::string& s, std::vector<std::string>& out, const std::string& delimiters);
/// The same for wide text.
TOVA_API void Tokenize(const std::wstring& s, std::vector<std::wstring>& out, const std::wstring& delimiters);

/// Appends two lower-case hexadecimal digits per byte to `out`, which is not cleared. A count of 0 or less appends
/// nothing.
TOVA_API void BytesToString(const unsigned char* bytes, long count, std::string& out);

/// Gives the path of `relative` inside the directory of the running program, or that directory when `relative` is null
/// or empty. Deliberate: an absolute `relative` is appended to the directory too, so that the result is always inside
/// it. Always returns true.
TOVA_API bool GetAbsolutePath(const char* relative, std::string& out);

/// Gives the host of a URL, without port and user information. Returns false when the URL is null (`host` stays), is
/// empty or has no scheme (`host` becomes empty).
TOVA_API bool GetHostFromUrl(const char* url, std::string& host);

/// Formats the current time in UTC with strftime. Returns false, and leaves `out` alone, when the result is empty or
/// longer than 21 characters.
TOVA_API bool GetCurrentDateTime(std::string& out, const char* format);

/// Milliseconds of a monotonic clock, for measuring durations.
TOVA_API double GetCurrentTimeInMillis();

/// Whether a regular file exists at `path`.
TOVA_API bool CheckFileExists(const char* path);

/// Always returns false and leaves `out` alone: addresses of network cards are not collected.
TOVA_API bool GetMACAddresses(std::vector<std::string>& out);

} // namespace AnalyticsSDK
