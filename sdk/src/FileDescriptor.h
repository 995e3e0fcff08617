// An owned file descriptor.
#pragma once

#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include "lumo/tova/own/uninterrupted.h"

namespace AnalyticsSDK {

/// Owns a file descriptor. One thread at a time.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    /// Opens close-on-exec; `mode` is for files that are made here. On failure errno tells why.
    FileDescriptor(const char* path, int flags, mode_t mode = 0666)
        : m_nFile(tova::uninterrupted([=] { return ::open(path, flags | O_CLOEXEC, mode); }))
    {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_nFile(std::exchange(other.m_nFile, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(m_nFile, other.m_nFile); // the other one closes what was held here
        return *this;
    }
    ~FileDescriptor()
    {
        if (m_nFile != -1)
            ::close(m_nFile); // never repeated: even after EINTR the number is free and may be reused
    }

    explicit operator bool() const { return m_nFile != -1; }
    int Get() const { return m_nFile; }

    /// One system call each, repeated when a signal interrupts it. The result may be fewer bytes than asked for; the
    /// caller knows whether the rest may follow in another call. -1 with errno on failure.
    ssize_t Write(const char* text, size_t size) const
    {
        return tova::uninterrupted([=, this] { return ::write(m_nFile, text, size); });
    }
    ssize_t Read(char* buffer, size_t size) const
    {
        return tova::uninterrupted([=, this] { return ::read(m_nFile, buffer, size); });
    }

private:
    int m_nFile = -1;
};

} // namespace AnalyticsSDK
