// A forward-only writer of JSON text: one object, or one array, per writer.
//
// Members are written in call order; a nested object or array is built in a writer of its own and its finished text is
// then copied into the parent. Nothing is parsed and nothing is validated. Text is 8-bit and copied through unchanged
// but for five escapes (quote, backslash, LF, CR, TAB), so UTF-8 stays UTF-8 and other control bytes stay raw.
//
// A writer is used by one thread at a time. Running out of memory throws std::bad_alloc; nothing else fails. The text
// is then as it was before the call.
//
//     lumo::json_writer event(nullptr, true);
//     event.element("n", 5);
//     event.finish();
//     std::string line = event.text;       // { "n": 5 }
#pragma once

#include "lumo/text_buffer.h"
#include "lumo/tova/base.h"

#include <cstdint>
#include <string_view>

namespace lumo {

/// Writes one JSON object.
///
/// Compact text separates with single spaces: `{ "a": 1, "b": "x" }`. Otherwise every member stands on a line of its
/// own (CR LF), indented by one space per level.
class TOVA_API json_writer
{
public:
    /// With a name the object is the one member of an outer object, which finish() closes as well:
    /// `{ "n": { "a": 1 }}`. Names and values are copied at once, here and below.
    json_writer(const char* name, bool compact);
    json_writer(const json_writer&) = delete;
    json_writer& operator=(const json_writer&) = delete;

    /// An unfinished writer needs no closing: its text goes with it.
    ~json_writer() = default;

    /// A member with a string value, quoted and escaped; a null value is the bare word null. In all of these a null
    /// name writes the value alone, which is how array elements are written.
    void element(const char* name, const char* value);

    /// A member whose value is the child's text, verbatim: finish the child first. A null child leaves the name without
    /// a value. Deliberate: the caller decides what to write instead.
    void element(const char* name, const json_writer* child);

    /// A member with a number as "%g" prints it in the "C" locale, whatever the host's locale: six significant digits.
    /// NaN and infinities come out as nan and inf, which is no valid JSON.
    void element(const char* name, double value);

    /// A member with the bare word true or false.
    void element(const char* name, bool value);

    /// A member with a decimal integer.
    void element(const char* name, long long value);
    /// The same for a short one.
    void element(const char* name, int value);
    /// The same without a sign.
    void element(const char* name, unsigned long long value);

    /// A member with a string value of a known size, which may hold NULs: each is written as "\\u0000", the only escape
    /// of its form. Nothing behind the size is read.
    void element(const char* name, std::string_view value);

    /// Closes the object; a second call does nothing. Members written afterwards land after the closing brace,
    /// unchecked.
    void finish();

    /// Empties the writer for the next document of the same form, unnamed, and keeps the room of its text.
    void restart();

    /// The text so far: complete after finish().
    text_buffer text;

    /// For derived writers, the steps of the general way to write a member: what comes before it (a comma unless it is
    /// the first, a line break, the indentation) and, unless null, its name.
    void _write_name(const char* name);
    /// A text, escaped; the quotes are the caller's.
    void _write_encode(const char* s);
    /// The same for a text with a size.
    void _write_encode(std::string_view s);
    /// A line break, which is a blank in compact text. The next name brings its own.
    void _break();

protected:
    friend struct json_elements;

    /// What stands before a member: a comma unless it is the first, the line break, and one space of indentation on a
    /// line of its own inside a level. Never more than four bytes.
    struct separator
    {
        char text[4];       ///< not terminated
        std::uint32_t size; ///< how many of them count
    };

    /// For the array, which opens with another bracket.
    struct unopened
    {};
    /// Opens nothing and is on no level: that is the array's to do.
    json_writer(unopened, bool compact) noexcept : _compact(compact) {}

    /// Appends one byte.
    void _put(char c);
    /// Enters or leaves the level: sets the separators. `first`: no member was written on it yet.
    void _set_level(int depth, bool first) noexcept;
    bool _is_first() const noexcept;
    /// Begins anew with an opening bracket.
    void _restart(char bracket);
    /// Starts over with the text of an unfinished document, its first members already in it.
    void _resume(std::string_view begun);

    /// Before the next member, and before those after it.
    separator _next, _later;
    /// Open levels: 1 from construction to finish(), then 0; also the indentation in spaces.
    int _depth = 0;
    bool _compact;
    bool _wrapped = false;
};

/// Writes one JSON array: `[ 1, 2 ]`. Elements are written with the inherited operations and a null name.
class TOVA_API json_writer_array : public json_writer
{
public:
    /// With a name the text begins with `"name": [` and a comma comes before the first element. Deliberate: hosts have
    /// parsed that comma since the first version. The library itself builds only unnamed arrays, which have none.
    json_writer_array(const char* name, bool compact);

    /// Begins anew, likewise.
    void restart();

    /// Closes the array with a space and a bracket, on the same line in either mode; a second call does nothing.
    void finish();
};

} // namespace lumo
