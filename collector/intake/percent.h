// Texts of forms and query strings (application/x-www-form-urlencoded).
#pragma once

#include <string>
#include <string_view>

namespace intake {

/// Decodes a value: percent escapes, and "+" for a blank. Any thread.
/// @return false when an escape is broken; `out` is then left as it was
bool percent_decode(std::string_view text, std::string& out);

} // namespace intake
