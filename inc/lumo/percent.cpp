#include "lumo/percent.h"

#include "lumo/simd.h"
#include "lumo/uri.h"

#include <algorithm>
#include <array>

namespace lumo {

static constexpr std::array<std::uint8_t, 256> make_unsafe()
{
    std::array<std::uint8_t, 256> unsafe{};
    for (std::size_t byte = 0; byte < unsafe.size(); ++byte)
        unsafe[byte] = byte < '!' || byte > 'z';
    for (const char* c = g_uri_unsafe_characters; *c != '\0'; ++c)
        unsafe[static_cast<unsigned char>(*c)] = 1;
    return unsafe;
}

static constexpr std::array<std::uint8_t, 256> unsafe_bytes = make_unsafe();

// Encoded piece by piece through a buffer that stays in the processor's cache: to size `out` first would fill memory
// with zeros only to write it again.
static constexpr std::size_t piece = 8192;

std::size_t percent_encoded_size(std::string_view in)
{
    return in.size() + 2 * simd::count_unsafe(in.data(), in.size(), unsafe_bytes.data());
}

void percent_encode(std::string_view in, std::string& out)
{
    out.reserve(out.size() + percent_encoded_size(in));
    char buffer[3 * piece + simd::percent_slack];
    for (; !in.empty(); in.remove_prefix(std::min(piece, in.size()))) {
        const char* end = simd::percent_encode(in.data(), std::min(piece, in.size()), buffer, unsafe_bytes.data());
        out.append(buffer, static_cast<std::size_t>(end - buffer));
    }
}

} // namespace lumo
