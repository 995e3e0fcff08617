/// @file
/// The figures of a period as text for a terminal.
#pragma once

#include "words.h"

#include "store/store.h"

namespace api {

/// @param period "day" or "week", up to now; empty with words from or to, which count then
/// @param plot   draws the events over time instead of the tables
store::Result<std::string> report(store::Reading& reading, Words words, const std::string& period, bool plot);

} // namespace api
