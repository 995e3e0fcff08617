// The relations that questions are asked of: rows counted once however often they were stored, together with the
// rollups of the days that these tell of. And the other way round: what a day's rollups are made of.
//
// A row's key goes through a hash of 64 bits that is never stored, as versions of the engine may differ in it: within
// one question two events share it with one chance in 10^19 a pair.
#pragma once

#include "filter.h"

namespace store::clickhouse {

enum class Roll
{
    active, ///< installations by the hour, all names together
    names,  ///< installations by name
    values, ///< properties by name
    facts   ///< installations by fact
};
inline constexpr Roll g_rolls[] = {Roll::active, Roll::names, Roll::values, Roll::facts};

/// The table of a rollup. Its columns begin with day, application, generation.
const char* table_of(Roll roll);
std::string columns_of(Roll roll);
/// The SELECT whose rows are what an application's rollup of a day consists of.
std::string roll_select(Roll roll, Day day, const std::string& application, uint64_t generation);

/// What a question groups by: a list of columns by these names, divided by ", ". Their values in an answer, in this
/// order: at_hour, at_day, at_week Int64 (number of the hour; of the day; of the week's Monday), application, version,
/// name, key, text String, is_named, type UInt8.
using By = std::string;

/// SELECT by, events UInt64, installations UInt64.
std::string counts_select(const Filter& filter, const By& by);
/// SELECT by, events UInt64: cheaper where installations are not asked for.
std::string events_select(const Filter& filter, const By& by);
/// SELECT by, installation String: not yet different ones, so that it can be narrowed first; with its parentheses.
std::string active_relation(const Filter& filter, const By& by);

/// Which properties are meant. Their values go by the columns key, type and text; type 255 is what is past a limit.
struct Values
{
    std::optional<std::string> key = std::nullopt; ///< this one alone
    bool are_facts = false;                        ///< facts alone, with their installations
    bool are_numbers = false;                      ///< numbers alone
};
/// SELECT by, events UInt64 (and installations UInt64 of facts).
std::string values_select(const Filter& filter, const Values& values, const By& by);
/// SELECT by, number UInt64 of the properties past an event's limit, of rows that rollups do not tell of. `by` may hold
/// hours and days alone.
std::string others_select(const Filter& filter, const By& by);

} // namespace store::clickhouse
