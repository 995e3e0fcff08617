#include "Gzip.h"

#include <algorithm>
#include <limits>

#include <zlib.h>

namespace AnalyticsSDK {

bool Gzip(std::string_view text, std::string& packed)
{
    constexpr int as_gzip = 15 + 16; // the largest window, and gzip's header rather than zlib's
    constexpr int memory_level = 8;
    constexpr size_t most = std::numeric_limits<uInt>::max() / 2;
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, as_gzip, memory_level, Z_DEFAULT_STRATEGY) != Z_OK)
        return false;
    packed.resize(deflateBound(&stream, text.size()));
    size_t made = 0;
    int result = Z_OK;
    // In steps, as the library's counts have 32 bits.
    while (result == Z_OK || result == Z_BUF_ERROR) {
        const size_t in = std::min(text.size(), most), out = std::min(packed.size() - made, most);
        if (out == 0)
            break;
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data())); // read only
        stream.avail_in = static_cast<uInt>(in);
        stream.next_out = reinterpret_cast<Bytef*>(packed.data() + made);
        stream.avail_out = static_cast<uInt>(out);
        result = deflate(&stream, in == text.size() ? Z_FINISH : Z_NO_FLUSH);
        text.remove_prefix(in - stream.avail_in);
        made += out - stream.avail_out;
    }
    deflateEnd(&stream);
    packed.resize(made);
    return result == Z_STREAM_END;
}

} // namespace AnalyticsSDK
