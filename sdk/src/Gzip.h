// Packing of request bodies.
#pragma once

#include <string>
#include <string_view>

namespace AnalyticsSDK {

/// Packs a text as gzip (RFC 1952). @return false when memory is short
bool Gzip(std::string_view text, std::string& packed);

} // namespace AnalyticsSDK
