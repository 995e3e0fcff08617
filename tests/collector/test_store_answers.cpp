// Every question's answer against a count of the same events that knows nothing of rollups.
#include "stores.h"

#include <algorithm>
#include <map>
#include <random>
#include <regex>
#include <set>

namespace {

using store::Query;
using store::Seconds;

constexpr Seconds g_start = 20000 * 86400LL, g_days = 20;

struct Known
{
    std::string installation, application, version, name, theme;
    Seconds at;
    int size;
};

bool matches(const Known& event, const Query& query)
{
    auto same = [](const std::optional<std::string>& filter, const std::string& text) {
        return !filter || *filter == text;
    };
    return event.at >= query.from && event.at < query.to && same(query.application, event.application) &&
           same(query.version, event.version) && same(query.name, event.name) &&
           same(query.installation, event.installation) &&
           (!query.fact || query.fact->second == (query.fact->first == "size" ? std::to_string(event.size)
                                                                              : "o" + event.installation.substr(1, 1)));
}

struct Counted
{
    uint64_t events = 0;
    std::set<std::string> installations;
};
using Groups = std::map<std::string, Counted>;

// The events that a query means, grouped by a text; a row of the answer is "text events installations".
template <class TextOf>
Groups grouped(const std::vector<Known>& events, const Query& query, TextOf&& text_of)
{
    Groups groups;
    for (const Known& event : events) {
        if (!matches(event, query))
            continue;
        Counted& group = groups[text_of(event)];
        ++group.events;
        group.installations.insert(event.installation);
    }
    return groups;
}

std::string line(const std::string& text, uint64_t events, uint64_t installations)
{
    return text + " " + std::to_string(events) + " " + std::to_string(installations) + "\n";
}

std::string most_first(const Groups& groups, bool with_installations = true)
{
    std::vector<std::pair<std::string, Counted>> rows(groups.begin(), groups.end());
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a.second.events > b.second.events; });
    std::string text;
    for (const auto& [name, counted] : rows)
        text += line(name, counted.events, with_installations ? counted.installations.size() : 0);
    return text;
}

} // namespace

namespace test {

class StoreAnswers : public StoreContract
{
protected:
    // Several groups of several uploads, days in no order, some uploads repeated.
    void fill()
    {
        for (int i = 0; i < 60; ++i) {
            std::string text;
            for (int j = 0; j < 50; ++j)
                text += made_event() + "\n";
            store::Upload one =
                upload(text, static_cast<char>('0' + i % 64), static_cast<uint32_t>(i / 64) * 50, 0, "s");
            write(one);
            write(one);
        }
    }

    std::string made_event()
    {
        Known event{"i" + pick(40),
                    "app" + pick(2),
                    "v" + pick(3),
                    "n" + pick(5),
                    "t" + pick(3),
                    g_start + number(g_days * 86400),
                    static_cast<int>(number(30))};
        m_events.push_back(event);
        return event_line(event.name, event.installation, event.at,
                          "{ \"theme\": \"" + event.theme + "\", \"size\": " + std::to_string(event.size) +
                              ", \"os_ver\": \"o" + event.installation.substr(1, 1) + "\", \"deep\": { } }",
                          event.application, event.version);
    }

    Seconds number(Seconds below) { return static_cast<Seconds>(m_random() % static_cast<uint64_t>(below)); }
    std::string pick(Seconds below) { return std::to_string(number(below)); }

    Query query()
    {
        Query query;
        Seconds unit = std::array<Seconds, 3>{86400, 3600, 1}[static_cast<size_t>(number(3))];
        if (number(4) != 0) {
            query.from = g_start + number(g_days * 86400) / unit * unit;
            query.to = query.from + number(8 * 86400) / unit * unit;
        }
        auto maybe = [&](std::optional<std::string>& filter, const char* text, Seconds below) {
            if (number(4) == 0)
                filter = text + pick(below);
        };
        maybe(query.application, "app", 3);
        maybe(query.version, "v", 3);
        maybe(query.name, "n", 6);
        maybe(query.installation, "i", 41);
        if (number(4) == 0)
            query.fact = number(2) == 0 ? std::pair("size", pick(30)) : std::pair("os_ver", "o" + pick(5));
        query.limit = 100000;
        return query;
    }

    std::string summary(const Query& query)
    {
        store::Summary summary = value(m_spReading->summary(query, {}));
        return line("", summary.events, summary.installations) + line("", summary.versions, summary.names) +
               line("", summary.new_installations, 0);
    }

    std::string expected_summary(const Query& query)
    {
        auto count = [&](auto&& text_of) { return grouped(m_events, query, text_of).size(); };
        Groups all = grouped(m_events, query, [](const Known&) { return ""; });
        uint64_t fresh = 0;
        for (const std::string& installation : all[""].installations) {
            Seconds first = std::numeric_limits<Seconds>::max();
            for (const Known& event : m_events) {
                if (event.installation == installation &&
                    event.application == query.application.value_or(event.application))
                    first = std::min(first, event.at);
            }
            fresh += first >= query.from && first < query.to;
        }
        return line("", all[""].events, all[""].installations.size()) +
               line("", count([](const Known& e) { return e.application + e.version; }),
                    count([](const Known& e) { return e.name; })) +
               line("", fresh, 0);
    }

