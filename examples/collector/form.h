// URL-encoded forms as the library posts them. A server library may refuse long ones (cpp-httplib takes 8,192 bytes at
// most), so whoever receives uploads splits them here; the tests' servers do, too.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace collector {

using Form = std::map<std::string, std::string>;

/// The value of a hexadecimal digit, -1 for any other character.
int hex_digit(char c);
/// The fields of "name=value&name=value", with percent sequences and "+" decoded. A broken percent sequence stays as it
/// is; the last of two fields of one name counts.
Form parse_form(std::string_view body);

} // namespace collector
