#include "lumo/json_writer.h"

#include "lumo/json_elements.h"

namespace lumo {

// The separators of a level: before its first member, and before the others.
void json_writer::_set_level(int depth, bool first) noexcept
{
    _depth = depth;
    if (_compact) {
        _next = {" ", 1};
        _later = {", ", 2};
    } else {
        const auto indentation = static_cast<std::uint32_t>(depth);
        _next = {"\r\n ", 2 + indentation};
        _later = {{',', '\r', '\n', ' '}, 3 + indentation};
    }
    if (!first)
        _next = _later;
}

bool json_writer::_is_first() const noexcept
{
    return _next.text[0] != ',';
}

json_writer::json_writer(unopened, bool compact) noexcept : _compact(compact)
{
    _set_level(0, true);
}

json_writer::json_writer(const char* name, bool compact) : json_writer(unopened(), compact)
{
    if (name != nullptr) {
        _put('{');
        _text.commit(json_elements::begin(*this, name));
        _wrapped = true;
    }
    _put('{');
    _set_level(1, true);
}

void json_writer::_resume(std::string_view text)
{
    _text.clear();
    _text.append(text);
    _set_level(1, false);
}

void json_writer::element(const char* name, const char* value)
{
    json_elements::add(*this, name, value);
}
void json_writer::element(const char* name, const json_writer* child)
{
    json_elements::add(*this, name, child);
}
void json_writer::element(const char* name, double value)
{
    json_elements::add(*this, name, value);
}
void json_writer::element(const char* name, bool value)
{
    json_elements::add(*this, name, value);
}
void json_writer::element(const char* name, long long value)
{
    json_elements::add(*this, name, value);
}
void json_writer::element(const char* name, int value)
{
    json_elements::add(*this, name, value);
}

void json_writer::finish()
{
    if (_depth < 1)
        return;
    _set_level(0, _is_first());
    char* out = _text.reserve(json_elements::value_room);
    out = _compact ? json_elements::put(out, " }  ", 2) : json_elements::put(out, "\r\n} ", 3);
    if (_wrapped)
        *out++ = '}';
    _text.commit(out);
}

void json_writer::_put(char c)
{
    char* out = _text.reserve(1);
    *out = c;
    _text.commit(out + 1);
}

char* json_writer::_encode_rest(const char* s, char* out)
{
    constexpr std::size_t value_room = json_elements::value_room;
    escaped copy = {s, out};
    do {
        _text.commit(copy.out);
        out = _text.reserve(value_room + 2 * escape_stride);
        copy = copy_escaped(copy.in, out, _text.limit() - value_room);
    } while (copy.in != nullptr);
    return copy.out;
}

json_writer_array::json_writer_array(const char* name, bool compact) : json_writer(unopened(), compact)
{
    if (name != nullptr)
        _text.commit(json_elements::begin(*this, name));
    _put('[');
    _set_level(1, name == nullptr);
}

void json_writer_array::finish()
{
    if (_depth < 1)
        return;
    _set_level(0, _is_first());
    _text.commit(json_elements::put(_text.reserve(4), " ]  ", 2));
}

} // namespace lumo
