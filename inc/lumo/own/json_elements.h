// The members of a JSON document, written in place.
//
// For the library's own use: json_writer::element() is the interface. There are two ways to write a member. The general
// one is what element() does. The short one, try_add(), is for the common case: a name that is short and needs no
// escape, and a value for which there is room. It is in a header so that the add operations of the documents contain it
// inline and call nothing, which makes building an event cheap. In any other case it gives up before anything counts as
// written, and the general way starts over.
#pragma once

#include "lumo/common.h"
#include "lumo/json_writer.h"
#include "lumo/own/escape.h"

#include <cstring>
#include <type_traits>

namespace lumo {

/// The operations of json_writer that are compiled into its callers.
///
/// Every piece of a member is placed by its offset from where the member begins. The end of a member is then its
/// beginning plus one size, and the processor can start on the next member as soon as it has that sum.
struct json_elements
{
    /// The room that the short way keeps free behind a name or an encoded string: enough for the closing of a name, the
    /// longest number, and what follows a value. So the fixed pieces of a member need no check of their own.
    static constexpr std::size_t value_room = 48;
    static_assert(value_room >= number_room + 8);

    /// Room for the separator, the quote before a name, and the least room that encoding the name needs.
    static constexpr std::size_t prefix_room = 8 + escape_stride;

    /// The size of a value that was written at `out`, or too_long. A text and its escapes may go up to `limit`, behind
    /// which there is value_room left.
    LUMO_ALWAYS_INLINE static std::size_t try_value(char* out, const char* limit, const char* value)
    {
        if (value == nullptr)
            return too_long;
        *out = '"';
        const escaped copy = copy_escaped(value, out, 1, static_cast<std::size_t>(limit - out));
        out[copy.size] = '"';
        return copy.rest != nullptr ? too_long : copy.size + 1;
    }

    template <class Number>
    LUMO_ALWAYS_INLINE static std::size_t try_value(char* out, const char*, Number value)
    {
        return put_decimal(out, value);
    }

    LUMO_ALWAYS_INLINE static std::size_t try_value(char* out, const char*, double value)
    {
        return put_general(out, value);
    }

    LUMO_ALWAYS_INLINE static std::size_t try_value(char* out, const char*, bool value)
    {
        std::memcpy(out, value ? "true" : "fals", 4);
        out[4] = 'e';
        return value ? 4 : 5;
    }

    /// In place of a size: the short way cannot write this value.
    static constexpr std::size_t too_long = ~std::size_t{0};

    /// A child's text of moderate length, copied sixteen bytes at a time.
    LUMO_ALWAYS_INLINE static std::size_t try_value(char* out, const char*, const json_writer* child)
    {
        if (child == nullptr || child->text.size() > child_room)
            return too_long;
        const char* const text = child->text.begin();
        const std::size_t size = child->text.size();
        for (std::size_t at = 0; at < size; at += 16)
            std::memcpy(out + at, text + at, 16);
        return size;
    }

    /// The longest text of a child that goes the short way; the room behind a text is always at least sixteen bytes
    /// longer.
    static constexpr std::size_t child_room = text_buffer::inline_room - 16;

    /// What a value needs behind the room for its name.
    template <class Value>
    static constexpr std::size_t room_for = std::is_same_v<Value, const json_writer*> ? child_room + 16 : value_room;

    /// One member, the short way. Returns false when it is not for this member; nothing is changed then.
    template <class Value>
    LUMO_ALWAYS_INLINE static bool try_add(json_writer& writer, const char* name, Value value)
    {
        char* const begin = writer.text.end();
        if (static_cast<std::size_t>(writer.text.limit() - begin) < prefix_room + room_for<Value>)
            return false;
        std::memcpy(begin, writer._next.text, sizeof writer._next.text);
        std::size_t size = writer._next.size;
        if (name != nullptr) {
            begin[size] = '"';
            const std::size_t length = copy_short(name, begin + size + 1);
            if (length == short_text)
                return false;
            size += length + 4;
            std::memcpy(begin + size - 3, "\":  ", 4);
        }
        const std::size_t value_size = try_value(begin + size, writer.text.limit() - value_room, value);
        if (value_size == too_long)
            return false;
        // Nothing is committed before this line, so giving up above leaves the writer unchanged.
        writer._next = writer._later;
        writer.text.commit(begin + (size + value_size));
        return true;
    }

    /// Starts over with the text of an unfinished document, members already in it.
    static void resume(json_writer& writer, std::string_view begun) { writer._resume(begun); }

    /// A value of each kind behind its name, the general way; here and in the next two.
    static void add_value(json_writer& writer, const char* value)
    {
        if (value == nullptr) {
            writer.text.append("null");
            return;
        }
        writer._put('"');
        writer._write_encode(value);
        writer._put('"');
    }

    static void add_value(json_writer& writer, std::string_view value)
    {
        writer._put('"');
        writer._write_encode(value);
        writer._put('"');
    }

    static void add_value(json_writer& writer, const json_writer* child)
    {
        if (child == nullptr)
            return;
        // Room first and only then the text, which moves with it when a document is added to itself.
        writer.text.reserve(child->text.size());
        writer.text.append(child->text);
    }

    template <class Number>
    static void add_value(json_writer& writer, Number value)
    {
        char* const out = writer.text.reserve(value_room);
        writer.text.commit(out + try_value(out, nullptr, value));
    }

    /// One member, or element with a null name, the general way: whole or not at all. A document that cannot grow is
    /// then as it was, and can still be read.
    template <class Value>
    __attribute__((noinline)) static void add_whole(json_writer& writer, const char* name, Value value)
    {
        const std::size_t size = writer.text.size();
        const json_writer::separator next = writer._next;
        try {
            writer._write_name(name);
            add_value(writer, value);
        } catch (...) {
            // The text may have moved and grown since, but what stood in it stands there still.
            writer.text.commit(writer.text.end() - (writer.text.size() - size));
            writer._next = next;
            throw;
        }
    }

    /// One member, in whichever way. Room is made first, because most members that the short way refuses only lack
    /// room.
    template <class Value>
    static void add(json_writer& writer, const char* name, Value value)
    {
        writer.text.reserve(prefix_room + room_for<Value>);
        if (!try_add(writer, name, value))
            add_whole(writer, name, value);
    }
};

} // namespace lumo
