#include "writing.h"

#include <algorithm>

namespace store::spool {

using clickhouse::Piece;

ClusterWriting::ClusterWriting(std::shared_ptr<Collecting> collecting, Keeping keeping)
    : m_spCollecting(std::move(collecting)),
      m_parts(m_spCollecting->m_parts),
      m_keeping(std::move(keeping)),
      m_probes(1 + m_parts.lanes.size())
{}

ClusterWriting::~ClusterWriting()
{
    end_settling();
}

void ClusterWriting::end_settling()
{
    m_spCollecting->m_spSettling->wait();
}

std::unique_ptr<Writing> Collecting::writing(const std::shared_ptr<Collecting>& collecting, Keeping keeping)
{
    return std::make_unique<ClusterWriting>(collecting, std::move(keeping));
}

ClusterWriting::Making ClusterWriting::begin() const
{
    Making making;
    making.parts.resize(m_parts.lanes.size() * clickhouse::g_kinds);
    making.taken.collector = m_parts.spool->collector();
    making.commit.number = making.taken.number = m_parts.spool->next_commit();
    return making;
}

Result<std::vector<Receipt>> ClusterWriting::write(std::span<const Upload* const> uploads, const GroupLimit& limit)
{
    const auto end = Clock::now() + limit.time;
    Making making = begin();
    std::vector<Receipt> receipts;
    size_t lines = 0;
    do {
        const Upload& upload = *uploads[receipts.size()];
        lines += upload.lines.size();
        receipts.push_back(take(upload, making));
    } while (receipts.size() < std::min(uploads.size(), limit.uploads) && Clock::now() < end &&
             lines + uploads[receipts.size()]->lines.size() <= limit.lines);
    if (auto fault = commit(making))
        return *fault;
    return receipts;
}

Receipt ClusterWriting::take(const Upload& upload, Making& making)
{
    m_pieces.clear();
    clickhouse::encode(upload, m_parts.lanes.size(), m_pieces);
    const Known::Answer known = m_parts.spool->take(upload, m_pieces, making.commit);
    Need& need = making.needs.emplace_back();
    Receipt receipt;
    for (size_t i = 0; i < m_pieces.size(); ++i) {
        const Piece& piece = m_pieces[i];
        const bool is_drop = piece.kind == Kind::drops;
        if (known.is_known[i]) {
            receipt.known += !is_drop;
            need.of(piece.shard).known = known.latest;
        } else if (!is_screened(piece, making)) {
            add(piece, making);
            need.of(piece.shard).own = making.commit.number;
            receipt.events += piece.kind == Kind::events;
            receipt.rejects += piece.kind == Kind::rejects;
            receipt.dropped += is_drop ? upload.dropped : 0;
        }
    }
    ++making.taken.uploads;
    making.taken.differs += upload.count_differs;
    making.taken.last_received_at = std::max(making.taken.last_received_at, upload.received_at);
    return receipt;
}

bool ClusterWriting::is_screened(const Piece& piece, Making& making) const
{
    const Screen& screen = m_parts.screen;
    if (piece.kind == Kind::events && screen.is_too_old && screen.is_too_old(piece.week))
        return ++making.too_old != 0;
    if (screen.is_forgotten && screen.is_forgotten(piece.installation))
        return ++making.forgotten != 0;
    return false;
}

void ClusterWriting::add(const Piece& piece, Making& making) const
{
    size_t& part = making.parts[piece.shard * clickhouse::g_kinds + static_cast<size_t>(piece.kind)];
    if (part == 0) {
        making.commit.parts.push_back({piece.shard, piece.kind, {}});
        part = making.commit.parts.size();
    }
    const std::string_view row = piece.row;
    making.commit.parts[part - 1].block.add({piece.week, piece.day, row, row.substr(0, piece.place.size())});
}

std::optional<Fault> ClusterWriting::commit(Making& making)
{
    // What is counted for the store's health alone: no upload waits for it.
    add(clickhouse::encode(making.taken, m_parts.lanes.size()), making);
    making.commit.received_at = making.taken.last_received_at;
    auto blocks = m_parts.spool->append(making.commit);
    if (!blocks) {
        m_parts.spool->give_up(making.commit);
        return blocks.fault();
    }
    for (const BlockFacts& block : *blocks)
        m_parts.lanes[block.shard]->add(block);
    m_parts.too_old += making.too_old;
    m_parts.forgotten += making.forgotten;
    m_needs = std::move(making.needs);
    return std::nullopt;
}

void ClusterWriting::settle(size_t upload, std::function<void(const std::optional<Fault>&)> done)
{
    if (m_parts.options.answer == AnswerBy::spool)
        return done(std::nullopt);
    m_spCollecting->m_spSettling->add(m_needs[upload], std::move(done));
}

std::optional<Fault> ClusterWriting::door()
{
    auto fault = m_spCollecting->door();
    if (!fault || fault->kind == FaultKind::full)
        return fault;
    return is_probe(0) ? std::nullopt : fault;
}

std::optional<Fault> ClusterWriting::door_for(const Upload& upload)
{
    for (uint32_t shard = 0; shard < m_parts.lanes.size(); ++shard) {
        auto fault = m_spCollecting->door(shard);
        if (fault && clickhouse::touches(upload, shard, m_parts.lanes.size()) && !is_probe(1 + shard))
            return fault;
    }
    return std::nullopt;
}

// One a second goes through a shut door: its answer tells whether a replica is back.
bool ClusterWriting::is_probe(size_t door)
{
    const int64_t now = std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch()).count();
    return m_probes[door].exchange(now) != now;
}

Result<Progress> ClusterWriting::retain(const Retention& retention)
{
    return m_keeping.retain ? m_keeping.retain(retention) : Result<Progress>(Progress{0, 0, true});
}

Result<uint64_t> ClusterWriting::forget(std::string_view installation, std::chrono::milliseconds wait)
{
    if (!m_keeping.forget)
        return Fault{FaultKind::other, "This store forgets nobody."};
    return m_keeping.forget(installation, wait);
}

} // namespace store::spool
