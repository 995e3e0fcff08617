// The rollups of days that are past: made on a node from rows that count once, and told to questions as long as they
// are true.
//
// A rollup is of one day and application on one shard. Its generation is the highest one there plus one, in all but its
// lowest 20 bits, which are random: two collectors that make one at once mix no rows. It counts while the day's marks
// are those that were there before it read (marks.h); rows of a dropped week cannot change any more, so its rollups
// count whatever comes.
#pragma once

#include "filter.h"
#include "marks.h"

namespace store::clickhouse {

/// What questions are told; without an answer from the node nothing is closed, and the question itself will tell why.
Closed closed_days(Client& client, const std::optional<std::string>& application, Day first, Day end);

/// The days in [first, end) whose rows have to be read, newest first; those of dropped weeks are none of them.
Answer<std::vector<Dated>> days_to_roll(Client& client, Day first, Day end, const Bounds& bounds = {});

/// Makes the rollup of a day. It counts from when it is whole on this node, and on those peers that answer.
Answer<Done> make_rollup(Client& client, std::span<Client> peers, const Dated& day, const Bounds& bounds);

/// Looks whether the rollups' rows are all there, which a cut of power may have taken, and has those that are not made
/// again; deletes the rows of rollups that another one has replaced for some minutes.
Answer<Done> tidy_rollups(Client& client, const Bounds& bounds);

} // namespace store::clickhouse
