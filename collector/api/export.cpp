#include "export.h"

#include "rows.h"

#include <stdexcept>

namespace api {

namespace {

constexpr size_t rows_at_once = 2000;

} // namespace

Export::Export(std::unique_ptr<store::Reading> reading, Words words)
    : m_reading(std::move(reading)), m_words(std::move(words))
{
    m_words.query.limit = rows_at_once;
}

// Pieces of the store in which nothing matches are passed over here: an empty piece would be taken for the end.
store::Result<std::string> Export::next()
{
    const bool csv = m_words.format == "csv";
    std::string text = csv && !m_begun ? csv_header() : "";
    m_begun = true;
    while (!m_ended && text.size() < 4096) {
        const auto receipts = m_reading->receipts(m_words.query, m_at, {});
        if (!receipts)
            return receipts.fault();
        for (const store::EventRow& row : receipts->rows)
            text += csv ? csv_of(row) : json_of(row) + "\n";
        m_at = receipts->next;
        m_ended = receipts->at_end;
    }
    return text;
}

Answer export_of(store::Store& store, const Words& words)
{
    Answer answer;
    auto reading = store.reading();
    if (!reading) {
        answer.status = 503;
        answer.body = Json('{').text("error", reading.fault().text).end('}');
        return answer;
    }
    const auto all = std::make_shared<Export>(std::move(*reading), words);
    answer.type = words.format == "csv" ? "text/csv; charset=utf-8" : "application/jsonl; charset=utf-8";
    answer.fields.emplace_back("Content-Disposition", "attachment; filename=\"events." + words.format + "\"");
    answer.more = [all] {
        auto piece = all->next();
        if (!piece)
            throw std::runtime_error(piece.fault().text); // the answer is cut: nobody takes it for whole
        return std::move(*piece);
    };
    return answer;
}

} // namespace api
