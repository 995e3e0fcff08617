// analytics-collector user, key and secret: who may look, who may send, and what logins are signed with.
#include "commands.h"

#include "http/keys.h"
#include "http/private_file.h"
#include "http/users.h"

#include <iostream>
#include <memory>
#include <sodium.h>
#include <termios.h>
#include <unistd.h>

namespace commands {
namespace {

/// Keeps a terminal from showing what is typed, as long as it lives.
class Hidden
{
public:
    Hidden() : m_is_terminal(tcgetattr(STDIN_FILENO, &m_before) == 0)
    {
        termios quiet = m_before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (m_is_terminal)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    ~Hidden()
    {
        if (m_is_terminal)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
    }
    Hidden(const Hidden&) = delete;
    Hidden& operator=(const Hidden&) = delete;
    bool is_terminal() const { return m_is_terminal; }

private:
    termios m_before{};
    const bool m_is_terminal;
};

std::string ask_password(const std::string& name)
{
    std::string password;
    const Hidden hidden;
    if (hidden.is_terminal())
        std::cerr << "Password of " << name << ": " << std::flush;
    std::getline(std::cin, password);
    if (hidden.is_terminal())
        std::cerr << "\n";
    return password;
}

template <class Work>
int guarded(Work work)
{
    try {
        if (sodium_init() < 0)
            return fail("the system gives no random numbers");
        work();
        return done;
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}

} // namespace

void add_user(CLI::App& program, int& status)
{
    struct Words
    {
        std::string name, file;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* user = program.add_subcommand("user", "Says who may look at the page.")->require_subcommand(1);
    CLI::App* add = user->add_subcommand("add", "Adds a name, or gives it a new password, which it asks for.");
    add->add_option("NAME", words->name, "the name")->required();
    add->add_option("--users", words->file, "the file")->required()->envname("ANALYTICS_COLLECTOR_USERS");
    add->callback([words, &status] {
        status = guarded([&] { http::Users::add(words->file, words->name, ask_password(words->name)); });
    });
}

void add_key(CLI::App& program, int& status)
{
    struct Words
    {
        std::string application, file;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* key = program.add_subcommand("key", "Makes addresses for uploads.")->require_subcommand(1);
    CLI::App* make = key->add_subcommand("new", "Makes a key; uploads of the application then go to /u/KEY.");
    make->add_option("APPLICATION", words->application, "the application's id, or * for any")->required();
    make->add_option("--keys", words->file, "the file")->required()->envname("ANALYTICS_COLLECTOR_KEYS");
    make->callback([words, &status] {
        status = guarded([&] { std::cout << http::Keys::make(words->file, words->application) << std::endl; });
    });
}

void add_secret(CLI::App& program, int& status)
{
    const auto file = std::make_shared<std::string>();
    CLI::App* secret = program.add_subcommand("secret", "Makes the secret of --secret.")->require_subcommand(1);
    CLI::App* make = secret->add_subcommand("new", "Makes a file that signs logins; all collectors get the same one.");
    make->add_option("FILE", *file, "the file, which must not be there yet")->required();
    make->callback([file, &status] { status = guarded([&] { http::make_secret(*file); }); });
}

} // namespace commands
