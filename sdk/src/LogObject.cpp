#include "AnalyticsSDK/LogObject.h"

#include "lumo/own/json_elements.h"
#include "lumo/strings.h"

namespace AnalyticsSDK {

// The general way to add a member, or element with a null name. Never inline, so that the short way needs no stack.
template <class Value>
__attribute__((noinline)) std::uint32_t AddGenerally(lumo::json_writer& writer, const char* name, Value value)
{
    writer.element(name, value);
    return 1;
}

namespace {

// Adds to a writer that may be missing.
template <class Writer, class Value>
std::uint32_t Add(std::optional<Writer>& writer, const char* name, Value value)
{
    if (!writer)
        return 0;
    // The short way writes nothing that it then refuses, so the general one starts over.
    return lumo::json_elements::try_add(*writer, name, value) ? 1 : AddGenerally(*writer, name, value);
}

// A text with a size has the general way alone, unless it is none at all.
template <class Writer>
std::uint32_t AddSized(std::optional<Writer>& writer, const char* name, const char* text, std::size_t size)
{
    if (text == nullptr)
        return Add(writer, name, text);
    return writer ? AddGenerally(*writer, name, std::string_view(text, size)) : 0;
}

// Children of both kinds are passed as their common base, so that their code exists once.
template <class Writer>
std::uint32_t AddChild(std::optional<Writer>& writer, const char* name, const lumo::json_writer* child)
{
    return Add(writer, name, child);
}

// Closing a closed document changes nothing and succeeds.
template <class Writer>
std::uint32_t Finish(std::optional<Writer>& writer)
{
    if (!writer)
        return 0;
    writer->finish();
    return 1;
}

} // namespace

// Unnamed and compact: every event must fit on one line of the log file.
LogObject::LogObject()
{
    writer.emplace(nullptr, true);
}

LogObject::~LogObject() = default;

std::uint32_t LogObject::AddString(const char* name, const char* value)
{
    return Add(writer, name, value);
}

std::uint32_t LogObject::AddInt(const char* name, int value)
{
    return Add(writer, name, value);
}

std::uint32_t LogObject::AddInt64(const char* name, long long value)
{
    return Add(writer, name, value);
}

std::uint32_t LogObject::AddUInt64(const char* name, unsigned long long value)
{
    return Add(writer, name, value);
}

std::uint32_t LogObject::AddText(const char* name, const char* text, std::size_t size)
{
    return AddSized(writer, name, text, size);
}

std::uint32_t LogObject::AddDouble(const char* name, double value)
{
    return Add(writer, name, value);
}

std::uint32_t LogObject::AddBoolean(const char* name, bool value)
{
    return Add(writer, name, value);
}

// Without a writer of its own this refuses any child, so that is checked first; here and below.
std::uint32_t LogObject::AddObject(const char* name, LogObject* child)
{
    const lumo::json_writer* childs = child->GetWriter();
    return writer && childs == nullptr ? 1 : AddChild(writer, name, childs);
}

// The array's own writer: that of its base class LogObject has no useful text.
std::uint32_t LogObject::AddArray(const char* name, LogArray* child)
{
    const lumo::json_writer* childs = child->GetArrayWriter();
    return writer && childs == nullptr ? 1 : AddChild(writer, name, childs);
}

std::uint32_t LogObject::EndObject()
{
    return Finish(writer);
}

void LogObject::Restart()
{
    if (writer)
        writer->restart();
}

void LogObject::Resume(std::string_view begun)
{
    if (writer)
        lumo::json_elements::resume(*writer, begun);
}

std::string LogObject::ToString() const
{
    return writer ? writer->text : std::string();
}

// Copied first, because the decoder needs a terminator and the writer's text has none.
std::wstring LogObject::ToWString() const
{
    return lumo::utf8_to_wide(ToString());
}

// The writer of the base class is made too and stays unused: code that uses an array as a LogObject finds one.
LogArray::LogArray()
{
    array_writer.emplace(nullptr, true);
}

LogArray::~LogArray() = default;

// Elements are members without a name.
std::uint32_t LogArray::AddString(const char* value)
{
    return Add(array_writer, nullptr, value);
}

std::uint32_t LogArray::AddInt(int value)
{
    return Add(array_writer, nullptr, value);
}

std::uint32_t LogArray::AddInt64(long long value)
{
    return Add(array_writer, nullptr, value);
}

std::uint32_t LogArray::AddUInt64(unsigned long long value)
{
    return Add(array_writer, nullptr, value);
}

std::uint32_t LogArray::AddText(const char* text, std::size_t size)
{
    return AddSized(array_writer, nullptr, text, size);
}

std::uint32_t LogArray::AddDouble(double value)
{
    return Add(array_writer, nullptr, value);
}

std::uint32_t LogArray::AddBoolean(bool value)
{
    return Add(array_writer, nullptr, value);
}

// Deliberate: unlike with an object a missing child is refused, because an array would lose an element without notice.
std::uint32_t LogArray::AddObject(LogObject* child)
{
    const lumo::json_writer* childs = child != nullptr ? child->GetWriter() : nullptr;
    return childs == nullptr ? 0 : AddChild(array_writer, nullptr, childs);
}

std::uint32_t LogArray::AddArray(LogArray* child)
{
    const lumo::json_writer* childs = child != nullptr ? child->GetArrayWriter() : nullptr;
    return childs == nullptr ? 0 : AddChild(array_writer, nullptr, childs);
}

std::uint32_t LogArray::EndObject()
{
    return Finish(array_writer);
}

void LogArray::Restart()
{
    // Both writers: the unused one may have been changed through a LogObject pointer.
    LogObject::Restart();
    if (array_writer)
        array_writer->restart();
}

} // namespace AnalyticsSDK
