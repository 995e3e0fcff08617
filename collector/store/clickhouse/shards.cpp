#include "shards.h"

#include <thread>

namespace store::clickhouse {

namespace {

// Numbers of the engine that speak of the question and not of the node: another replica would say the same.
constexpr int g_too_long = 159, g_too_slow = 160, g_too_much_memory = 241;

// What a node gets to say that it is there; and where none of a shard did, all once more.
constexpr auto g_look = std::chrono::milliseconds(500), g_patient_look = std::chrono::milliseconds(2500);
constexpr auto g_fit = std::chrono::seconds(2);   // how long that holds
constexpr auto g_most = std::chrono::minutes(10); // for one step of a question that has no limit
constexpr int64_t g_most_behind = 120;            // seconds

bool is_of_the_question(const Trouble& trouble, const Limit& limit)
{
    bool is_over = Clock::now() >= limit.until || (limit.stop != nullptr && *limit.stop);
    return is_over || trouble.code == g_too_long || trouble.code == g_too_slow || trouble.code == g_too_much_memory;
}

Fault fault_of_question(const Trouble& trouble)
{
    return {trouble.code == g_too_much_memory ? FaultKind::other : FaultKind::late, trouble.text};
}

} // namespace

Shards::Shards(std::shared_ptr<const Layout> layout) : m_layout(std::move(layout)), m_groups(m_layout->shards.size())
{
    for (size_t shard = 0; shard < m_groups.size(); ++shard) {
        m_groups[shard].replicas.resize(m_layout->shards[shard].size());
        // Those who ask spread over the replicas.
        m_groups[shard].first = (reinterpret_cast<uintptr_t>(this) >> 6) % m_groups[shard].replicas.size();
    }
}

std::vector<std::string> Shards::take_missing()
{
    std::vector<std::string> sentences;
    for (auto& [shard, sentence] : m_missing)
        sentences.push_back(std::move(sentence));
    m_missing.clear();
    return sentences;
}

Client& Shards::client_of(size_t shard, size_t replica)
{
    auto& client = m_groups[shard].replicas[replica].client;
    if (client == nullptr)
        client = std::make_unique<Client>(m_layout->shards[shard][replica], *m_layout);
    return *client;
}

// A node that hangs would take a question's whole time, and one that was away for long has not caught up yet. Only
// columns that the engine knows without its keeper.
std::optional<Trouble> Shards::look_at(Replica& replica, std::chrono::milliseconds time, const Limit& limit)
{
    if (Clock::now() < replica.fit_until)
        return std::nullopt;
    auto answer = replica.client->ask("SELECT toUInt64(max(absolute_delay)) FROM system.replicas WHERE "
                                      "database = currentDatabase() FORMAT RowBinary",
                                      {time, 0, limit.until, limit.stop});
    if (!answer)
        return answer.fault();
    if (RowReader(*answer).u64() > g_most_behind)
        return Trouble{Trouble::Kind::refused, 0, replica.client->node().name() + ": behind its peer"};
    replica.fit_until = Clock::now() + g_fit;
    return std::nullopt;
}

std::optional<Trouble> Shards::run_one(size_t number, const Limit& limit, const Clear& clear, const Put& put)
{
    Group& group = m_groups[number];
    std::optional<Trouble> trouble;
    // A second round takes one that is slow or behind rather than none.
    for (size_t i = 0; i < 2 * group.replicas.size(); ++i) {
        size_t at = (group.first + i) % group.replicas.size();
        Client& client = client_of(number, at);
        bool is_last_resort = i >= group.replicas.size();
        trouble = look_at(group.replicas[at], is_last_resort ? g_patient_look : g_look, limit);
        if (trouble && !(is_last_resort && trouble->kind == Trouble::Kind::refused))
            continue;
        clear(number);
        Shard shard(client, {g_most, 0, limit.until, limit.stop}, number);
        put(shard);
        trouble = shard.trouble();
        if (!trouble)
            group.first = at;
        else
            group.replicas[at].fit_until = {};
        if (!trouble || is_of_the_question(*trouble, limit))
            break;
    }
    if (trouble)
        clear(number);
    return trouble;
}

std::optional<Fault> Shards::run(const Limit& limit, const Clear& clear, const Put& put)
{
    if (Clock::now() >= limit.until)
        return Fault{FaultKind::late, "The time was over before the question began."};
    std::vector<std::optional<Trouble>> troubles(count());
    std::vector<std::thread> threads;
    for (size_t shard = 1; shard < count(); ++shard)
        threads.emplace_back([&, shard] { troubles[shard] = run_one(shard, limit, clear, put); });
    troubles[0] = run_one(0, limit, clear, put);
    for (std::thread& thread : threads)
        thread.join();

    size_t failed = 0;
    for (size_t shard = 0; shard < count(); ++shard) {
        if (!troubles[shard])
            continue;
        if (is_of_the_question(*troubles[shard], limit))
            return fault_of_question(*troubles[shard]);
        m_missing[shard] = "Shard " + std::to_string(shard + 1) + " does not answer (" + troubles[shard]->text + ").";
        ++failed;
    }
    if (failed != count())
        return std::nullopt;
    m_missing.clear();
    return Fault{FaultKind::busy, "No shard of the cluster answers (" + troubles[0]->text + ")."};
}

} // namespace store::clickhouse
