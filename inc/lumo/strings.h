// Strings: trimming, comparing, splitting, bounded formatting, and UTF-8 to wide characters.
//
// The templates serve narrow (8-bit, UTF-8 where it is text) and wide strings alike, with the same behaviour; they look
// at characters one by one and know no character set, so a set of characters to trim or split at should be ASCII when
// the text is UTF-8.
//
// Everything here is free of state and may be called from any thread. Running out of memory throws std::bad_alloc.
#pragma once

#include "lumo/common.h"
#include "lumo/tova/base.h"
#include "lumo/tova/text.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace lumo {

/// A read-only view of the same kind of character as a string.
template <class Char>
using view_of = std::basic_string_view<Char>;

/// Formats like printf into `buffer` of `size` characters, terminator included.
///
/// Returns the length of the text. A text that does not fit leaves the empty string and gives 0: truncated text is
/// never delivered.
TOVA_API int sprintf_safe(char* buffer, unsigned long size, const char* format, ...) TOVA_PRINTF(3, 4);

/// Removes from the front every character contained in `chars`. Returns `s`.
///
/// | s          | chars       | afterwards |
/// |------------|-------------|------------|
/// | "  x "     | " "         | "x "       |
/// | "   "      | " "         | ""         |
/// | "x"        | ""          | "x"        |
/// | ""         | " "         | ""         |
template <class Char>
std::basic_string<Char>& trim_left(std::basic_string<Char>& s, view_of<Char> chars)
{
    const std::size_t kept = s.find_first_not_of(chars);
    s.erase(0, kept);
    return s;
}

/// Removes from the back every character contained in `chars`. Returns `s`.
///
/// | s          | chars       | afterwards |
/// |------------|-------------|------------|
/// | " x  "     | " "         | " x"       |
/// | "   "      | " "         | ""         |
/// | "x"        | ""          | "x"        |
template <class Char>
std::basic_string<Char>& trim_right(std::basic_string<Char>& s, view_of<Char> chars)
{
    const std::size_t last = s.find_last_not_of(chars);
    s.erase(last == std::basic_string<Char>::npos ? 0 : last + 1);
    return s;
}

/// Removes from both ends every character contained in `chars`: "\r\n x \r\n" without blanks, CR and LF is "x". Returns
/// `s`.
template <class Char>
std::basic_string<Char>& trim(std::basic_string<Char>& s, view_of<Char> chars)
{
    return trim_right(trim_left(s, chars), chars);
}

/// Whether `s` begins with `prefix`. Only the first place counts.
///
/// | s          | prefix      | result |
/// |------------|-------------|--------|
/// | "abcabc"   | "abc"       | true   |
/// | "abcabc"   | "bc"        | false  |
/// | "abc"      | ""          | true   |
/// | ""         | ""          | true   |
/// | "ab"       | "abc"       | false  |
template <class Char>
bool starts_with(view_of<Char> s, view_of<Char> prefix)
{
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

/// Whether `s` ends with `suffix`. Only the last place counts.
///
/// | s          | suffix      | result |
/// |------------|-------------|--------|
/// | "abcbc"    | "bc"        | true   |
/// | "abcabc"   | "ab"        | false  |
/// | "abc"      | ""          | true   |
/// | ""         | ""          | true   |
/// | "bc"       | "abc"       | false  |
template <class Char>
bool ends_with(view_of<Char> s, view_of<Char> suffix)
{
    return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// Appends the tokens of `s` to `out`: the stretches between characters of `delimiters`.
///
/// Runs of delimiters give no empty tokens, delimiters at either end are skipped, and `out` is not cleared.
///
/// | s          | delimiters  | appended   |
/// |------------|-------------|------------|
/// | ",,a,,b,"  | ","         | "a", "b"   |
/// | "a; b"     | "; "        | "a", "b"   |
/// | "ab"       | ""          | "ab"       |
/// | ",,"       | ","         | nothing    |
template <class Char>
void tokenize(view_of<Char> s, std::vector<std::basic_string<Char>>& out, view_of<Char> delimiters)
{
    for (std::size_t end = 0;;) {
        const std::size_t start = s.find_first_not_of(delimiters, end);
        if (start == view_of<Char>::npos)
            return;
        end = s.find_first_of(delimiters, start);
        out.emplace_back(s.substr(start, end - start));
        if (end == view_of<Char>::npos)
            return;
    }
}

/// Appends two lower-case hexadecimal digits per byte to `out`, which is not cleared.
///
/// | bytes      | appended   |
/// |------------|------------|
/// | 00, AB, 7F | "00ab7f"   |
/// | none       | nothing    |
///
/// Grows `out` once; when there is no memory for that, `out` is unchanged.
inline void append_hexadecimal(const unsigned char* bytes, std::size_t count, std::string& out)
{
    out.reserve(out.size() + 2 * count);
    for (std::size_t i = 0; i < count; ++i) {
        out += hexadecimal_digits[bytes[i] >> 4];
        out += hexadecimal_digits[bytes[i] & 15];
    }
}

/// What utf8_to_wide() does, for any kind of wide string and any decoder: `decode` takes a place, its size and a text
/// as tova_utf8_to_wide() does. Two assertions guard against one that answers wrongly, and a string that does not grow.
template <class Wide, class Decoder>
Wide decoded(const std::string& utf8, Decoder decode)
{
    Wide utf16;
    if (*utf8.c_str() == '\0')
        return utf16;
    const std::size_t size = decode(nullptr, 0, utf8.c_str());
    if (size != 0) {
        utf16.resize(size - 1);
        // clang-format off
        tova_assert_at(177, utf16.capacity() >= size-1);
        // clang-format on
        const std::size_t written = decode(utf16.data(), static_cast<unsigned>(size), utf8.c_str());
        utf16.resize(written - 1);
    } else
        tova_assert_at(182, false);
    return utf16;
}

/// Decodes UTF-8 into wide characters of 32 bits, one per code point.
///
/// | lead byte  | length | payload bits of the lead byte |
/// |------------|--------|-------------------------------|
/// | 0xxxxxxx   | 1      | 7                             |
/// | 110xxxxx   | 2      | 5                             |
/// | 1110xxxx   | 3      | 4                             |
/// | 11110xxx   | 4      | 3                             |
/// | 111110xx   | 5      | 2 (never a character today)   |
/// | 1111110x   | 6      | 1 (never a character today)   |
///
/// | text                | result                                                    |
/// |---------------------|-----------------------------------------------------------|
/// | "a", C3 A9          | "a", U+00E9                                               |
/// | E2 82 AC            | U+20AC                                                    |
/// | F0 9F 98 80         | U+1F600                                                   |
/// | "a", C3             | "a", U+FFFD: cut off by the end of the text               |
/// | E2 82, "a"          | U+FFFD, "a": interrupted by a byte that does not continue |
///
/// One decoder serves the count and the conversion, so the two cannot disagree on a broken sequence.
///
/// The text ends at its first NUL. The result's length counts no terminator; a text that ends at once is empty here
/// too. Room is asked for once and exactly. What is no UTF-8 in other ways (overlong forms, surrogates, values above
/// U+10FFFF) is U+FFFD as well.
inline std::wstring utf8_to_wide(const std::string& utf8)
{
    return decoded<std::wstring>(utf8, tova_utf8_to_wide);
}

} // namespace lumo
