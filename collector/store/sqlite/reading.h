// The side of a SQLite store that answers questions, each in a transaction of its own.
#pragma once

#include "readers.h"
#include "tally.h"

#include "store/figures.h"

namespace store::sqlite {

class SqliteReading : public Reading
{
public:
    SqliteReading(const std::string& path, std::shared_ptr<Readers> readers);
    ~SqliteReading() override;

    Result<Summary> summary(const Query& query, const Limit& limit) override;
    Result<std::vector<Point>> series(const Query& query, Step step, const Limit& limit) override;
    Result<Table<NameRow>> names(const Query& query, const Limit& limit) override;
    Result<Table<VersionRow>> versions(const Query& query, const Limit& limit) override;
    Result<Table<FactRow>> facts(const Query& query, const Limit& limit) override;
    Result<Table<PropertyRow>> properties(const Query& query, const Limit& limit) override;
    Result<Numbers> numbers(const Query& query, std::string_view key, const Limit& limit) override;
    Result<std::vector<PropertyPoint>> property_series(const Query& query, std::string_view key, Step step,
                                                       const Limit& limit) override;
    Result<Table<InstallationRow>> installations(const Query& query, const Limit& limit) override;
    Result<std::vector<EventRow>> timeline(const Query& query, const Limit& limit) override;
    Result<std::vector<RetentionRow>> retention(const Query& query, const Limit& limit) override;
    Result<std::vector<uint64_t>> funnel(const Query& query, std::span<const std::string> names,
                                         const Limit& limit) override;
    Result<Table<RejectRow>> rejects(const Query& query, const Limit& limit) override;
    Result<Health> health(const Limit& limit) override;
    Result<Cursor> end(const Limit& limit) override;
    Result<Receipts> receipts(const Query& query, Cursor after, const Limit& limit) override;

private:
    /// Runs `answer` in a transaction, within the limit.
    template <class Answer>
    auto ask(const Limit& limit, Answer&& answer) -> Result<decltype(answer())>
    {
        m_database.set_limit(limit);
        m_database.begin_question();
        auto value = answer();
        m_database.end_question();
        if (!m_database.ok())
            return m_database.take_fault();
        return value;
    }

    std::string m_path;
    std::shared_ptr<Readers> m_spReaders;
    Database m_database;
};

} // namespace store::sqlite
