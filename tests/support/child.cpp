#include "support/child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace support {

namespace {

struct Pipe
{
    int read = -1, write = -1;
    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        read = ends[0];
        write = ends[1];
    }
};

// A file without a name: unlike a pipe, no reader has to keep up with it.
int file_holding(const std::string& text)
{
    int file = memfd_create("input", MFD_CLOEXEC);
    if (file < 0 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("no input file");
    lseek(file, 0, SEEK_SET);
    return file;
}

std::vector<std::string> environment_with(const std::vector<std::string>& changes)
{
    std::vector<std::string> all;
    for (char** entry = environ; *entry; ++entry) {
        std::string name = std::string(*entry).substr(0, strcspn(*entry, "="));
        bool changed = false;
        for (const std::string& change : changes)
            changed |= change.substr(0, change.find('=')) == name;
        if (!changed)
            all.emplace_back(*entry);
    }
    for (const std::string& change : changes) {
        if (change.find('=') != change.npos)
            all.push_back(change);
    }
    return all;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> list;
    for (std::string& text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

void read_all(int from, std::mutex& lock, std::string& into)
{
    char piece[65536];
    for (;;) {
        ssize_t count = ::read(from, piece, sizeof piece);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        std::lock_guard hold(lock);
        into.append(piece, static_cast<size_t>(count));
    }
    close(from);
}

} // namespace

Child::Child(std::vector<std::string> command, const ChildOptions& options)
{
    Pipe out, err;
    int in = file_holding(options.input);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, 0);
    posix_spawn_file_actions_adddup2(&actions, out.write, 1);
    posix_spawn_file_actions_adddup2(&actions, err.write, 2);
    if (!options.folder.empty())
        posix_spawn_file_actions_addchdir_np(&actions, options.folder.c_str());
    // A server of a test ignores SIGPIPE in this process; a child must not inherit that.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    std::vector<std::string> environment = environment_with(options.environment);
    int failed = posix_spawnp(&m_pid, command.at(0).c_str(), &actions, &attributes, pointers(command).data(),
                              pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    close(in);
    close(out.write);
    close(err.write);
    if (failed) {
        m_pid = -1;
        m_status = 127;
        m_errors = command[0] + ": " + strerror(failed) + "\n";
    }
    read_from(out.read, err.read);
}

Child::Child(const std::function<int()>& body)
{
    Pipe out, err;
    fflush(nullptr);
    m_pid = fork();
    if (m_pid < 0)
        throw std::runtime_error("no fork");
    if (m_pid == 0) {
        setpgid(0, 0);
        dup2(out.write, 1);
        dup2(err.write, 2);
        int status = body();
        fflush(nullptr);
        _exit(status);
    }
    setpgid(m_pid, m_pid); // here too: a signal may be sent before the child has come that far
    close(out.write);
    close(err.write);
    read_from(out.read, err.read);
}

Child::~Child()
{
    if (m_status < 0) {
        kill(SIGKILL);
        wait();
    }
    for (std::thread& reader : m_readers)
        reader.join();
}

void Child::read_from(int out, int err)
{
    m_readers.emplace_back([this, out] { read_all(out, m_lock, m_output); });
    m_readers.emplace_back([this, err] { read_all(err, m_lock, m_errors); });
}

void Child::kill(int signal) const
{
    if (m_pid > 0 && m_status < 0)
        ::kill(-m_pid, signal);
}

bool Child::reap()
{
    int state = 0;
    if (m_status >= 0)
        return true;
    if (waitpid(m_pid, &state, WNOHANG) != m_pid)
        return false;
    m_status = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
    return true;
}

bool Child::wait(milliseconds limit)
{
    if (!wait_until([this] { return reap(); }, limit))
        return false;
    for (std::thread& reader : m_readers)
        reader.join();
    m_readers.clear();
    return true;
}

std::string Child::output() const
{
    std::lock_guard hold(m_lock);
    return m_output;
}

std::string Child::errors() const
{
    std::lock_guard hold(m_lock);
    return m_errors;
}

bool Child::wait_for_output(const std::string& text, milliseconds limit)
{
    auto seen = [&] { return output().find(text) != std::string::npos; };
    if (wait_until([&] { return seen() || reap(); }, limit) && !seen())
        wait(limit); // it ended: what it wrote last may still be in the pipe
    return seen();
}

Ended run(std::vector<std::string> command, const ChildOptions& options, milliseconds limit)
{
    Child child(std::move(command), options);
    if (!child.wait(limit)) {
        child.kill(SIGKILL);
        child.wait();
        return {-1, child.output(), child.errors()};
    }
    return {child.status(), child.output(), child.errors()};
}

} // namespace support
