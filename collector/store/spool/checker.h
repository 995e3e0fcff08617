// The thread that looks whether what was shipped to a shard is on all of its replicas, and lets it leave the spool.
//
// A group leaves when a check that began `keep` after all replicas first answered for all of its rows finds all of them
// again, and no replica was started anew in between: an engine acknowledges rows before they are on its disk, but after
// that time the system has written them. A replica that was started anew may have lost what it had: everything that was
// shipped and is still here is then sent once more, and its time begins anew.
#pragma once

#include "question.h"

#include <list>
#include <thread>

namespace store::spool {

class Checker
{
public:
    /// @param groups  what an earlier process kept: all replicas had it
    Checker(Parts& parts, uint32_t shard, std::list<Group> groups);
    /// Parts::is_leaving is set and the lane was stopped before.
    ~Checker();

private:
    using Groups = std::list<Group>;

    void work();
    void look();
    std::optional<std::vector<Seconds>> ask_starts();
    bool note_starts(const std::vector<Seconds>& starts);
    /// Takes some groups that are due out of `from`, no more than one question bears.
    Groups take_due(Groups& from, int64_t not_after, Question& question);
    bool look_at_shipped(const std::vector<Seconds>& starts);
    bool look_at_kept();
    /// By replica and group; none when a replica does not answer.
    std::optional<std::vector<std::vector<bool>>> ask(const Question& question);
    bool mark(const Question& question);
    void keep(Groups&& groups, const std::vector<Seconds>& starts);
    void let_go(Groups&& groups);
    void send_again(Groups&& groups);
    void note(size_t replica, const Trouble* trouble);

    Parts& m_parts;
    const uint32_t m_shard;
    Lane& m_lane;
    const std::string m_boot;
    std::vector<Client> m_clients;
    Groups m_shipped; ///< not yet found on all replicas
    Groups m_kept;    ///< found, and waiting for their time; in its order
    std::thread m_thread;
};

/// Milliseconds since this machine was started, sleep included: no clock that is set moves it.
int64_t since_boot_ms();

} // namespace store::spool
