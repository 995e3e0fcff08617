// analytics-collector: takes uploads, keeps the events, shows them.
#include "analytics.h"
#include "commands.h"

#include <cstdio>
#include <exception>
#include <iostream>

namespace {

// What was wrong, in one line: a script's log wants no page of help.
int refuse(const CLI::ParseError& error)
{
    std::string what = error.what();
    for (char& c : what)
        if (c == '\n')
            c = ' ';
    std::cerr << "analytics-collector: " << what << "; see analytics-collector --help\n";
    return commands::usage;
}

int run(int argc, char** argv)
{
    CLI::App program("Receives the events of applications, keeps them and shows them.", "analytics-collector");
    program.set_version_flag("--version", "analytics-collector " ANALYTICS_VERSION);
    program.require_subcommand(1);
    int status = commands::done;
    commands::add_serve(program, status);
    commands::add_store_commands(program, status);
#ifdef ANALYTICS_COLLECTOR_CLUSTER
    commands::add_cluster_commands(program, status);
#endif
    commands::add_user(program, status);
    commands::add_key(program, status);
    commands::add_secret(program, status);
    try {
        // Without a word, or with options first, it serves.
        std::vector<std::string> words(argv + 1, argv + argc);
        const bool asks = !words.empty() && (words[0] == "--help" || words[0] == "-h" || words[0] == "--version");
        if (words.empty() || (words[0].starts_with('-') && !asks))
            words.insert(words.begin(), "serve");
        program.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& error) {
        // Help and version come here as well, and are no error.
        return error.get_exit_code() == 0 ? program.exit(error) : refuse(error);
    }
    return status;
}

} // namespace

int commands::fail(const std::string& sentence)
{
    std::cerr << "analytics-collector: " << sentence << "\n";
    return failed;
}

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        return commands::fail(error.what());
    }
}
