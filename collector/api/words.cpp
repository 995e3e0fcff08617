#include "words.h"

#include "json.h"

#include "intake/percent.h"
#include "intake/strict_json.h"

#include <algorithm>
#include <charconv>

namespace api {
namespace {

constexpr size_t rows_most = 10000, events_most = 5;
constexpr store::Seconds hour = 3600, week = 7 * 24 * hour;

bool take_limit(std::string_view value, Words& words)
{
    const auto read = std::from_chars(value.data(), value.data() + value.size(), words.query.limit);
    return read.ec == std::errc() && read.ptr == value.data() + value.size() && words.query.limit >= 1 &&
           words.query.limit <= rows_most;
}

bool take_step(std::string_view value, Words& words)
{
    words.step = value == "day" ? store::Step::day : store::Step::hour;
    return value == "day" || value == "hour";
}

// A key of a fact has no colon; a value may have some.
bool take_fact(std::string_view value, Words& words)
{
    const size_t colon = value.find(':');
    if (colon == value.npos)
        return false;
    words.query.fact.emplace(value.substr(0, colon), value.substr(colon + 1));
    return true;
}

bool take_event(std::string_view value, Words& words)
{
    words.events.emplace_back(value);
    return words.events.size() <= events_most;
}

bool take_format(std::string_view value, Words& words)
{
    words.format = value;
    return value == "jsonl" || value == "csv";
}

struct Word
{
    std::string_view name;
    bool (*take)(std::string_view value, Words& words);
    const char* rule;
};

const Word all_words[] = {
    {"from", [](std::string_view value, Words& words) { return words.has_from = read_time(value, words.query.from); },
     "is a UTC date, YYYY-MM-DD or YYYY-MM-DDThh:mm:ssZ"},
    {"to", [](std::string_view value, Words& words) { return words.has_to = read_time(value, words.query.to); },
     "is a UTC date, YYYY-MM-DD or YYYY-MM-DDThh:mm:ssZ"},
    {"application", [](std::string_view value, Words& words) { return words.query.application = value, true; }, ""},
    {"version", [](std::string_view value, Words& words) { return words.query.version = value, true; }, ""},
    {"name", [](std::string_view value, Words& words) { return words.query.name = value, true; }, ""},
    {"installation", [](std::string_view value, Words& words) { return words.query.installation = value, true; }, ""},
    {"fact", take_fact, "is KEY:VALUE"},
    {"limit", take_limit, "is a number from 1 to 10000"},
    {"step", take_step, "is hour or day"},
    {"key", [](std::string_view value, Words& words) { return words.key = value, true; }, ""},
    {"event", take_event, "can be given five times at most"},
    {"format", take_format, "is jsonl or csv"},
};

} // namespace

std::string take_word(std::string_view name, std::string_view value, Words& words)
{
    // As the intake stores texts, so that a name whose bytes are no UTF-8 is found, and every answer is JSON.
    const std::string text = intake::to_utf8(value);
    for (const Word& word : all_words)
        if (word.name == name)
            return word.take(text, words) ? std::string() : std::string(name) + " " + word.rule;
    return "there is no word \"" + intake::to_utf8(name.substr(0, 40)) + "\"";
}

std::string read_words(std::string_view query, Words& words)
{
    std::vector<std::string> seen;
    while (!query.empty()) {
        const std::string_view part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(part.size() + 1, query.size()));
        if (part.empty())
            continue;
        const size_t equals = std::min(part.find('='), part.size());
        std::string name, value;
        if (!intake::percent_decode(part.substr(0, equals), name) ||
            !intake::percent_decode(part.substr(std::min(equals + 1, part.size())), value))
            return "an escape in the query is broken";
        if (name != "event" && std::find(seen.begin(), seen.end(), name) != seen.end())
            return name + " is given twice";
        seen.push_back(name);
        if (std::string fault = take_word(name, value, words); !fault.empty())
            return fault;
    }
    return words.has_from && words.has_to && words.query.from > words.query.to ? "from is later than to" : "";
}

namespace {

store::Seconds hour_of(store::Seconds seconds)
{
    return seconds - ((seconds % hour) + hour) % hour; // also before 1970
}

} // namespace

void round_period(Words& words, store::Seconds now)
{
    store::Query& query = words.query;
    if (!words.has_to)
        query.to = std::max(now, words.has_from ? query.from : now);
    query.to = hour_of(query.to + hour - 1);
    query.from = words.has_from ? hour_of(query.from) : query.to - week;
}

} // namespace api
