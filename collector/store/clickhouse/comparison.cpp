#include "comparison.h"

#include "rollups.h"
#include "row_binary.h"

#include <algorithm>
#include <set>
#include <thread>

namespace store::clickhouse {

namespace {

using namespace std::chrono_literals;

constexpr int g_looks = 10; // a second apart
constexpr auto g_first_day = Day(-700000), g_last_day = Day(3000000);

/// How many different rows there are, and the sum of their hashes.
struct Sum
{
    uint64_t rows = 0, hash = 0;
    bool operator==(const Sum&) const = default;
};
/// By application; for tables that have none by "".
using Sums = std::map<std::string, Sum>;

std::string date_of(Day day)
{
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
    char text[32];
    snprintf(text, sizeof text, "%04d-%02u-%02u", int(date.year()), unsigned(date.month()), unsigned(date.day()));
    return text;
}

std::string of_day(Day day)
{
    return "week = " + std::to_string(week_of(int64_t{day} * 86400)) + " AND hour >= " + std::to_string(day * 24) +
           " AND hour < " + std::to_string((day + 1) * 24);
}

/// What is compared in one table: each different row once.
struct Question
{
    const char* table;
    const char* application; ///< an expression
    const char* key;
    std::string where;
};

Answer<Sums> sums_of(Client& client, const Question& question)
{
    const auto answer = client.ask(std::string("SELECT a, count(), sum(h) FROM (SELECT ") + question.application +
                                   " AS a, cityHash64(" + question.key + ") AS h FROM " + question.table + " WHERE " +
                                   question.where + " GROUP BY a, " + question.key + ") GROUP BY a FORMAT RowBinary");
    if (!answer)
        return answer.fault();
    Sums sums;
    for (RowReader rows(*answer); !rows.done();) {
        Sum& sum = sums[std::string(rows.text())];
        sum.rows = rows.u64();
        sum.hash = rows.u64();
    }
    return sums;
}

/// The rows of one application's day, as text for a person.
Answer<std::set<std::string>> keys_of(Client& client, const Question& question, const std::string& application)
{
    const auto answer =
        client.ask("SELECT DISTINCT concat('installation ', installation, ', batch ', lower(hex(batch)), ', line ', "
                   "toString(line)) FROM events WHERE " +
                   question.where + " AND application = " + quoted(application) + " FORMAT RowBinary");
    if (!answer)
        return answer.fault();
    std::set<std::string> keys;
    for (RowReader rows(*answer); !rows.done();)
        keys.emplace(rows.text());
    return keys;
}

class Comparison
{
public:
    Comparison(const Layout& layout, size_t shard, std::vector<std::string>& found) : m_shard(shard), m_found(found)
    {
        for (const Node& node : layout.shards[shard]) {
            Client client(node, layout);
            const auto answer = client.ask("SELECT 1 FORMAT RowBinary");
            if (answer)
                m_clients.push_back(std::move(client));
            else
                m_found.push_back("not compared: " + answer.fault().text);
        }
    }

    std::set<Day> days(Day first, Day end)
    {
        std::set<Day> days;
        for (Client& client : m_clients) {
            const auto answer =
                client.ask("SELECT DISTINCT toInt32(intDiv(hour + 24000000, 24) - 1000000) AS day FROM events WHERE "
                           "hour >= " +
                           std::to_string(int64_t{first} * 24) + " AND hour < " + std::to_string(int64_t{end} * 24) +
                           " FORMAT RowBinary");
            note(answer);
            for (RowReader rows(answer ? *answer : std::string_view()); !rows.done();)
                days.insert(rows.i32());
        }
        return days;
    }

    void compare_day(Day day)
    {
        const Question question{"events", "application", "name, is_named, hour, installation, batch, line",
                                of_day(day)};
        compare_replicas(question, date_of(day) + ": ");
        for (Client& client : m_clients)
            compare_rollups(client, day);
    }

    void compare_others(Day first, Day end)
    {
        const std::string received = "received >= " + std::to_string(std::max<int64_t>(first, 0) * 86400000) +
                                     " AND received < " + std::to_string(std::max<int64_t>(end, 0) * 86400000);
        compare_replicas({"rejects", "''", "installation, batch, line", received}, "");
        compare_replicas({"drops", "''", "batch, first, count", received}, "");
    }

private:
    template <class T>
    bool note(const Answer<T>& answer)
    {
        if (!answer)
            m_found.push_back("not compared: " + answer.fault().text);
        return bool(answer);
    }

    std::string where() const { return "shard " + std::to_string(m_shard + 1) + ", "; }

