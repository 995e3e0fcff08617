#include "move.h"

#include "file_rows.h"
#include "lane.h"

#include "store/clickhouse/keeping.h"
#include "store/clickhouse/marks.h"
#include "store/clickhouse/row_binary.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

namespace store::cluster {

namespace {

using clickhouse::Client;
using clickhouse::Layout;
using clickhouse::Piece;

constexpr size_t g_read_at_once = 10000;

// What an earlier move of this file into this cluster did.
struct Past
{
    FilePlace place;
    int64_t uploads = 0, differs = 0;
    uint64_t rows = 0;
};

std::string target_of(const Layout& layout)
{
    std::string text = layout.database;
    for (const auto& shard : layout.shards) {
        text += "+";
        for (const clickhouse::Node& node : shard)
            text += node.name() + ",";
    }
    return text;
}

Past read_past(const std::string& path, const std::string& target)
{
    std::ifstream in(path);
    std::string into;
    Past past;
    const bool is_whole = std::getline(in, into) &&
                          in >> past.place.event >> past.place.reject >> past.uploads >> past.differs >> past.rows;
    return is_whole && into == target ? past : Past();
}

// Appears whole or not at all.
std::optional<Fault> write_past(const std::string& path, const std::string& target, const Past& past)
{
    std::string text = target;
    for (const int64_t number :
         {past.place.event, past.place.reject, past.uploads, past.differs, static_cast<int64_t>(past.rows)})
        text += (text.size() == target.size() ? "\n" : " ") + std::to_string(number);
    text += "\n";
    const std::string made = path + ".new";
    const int out = ::open(made.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool written = out >= 0 && ::write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                         fsync(out) == 0 && std::rename(made.c_str(), path.c_str()) == 0;
    const int error = errno;
    if (out >= 0)
        ::close(out);
    if (!written)
        return Fault{FaultKind::full, made + ": " + std::strerror(error) + "."};
    return std::nullopt;
}

// A stretch of rows, and where the file was read to when it ended.
struct Stretch
{
    Past past;
    Open open;
};

class Move
{
public:
    Move(const std::string& file, const Layout& layout, const MoveOptions& options)
        : m_layout(layout),
          m_options(options),
          m_state(file + "-moved"),
          m_target(target_of(layout)),
          m_rows(file, layout.shards.size()),
          m_past(options.from_the_start ? Past() : read_past(m_state, m_target)),
          m_loads(layout.shards.size())
    {
        for (size_t shard = 0; shard < layout.shards.size(); ++shard)
            m_lanes.push_back(std::make_unique<Lane>(layout, shard));
    }

    Result<Moved> run(const std::function<void(const Progress&)>& report)
    {
        const std::vector<clickhouse::Dated> days = m_rows.days();
        // Rollups of these days count no more from here on, nor do those made before all rows are in.
        const bool is_done =
            !fault(m_rows.take_fault()) && read_excluded() && mark(days) && send_rows(report) && send_rest() && sync();
        if (is_done)
            mark(days);
        if (m_fault)
            return *m_fault;
        return m_moved;
    }

private:
    bool fault(std::optional<Fault> found)
    {
        if (!m_fault)
            m_fault = std::move(found);
        return m_fault.has_value();
    }

    bool send_rows(const std::function<void(const Progress&)>& report)
    {
        const uint64_t total = m_rows.rows();
        while (send_stretch(report, total))
            note_finished(false);
        note_finished(true);
        return !m_fault;
    }

    /// As many rows as fill about one insert of each shard, and no insert goes beyond it. False at the end.
    bool send_stretch(const std::function<void(const Progress&)>& report, uint64_t total)
    {
        const Open open = std::make_shared<std::atomic<unsigned>>(0);
        size_t count = 0;
        std::vector<Piece> pieces;
        while (!m_fault && count < m_options.group_lines * m_lanes.size() &&
               m_rows.next(g_read_at_once, m_past.place, pieces)) {
            for (const Piece& piece : pieces)
                add(piece, open);
            count += pieces.size();
            pieces.clear();
            report({m_past.rows + count, total, false});
        }
        flush(open);
        fault(m_rows.take_fault());
        m_moved.rows += count;
        m_past.rows += count;
        m_stretches.push_back({m_past, open});
        return count != 0 && !m_fault;
    }

    void add(const Piece& piece, const Open& open)
    {
        if (is_excluded(piece))
            return;
        Load& load = m_loads[piece.shard];
        if (!load.takes(piece, m_options.group_lines))
            give(piece.shard, open);
        load.add(piece);
    }

    void give(size_t shard, const Open& open)
    {
        Load load = std::exchange(m_loads[shard], Load());
        load.open = open;
        if (!m_lanes[shard]->give(std::move(load)))
            fault(m_lanes[shard]->finish());
    }

    void flush(const Open& open)
    {
        for (size_t shard = 0; shard < m_loads.size(); ++shard)
            if (m_loads[shard].lines != 0)
                give(shard, open);
    }

    /// Writes down how far the file is in the cluster.
    void note_finished(bool waits_for_all)
    {
        for (auto& lane : m_lanes)
            if (waits_for_all)
                fault(lane->finish());
        std::optional<Past> reached;
        while (!m_stretches.empty() && *m_stretches.front().open == 0) {
            reached = m_stretches.front().past;
            m_stretches.pop_front();
        }
        if (reached)
            fault(write_past(m_state, m_target, *reached));
    }

    /// What is too little to be counted on the way: dropped lines, and the file's own figures.
    bool send_rest()
    {
        for (const Piece& piece : m_rows.drops()) {
            add(piece, nullptr);
            ++m_moved.drops;
        }
        Past past = m_past;
        past.uploads = m_rows.counter("uploads");
        past.differs = m_rows.counter("count_differs");
        m_moved.uploads = static_cast<uint64_t>(std::max<int64_t>(past.uploads - m_past.uploads, 0));
        if (m_moved.uploads != 0)
            add(clickhouse::encode(clickhouse::Taken{m_rows.id(), static_cast<uint64_t>(past.uploads),
                                                     static_cast<uint32_t>(m_moved.uploads),
                                                     static_cast<uint32_t>(past.differs - m_past.differs),
                                                     m_rows.counter("last_received_at")},
                                   m_loads.size()),
                nullptr);
        flush(nullptr);
        for (auto& lane : m_lanes)
            fault(lane->finish());
        return !fault(m_rows.take_fault()) && !fault(write_past(m_state, m_target, past));
    }

    bool mark(const std::vector<clickhouse::Dated>& days)
    {
        for (const auto& replicas : m_layout.shards) {
            std::optional<clickhouse::Trouble> trouble;
            for (const clickhouse::Node& node : replicas) {
                Client client(node, m_layout);
                const auto written = clickhouse::write_marks(client, days);
                trouble = written ? std::nullopt : std::optional(written.fault());
                if (written)
                    break;
            }
            if (trouble && fault(clickhouse::fault_of(*trouble)))
                return false;
        }
        return true;
    }

    /// Waits until every replica has fetched what its peer was given.
    bool sync()
    {
        const auto begun = Clock::now();
        for (const auto& replicas : m_layout.shards)
            for (const clickhouse::Node& node : replicas) {
                Client client(node, m_layout);
                const auto trouble = wait_for_peer(client, begun);
                if (trouble && fault(Fault{FaultKind::busy, "All rows are in the cluster, but not yet on every node: " +
                                                                trouble->text + "; move again when it is back."}))
                    return false;
            }
        return true;
    }

    // Most often a look at the queues is enough. The engine's own wait is for merges as well, and for what others
    // insert. 0 and 0 stand for an empty table and for one whose first entry was not looked at yet: that takes no half
    // second.
    std::optional<clickhouse::Trouble> wait_for_peer(Client& client, Clock::time_point begun) const
    {
        const std::string waits =
            "SELECT toUInt64(countIf(log_max_index > 0 OR log_pointer > 0 OR inserts_in_queue > 0)), "
            "count() FROM system.replicas WHERE database = " +
            clickhouse::quoted(m_layout.database) +
            " AND table IN ('events', 'rejects', 'drops', 'uploads') AND "
            "(inserts_in_queue > 0 OR log_pointer <= log_max_index) FORMAT RowBinary";
        while (Clock::now() < begun + std::chrono::seconds(5)) {
            const auto answer = client.ask(waits);
            if (!answer)
                return answer.fault();
            clickhouse::RowReader rows(*answer);
            const uint64_t behind = rows.u64(), perhaps = rows.u64();
            if (behind == 0 && (perhaps == 0 || Clock::now() > begun + std::chrono::milliseconds(500)))
                return std::nullopt;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        clickhouse::Bounds bounds;
        bounds.time = std::chrono::minutes(10);
        for (const char* table : {"events", "rejects", "drops", "uploads"})
            if (const auto done = client.run(std::string("SYSTEM SYNC REPLICA ") + table, bounds); !done)
                return done.fault();
        return std::nullopt;
    }

    /// What the cluster keeps no more: dropped weeks, forgotten installations.
    bool read_excluded()
    {
        for (size_t shard = 0; shard < m_layout.shards.size(); ++shard) {
            std::vector<Client> clients = clickhouse::clients_of(m_layout, shard);
            const auto excluded =
                clickhouse::with_any(clients, [](Client& client) { return clickhouse::read_excluded(client, {}); });
            if (!excluded && fault(clickhouse::fault_of(excluded.fault())))
                return false;
            m_excluded.last_week = std::max(m_excluded.last_week, excluded->last_week);
            m_excluded.hashes.insert(excluded->hashes.begin(), excluded->hashes.end());
        }
        return true;
    }

    bool is_excluded(const Piece& piece) const
    {
        return (piece.kind == clickhouse::Kind::events && piece.week <= m_excluded.last_week) ||
               (!m_excluded.hashes.empty() &&
                m_excluded.hashes.count(clickhouse::hash_of(piece.installation, m_layout.secret)) != 0);
    }

    const Layout& m_layout;
    const MoveOptions m_options;
    const std::string m_state, m_target;
    FileRows m_rows;
    Past m_past;
    clickhouse::Excluded m_excluded;
    Moved m_moved;
    std::optional<Fault> m_fault;
    std::vector<Load> m_loads;
    std::deque<Stretch> m_stretches;
    std::vector<std::unique_ptr<Lane>> m_lanes; ///< last: their threads end before what stands above
};

} // namespace

Result<Moved> move_file(const std::string& file, const Layout& layout, const MoveOptions& options,
                        const std::function<void(const Progress&)>& report)
{
    if (access(file.c_str(), R_OK) != 0)
        return Fault{FaultKind::missing, file + ": " + std::strerror(errno) + "."};
    return Move(file, layout, options).run(report);
}

} // namespace store::cluster
