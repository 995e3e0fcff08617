// analytics: log, show and send events from a shell.
#include "analytics.h"
#include "commands.h"
#include "terminal.h"

#include <cstdio>
#include <iostream>
#include <memory>

namespace {

int refuse(const std::string& what, const std::string& help)
{
    terminal::error(what);
    std::cerr << help << std::endl;
    return commands::usage;
}

// The command line has no valid subcommand: `first` is the word in its place.
int refuse_word(const std::string& first)
{
    std::string what = "it takes a word that says what to do";
    if (!first.empty())
        what = (first[0] == '-' ? "there is no option \"" : "there is no word \"") + first + "\"";
    return refuse(what,
                  "The words are log, show, send, forget, properties and help; \"analytics help WORD\" explains one.");
}

void add_help(CLI::App& program, int& status)
{
    auto name = std::make_shared<std::string>();
    CLI::App* word = program.add_subcommand("help", "Explain a word, or say in short what each does.");
    word->add_option("WORD", *name, "the word");
    word->callback([&program, &status, name] {
        const auto words = program.get_subcommands([&](const CLI::App* one) { return one->get_name() == *name; });
        program.clear(); // of the word "help", which the program would explain otherwise
        if (name->empty())
            std::cout << program.help();
        else if (words.empty())
            status = refuse_word(*name);
        else
            std::cout << words[0]->help(program.get_name());
    });
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
    commands::add_forget(program, status);
    commands::add_properties(program, status);
    add_help(program, status);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version arrive here too and are no error.
        const auto words = program.get_subcommands();
        if (error.get_exit_code() == 0)
            status = program.exit(error);
        else if (words.empty() || argv[1][0] == '-')
            status = refuse_word(argc > 1 ? argv[1] : "");
        else
            status = refuse(error.what(), "\"analytics help " + words[0]->get_name() + "\" explains this word.");
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
