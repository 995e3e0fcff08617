// The thread that takes a shard's blocks to its replicas.
#pragma once

#include "inserting.h"

#include <thread>

namespace store::spool {

class Shipper
{
public:
    Shipper(Parts& parts, uint32_t shard);
    /// Parts::is_leaving is set and the lane was stopped before.
    ~Shipper();

private:
    void work();
    /// Tries until the group is on a replica, or refused line by line; false when the process leaves or more has come
    /// that may go along.
    bool ship(Group& group);
    bool try_replicas(Group& group, const Load& load, Inserting& inserting);
    bool put_everywhere(Group& group, Load& load);
    /// How long a replica may take, try by try.
    std::vector<std::chrono::milliseconds> waits_for(const Group& group) const;
    Inserting::Patience patience_for(const Group& group) const;
    std::optional<Trouble> try_replica(Inserting& inserting, const Load& load, size_t replica,
                                       std::chrono::milliseconds wait);
    void put_aside(Group& group, const Load& load, const Inserting& inserting);

    Parts& m_parts;
    const uint32_t m_shard;
    Lane& m_lane;
    std::vector<Client> m_clients;
    size_t m_lines; ///< of an insert
    size_t m_preferred;
    unsigned m_vain = 0; ///< rounds in which nodes refused all lines of a table, since one did not
    std::thread m_thread;
};

} // namespace store::spool
