// A session through the C interface, with a folder for its files.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "analytics.h"
#include "support/scratch.h"

namespace support {

/// Copies what fits, as a host would fill a field; a full field has no terminator.
template <size_t size>
void set_field(char (&field)[size], const std::string& text)
{
    std::memcpy(field, text.data(), std::min(size, text.size()));
}

struct Session
{
    explicit Session(const std::string& url = "", const std::string& certificates = "")
    {
        analytics_config config = {};
        set_field(config.upload_url, url);
        set_field(config.event_log_file, log());
        set_field(config.pid_file, folder.file("id"));
        set_field(config.application_id, "A");
        set_field(config.application_version, "1.0");
        set_field(config.certificate_file, certificates);
        handle = analytics_initialize(&config);
    }
    ~Session() { close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    operator analytics_session*() const { return handle; }
    void close()
    {
        analytics_shutdown(handle);
        handle = nullptr;
    }
    std::string log() const { return folder.file("log"); }
    /// Logs one event of that name with the number 1 in it.
    void log_one(const char* name = "start") const
    {
        analytics_event_begin(handle, name);
        analytics_name_int32_add(handle, "n", 1);
        analytics_event_end(handle);
    }
    /// The object of the last event.
    std::string last_event() const
    {
        char text[8192] = "";
        analytics_log_get(handle, text, sizeof text);
        return text;
    }

    ScratchFolder folder;
    analytics_session* handle = nullptr;
};

} // namespace support
