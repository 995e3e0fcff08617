// Which members of an event tell of the machine.
#pragma once

#include <string_view>

namespace intake {

/// Whether the library gives this name to a property of the machine: those are shown as facts. Any thread.
bool is_fact(std::string_view name);

} // namespace intake