    std::string series(const Query& query, store::Step step)
    {
        std::string text;
        for (const store::Point& point : value(m_spReading->series(query, step, {})))
            text += line(std::to_string(point.at), point.events, point.installations);
        return text;
    }

    std::string expected_series(const Query& query, Seconds span)
    {
        std::string text;
        for (const auto& [at, counted] :
             grouped(m_events, query, [&](const Known& event) { return std::to_string(event.at / span * span); }))
            text += line(at, counted.events, counted.installations.size());
        return text;
    }

    uint64_t expected_funnel(const Query& query)
    {
        std::map<std::string, std::pair<Seconds, Seconds>> spans; // the first n1 and the last n2
        for (const Known& event : m_events) {
            Query any = query;
            any.name.reset();
            auto& [first, last] = spans.try_emplace(event.installation, std::pair(INT64_MAX, INT64_MIN)).first->second;
            if (matches(event, any) && event.name == "n1")
                first = std::min(first, event.at);
            if (matches(event, any) && event.name == "n2")
                last = std::max(last, event.at);
        }
        return static_cast<uint64_t>(std::count_if(
            spans.begin(), spans.end(), [](const auto& span) { return span.second.first <= span.second.second; }));
    }

    std::vector<Known> m_events;
    std::mt19937_64 m_random{7};
};

TEST_P(StoreAnswers, AgreeWithAnIndependentCount)
{
    fill();
    for (int i = 0; i < GetParam().questions; ++i) {
        const Query asked = query();
        SCOPED_TRACE("query " + std::to_string(i) + " from " + std::to_string(asked.from) + " to " +
                     std::to_string(asked.to));
        EXPECT_EQ(summary(asked), expected_summary(asked));
        EXPECT_EQ(series(asked, store::Step::hour), expected_series(asked, 3600));
        EXPECT_EQ(series(asked, store::Step::day), expected_series(asked, 86400));

        std::string names, versions, facts, properties, installations;
        for (const auto& row : value(m_spReading->names(asked, {})).rows)
            names += line(*row.name, row.events, row.installations);
        EXPECT_EQ(names, most_first(grouped(m_events, asked, [](const Known& event) { return event.name; })));
        for (const auto& row : value(m_spReading->versions(asked, {})).rows)
            versions += line(row.application + row.version, row.events, row.installations);
        EXPECT_EQ(versions, most_first(grouped(m_events, asked,
                                               [](const Known& event) { return event.application + event.version; })));
        for (const auto& row : value(m_spReading->facts(asked, {})).rows)
            facts += line(row.fact + row.value.text, row.events, row.installations);
        EXPECT_EQ(facts, most_first(grouped(m_events, asked, [](const Known& event) {
                      return "os_vero" + event.installation.substr(1, 1);
                  })));
        for (const auto& row : value(m_spReading->properties(asked, {})).rows)
            properties += row.key == "theme" ? line(row.value.text, row.events, 0) : "";
        EXPECT_EQ(properties,
                  most_first(grouped(m_events, asked, [](const Known& event) { return event.theme; }), false));
        for (const auto& row : value(m_spReading->installations(asked, {})).rows)
            installations += line(row.installation + "/" + row.application, row.events, 0);
        EXPECT_EQ(installations,
                  most_first(grouped(m_events, asked,
                                     [](const Known& event) { return event.installation + "/" + event.application; }),
                             false));
        const std::string steps[] = {"n1", "n2"};
        EXPECT_EQ(value(m_spReading->funnel(asked, steps, {})).back(), expected_funnel(asked));
    }
}

TEST_P(StoreAnswers, ShowRowsInTheirOrder)
{
    fill();
    for (int i = 0; i < GetParam().questions / 6; ++i) {
        Query asked = query();
        std::vector<Known> expected;
        std::copy_if(m_events.begin(), m_events.end(), std::back_inserter(expected),
                     [&](const Known& event) { return matches(event, asked); });
        asked.limit = 7;
        std::vector<store::EventRow> rows;
        for (store::Receipts page; !page.at_end;) {
            page = value(m_spReading->receipts(asked, page.next, {}));
            rows.insert(rows.end(), page.rows.begin(), page.rows.end());
        }
        ASSERT_EQ(rows.size(), expected.size());
        for (size_t at = 0; at < rows.size(); ++at)
            EXPECT_EQ(rows[at].logged_at, expected[at].at);

        std::stable_sort(expected.begin(), expected.end(), [](const Known& a, const Known& b) { return a.at > b.at; });
        rows = value(m_spReading->timeline(asked, {}));
        ASSERT_EQ(rows.size(), std::min<size_t>(expected.size(), 7));
        for (size_t at = 0; at < rows.size(); ++at)
            EXPECT_EQ(rows[at].logged_at, expected[at].at);
    }
}

TEST_P(StoreAnswers, SummariseNumbersOverTime)
{
    std::string text;
    for (int size : {4, 1, 3, 2})
        text += event_line("n", "i", g_start + size * 3600, "{ \"size\": " + std::to_string(size) + " }") + "\n";
    write(upload(text + event_line("n", "i", g_start, "{ \"size\": \"4\" }")));
    Query query;
    query.name = "n";
    store::Numbers numbers = value(m_spReading->numbers(query, "size", {}));
    EXPECT_EQ(numbers.count, 4u);
    EXPECT_EQ(numbers.min, 1);
    EXPECT_EQ(numbers.median, 2);
    EXPECT_EQ(numbers.percentile_95, 4);
    EXPECT_EQ(numbers.max, 4);
    EXPECT_EQ(numbers.sum, 10);
    EXPECT_EQ(numbers.histogram.front() + numbers.histogram.back(), 2u);
    for (const auto& [value_text, events] : {std::pair("4", 2u), {"4.0", 1u}, {"\"4\"", 0u}}) {
        Query carrying = query;
        carrying.fact = {"size", value_text};
        EXPECT_EQ(value(m_spReading->summary(carrying, {})).events, events) << value_text;
    }
    EXPECT_EQ(value(m_spReading->property_series(query, "size", store::Step::hour, {})).size(), 5u);
    auto days = value(m_spReading->property_series(query, "size", store::Step::day, {}));
    EXPECT_EQ(days.size(), 5u);
    EXPECT_EQ(days.front().at, g_start);
}

TEST_P(StoreAnswers, CountWhatIsPastALimitAsOther)
{
    auto many = [](int events, const std::string& name, const std::string& members) {
        std::string text;
        for (int i = 0; i < events; ++i)
            text +=
                event_line(name + (members.empty() ? std::to_string(i) : ""), "i", 0,
                           std::regex_replace(members.empty() ? "{ }" : members, std::regex("#"), std::to_string(i))) +
                "\n";
        return text;
    };
    std::string seventy = "{ \"k\": 1";
    for (int i = 1; i < 70; ++i)
        seventy += ", \"k" + std::to_string(i) + "\": 1";
    const struct
    {
        std::string text;
        size_t names, values;    ///< rows that are not "(other)"
        uint64_t other;          ///< what that row counts
        bool everywhere = false; ///< else only where rollups are kept at every write: others show each value
    } rows[] = {{many(10007, "n", ""), 10000, 0, 7},
                {many(203, "n", "{ \"k#\": 1 }"), 1, 200, 3},
                {event_line("n", "i", 0, seventy + " }"), 1, 64, 6, true},
                {many(1004, "n", "{ \"k\": # }"), 1, 1000, 4}};
    for (const auto& row : rows) {
        begin_anew();
        write(upload(row.text));
        Query query;
        query.limit = 20000;
        size_t names = 0, values = 0;
        uint64_t other = 0;
        for (const auto& kept : value(m_spReading->names(query, {})).rows)
            kept.name == "(other)" ? other += kept.events : ++names;
        for (const auto& kept : value(m_spReading->properties(query, {})).rows)
            kept.key == "(other)" || kept.value.other ? other += kept.events : ++values;
        if (row.everywhere || GetParam().is_file) {
            EXPECT_EQ(std::tie(names, values, other), std::tie(row.names, row.values, row.other));
        } else {
            EXPECT_EQ(names + values, row.names + row.values + row.other);
        }
    }
}

TEST_P(StoreAnswers, FollowInstallationsByTheWeek)
{
    const Seconds monday = 20003 * 86400LL;
    const struct
    {
        const char* installation;
        int week;
    } rows[] = {{"a", 0}, {"a", 1}, {"a", 2}, {"b", 0}, {"b", 2}, {"c", 1}, {"c", 1}};
    std::string text;
    for (const auto& row : rows)
        text += event_line("n", row.installation, monday + row.week * 7 * 86400 + 86399) + "\n";
    write(upload(text));
    Query query;
    query.from = monday;
    query.to = monday + 21 * 86400;
    auto weeks = value(m_spReading->retention(query, {}));
    ASSERT_EQ(weeks.size(), 2u);
    EXPECT_EQ(weeks[0].week, monday);
    EXPECT_EQ(weeks[0].active, (std::vector<uint64_t>{2, 1, 2}));
    EXPECT_EQ(weeks[1].installations, 1u);
    EXPECT_EQ(weeks[1].active, (std::vector<uint64_t>{1, 0}));
}

TEST_P(StoreAnswers, EndWhenTheirTimeIsOver)
{
    fill();
    Query query;
    query.from = 1; // no full hour: rows have to be walked
    EXPECT_EQ(m_spReading->summary(query, {store::Clock::now(), nullptr}).fault().kind, store::FaultKind::late);
    EXPECT_TRUE(m_spReading->summary(query, {}));
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreAnswers, testing::ValuesIn(backends),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace test
