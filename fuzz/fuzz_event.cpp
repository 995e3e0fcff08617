// Events built by random calls through the C interface. Every answer is compared with the rules of nesting, every text
// with a byte-exact model, and what is clean for JSON with what an independent parser makes of it.

#include "analytics.h"
#include "fuzz.h"
#include "model.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

using nlohmann::json;

const model::Session about{"fuzz", "1.0", "the-id"};
analytics_session* session;
std::string log_file;

// One open object or array: its text byte by byte, and as a value for as long as it is clean, that is, valid JSON.
struct Level
{
    bool array;
    const char* name;
    std::string text;
    json value;
    bool clean = true;
};

// A member that every event begins with.
struct ContextMember
{
    std::string name, text;
    json value;
    bool clean;
};

// Makes each call of the C interface, and the same change to the model.
class Run
{
public:
    explicit Run(FuzzedDataProvider& input) : m_input(input) {}
    void step();
    void finish();

private:
    const char* text();
    void add(const char* name, const std::string& text, const json& value, bool clean);
    uint32_t refusal(bool named, const char* name) const;
    void begin_event();
    void end_event();
    void begin(bool array, bool named);
    void end(bool array);
    void add_string(bool named);
    void add_number(bool named);
    void add_text(bool named);
    void set_context();
    void remove_context();
    void add_property();
    void close(Level& level) const { level.text += level.array ? " ]" : " }"; }
    void check_finished(const Level& root);

    FuzzedDataProvider& m_input;
    std::deque<std::string> m_names; // the host's: names must stay where they are until their end calls
    std::vector<Level> m_levels;
    std::vector<ContextMember> m_context;
    const char* m_event_name = nullptr;
};

const char* Run::text()
{
    if (m_input.ConsumeIntegralInRange(0, 15) == 0)
        return nullptr;
    // Long enough for the writer's loops over long texts, too.
    m_names.push_back(m_input.ConsumeRandomLengthString(300));
    return m_names.back().c_str();
}

// Whether the parser accepts the text as a string. It is asked so that the model needs no rules of its own.
bool clean(const char* text)
{
    return !text || json::accept(model::in_quotes(text));
}

void Run::add(const char* name, const std::string& text, const json& value, bool is_clean)
{
    // A name may come twice in the text. The parser keeps the last of them, and so does the value.
    Level& top = m_levels.back();
    const bool first = top.text.size() == 1;
    top.text += (first ? " " : ", ") + (name ? model::in_quotes(name) + ": " : "") + text;
    top.clean = top.clean && is_clean && clean(name);
    if (top.clean && top.array)
        top.value.push_back(value);
    else if (top.clean)
        top.value[name] = value;
}

// What an add call must answer: members have names, elements have none.
uint32_t Run::refusal(bool named, const char* name) const
{
    if (m_levels.empty())
        return ANALYTICS_NO_EVENT;
    const bool array = m_levels.back().array;
    if (named)
        return !name ? ANALYTICS_NAME_REQUIRED : array ? ANALYTICS_NAME_REFUSED : ANALYTICS_OK;
    return array ? ANALYTICS_OK : ANALYTICS_NAME_REQUIRED;
}

void Run::begin_event()
{
    const char* name = text();
    const uint32_t expected = m_levels.empty() ? ANALYTICS_OK : ANALYTICS_EVENT_OPEN;
    fuzz::same("analytics_event_begin", expected, analytics_event_begin(session, name));
    if (expected != ANALYTICS_OK)
        return;
    m_event_name = name;
    m_levels.push_back({false, nullptr, "{", json::object()});
    for (const ContextMember& member : m_context)
        add(member.name.c_str(), member.text, member.value, member.clean);
}

void Run::end_event()
{
    const size_t open = m_levels.size();
    const uint32_t expected = open == 0 ? ANALYTICS_NO_EVENT : open > 1 ? ANALYTICS_NESTED_OPEN : ANALYTICS_OK;
    fuzz::same("analytics_event_end", expected, analytics_event_end(session));
    if (expected != ANALYTICS_OK)
        return;
    close(m_levels.back());
    check_finished(m_levels.back());
    m_levels.clear();
}

void Run::check_finished(const Level& root)
{
    // A buffer of any size: what fits is delivered, and zeros fill the rest.
    std::vector<char> buffer(m_input.ConsumeIntegralInRange<size_t>(1, root.text.size() + 8), 'x');
    std::vector<char> expected(buffer.size());
    strncpy(expected.data(), root.text.c_str(), expected.size());
    fuzz::same("analytics_log_get", ANALYTICS_OK, analytics_log_get(session, buffer.data(), buffer.size()));
    fuzz::same("the text of analytics_log_get", {expected.data(), expected.size()}, {buffer.data(), buffer.size()});
    model::check_line(about, model::in_quotes_or_null(m_event_name), root.text, fuzz::read_file(log_file));
    // The next event begins a new file, so that each is compared on its own.
    unlink(log_file.c_str());
    if (!root.clean)
        return;
    const json parsed = json::parse(root.text, nullptr, false);
    fuzz::require("a parser takes the text", !parsed.is_discarded());
    fuzz::require("a parser reads back what was added", parsed == root.value);
}

