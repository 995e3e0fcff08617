// analytics-collector export, report, import, forget, backup: what is done with a store, beside a server or without
// one.
#include "bar.h"
#include "commands.h"
#include "import.h"
#include "settings.h"

#include "api/export.h"
#include "api/report.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace commands {
namespace {

using namespace std::chrono;

/// What these commands are told.
struct Choice
{
    StoreWords store;
    std::vector<std::pair<std::string, std::string>> filters; ///< words of api/words.h
    std::vector<std::string> files;
    std::string text; ///< an installation, a file, a period
    bool plot = false;
};

/// A sentence about an option.
struct WrongOption : Failure
{
    using Failure::Failure;
};

template <class Value>
Value value_of(store::Result<Value> result)
{
    if (!result)
        throw Failure(result.fault().text);
    return std::move(*result);
}

std::unique_ptr<store::Store> open_store(const Choice& choice, store::Opening opening)
{
    std::string file = choice.store.store;
    if (file.empty()) {
        file = existing_store();
        std::cerr << "store: " << file << "\n";
    }
    std::error_code none;
    if (opening == store::Opening::create && store::is_file(file))
        std::filesystem::create_directories(std::filesystem::path(file).parent_path(), none);
    const auto options = cluster_options(choice.store.cluster, choice.store.secret);
    return value_of(store::open(file, {opening, milliseconds(30000), options}));
}

api::Words words_of(const Choice& choice)
{
    api::Words words;
    for (const auto& [name, value] : choice.filters)
        if (const std::string fault = api::take_word(name, value, words); !fault.empty())
            throw WrongOption("--" + fault);
    if (words.has_from && words.has_to && words.query.from > words.query.to)
        throw WrongOption("--from is later than --to");
    return words;
}

void write_out(const std::string& text)
{
    if (!std::cout.write(text.data(), static_cast<std::streamsize>(text.size())))
        throw Failure("standard output could not be written");
}

void export_events(const Choice& choice)
{
    const api::Words words = words_of(choice);
    const auto store = open_store(choice, store::Opening::use);
    api::Export all(value_of(store->reading()), words);
    for (;;) {
        const std::string piece = value_of(all.next());
        write_out(piece);
        if (piece.empty())
            break;
    }
    std::cout.flush();
    write_out("");
}

void report(const Choice& choice)
{
    const api::Words words = words_of(choice);
    const auto store = open_store(choice, store::Opening::use);
    const auto reading = value_of(store->reading());
    write_out(value_of(api::report(*reading, words, choice.text, choice.plot)));
}

/// Each file is one upload without a batch, so a file that grew since the last import adds what is new in it.
void import_logs(const Choice& choice)
{
    uint64_t total = 0, done = 0;
    for (const std::string& file : choice.files) { // all are there, or nothing is done
        std::error_code error;
        total += std::filesystem::file_size(file, error);
        if (error || access(file.c_str(), R_OK) != 0)
            throw Failure(file + " cannot be read");
    }
    const auto store = open_store(choice, store::Opening::create);
    const auto writing = value_of(store->writing());
    Bar bar("import");
    for (const std::string& file : choice.files) {
        uint64_t of_file = 0;
        const store::Receipt receipt = import_log(*writing, file, [&](uint64_t bytes) {
            of_file = bytes;
            bar.show(done + bytes, total);
        });
        done += of_file;
        write_out(file + ": " + std::to_string(receipt.events) + " events, " + std::to_string(receipt.known) +
                  " known before, " + std::to_string(receipt.rejects) + " lines that are none\n");
    }
}

void forget(const Choice& choice)
{
    const auto store = open_store(choice, store::Opening::use);
    const uint64_t removed = value_of(value_of(store->writing())->forget(choice.text, seconds(30)));
    write_out("removed " + std::to_string(removed) + " events and rejected lines\n");
}

void back_up(const Choice& choice)
{
    const auto store = open_store(choice, store::Opening::use);
    Bar bar("backup");
    value_of(store->backup(choice.text, [&bar](const store::Progress& progress) {
        bar.show(progress.done, progress.total);
        return true;
    }));
}

CLI::App* add_command(CLI::App& program, int& status, const char* word, const char* sentence,
                      const std::shared_ptr<Choice>& choice, void (*run)(const Choice&))
{
    CLI::App* command = program.add_subcommand(word, sentence);
    add_store_words(*command, choice->store);
    command->callback([choice, run, &status] {
        try {
            run(*choice);
            status = done;
        } catch (const WrongOption& wrong) {
            fail(wrong.what());
            status = usage;
        } catch (const Failure& failure) {
            status = fail(failure.what());
        }
    });
    return command;
}

void add_filters(CLI::App& command, const std::shared_ptr<Choice>& choice)
{
    for (const char* word : {"from", "to", "application", "version", "name", "installation", "fact"}) {
        const auto take = [choice, word](const std::string& value) { choice->filters.emplace_back(word, value); };
        command.add_option_function<std::string>(std::string("--") + word, take, "only what this word says");
    }
}

} // namespace

void add_store_commands(CLI::App& program, int& status)
{
    auto choice = std::make_shared<Choice>();
    CLI::App* command =
        add_command(program, status, "export", "Prints events, in order of receipt.", choice, export_events);
    add_filters(*command, choice);
    command
        ->add_option_function<std::string>(
            "--format", [choice](const std::string& value) { choice->filters.emplace_back("format", value); },
            "jsonl or csv")
        ->check(CLI::IsMember({"jsonl", "csv"}));

    choice = std::make_shared<Choice>();
    command = add_command(program, status, "report", "Prints figures as tables.", choice, report);
    command->add_option("PERIOD", choice->text, "day or week: the last 24 hours, or the last 7 days")
        ->check(CLI::IsMember({"day", "week"}))
        ->default_str("week");
    command->add_flag("--plot", choice->plot, "draws the events over time");
    add_filters(*command, choice);

    choice = std::make_shared<Choice>();
    command = add_command(program, status, "import", "Takes event log files into the store.", choice, import_logs);
    command->add_option("LOG", choice->files, "the files")->required();

    choice = std::make_shared<Choice>();
    command = add_command(program, status, "forget", "Removes an installation's events.", choice, forget);
    command->add_option("ID", choice->text, "the installation")->required();

    choice = std::make_shared<Choice>();
    command = add_command(program, status, "backup", "Copies the store to a new file.", choice, back_up);
    command->add_option("FILE", choice->text, "the new file")->required();
}

} // namespace commands
