// UTF-8 to wide characters and back. There is one walk over a text and one rule for what is none.
#include "lumo/tova/text.h"

#include "lumo/tova/own/utf8_window.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

using byte = unsigned char;

// U+FFFD, which replaces an invalid sequence.
constexpr uint32_t replacement = 0xFFFD;

constexpr bool is_continuation(byte b)
{
    return (b & 0xC0) == 0x80;
}

// Surrogates are halves of UTF-16 pairs and no characters of their own.
constexpr bool is_code_point(uint32_t value)
{
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

struct decoded
{
    const byte* next; // where the next sequence begins
    uint32_t value;
};

// Decodes any sequence, the invalid ones too. The terminator is no continuation byte, so it ends any sequence.
decoded decode_any(const byte* at)
{
    // A value below the least of its length is an overlong form, which could smuggle a character past a filter.
    static constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    // The number of leading one bits in a lead byte is the length of its sequence; the bits behind them are payload.
    // For 0xE2, 11100010, that is length 3 and payload 0010.
    const int length = std::countl_one(*at);
    uint32_t value = *at++ & (0x7Fu >> length);
    // A continuation byte without a lead byte, or a byte that is never valid: each is one invalid sequence.
    if (length < 2 || length > 6)
        return {at, replacement};
    for (int i = 1; i < length; ++i) {
        if (!is_continuation(*at))
            // The byte that interrupts may begin a character and is left for the next call.
            return {at, replacement};
        value = value << 6 | (*at++ & 0x3Fu);
    }
    return {at, value >= least[length] && is_code_point(value) ? value : replacement};
}

// The same for the most frequent sequences, inline.
inline decoded decode(const byte* at)
{
    if (*at < 0x80)
        return {at + 1, *at};
    // 0xC0 and 0xC1 begin only overlong forms; decode_any() handles them and everything else that is rare.
    if (*at >= 0xC2 && *at < 0xE0 && is_continuation(at[1]))
        return {at + 2, (at[0] & 0x1Fu) << 6 | (at[1] & 0x3Fu)};
    if ((*at & 0xF0) == 0xE0 && is_continuation(at[1]) && is_continuation(at[2])) {
        const uint32_t value = (at[0] & 0x0Fu) << 12 | (at[1] & 0x3Fu) << 6 | (at[2] & 0x3Fu);
        if (value >= 0x800 && is_code_point(value))
            return {at + 3, value};
    }
    return decode_any(at);
}

// The one loop over a text, for counting and for converting, so that the two cannot disagree on an invalid sequence.
template <class Sink>
class utf8_walk
{
public:
    utf8_walk(const char* text, Sink into)
        : _at(reinterpret_cast<const byte*>(text)), _end(_at + strlen(text)), _sink(into)
    {}

    Sink finish()
    {
        // Two sizes, because most names and values are shorter than the larger one.
        blocks<16>();
        blocks<8>();
        while (_at < _end) {
            _sink.check_room();
            one();
        }
        return _sink;
    }

private:
#if TOVA_UTF8_WINDOW
    // Continues to the end in windows.
    TOVA_FOR_VBMI2 __attribute__((noinline)) void windows()
    {
        utf8_walk here = *this; // a copy that nothing points to stays in registers
        // Windows begin at fixed distances, wherever sequences end, so that the processor can start on one before it
        // has finished the last.
        for (unsigned carry = 0; here._at < here._end;) {
            const auto left = static_cast<size_t>(here._end - here._at);
            const auto window = tova::utf8::decode_window(here._at, left, carry);
            const size_t step = std::min(left, tova::utf8::window_size);
            if (window.plain && window.count <= here._sink.room()) {
                put_window(here._sink, window);
                here._at += step;
                carry = window.carry;
                continue;
            }
            const byte* const stop = here._at + step;
            for (here._at += std::popcount(carry); here._at < stop;) {
                here._sink.check_room();
                here.one();
            }
            carry = 0;
        }
        *this = here;
    }
#endif

    // Continues in blocks while the text has a whole block and the sink has room for as many code points.
    template <int size>
    void blocks()
    {
        while (_end - _at >= size && _sink.room() >= size) {
            byte block[size];
            memcpy(block, _at, size);
            if (all_ascii(block)) {
                _sink.put_ascii(block);
                _at += size;
                continue;
            }
#if TOVA_UTF8_WINDOW
            if (tova::utf8::has_windows())
                return windows();
#endif
            // The next blocks are not tried before this one is done: a text with non-ASCII letters has them everywhere.
            for (const byte* const stop = _at + size; _at < stop;)
                one();
        }
    }

    template <size_t size>
    static bool all_ascii(const byte (&block)[size])
    {
        // Word by word, with one test at the end: a byte with its top bit set is not ASCII.
        uint64_t bits = 0;
        for (size_t i = 0; i < size; i += sizeof bits) {
            uint64_t word;
            memcpy(&word, block + i, sizeof word);
            bits |= word;
        }
        return (bits & 0x8080808080808080) == 0;
    }

    void one()
    {
        const decoded sequence = decode(_at);
        _sink.put(sequence.value);
        _at = sequence.next;
    }

    const byte* _at;
    const byte* _end;
    Sink _sink;
};

// The sinks of the loop: one counts, one writes. room() is how many more code points it takes without check_room().
struct code_point_counter
{
    size_t count = 0;

    static constexpr ptrdiff_t room() { return PTRDIFF_MAX; }
    void check_room() const {}
    void put(uint32_t) { ++count; }
    template <size_t size>
    void put_ascii(const byte (&)[size])
    {
        count += size;
    }
};

struct wide_writer
{
    wchar_t* at;
    wchar_t* last; // room for the terminator

    ptrdiff_t room() const { return last - at; }
    // Called for each character: how many there will be is known only at the end.
    void check_room() const
    {
        if (at == last)
            tova_assert(false);
    }
    void put(uint32_t value) { *at++ = static_cast<wchar_t>(value); }
    // A loop of fixed length over a block of its own is one that the compiler turns into a few wide moves.
    template <size_t size>
    void put_ascii(const byte (&block)[size])
    {
        for (size_t i = 0; i < size; ++i)
            at[i] = block[i];
        at += size;
    }
};

#if TOVA_UTF8_WINDOW
TOVA_FOR_VBMI2 void put_window(code_point_counter& sink, const tova::utf8::window& window)
{
    sink.count += static_cast<size_t>(window.count);
}

TOVA_FOR_VBMI2 void put_window(wide_writer& sink, const tova::utf8::window& window)
{
    sink.at = tova::utf8::put(sink.at, window);
}
#endif

// Whether the last sequence announces more bytes than the text has.
bool is_cut_off(const char* text)
{
    const size_t size = strlen(text);
    const char* const end = text + size;
    // Five continuations are the most that a lead byte can ask for.
    for (size_t back = 1; back <= 5 && back <= size; ++back) {
        const byte b = static_cast<byte>(end[-static_cast<ptrdiff_t>(back)]);
        if (!is_continuation(b)) {
            const int length = std::countl_one(b);
            return length >= 2 && length <= 6 && static_cast<size_t>(length) > back;
        }
    }
    return false;
}

// Writes the UTF-8 of one code point into `out` and returns its length.
int encode(uint32_t value, char* out)
{
    // A surrogate has no UTF-8 form that a decoder accepts.
    if (!is_code_point(value))
        value = replacement;
    if (value < 0x80) {
        out[0] = static_cast<char>(value);
        return 1;
    }
    const int length = value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
    for (int i = length - 1; i > 0; --i, value >>= 6)
        out[i] = static_cast<char>(0x80 | (value & 0x3F));
    // The mark of the lead byte has as many ones as the sequence has bytes: shifting 0xF00 right leaves just those in
    // the low byte, 0xE0 for a length of 3.
    out[0] = static_cast<char>(0xF00 >> length | value);
    return length;
}

} // namespace

