// analytics: log, show and send events from a shell.
#include "commands.h"
#include "terminal.h"

#include <cstdio>
#include <iostream>

namespace {

int refuse(const CLI::App& program, const CLI::ParseError& error, const char* word)
{
    std::string what = error.what();
    if (program.get_subcommands().empty())
        what = word ? "there is no word \"" + std::string(word) + "\"" : "it takes a word that says what to do";
    terminal::error(what);
    std::cerr << "The words are log, show, send and properties; \"analytics WORD --help\" explains one." << std::endl;
    return commands::usage;
}

int run(int argc, char** argv)
{
    CLI::App program("Logs, shows and sends analytics events.", "analytics");
    program.set_version_flag("--version", "analytics " ANALYTICS_VERSION);
    program.require_subcommand(1);
    program.footer("Exit status: 0 done, 1 failed, 2 wrong usage. The manual is analytics(1).");
    int status = commands::done;
    commands::add_log(program, status);
    commands::add_show(program, status);
    commands::add_send(program, status);
    commands::add_properties(program, status);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version come here as well, and are no error.
        status = error.get_exit_code() == 0 ? program.exit(error) : refuse(program, error, argv[1]);
    }
    if (std::cout.flush())
        return status;
    terminal::error("standard output could not be written");
    return commands::failed;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "analytics: %s\n", error.what());
        return commands::failed;
    }
}
