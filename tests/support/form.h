// URL-encoded forms, decoded without help from the server library, which refuses them above 8,192 bytes.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace support {

using Form = std::map<std::string, std::string>;

/// Percent sequences and "+" decoded; a broken percent sequence stays as it is.
std::string percent_decode(std::string_view text);
/// The fields of "name=value&name=value". The last of two fields of one name counts.
Form parse_form(std::string_view body);

} // namespace support
