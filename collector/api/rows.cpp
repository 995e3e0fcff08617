#include "rows.h"

#include <cstdio>

namespace api {
namespace {

std::string digits_of(const store::BatchId& batch)
{
    std::string text;
    for (const unsigned char byte : batch) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

/// A field of CSV: in quotes where it needs them. A text that a spreadsheet would run as a formula stays as it is: the
/// file is for programs, and a changed text would no longer be what was logged.
std::string field(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted + "\"";
}

} // namespace

std::string json_of(const store::EventRow& row)
{
    return Json('{')
        .text("installation", row.installation)
        .text("application", row.application)
        .text("version", row.version)
        .raw("name", quoted_or_null(row.name))
        .text("logged_at", line_time(row.logged_at))
        .raw("received_at", std::to_string(row.received_at))
        .raw("batch", row.batch ? quoted(digits_of(*row.batch)) : "null")
        .count("line", row.line)
        .raw("event", row.members)
        .end('}');
}

std::string json_of(const store::NameRow& row)
{
    return Json('{')
        .raw("name", quoted_or_null(row.name))
        .count("events", row.events)
        .count("installations", row.installations)
        .end('}');
}

std::string json_of(const store::VersionRow& row)
{
    return Json('{')
        .text("application", row.application)
        .text("version", row.version)
        .count("events", row.events)
        .count("installations", row.installations)
        .end('}');
}

std::string json_of(const store::FactRow& row)
{
    return Json('{')
        .text("fact", row.fact)
        .raw("value", value_of(row.value))
        .count("events", row.events)
        .count("installations", row.installations)
        .end('}');
}

std::string json_of(const store::PropertyRow& row)
{
    return Json('{').text("key", row.key).raw("value", value_of(row.value)).count("events", row.events).end('}');
}

std::string json_of(const store::PropertyPoint& row)
{
    return Json('{')
        .text("at", iso_time(row.at))
        .raw("value", value_of(row.value))
        .count("events", row.events)
        .end('}');
}

std::string json_of(const store::InstallationRow& row)
{
    return Json('{')
        .text("installation", row.installation)
        .text("application", row.application)
        .text("version", row.version)
        .text("first_seen", iso_time(row.first_seen))
        .text("last_seen", iso_time(row.last_seen))
        .count("events", row.events)
        .end('}');
}

std::string json_of(const store::RetentionRow& row)
{
    Json active('[');
    for (const uint64_t count : row.active)
        active.element(std::to_string(count));
    return Json('{')
        .text("week", iso_time(row.week).substr(0, 10))
        .count("installations", row.installations)
        .raw("active", active.end(']'))
        .end('}');
}

std::string json_of(const store::RejectRow& row)
{
    return Json('{')
        .raw("received_at", std::to_string(row.received_at))
        .text("installation", row.installation)
        .text("reason", row.reason)
        .text("line", row.line)
        .end('}');
}

std::string json_of(const store::Point& row)
{
    return Json('{')
        .text("at", iso_time(row.at))
        .count("events", row.events)
        .count("installations", row.installations)
        .count("new_installations", row.new_installations)
        .count("rejects", row.rejects)
        .count("dropped", row.dropped)
        .end('}');
}

std::string json_of(const store::Numbers& numbers)
{
    Json histogram('[');
    for (const uint64_t count : numbers.histogram)
        histogram.element(std::to_string(count));
    return Json('{')
        .count("count", numbers.count)
        .raw("min", number(numbers.min))
        .raw("median", number(numbers.median))
        .raw("percentile_95", number(numbers.percentile_95))
        .raw("max", number(numbers.max))
        .raw("sum", number(numbers.sum))
        .raw("histogram", histogram.end(']'))
        .end('}');
}

std::string csv_header()
{
    return "installation,application,version,name,logged_at,received_at,batch,line,event\r\n";
}

std::string csv_of(const store::EventRow& row)
{
    return field(row.installation) + "," + field(row.application) + "," + field(row.version) + "," +
           field(row.name.value_or("")) + "," + line_time(row.logged_at) + "," + std::to_string(row.received_at) + "," +
           (row.batch ? digits_of(*row.batch) : "") + "," + std::to_string(row.line) + "," + field(row.members) +
           "\r\n";
}

} // namespace api
