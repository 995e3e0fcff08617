#include "keys.h"

#include "private_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sodium.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace http {

Keys::Keys(std::string file) : m_file(std::move(file))
{
    if (configured() && !load())
        throw std::runtime_error("the file of keys " + m_file + " cannot be read: " + std::strerror(errno));
}

bool Keys::load()
{
    struct stat info
    {};
    if (stat(m_file.c_str(), &info) != 0)
        return false;
    if (!m_applications.empty() && info.st_mtim.tv_sec == m_changed.tv_sec && info.st_mtim.tv_nsec == m_changed.tv_nsec)
        return true;
    std::ifstream lines(m_file);
    if (!lines)
        return false;
    m_applications.clear();
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string key, application;
        words >> key >> std::ws;
        std::getline(words, application);
        if (!key.empty() && key[0] != '#' && !application.empty())
            m_applications[key] = application;
    }
    m_changed = info.st_mtim;
    return true;
}

std::optional<std::string> Keys::application(const std::string& key)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::lock_guard hold(m_lock);
    if (now.tv_sec != m_looked) {
        m_looked = now.tv_sec;
        load();
    }
    const auto entry = m_applications.find(key);
    return entry == m_applications.end() ? std::nullopt : std::optional(entry->second);
}

std::string Keys::make(const std::string& file, const std::string& application)
{
    unsigned char bytes[16];
    char key[33];
    randombytes_buf(bytes, sizeof bytes);
    sodium_bin2hex(key, sizeof key, bytes, sizeof bytes);
    append_line(file, std::string(key) + " " + application + "\n", "keys");
    return key;
}

} // namespace http
