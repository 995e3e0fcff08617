#include "writing.h"

#include "schema.h"

#include <algorithm>

#include <sqlite3.h>

namespace store::sqlite {

struct SqliteWriting::Statements
{
    Statement data_version, add_upload, add_event, add_reject, add_block, add_seen, add_to_counter;

    explicit Statements(Database& database)
        : data_version(database, "PRAGMA data_version"),
          add_upload(database, "INSERT INTO uploads(received_at, batch) VALUES(?, ?)"),
          add_event(database, "INSERT INTO events(id, upload, line, installation, kind, logged_at, key, members) "
                              "VALUES(?, ?, ?, ?, ?, ?, ?, ?)"),
          add_reject(database, "INSERT INTO rejects(received_at, installation, line, key, reason, text) "
                               "VALUES(?, ?, ?, ?, ?, ?)"),
          add_block(database,
                    "INSERT INTO blocks(block, first, last, received) VALUES(?, ?, ?, ?) ON CONFLICT DO UPDATE "
                    "SET first=min(first, excluded.first), last=max(last, excluded.last), "
                    "received=min(received, excluded.received)"),
          add_seen(
              database,
              "INSERT INTO installed(installation, application, first_seen, last_seen, version) VALUES(?, ?, ?, ?, ?) "
              "ON CONFLICT DO UPDATE SET first_seen=min(first_seen, excluded.first_seen), "
              "version=CASE WHEN excluded.last_seen>=last_seen THEN excluded.version ELSE version END, "
              "last_seen=max(last_seen, excluded.last_seen)"),
          add_to_counter(database, "INSERT INTO counters(name, value) VALUES(?, ?) ON CONFLICT DO UPDATE "
                                   "SET value=value+excluded.value")
    {}
};

SqliteWriting::SqliteWriting(const std::string& path, std::chrono::milliseconds busy_wait,
                             std::shared_ptr<Readers> readers)
    : m_spReaders(std::move(readers))
{
    m_database.open(path, Access::write, busy_wait);
    m_spDictionary = std::make_unique<Dictionary>(m_database);
    m_spRollups = std::make_unique<Rollups>(m_database, *m_spDictionary);
    m_spBatches = std::make_unique<Batches>(m_database, *m_spRollups);
    m_spEnds = std::make_unique<Ends>(m_database);
    m_spStatements = std::make_unique<Statements>(m_database);
}

SqliteWriting::~SqliteWriting() = default;

// Another process may have given an id away, or removed one, since the last group: then nothing in memory holds.
bool SqliteWriting::begin()
{
    m_database.run("BEGIN IMMEDIATE");
    if (!m_spStatements->data_version.with().step())
        return false;
    int64_t version = m_spStatements->data_version.integer(0);
    if (version != m_data_version)
        forget_memory();
    m_data_version = version;
    m_spDictionary->trim();
    m_spRollups->trim();
    if (m_next_event == 0)
        m_next_event = 1 + m_database.number("SELECT value FROM counters WHERE name='last_event'");
    return m_database.ok();
}

bool SqliteWriting::commit()
{
    m_database.end_statements();
    m_database.run("COMMIT");
    if (m_database.ok())
        return true;
    sqlite3_exec(m_database.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    forget_memory();
    return false;
}

void SqliteWriting::forget_memory()
{
    m_spDictionary->clear();
    m_spRollups->clear();
    m_spBatches->clear();
    m_spEnds->clear();
    m_blocks.clear();
    m_seen.clear();
    m_counters.clear();
    m_next_event = 0;
}

Result<std::vector<Receipt>> SqliteWriting::write(std::span<const Upload* const> uploads, const GroupLimit& limit)
{
    auto end = Clock::now() + limit.time;
    size_t lines = 0;
    std::vector<Receipt> receipts;
    if (begin()) {
        do {
            lines += uploads[receipts.size()]->lines.size();
            receipts.push_back(take(*uploads[receipts.size()]));
        } while (receipts.size() < std::min(uploads.size(), limit.uploads) && Clock::now() < end &&
                 m_spRollups->changed_bytes() < limit.rollup_bytes &&
                 lines + uploads[receipts.size()]->lines.size() <= limit.lines);
        flush();
    }
    if (!commit())
        return m_database.take_fault();
    return receipts;
}

Receipt SqliteWriting::take(const Upload& upload)
{
    Receipt receipt;
    m_upload = 0;
    upload.batch ? take_batch(upload, receipt) : take_text(upload, receipt);
    m_counters["uploads"] += !upload.part || !upload.part->goes_on;
    m_counters["events"] += receipt.events;
    m_counters["rejects"] += receipt.rejects;
    m_counters["count_differs"] += upload.count_differs;
    int64_t& last = m_counters["last_received_at"]; // the amount to add to what stands there, as with all of them
    last = upload.received_at;
    return receipt;
}

void SqliteWriting::take_batch(const Upload& upload, Receipt& receipt)
{
    for (size_t i = 0; i < upload.lines.size(); ++i) {
        uint32_t number = upload.first_line + static_cast<uint32_t>(i);
        if (m_spBatches->add(*upload.batch, number, upload.received_at))
            add_line(upload, upload.lines[i], number, receipt);
        else
            ++receipt.known;
    }
    if (upload.dropped != 0)
        receipt.dropped = m_spBatches->tell(*upload.batch, upload.first_line, upload.dropped, upload.received_at,
                                            m_spDictionary->installation(upload.sender));
}

void SqliteWriting::take_text(const Upload& upload, Receipt& receipt)
{
    bool is_noted = upload.part || !upload.lines.empty();
    int64_t sender = is_noted ? m_spDictionary->installation(upload.sender) : 0;
    size_t known = is_noted && !upload.part ? m_spEnds->add(upload, sender) : 0;
    if (upload.part && !m_spEnds->add_part(upload, sender))
        m_database.fail({FaultKind::changed, "Another text of this sender came meanwhile."});
    for (size_t i = known; i < upload.lines.size(); ++i)
        add_line(upload, upload.lines[i], upload.first_line + static_cast<uint32_t>(i), receipt);
    receipt.known = static_cast<uint32_t>(known);
}

Result<std::vector<TextEnd>> SqliteWriting::ends(std::string_view sender)
{
    Statement find(m_database, "SELECT list FROM ends JOIN installations ON id=installation WHERE text=?");
    std::vector<TextEnd> ends;
    if (find.with(sender).step())
        ends = unpack_ends(find.text(0));
    return m_database.ok() ? Result(ends) : m_database.take_fault();
}

void SqliteWriting::add_line(const Upload& upload, const Line& line, uint32_t number, Receipt& receipt)
{
    if (line.is_event) {
        add_event(upload, line, number);
        ++receipt.events;
    } else {
        add_reject(upload, line, number);
        ++receipt.rejects;
    }
}

void SqliteWriting::add_event(const Upload& upload, const Line& line, uint32_t number)
{
    const Event& event = upload.events[line.index];
    const Kind& kind = m_spDictionary->kind(event);
    int64_t installation = m_spDictionary->installation(event.installation), id = m_next_event++;
    auto batch = upload.batch ? std::optional(std::span<const unsigned char>(*upload.batch)) : std::nullopt;
    auto key = upload.batch ? std::nullopt : std::optional(static_cast<int64_t>(line.key));
    if (m_upload == 0) {
        m_spStatements->add_upload.with(upload.received_at, batch).run();
        m_upload = sqlite3_last_insert_rowid(m_database.handle());
    }
    m_spStatements->add_event
        .with(id, m_upload, int64_t(number), installation, kind.id, event.logged_at, key, event.members)
        .run();
    m_spRollups->add(event, upload.properties.data() + event.first_property, kind, installation);

    Block fresh{event.logged_at, event.logged_at, upload.received_at};
    Block& block = m_blocks.try_emplace(id >> g_block_bits, fresh).first->second;
    block = {std::min(block.first, fresh.first), std::max(block.last, fresh.last),
             std::min(block.received, fresh.received)};
    Seen first{event.logged_at, event.logged_at, kind.version};
    Seen& seen = m_seen.try_emplace({installation, kind.application}, first).first->second;
    if (event.logged_at >= seen.last)
        seen.version = kind.version;
    seen.first = std::min(seen.first, event.logged_at);
    seen.last = std::max(seen.last, event.logged_at);
}

void SqliteWriting::add_reject(const Upload& upload, const Line& line, uint32_t number)
{
    const Reject& reject = upload.rejects[line.index];
    int64_t installation = m_spDictionary->installation(upload.sender);
    auto key = upload.batch ? std::nullopt : std::optional(static_cast<int64_t>(line.key));
    m_spStatements->add_reject.with(upload.received_at, installation, int64_t(number), key, reject.reason, reject.text)
        .run();
    m_spRollups->add_loss(hour_of(upload.received_at / 1000), installation, 1, 0);
}

void SqliteWriting::flush()
{
    m_spBatches->flush();
    m_spEnds->flush();
    m_spRollups->flush();
    for (const auto& [number, block] : m_blocks)
        m_spStatements->add_block.with(number, block.first, block.last, block.received).run();
    for (const auto& [place, seen] : m_seen)
        m_spStatements->add_seen.with(place.first, place.second, seen.first, seen.last, seen.version).run();
    m_counters["last_event"] =
        m_next_event - 1 - m_database.number("SELECT value FROM counters WHERE name='last_event'");
    m_counters["last_received_at"] -= m_database.number("SELECT value FROM counters WHERE name='last_received_at'");
    for (const auto& [name, amount] : m_counters)
        add_to_counter(name.c_str(), amount);
    m_blocks.clear();
    m_seen.clear();
    m_counters.clear();
}

void SqliteWriting::add_to_counter(const char* name, int64_t amount)
{
    if (amount != 0)
        m_spStatements->add_to_counter.with(std::string_view(name), amount).run();
}

} // namespace store::sqlite
