#include "lumo/json_writer.h"

#include "lumo/own/json_elements.h"

#include <algorithm>

namespace lumo {

// Set once per level instead of being put together for each of its many members. Lines of the outermost level, which
// holds only the closing brace and the name of the whole document, are not indented.
void json_writer::_set_level(int depth, bool first) noexcept
{
    static constexpr separator compact[] = {{" ", 1}, {", ", 2}};
    static constexpr separator lines[] = {{"\r\n", 2}, {",\r\n", 3}};
    static constexpr separator indented[] = {{"\r\n ", 3}, {{',', '\r', '\n', ' '}, 4}};
    const separator* const chosen = _compact ? compact : depth == 0 ? lines : indented;
    _depth = depth;
    _next = chosen[first ? 0 : 1];
    _later = chosen[1];
}

bool json_writer::_is_first() const noexcept
{
    // Every separator but the first begins with a comma, so no flag is needed beside it.
    return _next.text[0] != ',';
}

json_writer::json_writer(const char* name, bool compact) : json_writer(unopened(), compact)
{
    if (name != nullptr) {
        // Still outside of any level: the name stands on a line without indentation.
        _put('{');
        _set_level(0, true);
        _write_name(name);
        _wrapped = true;
    }
    _put('{');
    _set_level(1, true);
}

void json_writer::restart()
{
    // The name is not kept, so there is no outer object to close any more.
    _wrapped = false;
    _restart('{');
}

void json_writer::_restart(char bracket)
{
    // The same state as after the constructor of an unnamed writer, but the text keeps its room.
    text.clear();
    _put(bracket);
    _set_level(1, true);
}

// The event lines of one second begin with the same members. Their text is written once and each line continues from a
// copy.
void json_writer::_resume(std::string_view begun)
{
    text.clear();
    text.append(begun);
    _set_level(1, false);
}

// The general way for each kind of value, compiled only here. The documents inline the short way and call these for
// what it refuses.
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

void json_writer::element(const char* name, unsigned long long value)
{
    json_elements::add(*this, name, value);
}
void json_writer::element(const char* name, std::string_view value)
{
    json_elements::add_whole(*this, name, value);
}

void json_writer::finish()
{
    if (_depth < 1)
        return;
    text.reserve(4); // first, since it may find no memory
    // A member that comes too late lands behind the brace, with a comma unless the object was empty; nobody checks.
    _set_level(0, _is_first());
    if (_compact) { // in one piece: an event ends several times
        text.append(" }");
    } else {
        _break();
        _put('}');
    }
    if (_wrapped)
        _put('}');
}

void json_writer::_put(char c)
{
    char* out = text.reserve(1);
    *out = c;
    text.commit(out + 1);
}

// The separators hold all that comes before a name in one piece.
void json_writer::_write_name(const char* name)
{
    char* const out = text.reserve(sizeof _next.text);
    std::memcpy(out, _next.text, sizeof _next.text);
    text.commit(out + _next.size);
    _next = _later;
    if (name == nullptr)
        return;
    _put('"');
    _write_encode(name);
    text.append("\": ");
}

// In rounds, because the length of a text is known only at its end. Each round makes more room than a round needs to
// start, so each makes progress.
void json_writer::_write_encode(const char* s)
{
    while (s != nullptr) {
        char* const out = text.reserve(2 * escape_stride);
        const escaped copy = copy_escaped(s, out, 0, static_cast<std::size_t>(text.limit() - out));
        text.commit(out + copy.size);
        s = copy.rest;
    }
}

// In pieces, so that the room grows with what is written: no sum of a size and its escapes that could overflow. Escapes
// are at most six bytes for one.
void json_writer::_write_encode(std::string_view s)
{
    constexpr std::size_t piece = 256;
    while (!s.empty()) {
        const std::string_view part = s.substr(0, piece);
        char* out = text.reserve(6 * piece);
        for (const char c : part) {
            if (c != '\0')
                out += put_escaped(out, c);
            else
                out = std::copy_n("\\u0000", 6, out);
        }
        text.commit(out);
        s.remove_prefix(part.size());
    }
}

void json_writer::_break()
{
    if (_compact)
        text.append(" ");
    else
        text.append("\r\n");
}

json_writer_array::json_writer_array(const char* name, bool compact) : json_writer(unopened(), compact)
{
    if (name != nullptr) {
        _set_level(0, true);
        _write_name(name);
    }
    _put('[');
    // Behind a name the array counts as begun, hence the comma before its first element.
    _set_level(1, name == nullptr);
}

void json_writer_array::restart()
{
    _restart('[');
}

void json_writer_array::finish()
{
    if (_depth < 1)
        return;
    // Never on a line of its own, unlike an object's brace.
    text.append(" ]");
    _set_level(0, _is_first());
}

} // namespace lumo
