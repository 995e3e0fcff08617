// The growing text of a document.
//
// Short texts live inside the object, so a small document costs no allocation of its own. Writers ask for room, write
// through a plain pointer and say where they stopped: one bounds check for a whole member instead of one per byte.
//
//     char* out = buffer.reserve(most);
//     out += write_something(out);         // at most `most` bytes
//     buffer.commit(out);
#pragma once

#include "lumo/scoped_ptr.h"
#include "lumo/tova/base.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace lumo {

/// Text that only grows. Owned and used by one thread at a time. Growing may throw std::bad_alloc; the text is then as
/// it was.
///
/// It reads like a string: it turns into a std::string or a view of one, compares with both, and has a terminator for
/// whoever asks for one.
class TOVA_API text_buffer
{
public:
    /// The room of a text that has not grown yet, its terminator not counted: enough for most nested objects and
    /// arrays, and two such buffers (an array document has both) stay a small object.
    static constexpr std::size_t inline_room = 231;

    /// The most room that outlives clear().
    static constexpr std::ptrdiff_t kept_room = 64 << 10;

    /// Empty, without any memory from the heap.
    text_buffer() noexcept : _end(_inline), _limit(_inline + inline_room) {}
    text_buffer(const text_buffer&) = delete;
    text_buffer& operator=(const text_buffer&) = delete;

    /// The text so far; valid until the next change.
    std::string_view view() const noexcept { return {begin(), size()}; }

    /// The same, by itself.
    operator std::string_view() const noexcept { return view(); }
    /// A copy.
    operator std::string() const { return std::string(view()); }
    /// The text with a terminator; valid until the next change.
    const char* c_str() const noexcept
    {
        *_end = '\0';
        return begin();
    }
    /// The same without one.
    const char* data() const noexcept { return begin(); }
    /// Whether the text is empty.
    bool empty() const noexcept { return size() == 0; }
    /// Where `part` stands first from a place on, or std::string_view::npos.
    std::size_t find(std::string_view part, std::size_t from = 0) const noexcept { return view().find(part, from); }

    /// Bytes against bytes.
    friend bool operator==(const text_buffer& a, const text_buffer& b) noexcept { return a.view() == b.view(); }
    /// Bytes against bytes.
    friend bool operator==(const text_buffer& a, std::string_view b) noexcept { return a.view() == b; }
    /// Bytes against bytes.
    friend bool operator==(std::string_view a, const text_buffer& b) noexcept { return a == b.view(); }
    /// Bytes against bytes.
    friend bool operator!=(const text_buffer& a, const text_buffer& b) noexcept { return a.view() != b.view(); }
    /// Bytes against bytes.
    friend bool operator!=(const text_buffer& a, std::string_view b) noexcept { return a.view() != b; }
    /// Bytes against bytes.
    friend bool operator!=(std::string_view a, const text_buffer& b) noexcept { return a != b.view(); }

    /// Makes room for `count` more bytes and returns where they go. What is written there counts from commit() on; all
    /// pointers and views from before are void when the text had to grow.
    char* reserve(std::size_t count)
    {
        if (__builtin_expect(static_cast<std::size_t>(_limit - _end) < count, 0))
            grow(count);
        return _end;
    }

    /// Where the text begins.
    const char* begin() const noexcept { return _heap ? _heap.Get() : _inline; }
    /// Its size in bytes.
    std::size_t size() const noexcept { return static_cast<std::size_t>(_end - begin()); }
    /// Where it ends, and the next byte goes.
    char* end() const noexcept { return _end; }

    /// The end of the room that reserve() made.
    char* limit() const noexcept { return _limit; }

    /// Takes everything up to `end`, which lies within the reserved room, as written.
    void commit(char* end) noexcept { _end = end; }

    /// Appends a copy of `text`, which may be part of this buffer only when there is room for it already.
    void append(std::string_view text);

    /// Appends a literal, its NUL left out: a few bytes that the compiler stores without a call.
    template <std::size_t size>
    void append(const char (&literal)[size])
    {
        char* const out = reserve(size - 1);
        std::memcpy(out, literal, size - 1);
        commit(out + size - 1);
    }

    /// Empties the text and keeps the room, so that the next text of usual size allocates nothing. Room of more than
    /// kept_room is released: one huge document must not hold its memory for good.
    void clear() noexcept
    {
        if (_heap && _limit - begin() > kept_room) {
            _heap.Reset();
            _limit = _inline + inline_room;
        }
        _end = const_cast<char*>(begin());
    }

private:
    /// Moves the text to a larger block; the rare part of reserve(), kept out of line.
    void grow(std::size_t count);

    char* _end;   // where the text ends
    char* _limit; // where the room ends, and a terminator still fits
    scoped_array<char> _heap;
    char _inline[inline_room + 1]; // the room until the text is on the heap
};

} // namespace lumo
