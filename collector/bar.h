/// @file
/// How far a long command is, for the person who waits.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace commands {

/// A bar on standard error while a person waits there.
class Bar
{
public:
    explicit Bar(const char* what) : m_what(what), m_is_seen(isatty(STDERR_FILENO) != 0) {}
    ~Bar()
    {
        if (m_is_seen)
            std::fputs("\r\033[K", stderr);
    }
    Bar(const Bar&) = delete;
    Bar& operator=(const Bar&) = delete;

    void show(uint64_t done, uint64_t total)
    {
        if (!m_is_seen || std::chrono::steady_clock::now() < m_next)
            return;
        m_next = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        constexpr uint64_t width = 40;
        const uint64_t full = total != 0 ? std::min(width, done * width / total) : 0;
        std::fprintf(stderr, "\r%s [%s%s] %3u %%", m_what, std::string(full, '#').c_str(),
                     std::string(width - full, ' ').c_str(), static_cast<unsigned>(full * 100 / width));
    }

private:
    const char* const m_what;
    const bool m_is_seen;
    std::chrono::steady_clock::time_point m_next;
};

} // namespace commands
