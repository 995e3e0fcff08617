// What has been taken: which lines of which batch, and where the texts of uploads without a batch ended. Changes stay
// in memory until the group's end.
#pragma once

#include "packed.h"
#include "rollups.h"

namespace store::sqlite {

class Batches
{
public:
    Batches(Database& database, Rollups& rollups);

    /// Notes a line of the batch; true when it was not there. A line that was told as dropped leaves that count.
    bool add(const BatchId& batch, uint32_t line, Milliseconds received_at);
    /// Notes `count` lines from `first` on as dropped and gives how many of them are new: neither stored nor told.
    uint32_t tell(const BatchId& batch, uint32_t first, uint32_t count, Milliseconds received_at, int64_t installation);

    void flush();
    void clear() { m_states.clear(); }

private:
    struct State
    {
        Ranges stored;
        std::vector<Told> told;
        int64_t seen = 0; ///< day of the last receipt
        bool is_changed = false;
    };
    State& state_of(const BatchId& batch, Milliseconds received_at);
    void untell(State& state, uint32_t line);

    Rollups& m_rollups;
    Statement m_find, m_put;
    std::map<BatchId, State> m_states;
};

class Ends
{
public:
    explicit Ends(Database& database);

    /// Notes the upload's text and gives how many of its lines were in an earlier one that it begins with.
    size_t add(const Upload& upload, int64_t installation);
    /// Notes a part of a text; false when another text of the sender came since the part was made.
    bool add_part(const Upload& upload, int64_t installation);

    void flush();
    void clear() { m_lists.clear(); }

private:
    struct List
    {
        std::vector<TextEnd> ends;
        int64_t seen = 0;
        bool is_changed = false;
    };
    List& list_of(int64_t installation);
    void note(List& list, const TextEnd& end, Milliseconds received_at);

    Statement m_find, m_put;
    std::map<int64_t, List> m_lists;
};

} // namespace store::sqlite
