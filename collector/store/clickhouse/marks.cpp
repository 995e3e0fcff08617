#include "marks.h"

#include "row_binary.h"

#include <openssl/rand.h>

namespace store::clickhouse {

uint64_t random_bits()
{
    uint64_t bits = 0;
    RAND_bytes(reinterpret_cast<unsigned char*>(&bits), sizeof bits);
    return bits;
}

Answer<Done> write_marks(Client& client, std::span<const Dated> days, const Bounds& bounds)
{
    if (days.empty())
        return Done();
    std::string rows;
    for (const auto& [day, application] : days)
        RowWriter(rows).i32(day).text(application).u64(random_bits());
    return client.insert("marks", "day, application, mark", rows, bounds);
}

Answer<std::map<Dated, MarkSet>> read_marks(Client& client, const std::optional<std::string>& application, Day first,
                                            Day end, const Bounds& bounds)
{
    std::string sql = "SELECT day, application, sum(n), sum(mark) FROM marks WHERE day>=" + std::to_string(first) +
                      " AND day<" + std::to_string(end);
    if (application)
        sql += " AND application=" + quoted(*application);
    auto answer = client.ask(sql + " GROUP BY day, application FORMAT RowBinary", bounds);
    if (!answer)
        return answer.fault();
    std::map<Dated, MarkSet> marks;
    for (RowReader rows(*answer); !rows.done();) {
        Day day = rows.i32();
        std::string_view of = rows.text();
        uint64_t number = rows.u64(), sum = rows.u64();
        marks[{day, std::string(of)}] = {number, sum};
    }
    return marks;
}

} // namespace store::clickhouse
