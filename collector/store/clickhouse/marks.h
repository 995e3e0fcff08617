// Marks say that rows of a day came, or are about to: a random id is written to the shard before a group's rows and
// again when its replicas have them. A rollup of the day counts only as long as the set of marks is the one that was
// there before it read the rows, so no late row stays hidden behind it, and no clock has a say.
#pragma once

#include "client.h"
#include "rows.h"

#include <map>
#include <span>

namespace store::clickhouse {

/// A day of one application.
using Dated = std::pair<Day, std::string>;

/// Stands for a set of marks: two sets share it with one chance in 2^64.
struct MarkSet
{
    uint64_t number = 0, sum = 0;
    bool operator==(const MarkSet&) const = default;
};

/// A new mark for each of the days. @return a trouble: it may be there all the same, which does no harm
Answer<Done> write_marks(Client& client, std::span<const Dated> days, const Bounds& bounds = {});

/// The marks of the days in [first, end), of one application or of all.
Answer<std::map<Dated, MarkSet>> read_marks(Client& client, const std::optional<std::string>& application, Day first,
                                            Day end, const Bounds& bounds = {});

/// 64 random bits.
uint64_t random_bits();

} // namespace store::clickhouse
