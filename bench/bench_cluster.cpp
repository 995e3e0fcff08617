// The collector in front of a cluster: from an upload to a row that is on a machine besides its own disk.
#include "cluster_nodes.h"
#include "collector_events.h"
#include "collector_program.h"

#include "store/clickhouse/client.h"
#include "store/clickhouse/rows.h"
#include "store/cluster/move.h"
#include "store/store.h"

#include <list>
#include <stdexcept>

using namespace bench;
using namespace store::clickhouse;

namespace {

constexpr int g_uploads = 4000, g_events = 100;
constexpr size_t g_connections = 500; // an answer waits for its group, so many uploads are under way at once
constexpr size_t g_group = 100000;    // lines of an insert, as the collector's

/// Events by their shard, as RowBinary in groups.
using Groups = std::vector<std::vector<std::string>>;

Groups encoded_groups(size_t shards, const std::vector<store::Upload>& uploads)
{
    Groups groups(shards);
    std::vector<size_t> lines(shards);
    std::vector<Piece> pieces;
    for (const store::Upload& upload : uploads) {
        pieces.clear();
        encode(upload, shards, pieces);
        for (const Piece& piece : pieces) {
            if (lines[piece.shard]++ % g_group == 0)
                groups[piece.shard].emplace_back();
            groups[piece.shard].back() += piece.row;
        }
    }
    return groups;
}

/// The reference: one connection a shard, nothing but inserts.
/// @return seconds
double bare_insert(const std::string& address, const Groups& groups)
{
    const Layout layout = *parse_address(address, {});
    const auto send = [&](size_t shard) {
        Client client(layout.shards[shard][0], layout);
        const TableFacts& table = facts(Kind::events);
        for (const std::string& rows : groups[shard])
            if (!client.insert(table.name, table.columns, rows))
                throw std::runtime_error("a node did not take an insert");
    };
    return seconds_of([&] { at_once(layout.shards.size(), send); });
}

/// @return uploads a second
double through_collectors(const std::string& address, int count, const std::vector<std::string>& uploads,
                          const std::vector<std::string>& options = {})
{
    const Folder folder;
    std::list<CollectorProgram> programs;
    std::vector<const CollectorProgram*> all;
    for (int i = 0; i < count; ++i) {
        std::vector<std::string> words = {"--store", address, "--spool",
                                          folder.file("spool" + std::to_string(i) + ".db")};
        words.insert(words.end(), options.begin(), options.end());
        all.push_back(&programs.emplace_back(words));
    }
    return static_cast<double>(uploads.size()) / seconds_to_take(all, uploads, g_connections);
}

void write_file(const std::string& path, const std::vector<store::Upload>& uploads)
{
    auto store = std::move(*store::open(path, {store::Opening::create}));
    auto writing = std::move(*store->writing());
    std::vector<const store::Upload*> waiting;
    waiting.reserve(uploads.size());
    for (const store::Upload& upload : uploads)
        waiting.push_back(&upload);
    for (size_t at = 0; at < waiting.size();)
        at +=
            writing->write(std::span(waiting).subspan(at), {1000, g_group, 64 << 20, std::chrono::seconds(10)})->size();
}

/// @return seconds
double moved(const std::string& address, const std::string& file)
{
    const Layout layout = *parse_address(address, {});
    return seconds_of([&] {
        if (!store::cluster::move_file(file, layout, {g_group, true}, [](const store::Progress&) {}))
            throw std::runtime_error("a store was not moved");
    });
}

// More rows than the others have: half a second of a move is the same for any file.
void move_row(Table& table, ClusterNodes& nodes)
{
    constexpr int count = 10000;
    const Folder folder;
    const std::string file = folder.file("events.db");
    const std::vector<store::Upload> uploads = collector_uploads(0, count);
    write_file(file, uploads);
    const Groups groups = encoded_groups(2, uploads);
    const auto rate = [](double seconds) { return count * g_events / seconds; };
    table.row("a file's 1,000,000 rows moved into two shards", "bare RowBinary inserts of the rows",
              compare_figures([&] { return rate(moved(nodes.new_database(), file)); },
                              [&] { return rate(bare_insert(nodes.new_database(), groups)); }, "events/s", 3),
              at_least(0.25, 0.5));
}

const Group cluster_rows("cluster: writing", [](Table& table) {
    const auto nodes = ClusterNodes::start(table);
    if (!nodes)
        return;
    const std::vector<std::string> uploads = upload_requests(0, g_uploads);
    const Groups groups = encoded_groups(2, collector_uploads(0, g_uploads));
    table.row("uploads of 100 events into two shards", "bare RowBinary inserts of the rows",
              compare_figures([&] { return g_events * through_collectors(nodes->new_database(), 1, uploads); },
                              [&] { return g_uploads * g_events / bare_insert(nodes->new_database(), groups); },
                              "events/s", 3),
              at_least(0.06, 0.12));
    move_row(table, *nodes);
    // The check of a token is what one thread for tokens limits, so the rest is kept small beside it: uploads of ten
    // events, as hosts with 50 events a day send, answered before the nodes have their part. A larger share of the rest
    // would measure the two processors, which bench, collectors and nodes have to share here.
    const std::vector<std::string> small = upload_requests(0, g_uploads, 10);
    const std::vector<std::string> one_thread = {"--token-threads", "1", "--answer", "spool"};
    table.row("two collectors of one token thread, --answer spool", "one such collector, uploads of 10 events",
              compare_figures([&] { return through_collectors(nodes->new_database(), 2, small, one_thread); },
                              [&] { return through_collectors(nodes->new_database(), 1, small, one_thread); },
                              "uploads/s", 3),
              at_least(1.2, 0));
});

} // namespace
