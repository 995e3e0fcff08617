// The members of a JSON document, written in place.
//
// For the library's own use: json_writer::element() is the interface, and this is what it does. It stands in a header
// so that the documents' add operations hold it inline: a member is then written by one leaf function, which is what
// makes building an event cheap.
#pragma once

#include "lumo/common.h"
#include "lumo/escape.h"
#include "lumo/json_writer.h"

#include <cstring>

namespace lumo {

/// json_writer's right hand.
struct json_elements
{
    /// What is always left at the cursor after a name or an encoded string: the closing of a name, the longest number,
    /// and what follows a value. So the fixed pieces of a member need no check of their own.
    static constexpr std::size_t value_room = 48;
    static_assert(value_room >= number_room + 8);

    /// Separator, the quote before a name, and the least that encoding it goes on with.
    static constexpr std::size_t prefix_room = 8 + escape_stride;

    /// Fixed pieces are copied in whole fours, one store each; only `size` bytes count.
    static char* put(char* out, const char (&text)[5], std::size_t size)
    {
        std::memcpy(out, text, 4);
        return out + size;
    }

    /// Appends `s` escaped; returns the end, with value_room left.
    static char* encode(json_writer& writer, char* out, const char* s)
    {
        const escaped copy = copy_escaped(s, out, writer._text.limit() - value_room);
        return copy.in == nullptr ? copy.out : writer._encode_rest(copy.in, copy.out);
    }

    /// What comes before every value: the separator and, unless null, the name. Returns where the value goes, with
    /// value_room left.
    static char* begin(json_writer& writer, const char* name)
    {
        char* out = writer._text.reserve(prefix_room + value_room);
        std::memcpy(out, writer._next.text, sizeof writer._next.text);
        out += writer._next.size;
        writer._next = writer._later;
        if (name == nullptr)
            return out;
        *out++ = '"';
        return put(encode(writer, out, name), "\":  ", 3);
    }

    static char* put_value(json_writer& writer, char* out, const char* value)
    {
        if (value == nullptr)
            return put(out, "null", 4);
        *out++ = '"';
        out = encode(writer, out, value);
        *out++ = '"';
        return out;
    }

    static char* put_value(json_writer&, char* out, double value) { return write_general(out, value); }
    static char* put_value(json_writer&, char* out, int value) { return write_decimal(out, value); }
    static char* put_value(json_writer&, char* out, long long value) { return write_decimal(out, value); }

    static char* put_value(json_writer&, char* out, bool value)
    {
        if (value)
            return put(out, "true", 4);
        *out++ = 'f';
        return put(out, "alse", 4);
    }

    /// One member, or element with a null name.
    template <class Value>
    static void add(json_writer& writer, const char* name, Value value)
    {
        char* out = begin(writer, name);
        writer._text.commit(put_value(writer, out, value));
    }

    static void add(json_writer& writer, const char* name, const json_writer* child)
    {
        writer._text.commit(begin(writer, name));
        if (child != nullptr)
            writer._text.append(child->text());
    }
};

} // namespace lumo
