// What is never stored, whoever sends it: lines of weeks that were thrown away by age, and of installations that were
// forgotten.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace store::spool {

/// Both are asked for every line, on any thread, and cost next to nothing. An empty function lets everything through.
struct Screen
{
    std::function<bool(uint16_t week)> is_too_old;
    std::function<bool(std::string_view installation)> is_forgotten;
};

} // namespace store::spool
