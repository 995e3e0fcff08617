#include "lumo/simd.h"

#include "lumo/common.h"

namespace lumo::simd {

char* percent_encode_plain(const char* in, std::size_t size, char* out, const std::uint8_t* unsafe)
{
    for (const char* end = in + size; in != end; ++in) {
        const auto byte = static_cast<unsigned char>(*in);
        if (unsafe[byte] == 0) {
            *out++ = *in;
            continue;
        }
        out[0] = '%';
        out[1] = hexadecimal_digits[byte >> 4];
        out[2] = hexadecimal_digits[byte & 15];
        out += 3;
    }
    return out;
}

std::size_t count_unsafe_plain(const char* in, std::size_t size, const std::uint8_t* unsafe)
{
    std::size_t count = 0;
    for (const char* end = in + size; in != end; ++in)
        count += unsafe[static_cast<unsigned char>(*in)] != 0;
    return count;
}

char* percent_encode(const char* in, std::size_t size, char* out, const std::uint8_t* unsafe)
{
    return percent_encode_plain(in, size, out, unsafe);
}

std::size_t count_unsafe(const char* in, std::size_t size, const std::uint8_t* unsafe)
{
    return count_unsafe_plain(in, size, unsafe);
}

} // namespace lumo::simd
