// A session of the bench, with files of its own.
#pragma once

#include "analytics.h"

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace bench {

/// A folder that goes with the object.
class Folder
{
public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file(const std::string& name) const { return (path / name).string(); }

private:
    std::filesystem::path path;
};

/// An open session; an empty log path writes no event to disk.
class Session
{
public:
    explicit Session(const std::string& log_path, const std::string& url = "http://127.0.0.1:1/");
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    analytics_session* get() const { return handle; }

private:
    analytics_session* handle;
};

/// The record of a session like that.
analytics_config config_of(const std::string& log_path, const std::string& url);

} // namespace bench
