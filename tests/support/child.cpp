#include "support/child.h"

#include <algorithm>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace support {
namespace {

// A file without a name: unlike a pipe, nobody has to keep up with it.
int file_holding(const std::string& text)
{
    const int file = memfd_create("child", MFD_CLOEXEC);
    // Appended to: a file in memory has one position for all threads, and two that write at once would overwrite.
    if (file < 0 || pwrite(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
        fcntl(file, F_SETFL, O_APPEND) != 0)
        throw std::runtime_error("no file for a child");
    return file;
}

std::string whole(int file)
{
    struct stat facts = {};
    fstat(file, &facts);
    std::string text(static_cast<size_t>(facts.st_size), '\0');
    text.resize(static_cast<size_t>(std::max<ssize_t>(pread(file, text.data(), text.size(), 0), 0)));
    return text;
}

// The program env sets the environment of the child and then executes the command. A test's server makes this process
// ignore SIGPIPE, which a child must not inherit.
std::vector<std::string> prepared(const std::vector<std::string>& command, const ChildOptions& options)
{
    std::vector<std::string> words{"env", "--default-signal=PIPE"};
    if (!options.folder.empty())
        words.push_back("--chdir=" + options.folder);
    for (const std::string& change : options.environment)
        words.push_back(change.find('=') == change.npos ? "--unset=" + change : change);
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

} // namespace

Child::Child(const std::vector<std::string>& command, const ChildOptions& options)
    : m_output(file_holding("")), m_errors(file_holding(""))
{
    std::vector<std::string> words = prepared(command, options);
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const int input = file_holding(options.input);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const auto& [from, to] : {std::pair{input, 0}, std::pair{m_output, 1}, std::pair{m_errors, 2}})
        posix_spawn_file_actions_adddup2(&actions, from, to);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    const int failed = posix_spawnp(&m_pid, "env", &actions, &attributes, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    close(input);
    if (failed)
        throw std::runtime_error("no env");
}

Child::Child(const std::function<int()>& body) : m_output(file_holding("")), m_errors(file_holding(""))
{
    fflush(nullptr);
    m_pid = fork();
    if (m_pid < 0)
        throw std::runtime_error("no fork");
    if (m_pid == 0) {
        setpgid(0, 0);
        dup2(m_output, 1);
        dup2(m_errors, 2);
        const int status = body();
        fflush(nullptr);
        _exit(status);
    }
    setpgid(m_pid, m_pid); // here too: a signal may be sent before the child has come that far
}

Child::~Child()
{
    kill();
    wait();
    close(m_output);
    close(m_errors);
}

void Child::kill(int signal) const
{
    if (m_status < 0)
        ::kill(-m_pid, signal);
}

bool Child::reap()
{
    int state = 0;
    if (m_status < 0 && waitpid(m_pid, &state, WNOHANG) == m_pid)
        m_status = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
    return m_status >= 0;
}

bool Child::wait(milliseconds limit)
{
    return wait_until([this] { return reap(); }, limit);
}

std::string Child::output() const
{
    return whole(m_output);
}

std::string Child::errors() const
{
    return whole(m_errors);
}

bool Child::wait_for_output(const std::string& text, milliseconds limit)
{
    const auto seen = [&] { return output().find(text) != std::string::npos; };
    wait_until([&] { return seen() || reap(); }, limit);
    return seen();
}

Ended run(const std::vector<std::string>& command, const ChildOptions& options, milliseconds limit)
{
    Child child(command, options);
    child.wait(limit);
    return {child.status(), child.output(), child.errors()};
}

} // namespace support
