#include "api.h"

#include "cluster_json.h"
#include "export.h"
#include "rows.h"
#include "words.h"

#include <chrono>
#include <future>

namespace api {

struct Api::State
{
    store::Store& store;
    std::unique_ptr<store::Reading> reading;
    store::Writer* writer;
    const Surroundings& surroundings;
};

namespace {

Answer sentence(int status, const std::string& text)
{
    Answer answer;
    answer.status = status;
    answer.body = Json('{').text("error", text).end('}');
    if (status == 503)
        answer.fields.emplace_back("Retry-After", "5");
    return answer;
}

/// What a store that gives no answer means to the one who asked.
Answer failed(const store::Fault& fault)
{
    return sentence(503, fault.kind == store::FaultKind::late ? "this question took too long; ask for less"
                                                              : "the store did not answer: " + fault.text);
}

Answer json(std::string text)
{
    Answer answer;
    answer.body = std::move(text);
    return answer;
}

template <class Row>
Answer table(const store::Result<store::Table<Row>>& result)
{
    return result ? json(table_of(result->total, result->rows)) : failed(result.fault());
}

template <class Row>
Answer list(const store::Result<std::vector<Row>>& result)
{
    return result ? json(table_of(result->size(), *result)) : failed(result.fault());
}

using Reading = store::Reading;
using Limit = store::Limit;

Json& add_counts(Json& json, const store::Query& query, const store::Summary& counts)
{
    return json.text("from", iso_time(query.from))
        .text("to", iso_time(query.to))
        .count("events", counts.events)
        .count("installations", counts.installations)
        .count("new_installations", counts.new_installations)
        .count("versions", counts.versions)
        .count("names", counts.names)
        .count("rejects", counts.rejects)
        .count("dropped", counts.dropped);
}

/// An answer that lacks a part of the store says so.
Answer with_missing(Answer answer, const std::vector<std::string>& missing)
{
    if (answer.status != 200 || missing.empty())
        return answer;
    Json list('[');
    for (const std::string& part : missing)
        list.element(quoted(part));
    answer.body.insert(answer.body.size() - 1, ",\"partial\":" + list.end(']'));
    return answer;
}

/// The period, and the one of the same length before it.
Answer summary(Reading& reading, const Words& words, const Limit& limit)
{
    store::Query before = words.query;
    before.from = words.query.from - (words.query.to - words.query.from);
    before.to = words.query.from;
    const auto now = reading.summary(words.query, limit);
    const auto then = now ? reading.summary(before, limit) : now;
    if (!then)
        return failed(then.fault());
    Json previous('{'), all('{');
    add_counts(previous, before, *then);
    add_counts(all, words.query, *now);
    return json(all.raw("previous", previous.end('}')).end('}'));
}

/// The values of all keys.
Answer properties(Reading& reading, const Words& words, const Limit& limit)
{
    return table(reading.properties(words.query, limit));
}

/// One key: its numbers, when it has any, and its most frequent values over time.
Answer property(Reading& reading, const Words& words, const Limit& limit)
{
    const auto numbers = reading.numbers(words.query, words.key, limit);
    if (!numbers)
        return failed(numbers.fault());
    const auto points = reading.property_series(words.query, words.key, words.step, limit);
    if (!points)
        return failed(points.fault());
    return json(Json('{')
                    .text("key", words.key)
                    .raw("numbers", numbers->count != 0 ? json_of(*numbers) : "null")
                    .raw("series", table_of(points->size(), *points))
                    .end('}'));
}

Answer funnel(Reading& reading, const Words& words, const Limit& limit)
{
    if (words.events.empty())
        return sentence(400, "a funnel takes one to five words event=NAME");
    const auto steps = reading.funnel(words.query, words.events, limit);
    if (!steps)
        return failed(steps.fault());
    Json rows('[');
    for (size_t i = 0; i < steps->size(); ++i)
        rows.element(Json('{').text("name", words.events[i]).count("installations", (*steps)[i]).end('}'));
    return json(Json('{').count("total", steps->size()).raw("rows", rows.end(']')).end('}'));
}

Answer timeline(Reading& reading, const Words& words, const Limit& limit)
{
    const auto rows = reading.timeline(words.query, limit);
    if (!rows)
        return failed(rows.fault());
    if (rows->size() < words.query.limit)
        return json(table_of(rows->size(), *rows));
    const auto all = reading.summary(words.query, limit);
    return all ? json(table_of(all->events, *rows)) : failed(all.fault());
}

struct Question
{
    std::string_view path;
    Answer (*ask)(Reading&, const Words&, const Limit&);
};

const Question questions[] = {
    {"/api/summary", summary},
    {"/api/series", [](Reading& reading, const Words& words,
                       const Limit& limit) { return list(reading.series(words.query, words.step, limit)); }},
    {"/api/names",
     [](Reading& reading, const Words& words, const Limit& limit) { return table(reading.names(words.query, limit)); }},
    {"/api/versions", [](Reading& reading, const Words& words,
                         const Limit& limit) { return table(reading.versions(words.query, limit)); }},
    {"/api/facts",
     [](Reading& reading, const Words& words, const Limit& limit) { return table(reading.facts(words.query, limit)); }},
    {"/api/properties", properties},
    {"/api/property", property},
    {"/api/installations", [](Reading& reading, const Words& words,
                              const Limit& limit) { return table(reading.installations(words.query, limit)); }},
    {"/api/timeline", timeline},
    {"/api/retention", [](Reading& reading, const Words& words,
                          const Limit& limit) { return list(reading.retention(words.query, limit)); }},
    {"/api/funnel", funnel},
    {"/api/rejects", [](Reading& reading, const Words& words,
                        const Limit& limit) { return table(reading.rejects(words.query, limit)); }},
};

Answer ask(const Question& question, Reading& reading, const Words& words, const Limit& limit)
{
    reading.take_missing(); // of a question that failed
    Answer answer = question.ask(reading, words, limit);
    return with_missing(std::move(answer), reading.take_missing());
}

std::string writer_json(const store::WriterStatus& status)
{
    return Json('{')
        .count("queued", status.queued)
        .count("queued_bytes", status.queued_bytes)
        .count("groups", status.groups)
        .count("failures", status.failures)
        .raw("fault", status.fault ? quoted(status.fault->text) : "null")
        .count("last_commit_us", static_cast<uint64_t>(status.last_commit.count()))
        .end('}');
}

Answer health(Reading& reading, const Surroundings& surroundings, const Limit& limit)
{
    const auto store = reading.health(limit);
    if (!store)
        return failed(store.fault());
    Json all('{');
    all.text("version", surroundings.version)
        .text("store", surroundings.store_address)
        .count("schema", static_cast<uint64_t>(store->schema))
        .count("events", store->events)
        .count("installations", store->installations)
        .count("rejects", store->rejects)
        .count("dropped", store->dropped)
        .count("uploads", store->uploads)
        .count("count_differs", store->count_differs)
        .count("bytes", store->bytes)
        .count("log_bytes", store->log_bytes)
        .raw("last_received_at", std::to_string(store->last_received_at))
        .raw("oldest_event", store->oldest_event ? quoted(iso_time(*store->oldest_event)) : "null");
    if (surroundings.writer)
        all.raw("writer", writer_json(surroundings.writer()));
    if (const auto cluster = surroundings.cluster ? surroundings.cluster() : std::nullopt)
        all.raw("cluster", json_of(*cluster));
    std::string text = all.end('}');
    if (surroundings.more_json)
        text.insert(text.size() - 1, "," + surroundings.more_json());
    return json(std::move(text));
}

/// Deletes an installation by the writer's thread, and waits for it: the answer says that it is done.
Answer forget(store::Writer* writer, const Words& words)
{
    if (!words.query.installation || words.query.installation->empty())
        return sentence(400, "say which: installation=ID");
    if (writer == nullptr)
        return sentence(503, "nothing can be deleted here");
    auto promise = std::make_shared<std::promise<store::Result<uint64_t>>>();
    auto done = promise->get_future();
    const bool queued = writer->run([promise, id = *words.query.installation](store::Writing& writing) {
        promise->set_value(writing.forget(id, std::chrono::seconds(10)));
    });
    if (!queued)
        return sentence(503, "the collector is leaving");
    const auto removed = done.get();
    return removed ? json(Json('{').count("removed", *removed).end('}')) : failed(removed.fault());
}

store::Seconds now()
{
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace

Api::Api(store::Store& store, std::unique_ptr<store::Reading> reading, store::Writer* writer,
         const Surroundings& surroundings)
    : m_state(new State{store, std::move(reading), writer, surroundings})
{}

Api::~Api() = default;

Answer Api::answer(std::string_view method, std::string_view path, std::string_view query, const store::Limit& limit)
{
    Words words;
    const std::string fault = read_words(query, words);
    const bool reads = method == "GET" || method == "HEAD";
    if (!fault.empty())
        return sentence(400, fault);
    if (path == "/api/installations" && method == "DELETE")
        return forget(m_state->writer, words);
    if (path == "/api/export" && reads)
        return export_of(m_state->store, words);
    round_period(words, now());
    for (const Question& question : questions)
        if (question.path == path)
            return reads ? ask(question, *m_state->reading, words, limit) : sentence(405, "this address is only read");
    if (path == "/api/health")
        return reads ? health(*m_state->reading, m_state->surroundings, limit)
                     : sentence(405, "this address is only read");
    return sentence(404, "there is no such question");
}

} // namespace api
