// tova_uri_parse: any text against a model that works with copies, and the parts must lie within the text.

#include "fuzz.h"
#include "lumo/tova/tova-web.h"
#include "lumo/uri.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

using Part = std::optional<std::string>;

struct Parts
{
    Part scheme, user, password, host, path;
};

// Cuts `text` at the first `mark`: what stood before it; `text` keeps what follows. None, and no change, without one.
Part cut(std::string& text, std::string_view mark)
{
    const size_t at = text.find(mark);
    if (at == std::string::npos)
        return std::nullopt;
    Part before = text.substr(0, at);
    text.erase(0, at + mark.size());
    return before;
}

Parts parse(std::string text)
{
    Parts parts;
    parts.scheme = cut(text, ":");
    if (text.compare(0, 2, "//") == 0) {
        const size_t end = std::min(text.find_first_of("/?#", 2), text.size());
        std::string authority = text.substr(2, end - 2);
        text.erase(0, end);
        if (const size_t at = authority.rfind('@'); at != std::string::npos) {
            std::string login = authority.substr(0, at);
            authority.erase(0, at + 1);
            parts.user = cut(login, ":");
            (parts.user ? parts.password : parts.user) = login;
        }
        parts.host = authority;
    }
    if (!text.empty())
        parts.path = text;
    return parts;
}

void same(const char* what, const Part& expected, const tova_uri_part& got, const std::vector<char>& text)
{
    fuzz::require(what, expected.has_value() == (got.text != nullptr));
    if (!expected)
        return fuzz::same(what, 0, got.length);
    fuzz::require(what, got.text >= text.data() && got.text + got.length <= text.data() + text.size());
    fuzz::same(what, *expected, {got.text, got.length});
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const std::string copy = std::string(reinterpret_cast<const char*>(bytes), size).c_str();
    const std::vector<char> text(copy.c_str(), copy.c_str() + copy.size() + 1); // exact: over-reads are seen
    const Parts expected = parse(copy);
    tova_uri uri;
    tova_uri_parse(&uri, text.data());
    same("scheme", expected.scheme, uri.scheme, text);
    same("user", expected.user, uri.user, text);
    same("password", expected.password, uri.password, text);
    same("host", expected.host, uri.host, text);
    same("path", expected.path, uri.path, text);

    // Which colon begins the port depends on brackets; here it is enough that the host is a beginning of the part.
    const std::string host = expected.host.value_or("");
    const std::string with_port = lumo::uri(text.data()).host();
    fuzz::same("the host without its port", host.substr(0, with_port.size()), with_port);
    return 0;
}
