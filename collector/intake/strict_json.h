// Texts as any JSON reader takes them.
#pragma once

#include <string>
#include <string_view>

namespace intake {

/// The text with U+FFFD in place of bytes that are no UTF-8.
std::string to_utf8(std::string_view text);

/// An event's line as any JSON reader takes it: raw control bytes in texts escaped, bytes that are no UTF-8 as U+FFFD,
/// numbers that are not finite as null, integers past 64 bits in a form that reads as a double. Everything else stays
/// as it is, also what is no JSON.
std::string strict_json(std::string_view line);

} // namespace intake
