// analytics: log, show and send events from a shell.
#include "commands.h"
#include "terminal.h"

#include <iostream>

// Help and version are answers like any other: they end with status 0 when they could be written.
static int run(CLI::App& program, int argc, char** argv, const int& status)
{
    try {
        program.parse(argc, argv);
        return status;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return program.exit(error);
        std::string what = error.what();
        if (program.get_subcommands().empty())
            what =
                argc > 1 ? "there is no word \"" + std::string(argv[1]) + "\"" : "it takes a word that says what to do";
        terminal::error(what);
        std::cerr << "The words are log, show, send and properties; \"analytics WORD --help\" explains one."
                  << std::endl;
        return commands::usage;
    } catch (const std::exception& error) {
        terminal::error(error.what());
        return commands::failed;
    }
}

int main(int argc, char** argv)
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
    status = run(program, argc, argv, status);
    if (!std::cout.flush()) {
        terminal::error("standard output could not be written");
        return commands::failed;
    }
    return status;
}
