#include "lease.h"

#include "marks.h"
#include "row_binary.h"

#include <thread>

namespace store::clickhouse {

namespace {

constexpr int g_seconds = 60;
// Two that take it at once see each other's row after this; the lower number keeps it.
constexpr std::chrono::milliseconds g_settling(300);

} // namespace

Lease::Lease(std::string name) : m_name(std::move(name)), m_holder(random_bits()) {}

Answer<Lease::Held> Lease::look(Client& client, const Bounds& bounds) const
{
    auto answer = client.ask("SELECT holder FROM lease WHERE name=" + quoted(m_name) +
                                 " GROUP BY holder HAVING argMax(until, taken) > now() ORDER BY holder LIMIT 1 "
                                 "FORMAT RowBinary",
                             bounds);
    if (!answer)
        return answer.fault();
    if (answer->empty())
        return Held::free;
    return RowReader(*answer).u64() == m_holder ? Held::mine : Held::theirs;
}

Answer<Done> Lease::write(Client& client, int seconds, const Bounds& bounds)
{
    return client.run("INSERT INTO lease (name, holder, until, taken) SELECT " + quoted(m_name) + ", toUInt64(" +
                          std::to_string(m_holder) + "), now() + " + std::to_string(seconds) + ", toUInt64(" +
                          std::to_string(++m_written) + ")",
                      bounds);
}

Answer<bool> Lease::take(Client& client, const Bounds& bounds)
{
    auto before = look(client, bounds);
    if (!before)
        return before.fault();
    if (*before == Held::theirs)
        return false;
    if (auto written = write(client, g_seconds, bounds); !written)
        return written.fault();
    if (*before == Held::mine)
        return true;
    std::this_thread::sleep_for(g_settling);
    auto after = look(client, bounds);
    if (!after)
        return after.fault();
    if (*after != Held::mine)
        release(client, bounds);
    return *after == Held::mine;
}

void Lease::release(Client& client, const Bounds& bounds)
{
    (void)write(client, 0, bounds); // what is lost runs out by itself
}

} // namespace store::clickhouse
