// analytics log: one event from a shell.
#include "commands.h"
#include "members.h"
#include "terminal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace commands {

namespace {

struct Options
{
    std::string name;
    std::vector<std::string> words;
    std::vector<std::string> properties;
    std::string file = "events.log";
    std::string id_file;
    std::string application = "analytics";
    std::string application_version = ANALYTICS_VERSION;
};

// The library loses an event without an error rather than disturb a host; a person at a shell wants to know.
bool can_append(const std::string& path)
{
    int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0)
        return terminal::error(path + ": " + std::strerror(errno)), false;
    close(file);
    return true;
}

off_t length(const std::string& path)
{
    struct stat info
    {};
    return stat(path.c_str(), &info) == 0 ? info.st_size : 0;
}

int log_event(const Options& options, const members::Object& event)
{
    analytics::settings settings;
    settings.event_log_file = options.file;
    settings.unique_id_file = options.id_file.empty() ? options.file + ".id" : options.id_file;
    settings.application_id = options.application;
    settings.application_version = options.application_version;
    analytics::session session(settings);
    if (!session)
        return terminal::error("a path, an application id or a version is too long"), usage;
    off_t before = length(options.file);
    analytics::result result = analytics::result::ok;
    {
        auto open = session.open_event(options.name.c_str());
        members::write(event, open);
        for (const std::string& key : options.properties) {
            result = open.add_property(key.c_str());
            if (result != analytics::result::ok)
                terminal::error(key + ": " + analytics::text(result));
        }
    }
    if (length(options.file) <= before)
        return terminal::error(options.file + ": the event could not be written"), failed;
    if (access(settings.unique_id_file.c_str(), F_OK) != 0) {
        terminal::error(settings.unique_id_file + ": the unique id could not be kept: " + std::strerror(errno));
        return failed;
    }
    return result == analytics::result::ok ? done : failed;
}

// Checked before anything is written: an event without a requested property must not be logged.
bool has_properties(const std::vector<std::string>& keys)
{
    char value[200];
    for (const std::string& key : keys) {
        uint32_t code = analytics_property_get(nullptr, key.c_str(), value, sizeof value);
        if (code != ANALYTICS_OK)
            return terminal::error(key + ": " + analytics_result_text(code)), false;
    }
    return true;
}

int run(const Options& options)
{
    members::Object event;
    for (const std::string& word : options.words) {
        std::string what = members::add(event, word);
        if (!what.empty())
            return terminal::error(what), usage;
    }
    return has_properties(options.properties) && can_append(options.file) ? log_event(options, event) : failed;
}

} // namespace

void add_log(CLI::App& program, int& status)
{
    auto options = std::make_shared<Options>();
    CLI::App* word = program.add_subcommand("log", "Append an event to an event log file.");
    word->add_option("NAME", options->name, "the event's name")->required();
    word->add_option("KEY=VALUE", options->words,
                     "members: true, false, null and numbers are recognised, all else is text; KEY:string=, :int=, "
                     ":float=, :bool= say which; a.b=1 nests; KEY[]= appends to an array");
    word->add_option("--file", options->file, "the event log file")->capture_default_str();
    word->add_option("--id-file", options->id_file, "the file that keeps the unique id (default: FILE.id)");
    word->add_option("--app", options->application, "the application's id")->capture_default_str();
    word->add_option("--app-version", options->application_version, "the application's version")->capture_default_str();
    word->add_option("--property", options->properties, "add this fact of the machine (may be repeated)")
        ->allow_extra_args(false);
    word->callback([options, &status] { status = run(*options); });
}

} // namespace commands
