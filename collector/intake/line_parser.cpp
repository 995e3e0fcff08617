#include "line_parser.h"

#include "UploadForm.h"
#include "facts.h"
#include "store/members.h"
#include "strict_json.h"
#include "wire_line.h"

#include <chrono>

namespace intake {

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;

constexpr size_t g_levels = 500; // that an event may nest
constexpr size_t g_members = 7;
constexpr size_t g_reserved = 2000; // properties of an upload that get their memory at once

// Number `i` of "YYYY-MM-DD hh:mm:ss"; false when a character is no digit.
bool digits(std::string_view text, size_t at, size_t count, unsigned& value)
{
    for (size_t i = at; i < at + count; ++i) {
        unsigned digit = static_cast<unsigned char>(text[i]) - static_cast<unsigned>('0');
        if (digit > 9)
            return false;
        value = value * 10 + digit;
    }
    return true;
}

std::optional<store::Seconds> seconds_of(std::string_view text)
{
    using namespace std::chrono;
    unsigned y = 0, m = 0, d = 0, hour = 0, minute = 0, second = 0;
    if (text.size() != 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' || text[16] != ':')
        return std::nullopt;
    bool numbers = digits(text, 0, 4, y) && digits(text, 5, 2, m) && digits(text, 8, 2, d) &&
                   digits(text, 11, 2, hour) && digits(text, 14, 2, minute) && digits(text, 17, 2, second);
    year_month_day date{year(static_cast<int>(y)), month(m), day(d)};
    if (!numbers || !date.ok() || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    return sys_days(date).time_since_epoch() / seconds(1) + hour * 3600 + minute * 60 + second;
}

// Whether the character belongs to an escape: an odd number of backslashes stands before it.
bool is_escaped(std::string_view text, size_t at)
{
    size_t backslashes = 0;
    while (text[at - 1 - backslashes] == '\\')
        ++backslashes;
    return backslashes % 2 != 0;
}

// Where the object begins that is the last member of a line: the first brace outside of texts, as the members before it
// are none and valid.
size_t object_in(std::string_view line)
{
    size_t at = 0;
    for (; line[at] != '{'; ++at) {
        if (line[at] != '"')
            continue;
        do {
            at = line.find('"', at + 1);
        } while (is_escaped(line, at));
    }
    return at;
}

// The same text as the event before has mostly stands there already.
std::string_view keep(std::string_view text, std::string_view before, store::Upload& upload)
{
    return text == before ? before : upload.keep(text);
}

// Most events of an upload have the same keys in the same order, so a key mostly stands there already.
void add_property(std::string_view key, const store::Value& value, store::Upload& upload)
{
    size_t place = upload.properties.size();
    size_t behind = upload.events.size() > 1 ? upload.events[upload.events.size() - 2].properties : 0;
    const store::Property* before = behind != 0 && behind <= place ? &upload.properties[place - behind] : nullptr;
    bool is_same = before != nullptr && before->key == key;
    store::Property& property = upload.properties.emplace_back();
    before = is_same ? &property - behind : nullptr; // the list may have moved
    property.key = is_same ? before->key : upload.keep(key);
    property.is_fact = is_same ? before->is_fact : is_fact(key);
    property.value = {value.type, upload.keep(value.text)};
}

} // namespace

struct LineParser::Json
{
    simdjson::dom::parser parser;
    std::string compact;

    // Empty when the text is an event's line, which then stands in `upload`.
    std::string read(const char* text, size_t size, bool is_padded, store::Upload& upload);
    std::string read_members(std::string_view line, const element (&members)[g_members], store::Upload& upload);
    std::string_view compact_object(std::string_view line);
};

const size_t LineParser::padding = simdjson::SIMDJSON_PADDING;

LineParser::LineParser() : m_spJson(std::make_unique<Json>())
{
    // The line's own array is one level more.
    if (m_spJson->parser.allocate(65536, g_levels + 1) != simdjson::SUCCESS)
        throw std::bad_alloc();
}

LineParser::~LineParser() = default;

std::string LineParser::Json::read(const char* text, size_t size, bool is_padded, store::Upload& upload)
{
    element line;
    if (auto error = parser.parse(text, size, !is_padded).get(line))
        return simdjson::error_message(error);
    simdjson::dom::array array;
    if (line.get_array().get(array))
        return "the line is no array";
    element members[g_members];
    size_t count = 0;
    for (element member : array) {
        if (count < g_members)
            members[count] = member;
        ++count;
    }
    return count == g_members ? read_members({text, size}, members, upload) : "the line has not seven members";
}

// Without the white space, as a valid line has it.
std::string_view LineParser::Json::compact_object(std::string_view line)
{
    std::string_view object = line.substr(0, line.rfind('}') + 1);
    object.remove_prefix(object_in(object));
    compact.resize(object.size());
    size_t size = 0;
    return simdjson::minify(object.data(), object.size(), compact.data(), size)
               ? object
               : std::string_view(compact.data(), size);
}

std::string LineParser::Json::read_members(std::string_view text, const element (&members)[g_members],
                                           store::Upload& upload)
{
    int64_t version = 0;
    std::string_view time, application, application_version, installation;
    if (members[0].get_int64().get(version) || version != AnalyticsSDK::line_layout_version)
        return "the layout's version is not " + std::to_string(AnalyticsSDK::line_layout_version);
    if (members[1].get_string().get(time) || members[2].get_string().get(application) ||
        members[3].get_string().get(application_version) || members[4].get_string().get(installation))
        return "a member that must be a text is none";
    std::optional<store::Seconds> logged_at = seconds_of(time);
    if (!logged_at)
        return "the time is none";
    store::Digits digits_of_name;
    store::Value name;
    element_type type = members[5].type();
    if (!store::scalar(members[5], digits_of_name, name) || type == element_type::DOUBLE || type == element_type::BOOL)
        return "the name is no text, integer or null";
    simdjson::dom::object object;
    if (members[6].get_object().get(object))
        return "the event is no object";

    static const store::Event none;
    upload.events.emplace_back();
    store::Event& event = upload.events.back();
    const store::Event& before = upload.events.size() > 1 ? upload.events[upload.events.size() - 2] : none;
    event.application = keep(application, before.application, upload);
    event.version = keep(application_version, before.version, upload);
    event.installation = keep(installation, before.installation, upload);
    if (type != element_type::NULL_VALUE)
        event.name = keep(name.text, before.name.value_or(std::string_view()), upload);
    event.logged_at = *logged_at;
    event.members = upload.keep(compact_object(text));
    event.first_property = static_cast<uint32_t>(upload.properties.size());
    event.other_properties = store::for_each_property(
        object, [&](std::string_view key, const store::Value& value) { add_property(key, value, upload); });
    event.properties = static_cast<uint32_t>(upload.properties.size() - event.first_property);
    if (upload.events.size() == 1)
        upload.properties.reserve(std::min(event.properties * upload.lines.size(), g_reserved));
    return "";
}

std::string LineParser::parse(std::string_view line, store::Upload& upload)
{
    if (m_spJson->read(line.data(), line.size(), true, upload).empty())
        return "";
    if (line.find('\0') != std::string_view::npos)
        return "a NUL byte";
    std::string strict = strict_json(line);
    std::string fault = m_spJson->read(strict.data(), strict.size(), false, upload);
    wire::Line parts;
    if (fault.empty())
        return "";
    if (auto place = wire::read_line(line, parts))
        return "column " + std::to_string(place->column) + ": " + place->what;
    return fault;
}

} // namespace intake
