// Room for texts of many megabytes. For the library's own use.
#pragma once

#include <cstddef>
#include <string>

namespace lumo {

/// Makes room in `text` for `size` bytes in all, as std::string::reserve does, and for much room asks the system for
/// large pages.
///
/// For texts that are filled to the end right afterwards: the page faults of an upload's body of a hundred megabytes
/// otherwise take longer than everything else that is done with it. Any thread; may throw std::bad_alloc.
void reserve_large(std::string& text, std::size_t size);

} // namespace lumo
