#include "wire_line.h"

#include <algorithm>

namespace wire {

namespace {

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

size_t digits(std::string_view text)
{
    size_t count = 0;
    while (count < text.size() && is_digit(text[count]))
        ++count;
    return count;
}

// An integer, or what "%g" prints of a finite double.
bool is_number(std::string_view text)
{
    if (!text.empty() && text[0] == '-')
        text.remove_prefix(1);
    size_t whole = digits(text);
    text.remove_prefix(whole);
    if (whole == 0)
        return false;
    if (!text.empty() && text[0] == '.') {
        size_t fraction = digits(text.substr(1));
        if (fraction == 0)
            return false;
        text.remove_prefix(1 + fraction);
    }
    if (text.size() > 2 && text[0] == 'e' && (text[1] == '+' || text[1] == '-'))
        text.remove_prefix(2 + digits(text.substr(2)));
    return text.empty();
}

bool is_infinite(std::string_view word)
{
    return word == "nan" || word == "-nan" || word == "inf" || word == "-inf";
}

class Reader
{
public:
    explicit Reader(std::string_view text) : m_text(text) {}

    std::optional<Fault> read(Line& line)
    {
        bool whole = expect("[ ") && integer(line.version) && expect(", ") && time(line.time) && expect(", ") &&
                     text(line.application) && expect(", ") && text(line.application_version) && expect(", ") &&
                     text(line.unique_id) && expect(", ") && name(line.name) && expect(", ") && event(line.event) &&
                     expect(" ]") && (m_at == m_text.size() || fail("the line should end here"));
        return whole ? std::nullopt : m_fault;
    }

private:
    char next() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }

    bool fail(std::string what)
    {
        m_fault = Fault{m_at + 1, m_at >= m_text.size() ? "the line ends too early: " + what : std::move(what)};
        return false;
    }

    bool take(std::string_view piece)
    {
        if (m_text.substr(m_at, piece.size()) != piece)
            return false;
        m_at += piece.size();
        return true;
    }

    bool expect(std::string_view piece) { return take(piece) || fail("expected \"" + std::string(piece) + "\""); }

    bool integer(std::string_view& slice)
    {
        size_t start = m_at;
        take("-");
        size_t count = digits(m_text.substr(m_at));
        m_at += count;
        slice = m_text.substr(start, m_at - start);
        return count != 0 || fail("expected an integer");
    }

    // A text, or null for a text that the host gave as a null pointer.
    bool text(std::string_view& slice)
    {
        size_t start = m_at;
        if (!take("null") && !quoted())
            return false;
        slice = m_text.substr(start, m_at - start);
        return true;
    }

    bool quoted()
    {
        if (!expect("\""))
            return false;
        for (; m_at < m_text.size(); ++m_at) {
            char c = m_text[m_at];
            if (c == '"')
                return ++m_at, true;
            if (c == '\0')
                return fail("a NUL byte: an upload ends before it");
            if (c == '\t' || c == '\r')
                return fail("a raw tab or carriage return in a text");
            if (c == '\\' && (++m_at, std::string_view("\"\\nrt").find(next()) == std::string_view::npos))
                return fail("an escape other than \\\" \\\\ \\n \\r \\t");
        }
        return fail("a text without its closing quote");
    }

    bool time(std::string_view& slice)
    {
        size_t start = m_at;
        if (!text(slice))
            return false;
        std::string shape(slice);
        std::replace_if(shape.begin(), shape.end(), is_digit, '9');
        if (shape == "\"9999-99-99 99:99:99\"" || shape == "\"\"")
            return true;
        m_at = start;
        return fail("expected a time like \"2026-01-31 23:59:59\"");
    }

    bool name(std::string_view& slice) { return next() == '-' || is_digit(next()) ? integer(slice) : text(slice); }

    bool scalar()
    {
        if (next() == '"')
            return quoted();
        size_t start = m_at;
        m_at = std::min(m_text.find_first_of(" ,", m_at), m_text.size());
        std::string_view word = m_text.substr(start, m_at - start);
        if (word == "null" || word == "true" || word == "false" || is_infinite(word) || is_number(word))
            return true;
        m_at = start;
        return fail("expected a value");
    }

