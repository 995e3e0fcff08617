#include "members.h"

#include <charconv>
#include <cmath>

namespace members {

namespace {

using Value = decltype(Node::value);

template <typename Number>
bool read_whole(std::string_view text, Number& number)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// "007" and "1." are texts: numbers are not written that way.
bool looks_like_a_number(std::string_view text)
{
    if (!text.empty() && text[0] == '-')
        text.remove_prefix(1);
    bool digit_first = !text.empty() && text[0] >= '0' && text[0] <= '9';
    bool leading_zero = text.size() > 1 && text[0] == '0' && text[1] >= '0' && text[1] <= '9';
    return digit_first && !leading_zero && text.back() != '.';
}

Value guess(std::string_view text)
{
    std::int64_t integer;
    double number;
    if (text == "true" || text == "false")
        return text == "true";
    if (text == "null")
        return nullptr;
    if (looks_like_a_number(text) && read_whole(text, integer))
        return integer;
    if (looks_like_a_number(text) && read_whole(text, number) && std::isfinite(number))
        return number;
    return std::string(text);
}

std::string as_type(std::string_view type, std::string_view text, Value& value)
{
    std::int64_t integer;
    double number;
    if (type == "string")
        value = std::string(text);
    else if (type == "int" && read_whole(text, integer))
        value = integer;
    else if (type == "float" && read_whole(text, number))
        value = number;
    else if (type == "bool" && (text == "true" || text == "false"))
        value = text == "true";
    else if (type == "int" || type == "float" || type == "bool")
        return "\"" + std::string(text) + "\" is no " + std::string(type);
    else
        return "there is no type \"" + std::string(type) + "\"; the types are string, int, float and bool";
    return {};
}

// One step of a dotted key: up to the next dot that no backslash protects. Answers what is wrong with it.
std::string next_step(std::string_view& key, std::string& step)
{
    step.clear();
    size_t at = 0;
    for (; at < key.size() && key[at] != '.'; ++at) {
        if (key.substr(at, 2) == "[]")
            return "[] can only end a key: an array's elements are single values";
        if (key[at] == '\\' && at + 1 < key.size())
            ++at;
        step += key[at];
    }
    key.remove_prefix(at);
    return step.empty() ? "has an empty part" : "";
}

Node* find(Object& object, const std::string& name)
{
    for (auto& [key, node] : object.members) {
        if (key == name)
            return &node;
    }
    return nullptr;
}

std::string put(Object& object, const std::string& name, bool element, Value value)
{
    Node* there = find(object, name);
    if (!element) {
        if (there)
            return "is given twice; an array is written " + name + "[]=";
        object.members.push_back({name, Node{std::move(value)}});
        return {};
    }
    if (!there)
        there = &object.members.emplace_back(Member{name, Node{Array()}}).node;
    Array* array = std::get_if<Array>(&there->value);
    if (!array)
        return "is both an array and something else";
    array->elements.push_back(Node{std::move(value)});
    return {};
}

std::string put_at(Object& event, std::string_view key, bool element, Value value)
{
    Object* object = &event;
    for (;;) {
        std::string step, what = next_step(key, step);
        if (!what.empty())
            return what;
        if (key.empty())
            return put(*object, step, element, std::move(value));
        key.remove_prefix(1);
        Node* there = find(*object, step);
        if (!there)
            there = &object->members.emplace_back(Member{step, Node{Object()}}).node;
        object = std::get_if<Object>(&there->value);
        if (!object)
            return "is both an object and something else";
    }
}

template <typename Scope>
void write_members(const Object& from, Scope& into);

template <typename Scope, typename... Name>
void write_node(const Node& node, Scope& into, Name... name)
{
    if (auto* object = std::get_if<Object>(&node.value)) {
        auto inner = into.open_object(name...);
        write_members(*object, inner);
    } else if (auto* array = std::get_if<Array>(&node.value)) {
        auto inner = into.open_array(name...);
        for (const Node& element : array->elements)
            write_node(element, inner);
    } else {
        std::visit(
            [&](const auto& value) {
                using Type = std::decay_t<decltype(value)>;
                if constexpr (!std::is_same_v<Type, Object> && !std::is_same_v<Type, Array>)
                    into.add(name..., value);
            },
            node.value);
    }
}

template <typename Scope>
void write_members(const Object& from, Scope& into)
{
    for (const auto& [name, node] : from.members)
        write_node(node, into, name.c_str());
}

} // namespace

std::string add(Object& event, std::string_view word)
{
    size_t equals = word.find('=');
    auto complain = [&](const std::string& what) { return std::string(word.substr(0, equals)) + ": " + what; };
    if (equals == word.npos)
        return complain("expected KEY=VALUE");
    std::string_view key = word.substr(0, equals), text = word.substr(equals + 1);
    Value value = guess(text);
    if (size_t colon = key.rfind(':'); colon != key.npos) {
        if (std::string what = as_type(key.substr(colon + 1), text, value); !what.empty())
            return complain(what);
        key = key.substr(0, colon);
    }
    bool element = key.size() >= 2 && key.substr(key.size() - 2) == "[]";
    if (element)
        key.remove_suffix(2);
    std::string what = put_at(event, key, element, std::move(value));
    return what.empty() ? what : complain(what);
}

void write(const Object& from, analytics::event& into)
{
    write_members(from, into);
}

} // namespace members
