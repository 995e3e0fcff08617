// The subcommands of the analytics command, one source each. A subcommand reads its options into a record and runs with
// it.
#pragma once

#include <CLI/CLI.hpp>

namespace commands {

/// Exit statuses of the whole command.
enum exit_status : int
{
    done = 0,
    failed = 1, ///< the upload failed, the log could not be written, or lines break the wire format
    usage = 2,  ///< the command line is wrong
};

/// Each adds its subcommand to the program; once the command line is read, its `run` stores the exit status in
/// `status`.
void add_log(CLI::App& program, int& status);
void add_show(CLI::App& program, int& status);
void add_send(CLI::App& program, int& status);
void add_forget(CLI::App& program, int& status);
void add_properties(CLI::App& program, int& status);

} // namespace commands