void Run::begin(bool array, bool named)
{
    const char* name = named ? text() : nullptr;
    uint32_t expected = ANALYTICS_OK;
    if (m_levels.empty())
        expected = ANALYTICS_NO_EVENT;
    else if (m_levels.back().array ? name != nullptr : name == nullptr)
        expected = name ? ANALYTICS_NAME_REFUSED : ANALYTICS_NAME_REQUIRED;
    const uint32_t answer = named ? (array ? analytics_name_array_begin : analytics_name_object_begin)(session, name)
                                  : (array ? analytics_array_begin : analytics_object_begin)(session);
    fuzz::same("begin", expected, answer);
    if (expected == ANALYTICS_OK)
        m_levels.push_back({array, name, array ? "[" : "{", array ? json::array() : json::object()});
}

void Run::end(bool array)
{
    uint32_t expected = ANALYTICS_OK;
    if (m_levels.empty())
        expected = ANALYTICS_NO_EVENT;
    else if (m_levels.size() == 1)
        expected = array ? ANALYTICS_NO_ARRAY_OPEN : ANALYTICS_NO_OBJECT_OPEN;
    else if (m_levels.back().array != array)
        expected = array ? ANALYTICS_NAME_REQUIRED : ANALYTICS_NAME_REFUSED;
    fuzz::same("end", expected, (array ? analytics_array_end : analytics_object_end)(session));
    if (expected != ANALYTICS_OK)
        return;
    Level child = std::move(m_levels.back());
    m_levels.pop_back();
    close(child);
    add(child.name, child.text, child.value, child.clean);
}

void Run::add_string(bool named)
{
    const char* name = named ? text() : nullptr;
    const char* value = text();
    const uint32_t expected = refusal(named, name);
    fuzz::same("string_add", expected,
               named ? analytics_name_string_add(session, name, value) : analytics_string_add(session, value));
    if (expected == ANALYTICS_OK)
        add(name, model::in_quotes_or_null(value), value && clean(value) ? json(value) : json(), clean(value));
}

// A text with a length may hold NULs, which are written as readers of JSON know them.
void Run::add_text(bool named)
{
    const char* name = named ? text() : nullptr;
    const bool null = m_input.ConsumeIntegralInRange(0, 15) == 0;
    const std::string value = m_input.ConsumeRandomLengthString(300);
    std::string quoted;
    for (size_t at = 0; at <= value.size();) {
        const size_t end = std::min(value.find('\0', at), value.size());
        quoted += (at == 0 ? "" : "\\u0000") + model::escaped(std::string_view(value).substr(at, end - at));
        at = end + 1;
    }
    quoted = null ? "null" : '"' + quoted + '"';
    const uint32_t expected = refusal(named, name);
    const char* given = null ? nullptr : value.data();
    fuzz::same("text_add", expected,
               named ? analytics_name_text_add(session, name, given, value.size())
                     : analytics_text_add(session, given, value.size()));
    const bool is_clean = json::accept(quoted);
    if (expected == ANALYTICS_OK)
        add(name, quoted, !null && is_clean ? json(value) : json(), is_clean);
}

void Run::set_context()
{
    const char* name = text();
    ContextMember member{name ? name : "", "", nullptr, true};
    uint32_t answer;
    switch (m_input.ConsumeIntegralInRange(0, 3)) {
    case 0: {
        const char* value = text();
        answer = analytics_context_string_set(session, name, value);
        member.text = model::in_quotes_or_null(value);
        member.clean = clean(value);
        member.value = value && member.clean ? json(value) : json();
        break;
    }
    case 1: {
        const auto value = m_input.ConsumeIntegral<int64_t>();
        answer = analytics_context_int64_set(session, name, value);
        member.text = std::to_string(value);
        member.value = value;
        break;
    }
    case 2: {
        const bool value = m_input.ConsumeBool();
        answer = analytics_context_bool_set(session, name, value);
        member.text = value ? "true" : "false";
        member.value = value;
        break;
    }
    default: {
        const auto value = m_input.ConsumeFloatingPoint<double>();
        answer = analytics_context_float64_set(session, name, value);
        member.text = model::number(value);
        member.clean = std::isfinite(value) && std::isfinite(strtod(member.text.c_str(), nullptr));
        member.value = strtod(member.text.c_str(), nullptr);
    }
    }
    const auto place = std::find_if(m_context.begin(), m_context.end(),
                                    [&](const ContextMember& known) { return known.name == member.name; });
    const bool full = place == m_context.end() && m_context.size() == 64;
    const uint32_t expected = !name ? ANALYTICS_NAME_REQUIRED : full ? ANALYTICS_CONTEXT_FULL : ANALYTICS_OK;
    fuzz::same("context_set", expected, answer);
    if (expected != ANALYTICS_OK)
        return;
    if (place == m_context.end())
        m_context.push_back(std::move(member));
    else
        *place = std::move(member);
}

