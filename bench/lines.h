// Lines as they stand in an event log file.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

/// The object of the bench's event as text.
std::string event_text();

/// About `size` bytes of whole lines.
std::string event_lines(std::size_t size);

} // namespace bench