    bool event(std::string_view& slice)
    {
        size_t start = m_at;
        if (next() != '{')
            return fail("expected the event's object");
        bool whole = containers();
        slice = m_text.substr(start, m_at - start);
        return whole;
    }

    // Objects and arrays may nest to any depth, so an explicit stack is used instead of recursion.
    bool containers()
    {
        std::string closers;
        bool first = false;
        do {
            if (take("{") || take("[")) {
                closers += m_text[m_at - 1] == '{' ? '}' : ']';
                first = true;
            } else if (!scalar()) {
                return false;
            }
            while (!closers.empty() && next() == ' ' &&
                   m_text.substr(m_at + 1, 1) == closers.substr(closers.size() - 1)) {
                m_at += 2;
                closers.pop_back();
                first = false;
            }
        } while (!closers.empty() && next_member(closers.back(), first));
        return closers.empty();
    }

    bool next_member(char closer, bool& first)
    {
        if (!first && !expect(","))
            return false;
        first = false;
        return expect(" ") && (closer == ']' || (quoted() && expect(": ")));
    }

    std::string_view m_text;
    size_t m_at = 0;
    std::optional<Fault> m_fault;
};

// The length of the UTF-8 sequence that the text begins with; 0 when it is broken.
size_t utf8_sequence(std::string_view text)
{
    auto byte = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    unsigned lead = byte(0);
    size_t size = lead < 0x80                   ? 1
                  : lead >= 0xC2 && lead < 0xE0 ? 2
                  : (lead & 0xF0) == 0xE0       ? 3
                  : lead >= 0xF0 && lead < 0xF5 ? 4
                                                : 0;
    for (size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    bool surrogate_or_beyond = (lead == 0xED && byte(1) > 0x9F) || (lead == 0xF4 && byte(1) > 0x8F);
    return overlong || surrogate_or_beyond ? 0 : size;
}

std::string hexadecimal(const char* before, char c)
{
    const char* digits = "0123456789abcdef";
    unsigned char byte = static_cast<unsigned char>(c);
    return std::string(before) + digits[byte >> 4] + digits[byte & 15];
}

bool is_control(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// U+0080 to U+009F, which terminals may interpret like the escape byte.
bool is_long_control(std::string_view piece)
{
    return piece.size() == 2 && piece[0] == '\xC2' && piece[1] < '\xA0';
}

} // namespace

std::optional<Fault> read_line(std::string_view text, Line& line)
{
    return Reader(text).read(line);
}

std::string unquoted(std::string_view text)
{
    if (text.size() < 2 || text.front() != '"')
        return std::string(text);
    std::string plain;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        char c = text[i];
        if (c == '\\') {
            c = text[++i];
            c = c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
        }
        plain += c;
    }
    return plain;
}

std::string printable(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        size_t size = utf8_sequence(text);
        bool hidden = size == 0 || (size == 1 && is_control(text[0])) || is_long_control(text.substr(0, size));
        size = std::max<size_t>(size, 1);
        if (!hidden)
            shown += text.substr(0, size);
        else
            for (char c : text.substr(0, size))
                shown += hexadecimal("\\x", c);
        text.remove_prefix(size);
    }
    return shown;
}

std::string to_json(std::string_view text)
{
    std::string json;
    bool in_text = false;
    while (!text.empty()) {
        size_t size = std::max<size_t>(utf8_sequence(text), 1);
        std::string_view piece = text.substr(0, size);
        if (in_text && piece == "\\" && text.size() > 1)
            piece = text.substr(0, size = 2);
        else if (piece == "\"")
            in_text = !in_text;
        size_t word = in_text ? 0 : std::min(text.find_first_of(" ,"), text.size());
        if (word != 0 && is_infinite(text.substr(0, word)))
            json += '"' + std::string(text.substr(0, size = word)) + '"';
        else if (utf8_sequence(text) == 0)
            json += "\\ufffd";
        else if (is_control(piece[0]))
            json += hexadecimal("\\u00", piece[0]);
        else if (is_long_control(piece))
            json += hexadecimal("\\u00", piece[1]);
        else
            json += piece;
        text.remove_prefix(size);
    }
    return json;
}

} // namespace wire
