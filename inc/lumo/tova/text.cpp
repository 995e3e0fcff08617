#include "lumo/tova/text.h"

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

// Copies `length` characters and terminates them; what does not fit is cut, terminated and then caught.
template <class Char>
static void copy_bounded(Char* dst, unsigned size, const Char* src, size_t length)
{
    const size_t fitting = length < size ? length : size ? size - 1 : 0;
    memmove(dst, src, fitting * sizeof(Char));
    if (size)
        dst[fitting] = 0;
    if (length >= size)
        tova_assert(false);
}

void tova_strcpy(char* dst, unsigned size, const char* src)
{
    copy_bounded(dst, size, src, strnlen(src, size));
}

void tova_strncpy(char* dst, unsigned size, const char* src, unsigned count)
{
    copy_bounded(dst, size, src, strnlen(src, count));
}

void tova_strcat(char* dst, unsigned size, const char* src)
{
    const unsigned used = static_cast<unsigned>(strnlen(dst, size));
    if (used == size)
        tova_assert(false);
    tova_strcpy(dst + used, size - used, src);
}

void tova_wcscpy(wchar_t* dst, unsigned size, const wchar_t* src)
{
    size_t length = 0;
    while (length < size && src[length])
        ++length;
    copy_bounded(dst, size, src, length);
}

void tova_strpath(char* dst, unsigned size, const char* directory, const char* name)
{
    if (directory != dst)
        tova_strcpy(dst, size, directory);
    // Always a separator, even after a directory that ends in one; that is meant.
    tova_strcat(dst, size, "/");
    tova_strcat(dst, size, name);
}

static int lower(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? u + 32 : u;
}

int32_t tova_strnicmp(const char* a, const char* b, unsigned count)
{
    for (unsigned i = 0; i < count; ++i) {
        const int difference = lower(a[i]) - lower(b[i]);
        if (difference != 0 || !a[i])
            return difference;
    }
    return 0;
}

int32_t tova_stricmp(const char* a, const char* b)
{
    while (*a && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) - lower(*b);
}

int32_t tova_sprintf(char* dst, int32_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = tova_vsprintf(dst, size, format, arguments);
    va_end(arguments);
    return length;
}

int32_t tova_vsprintf(char* dst, int32_t size, const char* format, va_list arguments)
{
    if (size <= 0)
        return 0;
    const int length = vsnprintf(dst, static_cast<size_t>(size), format, arguments);
    if (length >= 0 && length < size)
        return length;
    dst[0] = 0;
    return 0;
}

