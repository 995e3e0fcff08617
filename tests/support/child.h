// Another process, with what it writes.
#pragma once

#include "support/wait.h"

#include <csignal>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

struct ChildOptions
{
    std::vector<std::string> environment; ///< "NAME=value" sets or replaces, "NAME" alone removes
    std::string folder;                   ///< working folder; empty: the parent's
    std::string input;                    ///< what the child reads from standard input, which then ends
};

/// A child process. Killed and reaped, at the latest, when this object goes.
class Child
{
public:
    /// Starts a program, found by PATH. A program that does not exist ends with status 127.
    explicit Child(const std::vector<std::string>& command, const ChildOptions& options = {});
    /// Forks and runs the function, whose result is the exit status. Only while this process has no other threads
    /// that matter to the function.
    explicit Child(const std::function<int()>& body);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return m_pid; }
    /// Signals the child and what it has started in turn.
    void kill(int signal = SIGKILL) const;
    /// True when the process has ended within the limit.
    bool wait(milliseconds limit = patience);
    /// After wait(): the exit status, or 128 + the signal that ended it (as a shell says it); -1 while it runs.
    int status() const { return m_status; }
    std::string output() const;
    std::string errors() const;
    /// Waits until the text stands in the output (or the process ended without it: false).
    bool wait_for_output(const std::string& text, milliseconds limit = patience);

private:
    bool reap();

    pid_t m_pid = -1;
    int m_status = -1;
    int m_output, m_errors; // files without names
};

struct Ended
{
    int status; ///< as Child::status; -1 when it had to be killed at the limit
    std::string output;
    std::string errors;
};

/// Runs a program to its end.
Ended run(const std::vector<std::string>& command, const ChildOptions& options = {}, milliseconds limit = patience);

} // namespace support
