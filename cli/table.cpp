#include "table.h"

#include <algorithm>
#include <cwchar>
#include <locale.h>

namespace table {

namespace {

// A unique id, the widest of the usual texts, takes 36. Without a limit one long name would widen every row.
constexpr size_t widest = 40;

// Texts are UTF-8 whatever the user's locale is. Where the system lacks this one, every byte beyond ASCII counts as
// one.
class Utf8
{
public:
    Utf8()
    {
        static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        m_before = uselocale(utf8);
    }
    ~Utf8() { uselocale(m_before); }
    Utf8(const Utf8&) = delete;
    Utf8& operator=(const Utf8&) = delete;

private:
    locale_t m_before;
};

// Removes the first character of a text and returns how many columns it takes.
size_t take_character(std::string_view& text)
{
    wchar_t character = 0;
    size_t size = 1;
    if (static_cast<unsigned char>(text[0]) >= 0x80) {
        mbstate_t state{};
        size = std::mbrtowc(&character, text.data(), text.size(), &state);
    }
    const bool is_ascii_or_broken = character == 0 || size > text.size();
    text.remove_prefix(is_ascii_or_broken ? 1 : size);
    const int columns = is_ascii_or_broken ? 1 : wcwidth(character);
    return columns < 0 ? 1 : static_cast<size_t>(columns);
}

size_t width(std::string_view text)
{
    const Utf8 here;
    size_t columns = 0;
    while (!text.empty())
        columns += take_character(text);
    return columns;
}

} // namespace

std::string_view cut(std::string_view text, size_t columns)
{
    const Utf8 here;
    std::string_view rest = text;
    for (size_t used = 0; !rest.empty();) {
        std::string_view after = rest;
        used += take_character(after);
        if (used > columns)
            break;
        rest = after;
    }
    return text.substr(0, text.size() - rest.size());
}

void Columns::fit(const Row& row)
{
    m_widths.resize(std::max(m_widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i)
        m_widths[i] = std::max(m_widths[i], std::min(width(row[i]), widest));
}

std::string Columns::line(const Row& row) const
{
    std::string text;
    for (size_t i = 0; i + 1 < row.size(); ++i) {
        const size_t own = width(row[i]);
        text += row[i] + std::string(std::max(m_widths[i], own) - own + 2, ' ');
    }
    return text + (row.empty() ? "" : row.back()) + "\n";
}

std::string lines(const std::vector<Row>& rows)
{
    Columns columns;
    std::string text;
    for (const Row& row : rows)
        columns.fit(row);
    for (const Row& row : rows)
        text += columns.line(row);
    return text;
}

} // namespace table
