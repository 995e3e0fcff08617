// A machine whose facts a test makes up. What a test does not set is a failing query.
#pragma once

#include "host/host.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host = AnalyticsSDK::host;

/// While it lives, every probe of the process asks this machine instead of the running one.
struct MadeUpFacts
{
    MadeUpFacts();
    ~MadeUpFacts();

    host::answer missing = host::answer::failed; ///< the answer of what is not set
    std::map<std::string, std::int32_t> selectors;
    std::optional<host::processor_identity> processor;
    std::optional<host::text> model, host_name, computer_name;
    std::optional<std::vector<host::processor_load>> loads;
    std::optional<std::uint64_t> page_size;
    std::optional<host::page_counts> pages;
    std::optional<host::volume> volume;
    std::optional<std::uint32_t> reachability;
    std::optional<host::uuid_bytes> uuid;
    std::map<host::text_fact, host::text> texts;
    std::map<host::number_fact, std::uint64_t> numbers;
};
