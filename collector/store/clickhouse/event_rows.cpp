#include "event_rows.h"

#include <algorithm>

namespace store::clickhouse {

Received read_event(RowReader& row)
{
    Received event;
    event.row.installation = row.text();
    event.row.application = row.text();
    event.row.version = row.text();
    std::string_view name = row.text();
    if (row.u8() != 0)
        event.row.name = name;
    event.row.logged_at = row.i64();
    event.receipt = row.u64();
    event.row.received_at = static_cast<Milliseconds>((uint64_t(1) << 63) - event.receipt);
    std::string_view batch = row.fixed(event.batch.size());
    std::copy(batch.begin(), batch.end(), event.batch.begin());
    if (row.u8() != 0)
        event.row.batch = event.batch;
    event.row.line = row.u32();
    event.line = row.u64();
    event.row.members = row.text();
    return event;
}

} // namespace store::clickhouse
