#include "file_rows.h"

#include "intake/facts.h"
#include "store/members.h"
#include "store/sqlite/packed.h"
#include "store/sqlite/schema.h"

#include <set>

#include <openssl/sha.h>

namespace store::cluster {

using clickhouse::LineAt;
using clickhouse::Piece;
using sqlite::Statement;

namespace {

constexpr size_t g_remembered = 200000; // installations

BatchId hash_of(const std::string& text)
{
    unsigned char hash[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), hash);
    BatchId id;
    std::copy_n(hash, id.size(), id.begin());
    return id;
}

BatchId batch_id(std::string_view bytes)
{
    BatchId id{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), id.size()), id.begin());
    return id;
}

LineAt line_at(const std::optional<BatchId>& batch, int64_t line, int64_t key, Milliseconds received_at)
{
    return {batch ? &*batch : nullptr, static_cast<uint64_t>(batch ? line : key), static_cast<uint32_t>(line),
            received_at};
}

} // namespace

struct FileRows::Statements
{
    Statement events, rejects, kind, installation, upload, batch;

    explicit Statements(sqlite::Database& database)
        : events(database, "SELECT id, upload, line, installation, kind, logged_at, key, members FROM events "
                           "WHERE id>? ORDER BY id LIMIT ?"),
          rejects(database, "SELECT id, received_at, installation, line, key, reason, text FROM rejects "
                            "WHERE id>? ORDER BY id LIMIT ?"),
          kind(database, "SELECT a.text, v.text, n.text FROM kinds JOIN texts a ON a.id=application "
                         "JOIN texts v ON v.id=version LEFT JOIN texts n ON n.id=name WHERE kinds.id=?"),
          installation(database, "SELECT text FROM installations WHERE id=?"),
          upload(database, "SELECT received_at, batch FROM uploads WHERE id=?"),
          batch(database, "SELECT stored FROM batches WHERE batch=?")
    {}
};

FileRows::FileRows(const std::string& path, size_t shards) : m_shards(shards)
{
    m_database.open(path, sqlite::Access::read, std::chrono::milliseconds(30000));
    sqlite::check_schema(m_database);
    m_spStatements = std::make_unique<Statements>(m_database);
}

FileRows::~FileRows() = default;

std::optional<Fault> FileRows::take_fault()
{
    return m_database.ok() ? std::nullopt : std::optional(m_database.take_fault());
}

bool FileRows::next(size_t most, FilePlace& place, std::vector<Piece>& out)
{
    return next_events(most, place, out) || next_rejects(most, place, out);
}

bool FileRows::next_events(size_t most, FilePlace& place, std::vector<Piece>& out)
{
    const size_t before = out.size();
    Statement& rows = m_spStatements->events.with(place.event, static_cast<int64_t>(most));
    while (rows.step()) {
        place.event = rows.integer(0);
        add_event(out);
    }
    return out.size() != before;
}

void FileRows::add_event(std::vector<Piece>& out)
{
    Statement& row = m_spStatements->events;
    const From& origin = from(row.integer(1));
    const Kind& shared = kind(row.integer(4));
    Event event;
    event.application = shared.application;
    event.version = shared.version;
    event.name = shared.name;
    event.installation = installation(row.integer(3));
    event.logged_at = row.integer(5);
    event.members = row.text(7);
    read_members(event.members, event);
    out.push_back(clickhouse::encode(
        event, m_properties, line_at(origin.batch, row.integer(2), row.integer(6), origin.received_at), m_shards));
}

// As the intake read them: the stored members are what it made of the line.
void FileRows::read_members(std::string_view members, Event& event)
{
    m_properties.clear();
    m_digits.clear();
    m_digits.reserve(g_event_properties * sizeof(Digits)); // what lies in it stays in its place
    simdjson::dom::object object;
    if (m_parser.parse(members.data(), members.size()).get_object().get(object) != simdjson::SUCCESS)
        return;
    event.other_properties = for_each_property(object, [&](std::string_view key, Value value) {
        if (value.type == ValueType::number) {
            const size_t begin = m_digits.size();
            m_digits += value.text;
            value.text = std::string_view(m_digits).substr(begin);
        }
        m_properties.push_back({key, value, intake::is_fact(key)});
    });
    event.properties = static_cast<uint32_t>(m_properties.size());
}

bool FileRows::next_rejects(size_t most, FilePlace& place, std::vector<Piece>& out)
{
    const size_t before = out.size();
    Statement& rows = m_spStatements->rejects.with(place.reject, static_cast<int64_t>(most));
    while (rows.step()) {
        place.reject = rows.integer(0);
        add_reject(out);
    }
    return out.size() != before;
}

