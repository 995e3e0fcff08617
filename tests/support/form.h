// URL-encoded forms as the library posts them. The servers' own reader refuses long ones: cpp-httplib takes 8,192 bytes
// at most.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace support {

using Form = std::map<std::string, std::string>;

/// The fields of "name=value&name=value", with percent sequences and "+" decoded. A broken percent sequence stays as it
/// is; the last of two fields of one name counts.
Form parse_form(std::string_view body);

} // namespace support
