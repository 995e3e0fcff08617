#include "rows.h"

#include "row_binary.h"
#include "store/chain.h"

#include <algorithm>

#include <openssl/sha.h>

namespace store::clickhouse {

namespace {

constexpr Seconds g_first_week = 946684800; // 2000-01-01
constexpr Seconds g_last_week = 4102444799; // 2099-12-31
constexpr BatchId g_no_batch{};

constexpr TableFacts g_facts[g_kinds] = {
    {"events",
     "application, name, is_named, hour, installation, batch, line, week, logged, place, has_batch, version, members, "
     "p.key, p.type, p.text, p.is_fact, others, receipt",
     "application, name, is_named, hour, installation, batch, line",
     "application String, name String, is_named UInt8, hour Int32, installation String, batch FixedString(16), "
     "line UInt64"},
    {"rejects", "installation, batch, line, received, place, reason, text, receipt", "installation, batch, line",
     "installation String, batch FixedString(16), line UInt64"},
    {"drops", "batch, first, count, installation, received, receipt", "batch, first, count",
     "batch FixedString(16), first UInt32, count UInt32"},
    {"uploads", "collector, number, uploads, differs, last_received, receipt", "collector, number",
     "collector FixedString(16), number UInt64"},
};

int64_t floor_of(int64_t value, int64_t unit)
{
    return value / unit - (value % unit < 0);
}

std::string_view bytes_of(const BatchId& id)
{
    return {reinterpret_cast<const char*>(id.data()), id.size()};
}

// The engine keeps the row of the highest version: so that is the one that came first.
uint64_t receipt_of(Milliseconds received_at)
{
    return (uint64_t(1) << 63) - static_cast<uint64_t>(received_at);
}

// Places of one table only are alike; 128 bits of a hash that nobody can steer keep a sender from hiding another's
// rows.
Key key_of(Kind kind, std::string_view place)
{
    std::string text(1, static_cast<char>(kind));
    text += place;
    unsigned char hash[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), hash);
    Key key;
    std::copy_n(hash, key.size(), key.begin());
    return key;
}

Piece piece_of(Kind kind, std::string_view installation, size_t shards)
{
    Piece piece;
    piece.kind = kind;
    piece.shard = shard_of(installation, shards);
    piece.installation = installation;
    return piece;
}

LineAt line_at(const Upload& upload, size_t i)
{
    const bool is_batch = upload.batch.has_value();
    return {is_batch ? &*upload.batch : nullptr, is_batch ? upload.first_line + i : upload.lines[i].key,
            static_cast<uint32_t>((is_batch ? upload.first_line : 0) + i), upload.received_at};
}

std::string_view batch_of(const LineAt& at)
{
    return bytes_of(at.batch != nullptr ? *at.batch : g_no_batch);
}

Piece line_piece(const Upload& upload, size_t i, size_t shards)
{
    const Line& line = upload.lines[i];
    if (!line.is_event)
        return encode(upload.sender, upload.rejects[line.index], line_at(upload, i), shards);
    const Event& event = upload.events[line.index];
    const auto properties = std::span(upload.properties).subspan(event.first_property, event.properties);
    return encode(event, properties, line_at(upload, i), shards);
}

void write_properties(std::span<const Property> properties, RowWriter& row)
{
    row.array_size(properties.size());
    for (const Property& property : properties)
        row.text(property.key);
    row.array_size(properties.size());
    for (const Property& property : properties)
        row.u8(static_cast<uint8_t>(property.value.type));
    row.array_size(properties.size());
    for (const Property& property : properties)
        row.text(property.value.text);
    row.array_size(properties.size());
    for (const Property& property : properties)
        row.u8(property.is_fact);
}

} // namespace

const TableFacts& facts(Kind kind)
{
    return g_facts[static_cast<size_t>(kind)];
}

Piece encode(const Event& event, std::span<const Property> properties, const LineAt& at, size_t shards)
{
    Piece piece = piece_of(Kind::events, event.installation, shards);
    piece.week = week_of(event.logged_at);
    piece.day = day_of(event.logged_at);
    piece.application = event.application;
    RowWriter(piece.place)
        .text(event.application)
        .text(event.name.value_or(std::string_view()))
        .u8(event.name.has_value())
        .i32(hour_of(event.logged_at))
        .text(event.installation)
        .fixed(batch_of(at))
        .u64(at.number);
    piece.row.reserve(piece.place.size() + event.members.size() * 2 + 128);
    RowWriter row(piece.row);
    row.fixed(piece.place).u16(piece.week).i64(event.logged_at).u32(at.place).u8(at.batch != nullptr);
    row.text(event.version).text(event.members);
    write_properties(properties, row);
    row.u32(event.other_properties).u64(receipt_of(at.received_at));
    return piece;
}

Piece encode(std::string_view sender, const Reject& reject, const LineAt& at, size_t shards)
{
    Piece piece = piece_of(Kind::rejects, sender, shards);
    RowWriter(piece.place).text(sender).fixed(batch_of(at)).u64(at.number);
    RowWriter(piece.row)
        .fixed(piece.place)
        .i64(at.received_at)
        .u32(at.place)
        .text(reject.reason)
        .text(reject.text)
        .u64(receipt_of(at.received_at));
    return piece;
}

Piece encode_drop(std::string_view sender, const BatchId& batch, uint32_t first, uint32_t count,
                  Milliseconds received_at, size_t shards)
{
    Piece piece = piece_of(Kind::drops, sender, shards);
    RowWriter(piece.place).fixed(bytes_of(batch)).u32(first).u32(count);
    RowWriter(piece.row).fixed(piece.place).text(sender).i64(received_at).u64(receipt_of(received_at));
    return piece;
}

void encode(const Upload& upload, size_t shards, std::vector<Piece>& out)
{
    const size_t first = out.size();
    for (size_t i = 0; i < upload.lines.size(); ++i)
        out.push_back(line_piece(upload, i, shards));
    if (upload.batch && upload.dropped != 0)
        out.push_back(
            encode_drop(upload.sender, *upload.batch, upload.first_line, upload.dropped, upload.received_at, shards));
    for (size_t i = first; i < out.size(); ++i)
        out[i].key = key_of(out[i].kind, out[i].place);
}

bool touches(const Upload& upload, uint32_t shard, size_t shards)
{
    const auto is_there = [shard, shards](const Event& event) { return shard_of(event.installation, shards) == shard; };
    const bool has_own = !upload.rejects.empty() || upload.dropped != 0;
    return (has_own && shard_of(upload.sender, shards) == shard) ||
           std::any_of(upload.events.begin(), upload.events.end(), is_there);
}

Piece encode(const Taken& taken, size_t shards)
{
    Piece piece = piece_of(Kind::uploads, bytes_of(taken.collector), shards);
    RowWriter(piece.place).fixed(bytes_of(taken.collector)).u64(taken.number);
    RowWriter(piece.row)
        .fixed(piece.place)
        .u32(taken.uploads)
        .u32(taken.differs)
        .i64(taken.last_received_at)
        .u64(receipt_of(taken.last_received_at));
    piece.key = key_of(piece.kind, piece.place);
    return piece;
}

uint16_t week_of(Seconds logged_at)
{
    // 1970-01-01 was a Thursday.
    return static_cast<uint16_t>((day_of(std::clamp(logged_at, g_first_week, g_last_week)) + 3) / 7);
}

int32_t hour_of(Seconds logged_at)
{
    return static_cast<int32_t>(floor_of(logged_at, 3600));
}

Day day_of(Seconds logged_at)
{
    return static_cast<Day>(floor_of(logged_at, 86400));
}

} // namespace store::clickhouse
