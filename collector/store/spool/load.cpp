#include "load.h"

#include <set>

namespace store::spool {

std::optional<Load> read_load(Spool& spool, const Group& group, const Screen& screen)
{
    Load load;
    load.texts.reserve(group.blocks.size()); // the rows are slices of these
    std::set<std::pair<clickhouse::Day, std::string_view>> days;
    for (size_t at = 0; at < group.blocks.size(); ++at) {
        const Kind kind = group.blocks[at].kind;
        load.texts.push_back(spool.read(group.blocks[at].id));
        const std::vector<Row> rows = load.texts.back().read();
        if (rows.size() != group.blocks[at].lines)
            return std::nullopt;
        for (size_t number = 0; number < rows.size(); ++number) {
            if (is_screened(screen, kind, rows[number]))
                continue;
            load.lines[static_cast<size_t>(kind)].push_back({at, number, rows[number]});
            if (kind == Kind::events)
                days.emplace(rows[number].day, application_of(rows[number]));
        }
    }
    load.days.assign(days.begin(), days.end());
    return load;
}

} // namespace store::spool
