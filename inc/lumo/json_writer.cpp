#include "lumo/json_writer.h"

#include "lumo/common.h"
#include "lumo/simd.h"

#include <algorithm>
#include <cstring>

namespace lumo {

// What is always left at the cursor after a name or an encoded string: the closing of a name, the longest number, and
// what follows a value. So the fixed pieces of a member need no check of their own.
static constexpr std::size_t value_room = 48;

// Separator, line break, the quote before a name, and the least that encoding it goes on with.
static constexpr std::size_t prefix_room = 8 + simd::escape_stride;

static char* put(char* out, std::string_view text)
{
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

json_writer::json_writer(unopened, bool compact) noexcept : _compact(compact) {}

json_writer::json_writer(const char* name, bool compact) : _compact(compact), _wrapped(name != nullptr)
{
    if (_wrapped) {
        _text.append("{");
        _text.commit(_write_name(name));
        _first = true;
    }
    _text.append("{");
    _depth = 1;
}

void json_writer::element(const char* name, const char* value)
{
    char* out = _write_name(name);
    if (value == nullptr) {
        _text.commit(put(out, "null"));
        return;
    }
    *out++ = '"';
    out = _write_encode(out, value);
    *out++ = '"';
    _text.commit(out);
}

void json_writer::element(const char* name, const json_writer* child)
{
    _text.commit(_write_name(name));
    if (child != nullptr)
        _text.append(child->text());
}

void json_writer::element(const char* name, double value)
{
    _text.commit(write_general(_write_name(name), value));
}

void json_writer::element(const char* name, bool value)
{
    char* out = _write_name(name);
    _text.commit(value ? put(out, "true") : put(out, "false"));
}

void json_writer::element(const char* name, long long value)
{
    _text.commit(write_decimal(_write_name(name), value));
}

void json_writer::element(const char* name, int value)
{
    _text.commit(write_decimal(_write_name(name), value));
}

void json_writer::finish()
{
    if (_depth < 1)
        return;
    // No indentation: the level just left was the only one.
    --_depth;
    char* out = _break(_text.reserve(value_room));
    _at_line_start = false;
    *out++ = '}';
    if (_wrapped)
        *out++ = '}';
    _text.commit(out);
}

char* json_writer::_break(char* out)
{
    if (_compact) {
        *out = ' ';
        return out + 1;
    }
    _at_line_start = true;
    return put(out, "\r\n");
}

char* json_writer::_write_name(const char* name)
{
    char* out = _text.reserve(prefix_room + static_cast<std::size_t>(_depth) + value_room);
    *out = ',';
    out += _first ? 0 : 1;
    _first = false;
    out = _break(out);
    if (_at_line_start) {
        out = std::fill_n(out, _depth, ' ');
        _at_line_start = false;
    }
    if (name == nullptr)
        return out;
    *out++ = '"';
    return put(_write_encode(out, name), "\": ");
}

char* json_writer::_write_encode(char* out, const char* s)
{
    simd::copied copy = simd::copy_escaped(s, out, _text.limit() - value_room);
    while (copy.in != nullptr) {
        _text.commit(copy.out);
        out = _text.reserve(value_room + 2 * simd::escape_stride);
        copy = simd::copy_escaped(copy.in, out, _text.limit() - value_room);
    }
    return copy.out;
}

json_writer_array::json_writer_array(const char* name, bool compact) : json_writer(unopened(), compact)
{
    if (name != nullptr)
        _text.commit(_write_name(name));
    _text.append("[");
    _depth = 1;
}

void json_writer_array::finish()
{
    if (_depth < 1)
        return;
    --_depth;
    _text.append(" ]");
}

} // namespace lumo
