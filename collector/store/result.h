// What an operation of a store gives back: a value, or why there is none. Stores throw nothing but std::bad_alloc.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace store {

enum class FaultKind
{
    busy,        ///< locked by another process for longer than it was waited for; try again
    full,        ///< no room on the disk; try again when there is
    read_only,   ///< the folder or the file may not be written to
    late,        ///< a question's time was over
    interrupted, ///< a deletion ended the question's view of the store; ask again
    newer,       ///< made by a later version of this program
    changed,     ///< what was looked up before has changed since; look again
    in_use,      ///< another process serves this store
    missing,     ///< there is no such store
    exists,      ///< a file that is to be made is there already
    foreign,     ///< the file is something else, or damaged
    other,       ///< everything else; the text says what
};

struct Fault
{
    FaultKind kind = FaultKind::other;
    std::string text; ///< one sentence for a person, without a line feed
};

/// A value, or why there is none: `if (auto answer = reader.summary(query, limit)) use(*answer);
/// else log(answer.fault().text);`
template <class T, class Reason = Fault>
class Result
{
public:
    Result(T value) : m_value(std::move(value)) {}
    Result(Reason reason) : m_fault(std::move(reason)) {}

    explicit operator bool() const { return m_value.has_value(); }
    T& operator*() { return *m_value; }
    const T& operator*() const { return *m_value; }
    T* operator->() { return &*m_value; }
    const T* operator->() const { return &*m_value; }
    const Reason& fault() const { return m_fault; }

private:
    std::optional<T> m_value;
    Reason m_fault;
};

/// The value of operations that only succeed or fail.
struct Done
{};

} // namespace store
