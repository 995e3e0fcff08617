// analytics forget: deletes what waits to be sent.
#include "commands.h"
#include "terminal.h"
#include "wire_line.h"

#include "analytics.hpp"

#include <iostream>
#include <memory>

namespace commands {

namespace {

struct Options
{
    std::string file = "events.log";
    std::string id_file;
};

// As a host does whose user withdraws the consent.
int run(const Options& options)
{
    analytics::settings settings;
    settings.event_log_file = options.file;
    settings.unique_id_file = options.id_file;
    analytics::session session(settings);
    if (!session)
        return terminal::error("a path is too long"), usage;
    session.consent(analytics::consent::revoked);
    const std::string left = session.last_error();
    if (!left.empty())
        return terminal::error(left), failed;
    std::cout << "nothing of " << wire::printable(options.file) << " waits any more" << std::endl;
    return done;
}

} // namespace

void add_forget(CLI::App& program, int& status)
{
    auto options = std::make_shared<Options>();
    CLI::App* word = program.add_subcommand("forget", "Delete the events that wait, unsent.");
    word->add_option("FILE", options->file, "the event log file; its batches go with it")->capture_default_str();
    word->add_option("--id-file", options->id_file, "delete this file too, which keeps the unique id");
    word->callback([options, &status] { status = run(*options); });
}

} // namespace commands
