// The API's query strings, asked of a real store: every answer is JSON with a status of its table, and keeps its limit.
#include "api/api.h"
#include "api/words.h"
#include "intake/intake.h"

#include "fuzz.h"

#include <nlohmann/json.hpp>

namespace {

const char* const log_text =
    R"([ 3, "2026-11-20 10:00:00", "app", "1.0", "i1", "launch", { "os_name": "x", "n": 1, "t": "a" } ]
[ 3, "2026-11-20 10:00:01", "app", "1.0", "i1", "open", { "n": 2.5, "ok": true } ]
[ 3, "2026-11-21 11:00:00", "app", "1.1", "i2", "launch", { "os_name": "y", "n": -7 } ]
[ 3, "2026-11-21 12:00:00", "app", "1.1", "i2", null, { } ]
no event
)";

template <class Value>
Value value_of(store::Result<Value> result)
{
    fuzz::require("the store does what it is asked", static_cast<bool>(result));
    return std::move(*result);
}

/// A store with a few events, and the API that answers from it.
struct Asked
{
    Asked()
    {
        store = value_of(store::open(fuzz::scratch() + "/events.db", {store::Opening::create, {}}));
        store::Upload upload;
        intake::Form form;
        form.data = log_text;
        fuzz::require("lines are read", !intake::read_lines(std::move(form), {}, 1795000000000, {0, 0}, upload));
        const store::Upload* const one[] = {&upload};
        value_of(value_of(store->writing())->write(one, {}));
        api = std::make_unique<api::Api>(*store, value_of(store->reading()), nullptr, surroundings);
    }

    std::unique_ptr<store::Store> store;
    api::Surroundings surroundings{"1", "events.db", {}, {}};
    std::unique_ptr<api::Api> api;
};

const char* const paths[] = {"summary",       "series",   "names",     "versions", "facts",   "properties", "property",
                             "installations", "timeline", "retention", "funnel",   "rejects", "health"};

void check_words(std::string_view query)
{
    api::Words words;
    if (!api::read_words(query, words).empty())
        return;
    api::round_period(words, 1795000000);
    fuzz::require("a period ends after it begins", words.query.from <= words.query.to);
    fuzz::require("a period is of whole hours", words.query.from % 3600 == 0 && words.query.to % 3600 == 0);
    fuzz::require("a limit is kept", words.query.limit >= 1 && words.query.limit <= 10000);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    static Asked asked;
    if (size == 0)
        return 0;
    const std::string query(reinterpret_cast<const char*>(bytes + 1), size - 1);
    check_words(query);
    const std::string path = std::string("/api/") + paths[bytes[0] % std::size(paths)];
    const api::Answer answer = asked.api->answer("GET", path, query, {});
    fuzz::require("a status of the table", answer.status == 200 || answer.status == 400);
    const auto json = nlohmann::json::parse(answer.body, nullptr, false);
    fuzz::require("an answer is JSON", !json.is_discarded());
    fuzz::require("a refusal says why", (answer.status == 400) == json.contains("error"));
    return 0;
}
