// A database's file from outside: made for its owner alone, and locked as long as a process serves it.
#pragma once

#include "store/result.h"

#include <string>
#include <utility>

#include <unistd.h>

namespace store::sqlite {

/// A descriptor that is closed with its owner.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor()
    {
        if (m_number >= 0)
            close(m_number);
    }
    int number() const { return m_number; }

private:
    int m_number = -1;
};

/// What errno says of a path.
Fault system_fault(const std::string& path);
/// Makes the file, or looks whether it is there. One that is there is never opened: to close it would let go of the
/// locks that SQLite has on it elsewhere in this process (POSIX, fcntl).
std::optional<Fault> find_file(const std::string& path, bool makes);
/// Locks a neighbour of the file as long as the descriptor lives; SQLite's own locks are let go between transactions.
/// @return FaultKind::in_use when another process holds it
Result<Descriptor> lock_serving(const std::string& path);

} // namespace store::sqlite
