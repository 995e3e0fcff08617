// analytics show: a log file as a table or as JSON, and where it breaks the wire format.
#include "commands.h"
#include "table.h"
#include "terminal.h"
#include "wire_line.h"

#include <iostream>
#include <memory>

namespace commands {

namespace {

struct Options
{
    std::string file = "events.log";
    bool json = false;
    bool wide = false;
};

void ignore(size_t, const wire::Fault&) {}

// Lines are parsed again for each purpose rather than kept: a log may be large.
template <typename Event, typename Broken>
size_t each_line(std::string_view text, Event event, Broken broken)
{
    size_t number = 0;
    while (!text.empty()) {
        std::string_view one = text.substr(0, text.find('\n'));
        bool ended = one.size() < text.size();
        text.remove_prefix(one.size() + ended);
        ++number;
        wire::Line line;
        auto fault = wire::read_line(one, line);
        if (fault)
            broken(number, *fault);
        else
            event(line);
        if (!fault && !ended)
            broken(number, wire::Fault{one.size() + 1, "the last line lacks its line feed"});
    }
    return number;
}

table::Row heading_of(const wire::Line& line)
{
    table::Row row;
    for (auto part : {line.time, line.application, line.application_version, line.unique_id, line.name})
        row.push_back(wire::printable(wire::unquoted(part)));
    return row;
}

void print_table(std::string_view text, bool wide)
{
    const table::Row headings = {"TIME (UTC)", "APP", "VERSION", "ID", "NAME", "EVENT"};
    table::Columns columns;
    columns.fit(headings);
    each_line(
        text, [&](const wire::Line& line) { columns.fit(heading_of(line)); }, ignore);

    const unsigned width = wide ? 0 : terminal::width();
    auto fitting = [&](const table::Row& row) {
        std::string line = columns.line(row);
        line.pop_back();
        return width ? std::string(table::cut(line, width)) : line;
    };
    std::cout << terminal::bold(fitting(headings)) << "\n";
    auto print = [&](const wire::Line& line) {
        table::Row row = heading_of(line);
        row.push_back(wire::printable(line.event));
        std::cout << fitting(row) << "\n";
    };
    each_line(text, print, ignore);
}

void print_json(std::string_view text)
{
    bool any = false;
    auto print = [&](const wire::Line& line) {
        std::cout << (any ? ",\n  {" : "[\n  {");
        const std::pair<const char*, std::string_view> members[] = {{"version", line.version},
                                                                    {"time", line.time},
                                                                    {"application", line.application},
                                                                    {"application_version", line.application_version},
                                                                    {"unique_id", line.unique_id},
                                                                    {"name", line.name},
                                                                    {"event", line.event}};
        for (const auto& [name, value] : members)
            std::cout << (name == members[0].first ? "\"" : ", \"") << name << "\": " << wire::to_json(value);
        std::cout << "}";
        any = true;
    };
    each_line(text, print, ignore);
    std::cout << (any ? "\n]\n" : "[]\n");
}

int run(const Options& options)
{
    std::string text;
    if (!terminal::read_file(options.file, text))
        return failed;
    if (options.json)
        print_json(text);
    else
        print_table(text, options.wide);
    std::cout.flush(); // on a terminal, the faults come after the events
    size_t broken = 0;
    auto point_at = [&](size_t line, const wire::Fault& fault) {
        ++broken;
        terminal::error(options.file + ":" + std::to_string(line) + ":" + std::to_string(fault.column) + ": " +
                        fault.what);
    };
    size_t lines = each_line(
        text, [](const wire::Line&) {}, point_at);
    if (broken)
        terminal::error(std::to_string(broken) + " of " + std::to_string(lines) + " lines break the wire format");
    return broken ? failed : done;
}

} // namespace

void add_show(CLI::App& program, int& status)
{
    auto options = std::make_shared<Options>();
    CLI::App* word =
        program.add_subcommand("show", "Print an event log file, and point at lines that break its format.");
    word->add_option("FILE", options->file, "the event log file; - is standard input")->capture_default_str();
    word->add_flag("--json", options->json, "as a JSON array that any JSON reader takes");
    word->add_flag("--wide", options->wide, "do not cut lines at the width of the terminal");
    word->callback([options, &status] { status = run(*options); });
}

} // namespace commands
