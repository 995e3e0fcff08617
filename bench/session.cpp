#include "session.h"

#include <atomic>
#include <cstdio>
#include <unistd.h>

namespace bench {

Folder::Folder()
{
    std::string name = (std::filesystem::temp_directory_path() / "analytics-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no folder for scratch files");
    path = name;
}

Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

namespace {

template <std::size_t size>
void fill(char (&field)[size], const std::string& text)
{
    std::snprintf(field, size, "%s", text.c_str());
}

} // namespace

analytics_config config_of(const std::string& log_path, const std::string& url)
{
    analytics_config config = {};
    fill(config.upload_url, url);
    fill(config.event_log_file, log_path);
    fill(config.unique_id, "0F5A9C1E-6B2D-4C8F-9E37-1A2B3C4D5E6F");
    fill(config.application_id, "com.example.bench");
    fill(config.application_version, "4.2.1");
    return config;
}

// The id is given, so that no row waits for a file that has nothing to do with it.
Session::Session(const std::string& log_path, const std::string& url)
{
    const analytics_config config = config_of(log_path, url);
    handle = analytics_initialize(&config);
    if (handle == nullptr)
        throw std::runtime_error("no session");
}

Session::~Session()
{
    analytics_shutdown(handle);
}

} // namespace bench
