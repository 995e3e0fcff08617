// The contract of a place where events are kept. What lies behind it (a file, a cluster) is its own business: there is
// no SQL here, and whoever asks learns of no table.
//
// An event is counted once however often it is sent. With a batch it is (batch, line); without one the chained hash of
// its file's lines up to it (chain.h), by the rules that Writing::write tells.
//
// Threads: a Store is for any thread; what its functions hand out is for one thread at a time.
#pragma once

#include "answers.h"
#include "cluster_status.h"
#include "logouts.h"
#include "result.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <span>

namespace store {

using Clock = std::chrono::steady_clock;

/// What became of one upload.
struct Receipt
{
    uint32_t events = 0;  ///< stored now
    uint32_t rejects = 0; ///< stored now, among the rejects
    uint32_t known = 0;   ///< lines that were stored before
    uint32_t dropped = 0; ///< lines newly told as thrown away
};

/// Everything older than this goes.
struct Retention
{
    /// Raw events and rejects: by the earlier of `logged_at` and receipt.
    std::optional<Milliseconds> raw_before;
    /// Rollups, and with them what is remembered of batches and repetitions.
    std::optional<Milliseconds> rollups_before;
};

/// One step of a long operation: how far it is.
struct Progress
{
    uint64_t done = 0, total = 0; ///< in the operation's own unit; total is an estimate
    bool finished = false;
};

/// Where a group of uploads ends. An upload is never divided: one alone is written whatever its size.
struct GroupLimit
{
    size_t uploads = 100;
    size_t lines = 100000;
    size_t rollup_bytes = 8 * 1024 * 1024; ///< of changes to rollups, held in memory until the commit
    std::chrono::milliseconds time{20};    ///< of work before the commit
};

/// The side that changes the store. One per process is served by the writer thread (writer.h); commands that run beside
/// a server open one of their own for what they do, and the store's own lock keeps the two apart.
class Writing
{
public:
    virtual ~Writing() = default;

    /// Stores a group of uploads in one transaction: as many from the front as the limit allows, at least one. When it
    /// returns they are safely on the disk.
    ///
    /// - A line of a batch that is there already (whichever request brought it) is not stored again. Lines told as
    ///   dropped count until they come; a reject counts as stored.
    /// - An upload without a batch that begins with the whole text of one of the last 8 such uploads of its sender,
    ///   those of this group included, stores only what follows. Where the earlier text ends inside a line, that line
    ///   is stored whole.
    /// - A part of such a text is stored whole as well; `changed`, when another text of its sender came since it was
    ///   made.
    /// @return a receipt for each upload that was stored, in their order; or a fault, and then none was
    virtual Result<std::vector<Receipt>> write(std::span<const Upload* const> uploads, const GroupLimit& limit) = 0;

    /// Calls `done` once an upload is as safe as this store promises: at once for a file. A cluster's calls it later,
    /// on any thread, when another machine has it as well, or with the fault when that takes too long. What was written
    /// stays written then, and a repetition is known.
    /// @param upload  its place among those that the last write() took
    virtual void settle([[maybe_unused]] size_t upload, std::function<void(const std::optional<Fault>&)> done)
    {
        done(std::nullopt);
    }

    /// Returns when all calls that settle() owes were made; none waits longer than it would have anyhow.
    virtual void end_settling() {}

    /// Why uploads are to be refused before they are read; none: they are welcome. Any thread; costs next to nothing.
    /// A store that lacks its machines lets one through now and then, to see whether they are back.
    virtual std::optional<Fault> door() { return std::nullopt; }
    /// The same for an upload that was read, where it lacks only the machines that this one would go to.
    virtual std::optional<Fault> door_for(const Upload&) { return std::nullopt; }

    /// Where the last texts without a batch of a sender ended, the latest last: what a long text that is written in
    /// parts has to be compared with first. None in a store that knows every line by its key.
    virtual Result<std::vector<TextEnd>> ends(std::string_view) { return std::vector<TextEnd>(); }

    /// Deletes a little of what is too old: at most some thousand rows, some 20 ms of work.
    /// @return finished when nothing more is due
    virtual Result<Progress> retain(const Retention& retention) = 0;

    /// Removes an installation: its events, rejects and its id. When this returns, the id stands nowhere in the store's
    /// files. Questions under way in this process are interrupted, those of other processes waited for, at most
    /// `wait`. The counts of days that are past may stay.
    /// @return the number of events and rejects removed; 0 when it was not known
    virtual Result<uint64_t> forget(std::string_view installation, std::chrono::milliseconds wait) = 0;
};

/// A limit on a question: when the time is over, or `*stop` is set, it ends with FaultKind::late.
struct Limit
{
    Clock::time_point until = Clock::time_point::max();
    const std::atomic<bool>* stop = nullptr;
};

/// The side that asks. Each answer shows the store as of one moment. One thread at a time; open one per thread.
///
/// Counts, names and properties come from rollups that keep at most 10,000 names of an application, 200 keys of a name,
/// 64 properties of an event and 1,000 values of a key; what is past them counts as "(other)".
class Reading
{
public:
    virtual ~Reading() = default;

    virtual Result<Summary> summary(const Query& query, const Limit& limit) = 0;
    /// Steps without anything in them are left out. In order of time.
    virtual Result<std::vector<Point>> series(const Query& query, Step step, const Limit& limit) = 0;
    virtual Result<Table<NameRow>> names(const Query& query, const Limit& limit) = 0;
    virtual Result<Table<VersionRow>> versions(const Query& query, const Limit& limit) = 0;
    virtual Result<Table<FactRow>> facts(const Query& query, const Limit& limit) = 0;

