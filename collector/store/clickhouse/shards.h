// One question to all shards at once, each on one of its living replicas.
//
// Nothing is asked through the engine's own distribution: all rows of an installation are on one shard, so what the
// shards say adds up here, and a shard that says nothing is known by name.
#pragma once

#include "client.h"
#include "row_binary.h"

#include <map>

namespace store::clickhouse {

/// A shard while it is asked one question, in as many steps as it takes. After a trouble it is asked nothing more.
class Shard
{
public:
    Shard(Client& client, const Bounds& bounds, size_t number) : m_client(client), m_bounds(bounds), m_number(number) {}

    /// Counted from 0.
    size_t number() const { return m_number; }
    Client& client() { return m_client; }
    bool ok() const { return !m_trouble; }
    const std::optional<Trouble>& trouble() const { return m_trouble; }

    /// Calls `use(RowReader&)` for each row of the answer to a SELECT, which must read the row as a whole.
    template <class Use>
    void rows(const std::string& select, Use&& use)
    {
        if (ok())
            read(m_client.ask(select + " FORMAT RowBinary", m_bounds), use);
    }
    /// The same with a table beside it.
    template <class Use>
    void rows(const std::string& select, const External& table, Use&& use)
    {
        if (ok())
            read(m_client.ask_with(select + " FORMAT RowBinary", table, m_bounds), use);
    }

private:
    template <class Use>
    void read(Answer<std::string> answer, Use&& use)
    {
        if (!answer) {
            m_trouble = answer.fault();
            return;
        }
        RowReader rows(*answer);
        while (!rows.done())
            use(rows);
        if (!rows.ok())
            m_trouble = Trouble{Trouble::Kind::refused, 0, m_client.node().name() + ": an answer cut short"};
    }

    Client& m_client;
    const Bounds m_bounds;
    const size_t m_number;
    std::optional<Trouble> m_trouble;
};

/// The connections to all nodes. One thread at a time.
class Shards
{
public:
    explicit Shards(std::shared_ptr<const Layout> layout);

    size_t count() const { return m_layout->shards.size(); }

    /// Calls `ask(Shard&, Part&)` for every shard at once, each on a thread of its own, and gives what the shards made
    /// of their Parts; that of a shard none of whose replicas answers is empty. A replica that fails is followed by the
    /// next one, with a new Part.
    /// @return a fault when the time is over or no shard answers
    template <class Part, class Ask>
    Result<std::vector<Part>> ask(const Limit& limit, Ask&& ask)
    {
        std::vector<Part> parts(count());
        auto clear = [&](size_t shard) { parts[shard] = Part(); };
        auto put = [&](Shard& shard) { ask(shard, parts[shard.number()]); };
        if (auto fault = run(limit, clear, put))
            return *fault;
        return parts;
    }

    /// Sentences on the shards that did not answer since this was asked last.
    std::vector<std::string> take_missing();

private:
    struct Replica
    {
        std::unique_ptr<Client> client; ///< none until it is needed
        Clock::time_point fit_until;    ///< it need not be looked at again before
    };
    struct Group
    {
        std::vector<Replica> replicas;
        size_t first = 0; ///< the one that answered last
    };
    using Clear = std::function<void(size_t)>;
    using Put = std::function<void(Shard&)>;

    std::optional<Fault> run(const Limit& limit, const Clear& clear, const Put& put);
    std::optional<Trouble> run_one(size_t number, const Limit& limit, const Clear& clear, const Put& put);
    std::optional<Trouble> look_at(Replica& replica, std::chrono::milliseconds time, const Limit& limit);
    Client& client_of(size_t shard, size_t replica);

    const std::shared_ptr<const Layout> m_layout;
    std::vector<Group> m_groups;
    std::map<size_t, std::string> m_missing; ///< by shard
};

} // namespace store::clickhouse
