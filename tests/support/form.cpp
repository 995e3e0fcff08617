#include "support/form.h"

namespace support {

static int digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string percent_decode(std::string_view text)
{
    std::string plain;
    plain.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && digit(text[i + 1]) >= 0 && digit(text[i + 2]) >= 0) {
            plain += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
            i += 2;
        } else {
            plain += text[i] == '+' ? ' ' : text[i];
        }
    }
    return plain;
}

Form parse_form(std::string_view body)
{
    Form fields;
    while (!body.empty()) {
        std::string_view field = body.substr(0, body.find('&'));
        body.remove_prefix(field.size() < body.size() ? field.size() + 1 : body.size());
        size_t equals = field.find('=');
        fields[percent_decode(field.substr(0, equals))] =
            equals == field.npos ? std::string() : percent_decode(field.substr(equals + 1));
    }
    return fields;
}

} // namespace support
