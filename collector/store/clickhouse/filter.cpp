#include "filter.h"

#include "store/figures.h"

#include <charconv>
#include <cmath>

namespace store::clickhouse {

namespace {

constexpr int64_t g_day = 86400;

std::string is(const char* column, const std::string& text)
{
    return std::string(" AND ") + column + "=" + quoted(text);
}

// How the intake writes a number: as the shortest text, or as an integer's digits.
std::string forms_of(double number)
{
    char digits[32];
    auto text = [&](auto value) {
        return quoted({digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits)});
    };
    std::string forms = text(number);
    if (std::trunc(number) == number && std::fabs(number) < 9.2e18)
        forms += "," + text(static_cast<int64_t>(number));
    if (number == 0)
        forms += ",'-0','-0.0','0.0'";
    return forms;
}

// A value matches by its text, a number also by what it is.
std::string carries(const std::pair<std::string, std::string>& fact)
{
    const auto& [key, text] = fact;
    std::string value = "of_text=" + quoted(text);
    double number = 0;
    auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec == std::errc() && read.ptr == text.data() + text.size())
        value = "(" + value + " OR (of_type=1 AND of_text IN (" + forms_of(number) + ")))";
    return " AND arrayExists((of_key, of_type, of_text) -> of_key=" + quoted(key) + " AND " + value +
           ", p.key, p.type, p.text)";
}

// Partitions go by the week, and the table by the hour: both keep the engine from rows it need not look at.
std::string hours(int64_t first, int64_t end)
{
    std::string text =
        "(week>=" + std::to_string(week_of(first * 3600)) + " AND week<=" + std::to_string(week_of(end * 3600 - 1));
    return text + " AND hour>=" + std::to_string(first) + " AND hour<" + std::to_string(end) + ")";
}

} // namespace

Filter::Filter(const Query& query, Closed closed, std::string forgotten)
    : from(std::clamp(query.from, g_first_second, g_end_second)),
      to(std::clamp(query.to, from, g_end_second)),
      m_query(query),
      m_closed(std::move(closed))
{
    m_application = query.application ? is("application", *query.application) : "";
    m_installation = (query.installation ? is("installation", *query.installation) : "") + forgotten;
    m_columns = m_application + (query.version ? is("version", *query.version) : "");
    if (query.name)
        m_columns += is("name", *query.name) + " AND is_named=1";
    if (query.fact)
        m_row_columns = carries(*query.fact);
}

std::pair<Day, Day> Filter::whole_days(const Query& query)
{
    Seconds from = std::clamp(query.from, g_first_second, g_end_second);
    Seconds to = std::clamp(query.to, from, g_end_second);
    return {day_of(from + g_day - 1), day_of(to)};
}

std::string Filter::between(Seconds from, Seconds to)
{
    return " AND " + hours(hour_of(from), hour_of(to + 3599)) + " AND logged>=" + std::to_string(from) +
           " AND logged<" + std::to_string(to);
}

std::string Filter::rows_of(bool only_open) const
{
    std::string text;
    int64_t hour = hour_of(from), end = hour_of(to + 3599);
    auto add = [&](int64_t until) {
        if (hour < until)
            text += (text.empty() ? "" : " OR ") + hours(hour, until);
    };
    for (size_t i = 0; only_open && i < m_closed.days.size(); ++i) {
        add(m_closed.days[i] * int64_t(24));
        hour = m_closed.days[i] * int64_t(24) + 24;
    }
    add(end);
    if (text.empty())
        return "0";
    text = "(" + text + ")";
    if (from % 3600 != 0)
        text += " AND logged>=" + std::to_string(from);
    if (to % 3600 != 0)
        text += " AND logged<" + std::to_string(to);
    return text + m_columns + m_installation + m_row_columns;
}

std::optional<std::string> Filter::rolls(bool has_installation) const
{
    if (m_query.fact || m_closed.days.empty() || (m_query.installation && !has_installation))
        return std::nullopt;
    return m_closed.rolls + m_columns + (has_installation ? m_installation : "");
}

std::string fresh_select(const Filter& filter)
{
    return "SELECT installation, minMerge(first) AS seen FROM installed WHERE " + filter.installed() +
           " GROUP BY installation HAVING seen>=" + std::to_string(filter.from) + " AND seen<" +
           std::to_string(filter.to);
}

} // namespace store::clickhouse
