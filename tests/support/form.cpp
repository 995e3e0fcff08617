#include "form.h"

#include <algorithm>

namespace support {
namespace {

/// The value of a hexadecimal digit, -1 for any other character.
int hex_digit(char c)
{
    const char lower = static_cast<char>(c | 0x20);
    if (c >= '0' && c <= '9')
        return c - '0';
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string percent_decode(std::string_view text)
{
    std::string plain;
    plain.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hex_digit(text[i + 1]) >= 0 && hex_digit(text[i + 2]) >= 0) {
            plain += static_cast<char>(hex_digit(text[i + 1]) * 16 + hex_digit(text[i + 2]));
            i += 2;
        } else {
            plain += text[i] == '+' ? ' ' : text[i];
        }
    }
    return plain;
}

} // namespace

Form parse_form(std::string_view body)
{
    Form fields;
    while (!body.empty()) {
        const std::string_view field = body.substr(0, body.find('&'));
        body.remove_prefix(std::min(field.size() + 1, body.size()));
        const size_t equals = std::min(field.find('='), field.size());
        fields[percent_decode(field.substr(0, equals))] =
            percent_decode(field.substr(std::min(equals + 1, field.size())));
    }
    return fields;
}

} // namespace support
