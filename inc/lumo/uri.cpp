#include "lumo/uri.h"

#include <string_view>

namespace lumo {

namespace {

// A part that is absent has a null pointer, which no string may be made of.
std::string_view view_of_part(const tova_uri_part& part)
{
    return part.text == nullptr ? std::string_view() : std::string_view(part.text, part.length);
}

} // namespace

uri::uri(const char* text) : _parts()
{
    *this = text;
}

// Parts point into their owner's text, so a copy takes its own text apart instead of taking the pointers over.
uri::uri(const uri& other) : uri(other._text.c_str()) {}

uri& uri::operator=(const uri& other)
{
    return *this = other._text.c_str();
}

uri& uri::operator=(const char* text)
{
    // Copied first: `text` may point into this object's own.
    _text = std::string(text != nullptr ? text : "");
    // Parsed again even for the same text: the string may have moved.
    tova_uri_parse(&_parts, _text.c_str());
    return *this;
}

std::string uri::scheme() const
{
    return std::string(view_of_part(_parts.scheme));
}

std::string uri::host() const
{
    const std::string_view host = view_of_part(_parts.host);
    // The colons of an address in brackets are its own; the port's comes after them.
    const std::size_t bracket = host.find(']');
    const std::size_t port = host.find(':', bracket == std::string_view::npos ? 0 : bracket);
    return std::string(host.substr(0, port));
}

} // namespace lumo
