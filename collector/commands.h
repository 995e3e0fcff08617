/// @file
/// The words of the program. Each adds itself to the command line and leaves its exit status when it was chosen.
#pragma once

#include <CLI/CLI.hpp>

namespace commands {

/// Exit statuses.
enum Status
{
    done = 0,
    failed = 1,
    usage = 2 ///< a wrong option, or a server that refuses to start
};

void add_serve(CLI::App& program, int& status);
void add_user(CLI::App& program, int& status);
void add_key(CLI::App& program, int& status);
void add_secret(CLI::App& program, int& status);
/// export, report, import, forget, backup: what is done with a store, beside a server or without one.
void add_store_commands(CLI::App& program, int& status);

/// init: what is done with a cluster of nodes that keeps the events.
void add_cluster_commands(CLI::App& program, int& status);

/// One sentence on standard error; returns `failed`.
int fail(const std::string& sentence);

} // namespace commands
