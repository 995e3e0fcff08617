// The ways in which the bench writes its event.
#pragma once

#include "AnalyticsSDK/LogObject.h"
#include "analytics.h"
#include "event.h"

#include <optional>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <string>

namespace bench {

/// The documents' classes, as a C++ host uses them.
class ClassSink
{
public:
    void text(const char* name, const char* value) { top->AddString(name, value); }
    void integer(const char* name, int value) { top->AddInt(name, value); }
    void long_integer(const char* name, long long value) { top->AddInt64(name, value); }
    void number(const char* name, double value) { top->AddDouble(name, value); }
    void boolean(const char* name, bool value) { top->AddBoolean(name, value); }
    void object(const char* name)
    {
        opened = name;
        top = &child.emplace();
    }
    void end_object()
    {
        child->EndObject();
        root.AddObject(opened, &*child);
        child.reset();
        top = &root;
    }
    void array(const char* name)
    {
        opened = name;
        list.emplace();
    }
    void element(int value) { list->AddInt(value); }
    void end_array()
    {
        list->EndObject();
        root.AddArray(opened, &*list);
        list.reset();
    }

    AnalyticsSDK::LogObject root;

private:
    AnalyticsSDK::LogObject* top = &root;
    std::optional<AnalyticsSDK::LogObject> child;
    std::optional<AnalyticsSDK::LogArray> list;
    const char* opened = nullptr;
};

/// The C interface between begin and end.
class SessionSink
{
public:
    explicit SessionSink(analytics_session* open_session) : session(open_session) {}
    void text(const char* name, const char* value) { analytics_name_string_add(session, name, value); }
    void integer(const char* name, int value) { analytics_name_int32_add(session, name, value); }
    void long_integer(const char* name, std::int64_t value) { analytics_name_int64_add(session, name, value); }
    void number(const char* name, double value) { analytics_name_float64_add(session, name, value); }
    void boolean(const char* name, bool value) { analytics_name_bool_add(session, name, value); }
    void object(const char* name) { analytics_name_object_begin(session, name); }
    void end_object() { analytics_object_end(session); }
    void array(const char* name) { analytics_name_array_begin(session, name); }
    void element(int value) { analytics_int32_add(session, value); }
    void end_array() { analytics_array_end(session); }

private:
    analytics_session* session;
};

/// RapidJSON's writer into a buffer that is used again.
class RapidSink
{
public:
    explicit RapidSink(rapidjson::StringBuffer& buffer) : writer(buffer) { writer.StartObject(); }
    void text(const char* name, const char* value)
    {
        writer.Key(name);
        writer.String(value);
    }
    void integer(const char* name, int value)
    {
        writer.Key(name);
        writer.Int(value);
    }
    void long_integer(const char* name, std::int64_t value)
    {
        writer.Key(name);
        writer.Int64(value);
    }
    void number(const char* name, double value)
    {
        writer.Key(name);
        writer.Double(value);
    }
    void boolean(const char* name, bool value)
    {
        writer.Key(name);
        writer.Bool(value);
    }
    void object(const char* name)
    {
        writer.Key(name);
        writer.StartObject();
    }
    void end_object() { writer.EndObject(); }
    void array(const char* name)
    {
        writer.Key(name);
        writer.StartArray();
    }
    void element(int value) { writer.Int(value); }
    void end_array() { writer.EndArray(); }
    void finish() { writer.EndObject(); }

private:
    rapidjson::Writer<rapidjson::StringBuffer> writer;
};

/// One whole event through the C interface.
inline void log_event(analytics_session* session)
{
    analytics_event_begin(session, "bench");
    SessionSink sink(session);
    write_event(sink);
    analytics_event_end(session);
}

} // namespace bench
