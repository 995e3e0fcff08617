// The side of a cluster that answers questions. Every figure counts an event once, also before the engine has merged
// its repetitions away.
#pragma once

#include "relations.h"
#include "shards.h"

#include "store/store.h"

namespace store::clickhouse {

/// What questions need to know besides the rows; asked on the very node that is questioned then. A node that fails here
/// fails in the question as well.
struct ReadingParts
{
    std::shared_ptr<const Layout> layout;
    /// The days in [first, end) that rollups tell of, for an application or, without one, for all. May be null: none.
    std::function<Closed(Client&, const std::optional<std::string>& application, Day first, Day end)> closed = nullptr;
    /// A condition that leaves out those who were forgotten and are still there, " AND installation NOT IN (...)"; may
    /// be null: nobody.
    std::function<std::string(Client&)> forgotten = nullptr;
};

std::unique_ptr<Reading> make_reading(ReadingParts parts);

} // namespace store::clickhouse
