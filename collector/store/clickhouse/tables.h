// What the tables are made of, and the steps from one version of the schema to the next.
#pragma once

#include "address.h"

namespace store::clickhouse {

inline constexpr int g_schema = 1;

/// Where a statement is to run.
struct Place
{
    const Layout& layout;
    size_t shard;
    const Node& node;
};

/// The statements that make the tables of the schema as it is now. Each may be repeated.
std::vector<std::string> tables(const Place& place);

/// The statements that lead from schema `version` to the next, from 1 on. Each may be repeated.
std::vector<std::string> step_from(int version, const Place& place);

/// The table `meta` alone: it tells the schema, so it is there before any other.
std::string meta_table(const Place& place);

} // namespace store::clickhouse