namespace {

using byte = unsigned char;

constexpr uint32_t replacement = 0xFFFD;

constexpr bool is_continuation(byte b)
{
    return (b & 0xC0) == 0x80;
}

constexpr bool is_code_point(uint32_t value)
{
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

// The one decoder: counting and converting both walk the text with it, so they cannot disagree on a broken sequence.
class utf8_decoder
{
public:
    explicit utf8_decoder(const char* text) : at(reinterpret_cast<const byte*>(text)), end(at + strlen(text)) {}

    // Hands the text to `sink`: whole words of ASCII as bytes, everything else as single code points.
    template <class Sink>
    void walk(Sink& sink)
    {
        while (at < end) {
            if (*at >= 0x80)
                sink.put(next());
            else if (size_t count = ascii(); count > 1 && sink.put_ascii(at, count))
                at += count;
            else
                sink.put(*at++);
        }
    }

    bool ended_inside_a_sequence() const { return cut; }

private:
    // How many of the next eight bytes, from the first on, are ASCII; 1 near the end of the text.
    size_t ascii() const
    {
        if (std::endian::native != std::endian::little || end - at < 8)
            return 1;
        uint64_t word;
        memcpy(&word, at, sizeof word);
        word &= 0x8080808080808080;
        return word ? static_cast<size_t>(std::countr_zero(word)) / 8 : 8;
    }

    uint32_t next()
    {
        if (end - at >= 3 && is_continuation(at[1])) {
            if (*at >= 0xC2 && *at < 0xE0) {
                at += 2;
                return (at[-2] & 0x1Fu) << 6 | (at[-1] & 0x3Fu);
            }
            const uint32_t value = (at[0] & 0x0Fu) << 12 | (at[1] & 0x3Fu) << 6 | (at[2] & 0x3Fu);
            if ((*at & 0xF0) == 0xE0 && is_continuation(at[2]) && value >= 0x800 && is_code_point(value)) {
                at += 3;
                return value;
            }
        }
        return any_sequence();
    }

    // Every sequence by the general rule, the broken ones too.
    uint32_t any_sequence()
    {
        static constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
        const int length = std::countl_one(*at);
        uint32_t value = *at++ & (0x7Fu >> length);
        if (length < 2 || length > 6)
            return replacement;
        for (int i = 1; i < length; ++i) {
            if (at == end || !is_continuation(*at)) {
                cut = at == end;
                return replacement;
            }
            value = value << 6 | (*at++ & 0x3Fu);
        }
        return value >= least[length] && is_code_point(value) ? value : replacement;
    }

    const byte* at;
    const byte* end;
    bool cut = false;
};

struct code_point_counter
{
    size_t count = 0;

    void put(uint32_t) { ++count; }
    bool put_ascii(const byte*, size_t length)
    {
        count += length;
        return true;
    }
};

class wide_writer
{
public:
    wide_writer(wchar_t* dst, unsigned size) : begin(dst), at(dst), last(dst + size - 1) {}

    void put(uint32_t value)
    {
        if (at == last)
            tova_assert(false);
        *at++ = static_cast<wchar_t>(value);
    }

    // Widens all eight bytes, whatever `length`: a loop of fixed length is one the compiler turns into a few wide
    // moves, and what follows overwrites the rest.
    bool put_ascii(const byte* bytes, size_t length)
    {
        if (last - at < 8)
            return false;
        for (int i = 0; i < 8; ++i)
            at[i] = bytes[i];
        at += length;
        return true;
    }

    int32_t finish()
    {
        *at = 0;
        return static_cast<int32_t>(at - begin) + 1;
    }

private:
    wchar_t* begin;
    wchar_t* at;
    wchar_t* last; // room for the terminator
};

// Writes the UTF-8 of one code point into `out` and returns its length.
int encode(uint32_t value, char* out)
{
    if (!is_code_point(value))
        value = replacement;
    if (value < 0x80) {
        out[0] = static_cast<char>(value);
        return 1;
    }
    const int length = value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
    for (int i = length - 1; i > 0; --i, value >>= 6)
        out[i] = static_cast<char>(0x80 | (value & 0x3F));
    out[0] = static_cast<char>(0xF00 >> length | value);
    return length;
}

} // namespace

int32_t tova_utf8_to_wide(wchar_t* dst, unsigned size, const char* src)
{
    utf8_decoder decoder(src);
    if (!dst) {
        code_point_counter counter;
        decoder.walk(counter);
        return static_cast<int32_t>(counter.count + 1);
    }
    tova_assert(size > 1);
    wide_writer writer(dst, size);
    decoder.walk(writer);
    return writer.finish();
}

uint32_t tova_utf8_to_wide_length(const char* src)
{
    utf8_decoder decoder(src);
    code_point_counter counter;
    decoder.walk(counter);
    tova_assert(!decoder.ended_inside_a_sequence());
    return static_cast<uint32_t>(counter.count);
}

int32_t tova_wide_to_utf8(char* dst, unsigned size, const wchar_t* src)
{
    if (dst)
        tova_assert(size > 1);
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

static void check(const tova_string* s)
{
    tova_assert(s);
    tova_assert(s->_version == tova_version);
}

void tova_string_init(tova_string* s)
{
    tova_assert(s);
    memset(s, 0, sizeof *s);
    s->_version = tova_version;
}

void tova_string_reserve(tova_string* s, uint32_t size)
{
    check(s);
    if (size <= s->_capacity)
        return;
    char* grown = static_cast<char*>(realloc(s->_text, size));
    if (!grown)
        tova_assert(false);
    grown[s->_length] = 0;
    s->_text = grown;
    s->_capacity = size;
}

// Puts `text` after the first `kept` characters. The text may be the string's own, so its old block goes last.
static void replace_tail(tova_string* s, uint32_t kept, const char* text)
{
    check(s);
    const size_t added = text ? strlen(text) : 0;
    const size_t needed = kept + added + 1;
    if (needed > UINT32_MAX)
        tova_assert(false);
    std::unique_ptr<char, decltype(&free)> old(nullptr, free);
    if (needed > s->_capacity) {
        // Half as much again, so that appending piece by piece stays linear.
        const size_t wanted = kept ? needed + needed / 2 : needed;
        const size_t capacity = wanted > UINT32_MAX ? needed : wanted;
        char* grown = static_cast<char*>(malloc(capacity));
        if (!grown)
            tova_assert(false);
        if (kept)
            memcpy(grown, s->_text, kept);
        old.reset(s->_text);
        s->_text = grown;
        s->_capacity = static_cast<uint32_t>(capacity);
    }
    if (added)
        memmove(s->_text + kept, text, added);
    s->_length = static_cast<uint32_t>(kept + added);
    s->_text[s->_length] = 0;
}

void tova_string_set(tova_string* s, const char* text)
{
    replace_tail(s, 0, text);
}

void tova_string_append(tova_string* s, const char* text)
{
    check(s);
    replace_tail(s, s->_length, text);
}

void tova_string_clear(tova_string* s)
{
    check(s);
    free(s->_text);
    tova_string_init(s);
}

const char* tova_string_get(const tova_string* s)
{
    check(s);
    return s->_text ? s->_text : "";
}

uint32_t tova_string_length(const tova_string* s)
{
    check(s);
    return s->_length;
}
