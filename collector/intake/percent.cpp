#include "percent.h"

#include "lumo/tova/tova-web.h"

#include <algorithm>

namespace intake {

namespace {

bool is_hexadecimal(char c)
{
    const char low = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return (c >= '0' && c <= '9') || (low >= 'a' && low <= 'f');
}

} // namespace

// tova_uri_decode takes broken escapes as they come, so they are judged before.
bool percent_decode(std::string_view text, std::string& out)
{
    for (size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 3)) {
        if (at + 2 >= text.size() || !is_hexadecimal(text[at + 1]) || !is_hexadecimal(text[at + 2]))
            return false;
    }
    std::string blanks;
    if (text.find('+') != std::string_view::npos) {
        blanks = text;
        std::replace(blanks.begin(), blanks.end(), '+', ' ');
        text = blanks;
    }
    out.resize(text.size() + 1); // and the terminator
    out.resize(static_cast<size_t>(tova_uri_decode(out.data(), static_cast<unsigned>(out.size()), text.data(),
                                                   static_cast<unsigned>(text.size()))));
    return true;
}

} // namespace intake
