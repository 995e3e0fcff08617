// Percent-encoding of form values: the library's one encoder.
//
// A byte from "!" to "z" that is not among g_uri_unsafe_characters stays; every other byte (space, control bytes,
// braces, bar, tilde, DEL and everything from 0x80 up) becomes "%" and two lower-case hexadecimal digits.
#pragma once

#include "lumo/tova/base.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace lumo {

/// Appends the encoded form of `in` to `out`.
///
/// Reserves exactly what is needed, for which it reads `in` twice; it does not when `out` already has the room (see
/// percent_encoded_size()). Any thread; may throw std::bad_alloc.
TOVA_API void percent_encode(std::string_view in, std::string& out);

/// The number of bytes that percent_encode appends for `in`.
TOVA_API std::size_t percent_encoded_size(std::string_view in);

} // namespace lumo
