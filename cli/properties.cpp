// analytics properties: the facts of this machine that an event can carry.
#include "analytics.h"
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
    std::vector<std::string> keys;
    bool json = false;
};

std::string quoted(const std::string& text)
{
    std::string json = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            json += '\\';
        json += c;
    }
    return wire::to_json(json + '"');
}

void print(const std::vector<table::Row>& rows, bool json)
{
    if (!json) {
        std::cout << table::lines(rows);
        return;
    }
    std::cout << "{";
    for (size_t i = 0; i < rows.size(); ++i)
        std::cout << (i ? ",\n  " : "\n  ") << quoted(rows[i][0]) << ": " << quoted(rows[i][1]);
    std::cout << "\n}\n";
}

// A key that was asked for by name must be there; of all of them, those that this machine lacks are left out.
int run(const Options& options)
{
    std::vector<std::string> keys = options.keys;
    if (keys.empty())
        analytics_property_each([](void* all, const char* key,
                                   const char*) { static_cast<std::vector<std::string>*>(all)->emplace_back(key); },
                                &keys);
    std::vector<table::Row> rows;
    int status = done;
    for (const std::string& key : keys) {
        char value[200];
        uint32_t code = analytics_property_get(nullptr, key.c_str(), value, sizeof value);
        if (code == ANALYTICS_OK) {
            rows.push_back({key, wire::printable(value)});
        } else if (!options.keys.empty()) {
            terminal::error(key + ": " + analytics_result_text(code));
            status = failed;
        }
    }
    print(rows, options.json);
    return status;
}

} // namespace

void add_properties(CLI::App& program, int& status)
{
    auto options = std::make_shared<Options>();
    CLI::App* word = program.add_subcommand("properties", "Print the facts of this machine that an event can carry.");
    word->add_option("KEY", options->keys, "only these");
    word->add_flag("--json", options->json, "as one JSON object");
    word->callback([options, &status] { status = run(*options); });
}

} // namespace commands