    /// Keys and values of the events that `query` names; without `query.name` those of all names together.
    virtual Result<Table<PropertyRow>> properties(const Query& query, const Limit& limit) = 0;
    /// The numbers among the values of `key`, from the events themselves.
    virtual Result<Numbers> numbers(const Query& query, std::string_view key, const Limit& limit) = 0;
    /// The `query.limit` most frequent values of `key` over time, in order of time, most events first within a step.
    virtual Result<std::vector<PropertyPoint>> property_series(const Query& query, std::string_view key, Step step,
                                                               const Limit& limit) = 0;

    /// Installations that logged in the period, one row for each application of theirs.
    virtual Result<Table<InstallationRow>> installations(const Query& query, const Limit& limit) = 0;
    /// The newest events by `logged_at`, newest first; of equal ones the one received last first.
    virtual Result<std::vector<EventRow>> timeline(const Query& query, const Limit& limit) = 0;
    /// The weeks of first events that lie in the period, oldest first, each with the weeks up to the period's end.
    virtual Result<std::vector<RetentionRow>> retention(const Query& query, const Limit& limit) = 0;
    /// How many installations went how far: [i] those with names[0] ... names[i] in this order, each step's event
    /// logged not earlier than the one before. `query.name` does not apply.
    virtual Result<std::vector<uint64_t>> funnel(const Query& query, std::span<const std::string> names,
                                                 const Limit& limit) = 0;
    /// Newest first; by time of receipt.
    virtual Result<Table<RejectRow>> rejects(const Query& query, const Limit& limit) = 0;
    virtual Result<Health> health(const Limit& limit) = 0;

    /// The place behind the last event: where a live stream begins.
    virtual Result<Cursor> end(const Limit& limit) = 0;
    /// Up to `query.limit` events after `cursor` in order of receipt: live stream and export. Each call is a view of
    /// its own, so that a long export holds up no deletion; an event that comes meanwhile is met at the end.
    virtual Result<Receipts> receipts(const Query& query, Cursor after, const Limit& limit) = 0;

    /// What is missing in the answers since this was asked last: a sentence for each part of the store that did not
    /// answer. A store that is one file answers wholly or not at all.
    virtual std::vector<std::string> take_missing() { return {}; }
};

class Store
{
public:
    virtual ~Store() = default;

    virtual Result<std::unique_ptr<Writing>> writing() = 0;
    virtual Result<std::unique_ptr<Reading>> reading() = 0;

    /// Copies the store, as it is now, to a new file while it is in use. `report` is called between steps; false from
    /// it ends the copy and removes the file.
    /// @return FaultKind::exists when there is a file already
    virtual Result<Done> backup(const std::string& path, const std::function<bool(const Progress&)>& report) = 0;

    // What only a store that several processes share has. Any thread; these ask nobody.

    /// None for a store that is one file.
    virtual std::optional<ClusterStatus> cluster_status() const { return std::nullopt; }
    /// Whether others store as well, so that their events are found by looking alone.
    virtual bool has_other_writers() const { return false; }
    /// Tells the ends of logins to the other processes; null where there are none.
    virtual std::unique_ptr<Logouts> logouts() { return nullptr; }
};

enum class Opening
{
    serve,  ///< make it when it is not there; refuse (in_use) when another process serves it
    create, ///< make it when it is not there; beside a server
    use,    ///< it must be there; beside a server
};

/// When an upload to a cluster is answered.
enum class AnswerBy
{
    replica, ///< once it is in the spool and on one replica: on two machines
    spool,   ///< once it is in the spool, which then must not lose its disk
};

/// What a store on a cluster is told besides its address. Of no meaning to a file.
struct ClusterOptions
{
    std::string password_file; ///< one line: the user's password; empty: none
    std::string ca_file;       ///< certificates (PEM) that vouch for the nodes; then they are asked by TLS
    std::string secret;        ///< bytes that all collectors share: those who were forgotten are known by them
    std::string spool;         ///< the file that holds what the cluster is not known to have
    uint64_t spool_bytes = uint64_t(4) << 30;
    AnswerBy answer = AnswerBy::replica;
    std::chrono::seconds answer_wait{5};       ///< for a replica, before an upload is refused
    std::chrono::seconds keep{600};            ///< how long rows stay in the spool after both replicas had them
    size_t group_lines = 100000;               ///< the most lines of one insert
    std::chrono::milliseconds group_time{250}; ///< what has come in this time goes together
};

struct OpenOptions
{
    Opening opening = Opening::use;
    /// How long a write waits for another process's lock before it fails with FaultKind::busy.
    std::chrono::milliseconds busy_wait{5000};
    ClusterOptions cluster = {};
};

/// Whether `address` names a file; else it is a cluster's, "clickhouse://...".
bool is_file(const std::string& address);

/// Opens the store that `address` names: the path of a file, or a cluster. Migrates an older schema (`serve` and
/// `create` only; `use` waits for nobody and answers `other` for one that has to be migrated).
/// @return faults `newer`, `in_use`, `missing`, `foreign`, `read_only`, `full`
Result<std::unique_ptr<Store>> open(const std::string& address, const OpenOptions& options);

} // namespace store
