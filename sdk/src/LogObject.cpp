#include "AnalyticsSDK/LogObject.h"

#include "lumo/json_elements.h"
#include "lumo/strings.h"

namespace AnalyticsSDK {

// Adds one member, or element with a null name, to a writer that may be missing.
template <class Writer, class Value>
static std::uint32_t add(std::optional<Writer>& writer, const char* name, Value value)
{
    if (!writer)
        return 0;
    lumo::json_elements::add(*writer, name, value);
    return 1;
}

template <class Writer>
static std::uint32_t finish(std::optional<Writer>& writer)
{
    if (!writer)
        return 0;
    writer->finish();
    return 1;
}

LogObject::LogObject()
{
    m_writer.emplace(nullptr, true);
}

LogObject::~LogObject() = default;

std::uint32_t LogObject::AddString(const char* name, const char* value)
{
    return add(m_writer, name, value);
}

std::uint32_t LogObject::AddInt(const char* name, int value)
{
    return add(m_writer, name, value);
}

std::uint32_t LogObject::AddInt64(const char* name, long long value)
{
    return add(m_writer, name, value);
}

std::uint32_t LogObject::AddDouble(const char* name, double value)
{
    return add(m_writer, name, value);
}

std::uint32_t LogObject::AddBoolean(const char* name, bool value)
{
    return add(m_writer, name, value);
}

std::uint32_t LogObject::AddObject(const char* name, LogObject* child)
{
    const lumo::json_writer* writer = child->GetWriter();
    return m_writer && writer == nullptr ? 1 : add(m_writer, name, writer);
}

std::uint32_t LogObject::AddArray(const char* name, LogArray* child)
{
    const lumo::json_writer* writer = child->GetArrayWriter();
    return m_writer && writer == nullptr ? 1 : add(m_writer, name, writer);
}

std::uint32_t LogObject::EndObject()
{
    return finish(m_writer);
}

std::string LogObject::ToString() const
{
    return m_writer ? std::string(m_writer->text()) : std::string();
}

std::wstring LogObject::ToWString() const
{
    return lumo::utf8_to_wide(ToString());
}

LogArray::LogArray()
{
    m_arrayWriter.emplace(nullptr, true);
}

LogArray::~LogArray() = default;

std::uint32_t LogArray::AddString(const char* value)
{
    return add(m_arrayWriter, nullptr, value);
}

std::uint32_t LogArray::AddInt(int value)
{
    return add(m_arrayWriter, nullptr, value);
}

std::uint32_t LogArray::AddInt64(long long value)
{
    return add(m_arrayWriter, nullptr, value);
}

std::uint32_t LogArray::AddDouble(double value)
{
    return add(m_arrayWriter, nullptr, value);
}

std::uint32_t LogArray::AddBoolean(bool value)
{
    return add(m_arrayWriter, nullptr, value);
}

std::uint32_t LogArray::AddObject(LogObject* child)
{
    const lumo::json_writer* writer = child != nullptr ? child->GetWriter() : nullptr;
    return writer == nullptr ? 0 : add(m_arrayWriter, nullptr, writer);
}

std::uint32_t LogArray::AddArray(LogArray* child)
{
    const lumo::json_writer* writer = child != nullptr ? child->GetArrayWriter() : nullptr;
    return writer == nullptr ? 0 : add(m_arrayWriter, nullptr, writer);
}

std::uint32_t LogArray::EndObject()
{
    return finish(m_arrayWriter);
}

} // namespace AnalyticsSDK
