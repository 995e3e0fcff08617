#include "lumo/percent.h"

#include "lumo/own/simd.h"
#include "lumo/uri.h"

#include <algorithm>

namespace lumo {

namespace {

// Computed from the list at compile time, so that the list is the only place that states the rule.
constexpr simd::byte_class unsafe = simd::make_byte_class([](char byte) {
    if (byte < '!' || byte > 'z')
        return true;
    for (const char* c = g_uri_unsafe_characters; *c != '\0'; ++c)
        if (*c == byte)
            return true;
    return false;
});

// Encoded piece by piece through a buffer that stays in the processor's cache. Resizing `out` first would fill its
// memory with zeros and then write it again.
constexpr std::size_t piece = 8192;

} // namespace

std::size_t percent_encoded_size(std::string_view in)
{
    return in.size() + 2 * simd::best().count(in.data(), in.size(), unsafe);
}

void percent_encode(std::string_view in, std::string& out)
{
    // Reserved exactly: a string that doubles would copy a hundred megabytes several times and end with up to twice the
    // memory.
    if (out.capacity() - out.size() < in.size())
        out.reserve(out.size() + percent_encoded_size(in));
    char buffer[3 * piece + simd::percent_slack];
    for (; !in.empty(); in.remove_prefix(std::min(piece, in.size()))) {
        const char* end = simd::best().percent_encode(in.data(), std::min(piece, in.size()), buffer, unsafe);
        out.append(buffer, static_cast<std::size_t>(end - buffer));
    }
}

} // namespace lumo
