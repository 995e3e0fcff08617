// Who of several collectors does a shard's chores: one at a time, and another one when that one is gone. It only keeps
// them from doing the same work twice; whatever they do stays right when two hold it.
#pragma once

#include "client.h"

namespace store::clickhouse {

class Lease
{
public:
    explicit Lease(std::string name);

    /// Takes it, or makes it last longer: a minute from now by the node's clock.
    /// @return false: another one holds it
    Answer<bool> take(Client& client, const Bounds& bounds);
    void release(Client& client, const Bounds& bounds);

private:
    enum class Held
    {
        free,
        mine,
        theirs
    };
    Answer<Held> look(Client& client, const Bounds& bounds) const;
    Answer<Done> write(Client& client, int seconds, const Bounds& bounds);

    const std::string m_name;
    const uint64_t m_holder; ///< random: this one, as long as it lives
    uint64_t m_written = 0;
};

} // namespace store::clickhouse
