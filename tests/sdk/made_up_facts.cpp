#include "made_up_facts.h"

namespace {

MadeUpFacts* machine;

template <class T>
host::answer give(const std::optional<T>& fact, T& value)
{
    if (!fact)
        return machine->missing;
    value = *fact;
    return host::answer::found;
}

template <class Fact, class T>
host::answer give_of(const std::map<Fact, T>& facts, Fact fact, T& value)
{
    const auto found = facts.find(fact);
    return give(found != facts.end() ? std::optional(found->second) : std::nullopt, value);
}

host::answer give_selector(std::uint32_t code, std::int32_t& value)
{
    for (const auto& [name, number] : machine->selectors)
        if (host::selector({name[0], name[1], name[2], name[3], '\0'}) == code)
            return give(std::optional(number), value);
    return machine->missing;
}

host::answer give_loads(host::load_visitor* visit, void* context)
{
    if (!machine->loads)
        return machine->missing;
    for (const auto& load : *machine->loads)
        visit(context, load);
    return host::answer::found;
}

constexpr host::source made_up = {
    give_selector,
    [](host::processor_identity& identity) { return give(machine->processor, identity); },
    [](host::sysctl_name name, host::text& value) {
        return give(name == host::sysctl_name::hw_model ? machine->model : machine->host_name, value);
    },
    give_loads,
    [](std::uint64_t& bytes) { return give(machine->page_size, bytes); },
    [](host::page_counts& counts) { return give(machine->pages, counts); },
    [](host::volume& start_up) { return give(machine->volume, start_up); },
    [](host::text& value) { return give(machine->computer_name, value); },
    [](std::uint32_t& flags) { return give(machine->reachability, flags); },
    [](host::uuid_bytes& bytes) { return give(machine->uuid, bytes); },
    [](host::text_fact fact, host::text& value) { return give_of(machine->texts, fact, value); },
    [](host::number_fact fact, std::uint64_t& value) { return give_of(machine->numbers, fact, value); },
};

} // namespace

MadeUpFacts::MadeUpFacts()
{
    machine = this;
    host::replace_facts(&made_up);
}

MadeUpFacts::~MadeUpFacts()
{
    host::replace_facts(nullptr);
}
