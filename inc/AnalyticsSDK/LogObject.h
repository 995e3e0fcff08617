// The documents that events are made of: one JSON object or one JSON array under construction.
//
// A nested document is ended first and then added to its parent, which copies the text; it stays the caller's. Names
// and values are copied at once. Strings are UTF-8 and NUL-terminated.
//
// A document is used by one thread at a time. Add operations return 1 when done and 0 when refused. Running out of
// memory throws std::bad_alloc; the document is then as it was, without what was being added.
//
//     AnalyticsSDK::LogArray list;
//     list.AddInt(1);
//     list.EndObject();
//     AnalyticsSDK::LogObject event;
//     event.AddString("name", "x");
//     event.AddArray("list", &list);
//     event.EndObject();
//     event.ToString();                    // { "name": "x", "list": [ 1 ] }
#pragma once

#include "lumo/json_writer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AnalyticsSDK {

class LogArray;

/// A JSON object under construction, compact: `{ "name": "x", "n": 5 }`.
class TOVA_API LogObject
{
public:
    /// Open and empty.
    LogObject();
    /// Virtual, so that an array may be deleted as what it derives from.
    virtual ~LogObject();
    LogObject(const LogObject&) = delete;
    LogObject& operator=(const LogObject&) = delete;

    /// A null value gives null.
    std::uint32_t AddString(const char* name, const char* value);
    /// Decimal digits.
    std::uint32_t AddInt(const char* name, int value);
    /// Decimal digits, all of them: readers that keep numbers as doubles lose some.
    std::uint32_t AddInt64(const char* name, long long value);
    /// The same without a sign.
    std::uint32_t AddUInt64(const char* name, unsigned long long value);
    /// A string of `size` bytes, which needs no terminator; each NUL in it is written as "\\u0000". A null text gives
    /// null, whatever the size.
    std::uint32_t AddText(const char* name, const char* text, std::size_t size);
    /// Six significant digits, as "%g" prints them; NaN and infinities come out as nan and inf, which is no valid JSON.
    std::uint32_t AddDouble(const char* name, double value);
    /// true or false.
    std::uint32_t AddBoolean(const char* name, bool value);

    /// Copies the text of an ended child. A child without a writer adds nothing and returns 1. Deliberate: unlike
    /// LogArray, because hosts have not had to check it since the first version. `child` must not be null.
    std::uint32_t AddObject(const char* name, LogObject* child);
    /// The same for an array.
    std::uint32_t AddArray(const char* name, LogArray* child);

    /// Closes the object. To be called once, before the text is used; what is added afterwards lands behind the closing
    /// brace.
    std::uint32_t EndObject();

    /// Empties the document for the next use, as new; the memory of its text is kept, within limits.
    void Restart();

    /// Begins anew with members that are ready: the text of an unfinished object with at least one, as ToString() gives
    /// it.
    void Resume(std::string_view begun);

    /// A copy of the text so far. Of a LogArray these two give the text of its unused object, not of the array: only
    /// root objects are ever converted.
    std::string ToString() const;
    /// The same, decoded from UTF-8.
    std::wstring ToWString() const;

    /// The writer, still owned here, or null when there is none: for callers that copy the text.
    const lumo::json_writer* GetWriter() const noexcept { return writer ? &*writer : nullptr; }

protected:
    /// Held in place, not allocated: a document is made and dropped for every event and every nested value.
    std::optional<lumo::json_writer> writer;
};

/// A JSON array under construction, compact: `[ 1, 2 ]`.
class TOVA_API LogArray : public LogObject
{
public:
    /// Open and empty.
    LogArray();
    /// The array's writer goes first, then the object underneath.
    ~LogArray() override;

    /// A null value gives null.
    std::uint32_t AddString(const char* value);
    /// Decimal digits.
    std::uint32_t AddInt(int value);
    /// Decimal digits, all of them.
    std::uint32_t AddInt64(long long value);
    /// The same without a sign.
    std::uint32_t AddUInt64(unsigned long long value);
    /// As LogObject::AddText().
    std::uint32_t AddText(const char* text, std::size_t size);
    /// As LogObject::AddDouble().
    std::uint32_t AddDouble(double value);
    /// true or false.
    std::uint32_t AddBoolean(bool value);

    /// Copies the text of an ended child. Refused when the child is null or has no writer.
    std::uint32_t AddObject(LogObject* child);
    /// The same for an array.
    std::uint32_t AddArray(LogArray* child);

    /// Closes the array; as LogObject::EndObject(), and to be called on the array itself: it is not virtual.
    std::uint32_t EndObject();

    /// Empties the document for the next use, likewise.
    void Restart();

    /// The array's writer, still owned here, or null when there is none.
    const lumo::json_writer_array* GetArrayWriter() const noexcept { return array_writer ? &*array_writer : nullptr; }

protected:
    std::optional<lumo::json_writer_array> array_writer; ///< writes the brackets and what is between them
};

} // namespace AnalyticsSDK
