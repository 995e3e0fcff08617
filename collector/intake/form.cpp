#include "intake.h"

#include "UploadForm.h"
#include "percent.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace intake {

namespace {

constexpr size_t g_short_field = 1024; // bytes that `g` and `v` may have

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// The first word of a header's value, without parameters, in lower case.
std::string word(std::string_view value)
{
    value = value.substr(0, value.find(';'));
    while (!value.empty() && (value.back() == ' ' || value.back() == '\t'))
        value.remove_suffix(1);
    while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
        value.remove_prefix(1);
    std::string text(value);
    std::transform(text.begin(), text.end(), text.begin(), lower);
    return text;
}

bool is_hexadecimal(char c)
{
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'f');
}

// A plain decimal below 2^31, without a sign.
bool number(std::string_view text, uint32_t& value)
{
    bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    return plain && std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc() &&
           value < (uint32_t(1) << 31);
}

bool is_plain_hexadecimal(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return is_hexadecimal(c) && lower(c) == c; });
}

unsigned char byte(std::string_view two_digits)
{
    unsigned value = 0;
    std::from_chars(two_digits.data(), two_digits.data() + 2, value, 16);
    return static_cast<unsigned char>(value);
}

bool batch(const std::string& text, Form& form)
{
    if (text.empty())
        return true;
    if (text.size() != 32 || !is_plain_hexadecimal(text))
        return false;
    form.batch.emplace();
    for (size_t i = 0; i < form.batch->size(); ++i)
        (*form.batch)[i] = byte(std::string_view(text).substr(2 * i, 2));
    return true;
}

bool short_text(std::string& text, std::string& field)
{
    field = std::move(text);
    return field.size() <= g_short_field;
}

bool lines(const std::string& text, Form& form)
{
    return number(text, form.lines.emplace());
}

// Each takes a decoded value over and tells whether it may be so.
struct Field
{
    std::string_view name;
    bool required;
    bool (*take)(std::string& text, Form& form);
    const char* rule;
};

namespace name = AnalyticsSDK::UploadField;

const Field fields[] = {
    {name::batch, false, [](std::string& text, Form& form) { return batch(text, form); },
     "must be 32 hexadecimal digits"},
    {name::dropped, false, [](std::string& text, Form& form) { return number(text, form.dropped); },
     "must be a number"},
    {name::data, true, [](std::string& text, Form& form) { return form.data = std::move(text), true; }, ""},
    {name::unique_id, true, [](std::string& text, Form& form) { return short_text(text, form.sender); },
     "is over 1,024 bytes"},
    {name::lines, false, [](std::string& text, Form& form) { return lines(text, form); }, "must be a number"},
    {name::first_line, false, [](std::string& text, Form& form) { return number(text, form.first_line); },
     "must be a number"},
    {name::token, true, [](std::string& text, Form& form) { return form.token = std::move(text), true; }, ""},
    {name::version, true, [](std::string& text, Form& form) { return short_text(text, form.version); },
     "is over 1,024 bytes"},
};

Refused bad(std::string sentence)
{
    return Refusal{400, std::move(sentence)};
}

} // namespace

Refused check_headers(std::string_view content_type, std::string_view content_encoding, Encoding& encoding)
{
    if (word(content_type) != "application/x-www-form-urlencoded")
        return bad("The body must be application/x-www-form-urlencoded.");
    std::string name = word(content_encoding);
    encoding = name == "gzip" ? Encoding::gzip : Encoding::identity;
    if (name.empty() || name == "identity" || name == "gzip")
        return std::nullopt;
    return Refusal{415, "The body may be plain or gzip."};
}

Refused read_form(std::string&& body, Form& form)
{
    bool there[std::size(fields)] = {};
    std::string text;
    for (std::string_view rest = body; !rest.empty();) {
        std::string_view pair = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
        size_t equals = std::min(pair.find('='), pair.size());
        const Field* field = std::find_if(std::begin(fields), std::end(fields),
                                          [&](const Field& known) { return known.name == pair.substr(0, equals); });
        if (!percent_decode(pair.substr(std::min(equals + 1, pair.size())), text))
            return bad("The form holds a broken escape.");
        if (field == std::end(fields))
            continue;
        std::string named = "The field " + std::string(field->name) + " ";
        if (std::exchange(there[field - fields], true))
            return bad(named + "is there twice.");
        if (!field->take(text, form))
            return bad(named + field->rule + ".");
    }
    for (const Field& field : fields) {
        if (field.required && !there[&field - fields])
            return bad("The field " + std::string(field.name) + " is missing.");
    }
    if (form.dropped != 0 && !form.data.empty())
        return bad("Dropped lines are told without lines.");
    body = std::string();
    return std::nullopt;
}

} // namespace intake