    /// All replicas with the first, until they are equal or it has taken too long.
    void compare_replicas(const Question& question, const std::string& when)
    {
        for (size_t i = 1; i < m_clients.size(); ++i) {
            Sums left, right;
            for (int look = 0; look < g_looks; ++look) {
                if (look != 0)
                    std::this_thread::sleep_for(1s);
                const auto one = sums_of(m_clients.front(), question), other = sums_of(m_clients[i], question);
                if (!note(one) || !note(other))
                    return;
                left = *one;
                right = *other;
                if (left == right)
                    break;
            }
            std::set<std::string> applications;
            for (const Sums* sums : {&left, &right})
                for (const auto& [application, sum] : *sums)
                    applications.insert(application);
            for (const std::string& application : applications)
                if (!(left[application] == right[application]))
                    tell(question, when, m_clients[i], application, left[application], right[application]);
        }
    }

    void tell(const Question& question, const std::string& when, Client& other, const std::string& application,
              const Sum& left, const Sum& right)
    {
        Client& one = m_clients.front();
        std::string text = where() + when + question.table + (application.empty() ? "" : " of " + application) + ": " +
                           one.node().name() + " has " + std::to_string(left.rows) + " rows, " + other.node().name() +
                           " has " + std::to_string(right.rows);
        if (question.table == std::string("events"))
            text += missing(one, other, question, application) + missing(other, one, question, application);
        m_found.push_back(text);
    }

    static std::string missing(Client& here, Client& there, const Question& question, const std::string& application)
    {
        const auto has = keys_of(here, question, application), wanted = keys_of(there, question, application);
        if (!has || !wanted)
            return "";
        std::vector<std::string> lacks;
        std::set_difference(wanted->begin(), wanted->end(), has->begin(), has->end(), std::back_inserter(lacks));
        return lacks.empty() ? ""
                             : "; " + here.node().name() + " lacks " + std::to_string(lacks.size()) +
                                   ", the first: " + lacks.front();
    }

    /// Events and different installations by application and hour.
    using Counts = std::map<std::pair<std::string, int32_t>, std::pair<uint64_t, uint64_t>>;
    std::optional<Counts> counts(Client& client, const std::string& events_from)
    {
        const auto answer = client.ask("SELECT application, hour, uniqExact(installation), " + events_from +
                                       " GROUP BY application, hour FORMAT RowBinary");
        if (!note(answer))
            return std::nullopt;
        Counts all;
        for (RowReader rows(*answer); !rows.done();) {
            std::string application(rows.text());
            const int32_t hour = rows.i32();
            auto& [events, installations] = all[{std::move(application), hour}];
            installations = rows.u64();
            events = rows.u64();
        }
        return all;
    }

    /// A day without a rollup that counts is answered from rows, so nothing can differ.
    void compare_rollups(Client& client, Day day)
    {
        const Closed closed = closed_days(client, std::nullopt, day, day + 1);
        if (closed.days.empty())
            return;
        const auto rolled = counts(client, "sum(events) FROM roll_active WHERE day = " + std::to_string(day) +
                                               " AND (" + closed.rolls + ")");
        const auto rows =
            counts(client, "count() FROM (SELECT application, hour, installation FROM events WHERE " + of_day(day) +
                               " GROUP BY application, name, is_named, hour, installation, batch, line)");
        if (!rolled || !rows)
            return;
        const auto differ = std::mismatch(rolled->begin(), rolled->end(), rows->begin(), rows->end());
        if (differ.first == rolled->end() && differ.second == rows->end())
            return;
        const auto& [place, counted] = differ.first != rolled->end() ? *differ.first : *differ.second;
        m_found.push_back(where() + date_of(day) + ": the rollup on " + client.node().name() +
                          " and the rows differ, " + "first for " + place.first + " in hour " +
                          std::to_string(place.second - day * 24) +
                          ": run \"analytics-collector cluster rollup\", which makes it again");
    }

    const size_t m_shard;
    std::vector<std::string>& m_found;
    std::vector<Client> m_clients;
};

} // namespace

std::vector<std::string> compare(const Layout& layout, Day first, Day end,
                                 const std::function<void(const Progress&)>& report)
{
    std::vector<std::string> found;
    first = std::max(first, g_first_day);
    end = std::min(end, g_last_day);
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        Comparison comparison(layout, shard, found);
        const std::set<Day> days = comparison.days(first, end);
        Progress progress{shard * std::max<size_t>(days.size(), 1),
                          layout.shards.size() * std::max<size_t>(days.size(), 1)};
        for (const Day day : days) {
            comparison.compare_day(day);
            ++progress.done;
            report(progress);
        }
        comparison.compare_others(first, end);
    }
    return found;
}

} // namespace store::clickhouse
