// The members of a JSON document, written in place.
//
// For the library's own use: json_writer::element() is the interface. There are two ways to write a member. The general
// one is what element() does. The short one, try_add(), is for the members that nearly all are: a name that is short
// and needs no escape, and a value for which there is room. It stands in a header so that the documents' add operations
// hold it inline and call nothing: that is what makes building an event cheap. It gives up wherever it meets anything
// else, before anything counts as written, and the general way begins anew.
#pragma once

#include "lumo/common.h"
#include "lumo/escape.h"
#include "lumo/json_writer.h"

#include <cstring>
#include <type_traits>

namespace lumo {

/// json_writer's right hand.
///
/// Within a member everything is placed by its distance from where the member begins, so that the end of a member is
/// one addition away from its beginning: the next member waits for that sum, and for nothing else of this one.
struct json_elements
{
    /// What is always left behind a name or an encoded string: the closing of a name, the longest number, and what
    /// follows a value. So the fixed pieces of a member need no check of their own.
    static constexpr std::size_t value_room = 48;
    static_assert(value_room >= number_room + 8);

    /// Separator, the quote before a name, and the least that encoding it goes on with.
    static constexpr std::size_t prefix_room = 8 + escape_stride;

    /// A member under construction: where it begins, and how much of it there is. Handed around by value, so that it
    /// stays in registers.
    struct cursor
    {
        char* begin;
        std::size_t size;

        char* end() const { return begin + size; }
    };

    /// Fixed pieces are copied in whole fours, one store each; only `count` bytes count.
    LUMO_ALWAYS_INLINE static cursor put(cursor member, const char (&text)[5], std::size_t count)
    {
        std::memcpy(member.end(), text, 4);
        return {member.begin, member.size + count};
    }

    /// Makes room and writes what comes before every value: the separator and, unless null, the name.
    LUMO_ALWAYS_INLINE static cursor begin(json_writer& writer, const char* name)
    {
        const cursor member = {writer._text.reserve(prefix_room + value_room), writer._next.size};
        std::memcpy(member.begin, writer._next.text, sizeof writer._next.text);
        writer._next = writer._later;
        return name == nullptr ? member : put(put_string(writer, member, name), "\":  ", 3);
    }

    /// A quote and the text escaped. The closing quote is the caller's, together with what follows it.
    LUMO_ALWAYS_INLINE static cursor put_string(json_writer& writer, cursor member, const char* text)
    {
        *member.end() = '"';
        const auto room = static_cast<std::size_t>(writer._text.limit() - member.begin) - value_room;
        const escaped copy = copy_escaped(text, member.begin, member.size + 1, room);
        member.size = copy.size;
        if (__builtin_expect(copy.rest != nullptr, 0))
            return encode_rest(writer, member, copy.rest);
        return member;
    }

    /// Goes on with a string for which there was too little room.
    static cursor encode_rest(json_writer& writer, cursor member, const char* text);

    /// A value of each kind, behind the name; here and in the next three. What needs no growing needs no writer.
    LUMO_ALWAYS_INLINE static cursor put_value(json_writer& writer, cursor member, const char* value)
    {
        return value == nullptr ? put(member, "null", 4) : put(put_string(writer, member, value), "\"   ", 1);
    }

    LUMO_ALWAYS_INLINE static cursor put_value(json_writer&, cursor member, double value)
    {
        return {member.begin, member.size + put_general(member.end(), value)};
    }

    LUMO_ALWAYS_INLINE static cursor put_value(json_writer&, cursor member, bool value)
    {
        return value ? put(member, "true", 4) : put(put(member, "fals", 4), "e   ", 1);
    }

    template <class Integer>
    LUMO_ALWAYS_INLINE static cursor put_value(json_writer&, cursor member, Integer value)
    {
        return {member.begin, member.size + put_decimal(member.end(), value)};
    }

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

    /// No size: the short way is not for this value.
    static constexpr std::size_t too_long = ~std::size_t{0};

    /// A child's text of moderate length, in whole sixteens.
    LUMO_ALWAYS_INLINE static std::size_t try_value(char* out, const char*, const json_writer* child)
    {
        if (child == nullptr || child->_text.size() > child_room)
            return too_long;
        const char* const text = child->_text.begin();
        const std::size_t size = child->_text.size();
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
        char* const begin = writer._text.end();
        if (static_cast<std::size_t>(writer._text.limit() - begin) < prefix_room + room_for<Value>)
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
        const std::size_t value_size = try_value(begin + size, writer._text.limit() - value_room, value);
        if (value_size == too_long)
            return false;
        // Nothing counted until here, so whoever gave up above left the writer as it was.
        writer._next = writer._later;
        writer._text.commit(begin + (size + value_size));
        return true;
    }

    /// One member, or element with a null name: the general way.
    template <class Value>
    LUMO_ALWAYS_INLINE static void add(json_writer& writer, const char* name, Value value)
    {
        writer._text.commit(put_value(writer, begin(writer, name), value).end());
    }

    /// The same for a child of any length.
    static void add(json_writer& writer, const char* name, const json_writer* child)
    {
        writer._text.commit(begin(writer, name).end());
        if (child == nullptr)
            return;
        // Room first and only then the text, which moves with it when a document is added to itself.
        writer._text.reserve(child->_text.size());
        writer._text.append(child->text());
    }

    /// The same, whole or not at all: a document that cannot grow is then as it was, and can still be read.
    template <class Value>
    static void add_whole(json_writer& writer, const char* name, Value value)
    {
        const std::size_t size = writer._text.size();
        const json_writer::separator next = writer._next;
        try {
            add(writer, name, value);
        } catch (...) {
            // The text may have moved and grown since, but what stood in it stands there still.
            writer._text.commit(writer._text.end() - (writer._text.size() - size));
            writer._next = next;
            throw;
        }
    }
};

} // namespace lumo