void FileRows::add_reject(std::vector<Piece>& out)
{
    Statement& row = m_spStatements->rejects;
    const Reject reject{row.text(5), row.text(6)};
    const std::string& sender = installation(row.integer(2));
    const auto line = static_cast<uint32_t>(row.integer(3));
    const auto batch =
        row.is_null(4) ? std::optional(batch_of_reject(sender, row.integer(1), line, reject.text)) : std::nullopt;
    out.push_back(clickhouse::encode(sender, reject, line_at(batch, line, row.integer(4), row.integer(1)), m_shards));
}

// The file does not keep a reject's batch: it is that of the events of the same moment which has the line among what
// was stored. Without one the reject gets a batch of its own, and only a repetition of that very line would count
// twice.
BatchId FileRows::batch_of_reject(std::string_view sender, Milliseconds received_at, uint32_t line,
                                  std::string_view text)
{
    if (!m_has_batches)
        load_batches_of_rejects();
    const auto [first, end] = m_batches.equal_range(received_at);
    for (auto one = first; one != end; ++one) {
        Statement& stored = m_spStatements->batch.with(std::span<const unsigned char>(one->second));
        if (stored.step() && sqlite::Ranges(stored.text(0)).has(line))
            return one->second;
    }
    return hash_of("reject\n" + std::string(sender) + "\n" + std::to_string(received_at) + "\n" + std::string(text));
}

void FileRows::load_batches_of_rejects()
{
    m_has_batches = true;
    Statement rows(m_database, "SELECT received_at, batch FROM uploads WHERE batch IS NOT NULL AND received_at IN "
                               "(SELECT received_at FROM rejects WHERE key IS NULL)");
    rows.with();
    while (rows.step())
        m_batches.emplace(rows.integer(0), batch_id(rows.text(1)));
}

std::vector<Piece> FileRows::drops()
{
    std::vector<Piece> pieces;
    Statement rows(m_database, "SELECT batch, told FROM batches WHERE length(told)>0");
    rows.with();
    while (rows.step())
        for (const sqlite::Told& told : sqlite::unpack_told(rows.text(1)))
            pieces.push_back(clickhouse::encode_drop(installation(told.installation), batch_id(rows.text(0)),
                                                     told.first, told.count, told.hour * 3600 * 1000, m_shards));
    return pieces;
}

std::vector<std::pair<clickhouse::Day, std::string>> FileRows::days()
{
    std::set<std::pair<clickhouse::Day, std::string>> days;
    Statement rows(m_database, "SELECT DISTINCT hour, text FROM hours JOIN kinds ON kinds.id=kind "
                               "JOIN texts ON texts.id=application");
    rows.with();
    while (rows.step())
        days.emplace(clickhouse::day_of(rows.integer(0) * 3600), std::string(rows.text(1)));
    return {days.begin(), days.end()};
}

uint64_t FileRows::rows()
{
    return static_cast<uint64_t>(
        m_database.number("SELECT (SELECT count(*) FROM events)+(SELECT count(*) FROM rejects)"));
}

int64_t FileRows::counter(const char* name)
{
    Statement row(m_database, "SELECT value FROM counters WHERE name=?");
    return row.with(std::string_view(name)).step() ? row.integer(0) : 0;
}

// Nothing in a store names it, so its first upload does.
BatchId FileRows::id()
{
    Statement row(m_database, "SELECT uploads.received_at, installations.text FROM events JOIN uploads ON "
                              "uploads.id=upload JOIN installations ON installations.id=installation "
                              "ORDER BY events.id LIMIT 1");
    if (!row.with().step())
        return hash_of("an empty store");
    return hash_of("store\n" + std::to_string(row.integer(0)) + "\n" + std::string(row.text(1)));
}

const FileRows::Kind& FileRows::kind(int64_t id)
{
    const auto [entry, is_new] = m_kinds.try_emplace(id);
    if (Statement& row = m_spStatements->kind; is_new && row.with(id).step()) {
        entry->second = {std::string(row.text(0)), std::string(row.text(1)), std::nullopt};
        if (!row.is_null(2))
            entry->second.name = row.text(2);
    }
    return entry->second;
}

const std::string& FileRows::installation(int64_t id)
{
    if (m_installations.size() > g_remembered)
        m_installations.clear();
    const auto [entry, is_new] = m_installations.try_emplace(id);
    if (is_new && m_spStatements->installation.with(id).step())
        entry->second = m_spStatements->installation.text(0);
    return entry->second;
}

const FileRows::From& FileRows::from(int64_t upload)
{
    Statement& row = m_spStatements->upload;
    if (m_from.upload != upload && row.with(upload).step()) {
        m_from = {upload, row.integer(0), std::nullopt};
        if (!row.is_null(1))
            m_from.batch = batch_id(row.text(1));
    }
    return m_from;
}

} // namespace store::cluster
