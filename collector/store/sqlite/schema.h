// The tables, and the steps from one version of them to the next.
#pragma once

#include "database.h"

namespace store::sqlite {

/// What this program reads and writes.
constexpr int g_schema = 1;

/// Rows of the events table that share a row of `blocks`.
constexpr int g_block_bits = 12;

/// Makes the tables of an empty file, or brings older ones up to date, in one transaction. Faults `newer` and
/// `foreign`.
void migrate(Database& database);
/// The same with other steps: the statements that lead from each version to the next, an empty file being version 0.
void migrate(Database& database, std::span<const char* const> steps);
/// The same faults, and `other` for a file that would have to be migrated; changes nothing.
void check_schema(Database& database);

} // namespace store::sqlite
