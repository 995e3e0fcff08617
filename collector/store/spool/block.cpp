#include "block.h"

#include "store/clickhouse/row_binary.h"

namespace store::spool {

using clickhouse::RowReader;
using clickhouse::RowWriter;

std::string_view application_of(const Row& row)
{
    return RowReader(row.place).text();
}

std::string_view installation_of(Kind kind, const Row& row)
{
    RowReader reader(row.bytes);
    if (kind == Kind::events) {
        reader.text(); // application
        reader.text(); // name
        reader.u8();
        reader.i32();
    } else if (kind == Kind::drops) {
        reader.fixed(row.place.size());
    } else if (kind == Kind::uploads) {
        return {};
    }
    return reader.text();
}

bool is_screened(const Screen& screen, Kind kind, const Row& row)
{
    if (kind == Kind::events && screen.is_too_old && screen.is_too_old(row.week))
        return true;
    return kind != Kind::uploads && screen.is_forgotten && screen.is_forgotten(installation_of(kind, row));
}

void Block::add(const Row& row)
{
    RowWriter(index)
        .u32(static_cast<uint32_t>(row.bytes.size()))
        .u32(static_cast<uint32_t>(row.place.size()))
        .u16(row.week)
        .i32(row.day);
    rows += row.bytes;
    ++lines;
}

std::vector<Row> Block::read() const
{
    std::vector<Row> found;
    found.reserve(lines);
    RowReader entries(index), bytes(rows);
    while (!entries.done()) {
        const uint32_t size = entries.u32(), place = entries.u32();
        Row row{entries.u16(), entries.i32(), bytes.fixed(size), {}};
        if (!entries.ok() || !bytes.ok() || place > size)
            break;
        row.place = row.bytes.substr(0, place);
        found.push_back(row);
    }
    return found;
}

} // namespace store::spool
