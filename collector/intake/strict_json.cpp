#include "strict_json.h"

#include <algorithm>

namespace intake {

namespace {

constexpr std::string_view g_replacement = "\xEF\xBF\xBD"; // U+FFFD
constexpr size_t g_safe_digits = 18;                       // of any integer that fits into 64 bits

// The length of the UTF-8 sequence that the text begins with; 0 when it is broken (RFC 3629, section 4).
size_t sequence(std::string_view text)
{
    struct Lead
    {
        unsigned char first, last, size, second_least, second_most;
    };
    static constexpr Lead leads[] = {
        {0x00, 0x7F, 1, 0, 0},       {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
        {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
        {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
    };
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    for (const Lead& lead : leads) {
        if (byte(0) < lead.first || byte(0) > lead.last)
            continue;
        bool whole = text.size() >= lead.size &&
                     (lead.size == 1 || (byte(1) >= lead.second_least && byte(1) <= lead.second_most));
        for (size_t i = 2; whole && i < lead.size; ++i)
            whole = (byte(i) & 0xC0) == 0x80;
        return whole ? lead.size : 0;
    }
    return 0;
}

// A character, or the replacement for a byte that begins none; gives the number of bytes that were read.
size_t append_character(std::string_view text, std::string& out)
{
    size_t size = sequence(text);
    out += size == 0 ? g_replacement : text.substr(0, size);
    return std::max<size_t>(size, 1);
}

void append_control(char c, std::string& out)
{
    const char* digits = "0123456789abcdef";
    out += "\\u00";
    out += digits[static_cast<unsigned char>(c) >> 4];
    out += digits[c & 15];
}

// A word outside of texts: up to white space or a character of JSON's own.
std::string_view word_of(std::string_view text)
{
    return text.substr(0, text.find_first_of(" \t\r\n,:[]{}\""));
}

void append_word(std::string_view word, std::string& out)
{
    bool is_infinite = word == "nan" || word == "-nan" || word == "inf" || word == "-inf";
    bool is_long = word.size() > g_safe_digits &&
                   word.find_first_not_of("0123456789", word[0] == '-' ? 1 : 0) == std::string_view::npos;
    if (is_infinite)
        out += "null";
    else
        for (size_t at = 0; at < word.size();)
            at += append_character(word.substr(at), out);
    if (is_long)
        out += ".0";
}

// A text from its opening quote on, gives the number of bytes that were read.
size_t append_text(std::string_view text, std::string& out)
{
    out += '"';
    for (size_t at = 1; at < text.size();) {
        char c = text[at];
        if (c == '"') {
            out += c;
            return at + 1;
        }
        if (c == '\\' && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0x20) {
            out += c;
            at += 1 + append_character(text.substr(at + 1), out);
        } else if (static_cast<unsigned char>(c) < 0x20) {
            append_control(c, out);
            ++at;
        } else {
            at += append_character(text.substr(at), out);
        }
    }
    return text.size();
}

} // namespace

std::string to_utf8(std::string_view text)
{
    std::string out;
    for (size_t at = 0; at < text.size();)
        at += append_character(text.substr(at), out);
    return out;
}

std::string strict_json(std::string_view line)
{
    std::string out;
    out.reserve(line.size() + 64);
    for (size_t at = 0; at < line.size();) {
        std::string_view rest = line.substr(at), word = word_of(rest);
        if (!word.empty()) {
            append_word(word, out);
            at += word.size();
        } else if (rest[0] == '"') {
            at += append_text(rest, out);
        } else {
            out += rest[0];
            ++at;
        }
    }
    return out;
}

} // namespace intake
