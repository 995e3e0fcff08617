// The ends of logins, told by one collector to all the others through a table that every node has.
#pragma once

#include "rounds.h"

#include "store/logouts.h"

#include <map>

namespace store::clickhouse {

class ClusterLogouts final : public Logouts
{
public:
    /// Starts the thread that writes and reads, once a second.
    explicit ClusterLogouts(std::shared_ptr<const Layout> layout);

    /// Counts here at once, and elsewhere a second or two after it returns. Waits up to two seconds for a node to have
    /// it; without one it is written as soon as one answers, while this process lives.
    void end(const std::string& session, Seconds until) override;
    bool has_ended(const std::string& session) override;

private:
    /// A node, and what it was not told yet.
    struct Peer
    {
        Client client;
        size_t shard;
        std::map<std::string, Seconds> untold;
        Clock::time_point next_try = {}; ///< after it gave no answer: one that is gone must not hold up the others

        bool note(bool answered);
    };

    void work();
    void take_new();
    void tell(Peer& peer);
    void listen();
    bool listen_to(Peer& peer);

    std::shared_ptr<const Layout> m_layout;
    std::mutex m_lock;
    std::condition_variable m_tried;
    std::map<std::string, Seconds> m_ended; ///< from here and from the table
    std::map<std::string, Seconds> m_new;   ///< the thread has not looked at them yet
    std::map<std::string, Seconds> m_now;   ///< the thread is telling the nodes
    std::vector<Peer> m_peers;              ///< the thread's own
    Rounds m_rounds;
};

} // namespace store::clickhouse
