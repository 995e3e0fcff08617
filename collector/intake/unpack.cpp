#include "intake.h"

#include <algorithm>
#include <limits>

#include <zlib.h>

namespace intake {

namespace {

constexpr size_t g_first_piece = 65536; // then each piece is as long as all before

class Inflater
{
public:
    Inflater() { m_ready = inflateInit2(&m_stream, 16 + MAX_WBITS) == Z_OK; } // 16: gzip alone
    ~Inflater() { inflateEnd(&m_stream); }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    Refused run(const std::string& packed, size_t limit, const Charge& charge, std::string& out)
    {
        m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
        m_stream.avail_in = static_cast<uInt>(packed.size());
        if (!m_ready)
            return Refusal{503, "There is no memory to unpack the body."};
        while (!m_ended) {
            if (out.size() > limit)
                return Refusal{413, "The body is too large once it is unpacked."};
            // One byte more than the limit tells a text that is too long from one that just fits.
            size_t piece = std::min(std::max(g_first_piece, out.size()), limit - out.size() + 1);
            if (charge && !charge(piece))
                return Refusal{503, "There is no memory to unpack the body."};
            if (!fill(piece, out))
                return Refusal{400, "The body is no whole gzip."};
        }
        return out.size() > limit ? Refused(Refusal{413, "The body is too large once it is unpacked."}) : std::nullopt;
    }

private:
    // Unpacks up to `piece` bytes more.
    bool fill(size_t piece, std::string& out)
    {
        size_t before = out.size();
        out.resize(before + piece);
        m_stream.next_out = reinterpret_cast<Bytef*>(out.data() + before);
        m_stream.avail_out = static_cast<uInt>(piece);
        int result = Z_OK;
        while (result == Z_OK && m_stream.avail_out != 0 && !m_ended) {
            result = inflate(&m_stream, Z_NO_FLUSH);
            m_ended = result == Z_STREAM_END && m_stream.avail_in == 0;
            if (result == Z_STREAM_END && !m_ended) // RFC 1952, 2.2: members may follow each other
                result = inflateReset(&m_stream);
        }
        out.resize(before + piece - m_stream.avail_out);
        return m_ended || (result == Z_OK && m_stream.avail_out == 0);
    }

    z_stream m_stream = {};
    bool m_ready = false, m_ended = false;
};

} // namespace

Refused unpack(std::string& body, Encoding encoding, const Limits& limits, const Charge& charge)
{
    size_t limit = limits.body == 0 ? std::numeric_limits<uint32_t>::max() : limits.body;
    if (body.size() > limit)
        return Refusal{413, "The body is too large."};
    if (encoding == Encoding::identity)
        return std::nullopt;
    std::string out;
    Refused refused = Inflater().run(body, limit, charge, out);
    body = std::move(out);
    return refused;
}

} // namespace intake
