/// @file
/// What a request's header says about its body, by RFC 9112 section 6, and stricter where two readers could differ.
#pragma once

#include "message.h"

#include <cstdint>
#include <optional>

namespace http {

struct Framing
{
    bool is_chunked = false;
    uint64_t length = 0;         ///< of the body as sent; 0 when it is chunked
    const char* fault = nullptr; ///< one sentence when the header is ambiguous or broken; then answer 400 and close
};

/// A length that is no plain decimal or is repeated, a length beside Transfer-Encoding, and any Transfer-Encoding but
/// `chunked` are faults: a proxy in front could read the end of this request elsewhere.
Framing framing_of(const Request& head);

} // namespace http
