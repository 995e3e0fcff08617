// analytics show: a log file as a table or as JSON, and where it breaks the wire format.
#include "commands.h"
#include "terminal.h"
#include "wire_line.h"

#include <iostream>
#include <memory>

namespace commands {

namespace {

struct Options
{
    std::string file;
    bool json = false;
    bool wide = false;
};

// The first `columns` characters of a line; a character is never cut in two.
std::string cut(const std::string& line, unsigned columns)
{
    size_t end = 0;
    unsigned count = 0;
    for (; end < line.size(); ++end) {
        if ((line[end] & 0xC0) != 0x80 && count++ == columns)
            break;
    }
    return line.substr(0, end);
}

void print_table(const std::vector<wire::Line>& lines, bool wide)
{
    std::vector<std::vector<std::string>> rows = {{"TIME (UTC)", "APP", "VERSION", "ID", "NAME", "EVENT"}};
    for (const wire::Line& line : lines) {
        std::vector<std::string> row;
        for (auto part : {line.time, line.application, line.application_version, line.unique_id, line.name})
            row.push_back(wire::printable(wire::unquoted(part)));
        row.push_back(wire::printable(line.event));
        rows.push_back(row);
    }
    unsigned columns = wide ? 0 : terminal::width();
    std::string text = wire::table(rows);
    for (size_t start = 0, end; start < text.size(); start = end + 1) {
        end = text.find('\n', start);
        std::string line = text.substr(start, end - start);
        line = columns ? cut(line, columns) : line;
        std::cout << (start == 0 ? terminal::bold(line) : line) << "\n";
    }
}

void print_json(const std::vector<wire::Line>& lines)
{
    const char* before = "[";
    for (const wire::Line& line : lines) {
        std::cout << before << "\n  {";
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
        before = ",";
    }
    std::cout << (lines.empty() ? "[]\n" : "\n]\n");
}

int run(const Options& options)
{
    std::string text;
    if (!terminal::read_file(options.file, text))
        return failed;
    std::vector<wire::Line> lines;
    size_t number = 0, broken = 0;
    auto point_at = [&](size_t column, const std::string& what) {
        ++broken;
        terminal::error(options.file + ":" + std::to_string(number) + ":" + std::to_string(column) + ": " + what);
    };
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view one = rest.substr(0, rest.find('\n'));
        bool ended = one.size() < rest.size();
        rest.remove_prefix(one.size() + ended);
        ++number;
        wire::Line line;
        if (auto fault = wire::read_line(one, line)) {
            point_at(fault->column, fault->what);
            continue;
        }
        lines.push_back(line);
        if (!ended)
            point_at(one.size() + 1, "the last line lacks its line feed");
    }
    options.json ? print_json(lines) : print_table(lines, options.wide);
    if (broken)
        terminal::error(std::to_string(broken) + " of " + std::to_string(number) + " lines break the wire format");
    return broken ? failed : done;
}

} // namespace

void add_show(CLI::App& program, int& status)
{
    auto options = std::make_shared<Options>();
    CLI::App* word =
        program.add_subcommand("show", "Print an event log file, and point at lines that break its format.");
    word->add_option("FILE", options->file, "the event log file; - is standard input")->required();
    word->add_flag("--json", options->json, "as a JSON array that any JSON reader takes");
    word->add_flag("--wide", options->wide, "do not cut lines at the width of the terminal");
    word->callback([options, &status] { status = run(*options); });
}

} // namespace commands