void Run::remove_context()
{
    if (m_context.empty())
        return fuzz::same("removing nothing", ANALYTICS_OK, analytics_context_remove(session, "nosuch"));
    const auto place = m_context.begin() + m_input.ConsumeIntegralInRange<long>(0, std::ssize(m_context) - 1);
    fuzz::same("context_remove", ANALYTICS_OK, analytics_context_remove(session, place->name.c_str()));
    m_context.erase(place);
}

void Run::add_number(bool named)
{
    const char* name = named ? text() : nullptr;
    const uint32_t expected = refusal(named, name);
    const auto checked = [&](uint32_t answer, const std::string& number, const json& value, bool is_clean) {
        fuzz::same("a number's or boolean's add", expected, answer);
        if (expected == ANALYTICS_OK)
            add(name, number, value, is_clean);
    };
    switch (m_input.ConsumeIntegralInRange(0, 4)) {
    case 4: {
        const auto value = m_input.ConsumeIntegral<uint64_t>();
        checked(named ? analytics_name_uint64_add(session, name, value) : analytics_uint64_add(session, value),
                std::to_string(value), value, true);
        break;
    }
    case 0: {
        const auto value = m_input.ConsumeIntegral<int32_t>();
        checked(named ? analytics_name_int32_add(session, name, value) : analytics_int32_add(session, value),
                std::to_string(value), value, true);
        break;
    }
    case 1: {
        const auto value = m_input.ConsumeIntegral<int64_t>();
        checked(named ? analytics_name_int64_add(session, name, value) : analytics_int64_add(session, value),
                std::to_string(value), value, true);
        break;
    }
    case 2: {
        const bool value = m_input.ConsumeBool();
        checked(named ? analytics_name_bool_add(session, name, value) : analytics_bool_add(session, value),
                value ? "true" : "false", value, true);
        break;
    }
    default: {
        const auto bits = m_input.ConsumeIntegral<uint64_t>();
        double value;
        memcpy(&value, &bits, sizeof value);
        const std::string text = model::number(value);
        // A number is clean when it is finite. Six digits are written, so the parser reads the value of those.
        checked(named ? analytics_name_float64_add(session, name, value) : analytics_float64_add(session, value), text,
                strtod(text.c_str(), nullptr), std::isfinite(value) && std::isfinite(strtod(text.c_str(), nullptr)));
    }
    }
}

void Run::add_property()
{
    // The properties whose value is the same on every machine.
    static const char* const properties[][2] = {{"os_name", "mac"}, {"mfg", "Apple"}, {"ram_free", "0 MB"}};
    const auto& [key, value] = properties[m_input.ConsumeIntegralInRange(0, 2)];
    const uint32_t expected = m_levels.empty() ? ANALYTICS_NO_EVENT : ANALYTICS_OK;
    fuzz::same("analytics_property_add", expected, analytics_property_add(session, key));
    if (expected == ANALYTICS_OK)
        add(m_levels.back().array ? nullptr : key, model::in_quotes(value), value, true);
}

void Run::step()
{
    switch (m_input.ConsumeIntegralInRange(0, 17)) {
    case 0:
        return begin_event();
    case 1:
        return end_event();
    case 2:
        return begin(false, true);
    case 3:
        return begin(false, false);
    case 4:
        return begin(true, true);
    case 5:
        return begin(true, false);
    case 6:
        return end(false);
    case 7:
        return end(true);
    case 8:
        return add_string(true);
    case 9:
        return add_string(false);
    case 10:
        return add_number(true);
    case 11:
        return add_number(false);
    case 12:
        return add_property();
    case 13:
        return add_text(true);
    case 14:
        return add_text(false);
    case 15:
        return set_context();
    case 16:
        return remove_context();
    default:
        fuzz::same("a null session", ANALYTICS_NO_SESSION, analytics_string_add(nullptr, "x"));
    }
}

// Leaves no event open, so that inputs do not depend on each other.
void Run::finish()
{
    while (m_levels.size() > 1)
        end(m_levels.back().array);
    if (!m_levels.empty())
        end_event();
    for (; !m_context.empty(); m_context.pop_back())
        analytics_context_remove(session, m_context.back().name.c_str());
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    log_file = fuzz::scratch() + "/events.log";
    analytics_config config = {};
    strcpy(config.upload_url, "http://127.0.0.1:9/");
    strcpy(config.event_log_file, log_file.c_str());
    strcpy(config.unique_id, about.id.c_str());
    strcpy(config.application_id, about.application.c_str());
    strcpy(config.application_version, about.version.c_str());
    session = analytics_initialize(&config);
    fuzz::require("a session", session);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    Run run(input);
    while (input.remaining_bytes() > 0)
        run.step();
    run.finish();
    return 0;
}
