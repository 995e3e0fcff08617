// Events from words of a shell: "key=value" with typed values, nested by dotted keys.
#pragma once

#include "analytics.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace members {

struct Node;
struct Member;
struct Object
{
    std::vector<Member> members; ///< in order of first appearance
};
struct Array
{
    std::vector<Node> elements;
};

struct Node
{
    std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, Object, Array> value;
};

struct Member
{
    std::string name;
    Node node;
};

/// Adds one word to an event: KEY=VALUE, KEY[]=VALUE, with KEY:TYPE for a chosen type. Returns what is wrong with
/// it, or the empty text; after an error the event must not be logged.
std::string add(Object& event, std::string_view word);

/// Writes everything into an open event.
void write(const Object& from, analytics::event& into);

} // namespace members
