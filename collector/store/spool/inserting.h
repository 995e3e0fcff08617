// Puts a load onto a node, in as few inserts as the engine likes, and finds out which lines it refuses.
#pragma once

#include "load.h"

namespace store::spool {

/// One load's way to one replica or, in turns, several: what one took is not sent again.
class Inserting
{
public:
    struct Refused
    {
        Kind kind;
        size_t line; ///< of the load's lines of this kind
        Trouble trouble;
    };

    /// How long lines are tried of which a node takes none: the table may be at fault, not they.
    enum class Patience
    {
        endless,
        for_many, ///< some few lines are given up
        none
    };
    Inserting(Load& load, size_t most_lines, Patience patience, const std::atomic<bool>& stop);

    /// Sends what is left. Lines that are refused by number, while others are taken, are passed over.
    /// @param wait  for the answer to each insert
    /// @return why it came to nothing; none: every line is there or refused
    std::optional<Trouble> put(Client& client, std::chrono::milliseconds wait);
    const std::vector<Refused>& refused() const { return m_refused; }
    /// Whether put() came to nothing as nothing but refusals came for a table.
    bool is_vain() const { return m_is_vain; }

private:
    using Lines = std::span<const Load::Line>;
    struct Table;

    std::optional<Trouble> put_table(Client& client, Kind kind);
    Lines next_part(Lines rest) const;
    std::optional<Trouble> halve(Client& client, Table& table, Lines lines);
    Answer<Done> insert(Client& client, Kind kind, Lines lines) const;

    Load& m_load;
    const size_t m_most_lines;
    const Patience m_patience;
    const std::atomic<bool>& m_stop;
    std::chrono::milliseconds m_wait{};
    std::array<size_t, clickhouse::g_kinds> m_done{}; ///< lines that are there or refused
    bool m_is_vain = false;
    std::vector<Refused> m_refused;
};

} // namespace store::spool