int32_t tova_utf8_to_wide(wchar_t* dst, unsigned size, const char* src)
{
    if (!dst)
        return static_cast<int32_t>(utf8_walk(src, code_point_counter{}).finish().count + 1);
    // A size of 1 is most likely a length passed by mistake.
    tova_assert(size > 1);
    wchar_t* const end = utf8_walk(src, wide_writer{dst, dst + size - 1}).finish().at;
    *end = 0;
    return static_cast<int32_t>(end - dst) + 1;
}

// Deliberate: stricter than the conversion, because a caller that asks for the length alone may have a text in pieces
// and must not count the front of a character as one.
uint32_t tova_utf8_to_wide_length(const char* src)
{
    tova_assert(!is_cut_off(src));
    return static_cast<uint32_t>(utf8_walk(src, code_point_counter{}).finish().count);
}

int32_t tova_wide_to_utf8(char* dst, unsigned size, const wchar_t* src)
{
    if (dst)
        tova_assert(size > 1);
    // One loop measures and converts, as in the other direction.
    size_t used = 0;
    for (; *src; ++src) {
        char bytes[4];
        const size_t length = static_cast<size_t>(encode(static_cast<uint32_t>(*src), bytes));
        if (dst) {
            if (used + length >= size)
                tova_assert(false);
            memcpy(dst + used, bytes, length);
        }
        used += length;
    }
    if (dst)
        dst[used] = 0;
    return static_cast<int32_t>(used + 1);
}
