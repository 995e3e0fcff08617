// analytics: log, show and send events from a shell.
#include "commands.h"

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
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? commands::done : commands::usage;
    }
    return status;
}
