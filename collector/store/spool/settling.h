// Uploads that are in the spool and wait for a replica to have them as well, each until its time is over.
#pragma once

#include "lane.h"

#include <list>
#include <thread>

namespace store::spool {

/// What has to be on a replica before an upload is answered: of the shards that it touches.
struct Need
{
    struct Shard
    {
        uint32_t shard = 0;
        Commit own = 0;   ///< the commit that brought blocks for it; 0: none
        Commit known = 0; ///< the newest commit that knew one of the lines; 0: none was known
    };
    std::vector<Shard> shards;

    Shard& of(uint32_t shard);
};

class Settling
{
public:
    using Done = std::function<void(const std::optional<Fault>&)>;

    Settling(const std::vector<std::unique_ptr<Lane>>& lanes, std::chrono::milliseconds wait);
    /// Tells those that still wait that it was too long.
    ~Settling();

    /// Calls `done` on this thread or another one.
    void add(Need need, Done done);
    /// Looks again: a group was shipped. Any thread.
    void look();
    /// Returns when everybody who waits was told, each in time.
    void wait();

private:
    struct Waiting
    {
        Need need;
        Done done;
        Clock::time_point until;
    };
    bool is_settled(const Need& need) const;
    void work();
    template <class Ends>
    void end(Ends&& ends, const std::optional<Fault>& fault);

    const std::vector<std::unique_ptr<Lane>>& m_lanes;
    const std::chrono::milliseconds m_wait;
    std::mutex m_lock;
    std::condition_variable m_wake, m_told;
    size_t m_telling = 0;         ///< who wait no more, but were not told yet
    std::list<Waiting> m_waiting; ///< in order of their ends
    bool m_stopping = false;
    std::thread m_thread; ///< ends those whose time is over
};

} // namespace store::spool
