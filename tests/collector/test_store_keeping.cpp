// What a store throws away, copies, and refuses to open.
// Labels: threads
#include "stores.h"

#include "store/sqlite/schema.h"
#include "store/writer.h"
#include "support/wait.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <sqlite3.h>

namespace test {

class StoreKeeping : public StoreContract
{
protected:
    void retain(const store::Retention& retention)
    {
        while (!value(m_spWriting->retain(retention)).finished) {
        }
    }
    uint64_t events() { return value(m_spReading->health({})).events; }
    std::string installations()
    {
        std::string text;
        for (const auto& row : value(m_spReading->installations({}, {})).rows)
            text += row.installation + " ";
        return text;
    }
};

TEST_P(StoreKeeping, DropsRawEventsButNeitherCountsNorWhatItKnows)
{
    const store::Seconds day = 86400, now = 20000 * day;
    std::string text;
    for (int i = 0; i < 10; ++i)
        text += event_line("n", "i", now - i * day, "{ \"k\": 1 }") + "\n";
    write(upload(text + "bad", 'B', 0, 0, "i", now * 1000));
    retain({(now - 4 * day) * 1000, std::nullopt});
    EXPECT_EQ(events(), 5u);
    EXPECT_EQ(value(m_spReading->summary({}, {})).events, 10u);
    EXPECT_EQ(value(m_spReading->properties({}, {})).rows.front().events, 10u);
    EXPECT_EQ(write(upload(text + "bad", 'B', 0, 0, "i", now * 1000)).known, 11u);

    retain({now * 1000 + 1, now * 1000 + 1});
    EXPECT_EQ(events(), 0u);
    EXPECT_EQ(value(m_spReading->health({})).rejects, 0u);
    EXPECT_EQ(value(m_spReading->summary({}, {})).events, 1u); // of the day that is not over
    EXPECT_EQ(write(upload(text, 'C', 0, 0, "i", now * 1000)).events, 10u);
}

TEST_P(StoreKeeping, GoesOnWhenTheClockIsSetBack)
{
    const store::Seconds now = 20000 * 86400, back = now - 86400;
    write(upload(event_line("a", "i", now), 'B', 0, 0, "i", now * 1000));
    const store::Cursor seen = value(m_spReading->end({}));
    write(upload(event_line("b", "i", now), 'C', 0, 0, "i", back * 1000));
    EXPECT_EQ(value(m_spReading->receipts({}, seen, {})).rows.at(0).name, "b");
    retain({now * 1000, std::nullopt}); // the age is the older of the two times
    EXPECT_EQ(value(m_spReading->receipts({}, {}, {})).rows.at(0).name, "a");
    EXPECT_EQ(events(), 1u);
}

TEST_P(StoreKeeping, ForgetsAnInstallationWithoutATrace)
{
    const std::string gone = "6f1c2a90-3b7e-4d25-9a61-0c4e8b7d2f13";
    // Enough of them that pages of the table of ids are split and moved.
    for (int batch = 0; batch < 3; ++batch) {
        std::string text;
        for (int i = 0; i < 300; ++i)
            text += event_line("n", i == 150 ? gone : gone.substr(0, 20) + std::to_string(i * 3 + batch)) + "\n";
        write(upload(text + "broken line of " + gone, static_cast<char>('A' + batch)));
    }
    write(upload(event_line("n", "other", 0, "{ \"user\": \"" + gone + "\" }"), '\0', 0, 0, gone));
    EXPECT_EQ(value(m_spWriting->forget(gone, std::chrono::seconds(5))), 6u);
    EXPECT_EQ(installations().find(gone), std::string::npos);
    EXPECT_EQ(write(upload(event_line("n", gone), 'Z')).events, 1u);
    store::Query query;
    query.installation = gone;
    EXPECT_EQ(value(m_spReading->installations(query, {})).rows.front().events, 1u);
    EXPECT_EQ(value(m_spWriting->forget(gone, std::chrono::seconds(5))), 1u);
    EXPECT_EQ(value(m_spWriting->forget("never seen", std::chrono::seconds(5))), 0u);
    query = {};
    query.limit = 10000;
    EXPECT_EQ(value(m_spReading->receipts(query, {}, {})).rows.back().installation, "other");
}

class StoreQueue : public StoreKeeping
{};

TEST_P(StoreQueue, WritesInGroupsByOneThread)
{
    store::Writer writer(std::move(m_spWriting));
    std::atomic<uint32_t> stored = 0;
    for (int i = 0; i < 500; ++i) {
        bool taken = writer.submit(
            upload(event_line("n" + std::to_string(i)), 'B', static_cast<uint32_t>(i)),
            [&](const store::Result<store::Receipt>& receipt) { stored += receipt ? receipt->events : 0; });
        EXPECT_TRUE(taken);
    }
    EXPECT_TRUE(support::wait_until([&] { return stored == 500u; }));
    writer.stop();
    EXPECT_EQ(writer.status().uploads, 500u);
    EXPECT_EQ(writer.status().queued_bytes, 0u);
    EXPECT_LT(writer.status().groups, 500u);
    EXPECT_FALSE(writer.submit(upload(""), {}));
    EXPECT_EQ(events(), 500u);
}

TEST_P(StoreQueue, RefusesUploadsPastTheQueuesLimit)
{
    store::WriterLimits limits;
    limits.uploads = 3;
    store::Writer writer(std::move(m_spWriting), limits);
    std::promise<void> go_on;
    writer.run([&](store::Writing&) { go_on.get_future().wait(); });
    std::atomic<int> answers = 0;
    int taken = 0;
    for (int i = 0; i < 6; ++i)
        taken += writer.submit(upload("bad", 'B', static_cast<uint32_t>(i)), [&](const auto&) { ++answers; });
    EXPECT_EQ(taken, 3);
    go_on.set_value();
    EXPECT_TRUE(support::wait_until([&] { return answers == 3; }));
}

// Stores what it is given, but says so only when the test lets it.
struct LateWriting : store::Writing
{
    explicit LateWriting(std::vector<std::function<void(const std::optional<store::Fault>&)>>& waiting)
        : m_waiting(waiting)
    {}
    store::Result<std::vector<store::Receipt>> write(std::span<const store::Upload* const>,
                                                     const store::GroupLimit&) override
    {
        return std::vector<store::Receipt>{{1, 0, 0, 0}};
    }
    void settle(size_t, std::function<void(const std::optional<store::Fault>&)> done) override
    {
        m_waiting.push_back(done);
    }
    store::Result<store::Progress> retain(const store::Retention&) override { return store::Progress(); }
    store::Result<uint64_t> forget(std::string_view, std::chrono::milliseconds) override { return uint64_t(0); }

    std::vector<std::function<void(const std::optional<store::Fault>&)>>& m_waiting;
};

TEST(Writer, AnswersWhenTheStoreSaysThatItIsSafe)
{
    std::vector<std::function<void(const std::optional<store::Fault>&)>> waiting;
    store::Writer writer(std::make_unique<LateWriting>(waiting));
    std::string answers;
    for (int i = 0; i < 2; ++i)
        writer.submit(upload("bad", 'B'), [&](const store::Result<store::Receipt>& receipt) {
            answers += receipt ? "stored " : receipt.fault().text;
        });
    writer.stop();
    EXPECT_EQ(writer.status().queued, 0u); // the next uploads need not wait for these answers
    EXPECT_EQ(writer.status().uploads, 0u);
    ASSERT_EQ(waiting.size(), 2u);
    waiting[1](std::nullopt);
    waiting[0](store::Fault{store::FaultKind::busy, "late"});
    EXPECT_EQ(answers, "stored late");
    EXPECT_EQ(writer.status().uploads, 1u);
    EXPECT_EQ(writer.status().fault->text, "late");
}

// What a cluster throws away it throws away for all collectors: that has tests of its own.
INSTANTIATE_TEST_SUITE_P(Stores, StoreKeeping, testing::Values(backends.front()),
                         [](const auto& row) { return std::string(row.param.name); });
INSTANTIATE_TEST_SUITE_P(Stores, StoreQueue, testing::ValuesIn(backends),
                         [](const auto& row) { return std::string(row.param.name); });

// From here on: what is SQLite's own.

class SqliteFile : public testing::Test
{
protected:
    static store::Result<std::unique_ptr<store::Store>> open(const std::string& path, store::Opening opening)
    {
        return store::open(path, {opening, std::chrono::milliseconds(50)});
    }
    static void run(const std::string& path, const char* statements)
    {
        sqlite3* database = nullptr;
        sqlite3_open(path.c_str(), &database);
        EXPECT_EQ(sqlite3_exec(database, statements, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }
    support::ScratchFolder m_folder;
};

TEST_F(SqliteFile, IsRefusedWithAReasonForEachFault)
{
    const std::string good = m_folder.file("good.db"), newer = m_folder.file("newer.db");
    auto serving = open(good, store::Opening::serve);
    ASSERT_TRUE(serving);
    ASSERT_TRUE(open(newer, store::Opening::create));
    run(newer, "PRAGMA user_version=99");
    run(m_folder.file("foreign.db"), "CREATE TABLE t(a)");
    support::write_file(m_folder.file("text.db"), std::string(5000, 'x'));
    support::write_file(m_folder.file("empty.db"), "");
    const struct
    {
        const char* file;
        store::Opening opening;
        store::FaultKind fault;
    } rows[] = {{"good.db", store::Opening::serve, store::FaultKind::in_use},
                {"newer.db", store::Opening::serve, store::FaultKind::newer},
                {"newer.db", store::Opening::use, store::FaultKind::newer},
                {"foreign.db", store::Opening::serve, store::FaultKind::foreign},
                {"text.db", store::Opening::serve, store::FaultKind::foreign},
                {"empty.db", store::Opening::use, store::FaultKind::other},
                {"none.db", store::Opening::use, store::FaultKind::missing},
                {"none/none.db", store::Opening::serve, store::FaultKind::missing},
                {"", store::Opening::use, store::FaultKind::foreign}};
    for (const auto& row : rows) {
        auto opened = open(m_folder.file(row.file), row.opening);
        EXPECT_FALSE(opened) << row.file;
        EXPECT_EQ(opened.fault().kind, row.fault) << row.file << ": " << opened.fault().text;
    }
    EXPECT_TRUE(open(good, store::Opening::use));
    EXPECT_FALSE(std::filesystem::exists(m_folder.file("none.db")));
}

TEST_F(SqliteFile, OfTheFirstSchemaIsBroughtUpToDate)
{
    const std::string path = m_folder.file("events.db");
    run(path, support::read_file(TEST_SOURCE_DIR "/tests/collector/schema_1.sql").c_str());
    auto opened = open(path, store::Opening::serve);
    ASSERT_TRUE(opened) << opened.fault().text;
    auto writing = std::move(*(*opened)->writing());
    auto reading = std::move(*(*opened)->reading());
    store::Summary all = value(reading->summary({}, {}));
    const std::array<uint64_t, 6> figures = {all.events, all.installations, all.versions,
                                             all.names,  all.rejects,       all.dropped};
    EXPECT_EQ(figures, (std::array<uint64_t, 6>{3, 2, 2, 3, 1, 2}));
    EXPECT_EQ(value(reading->facts({}, {})).rows.at(0).value.text, "x");
    EXPECT_EQ(value(reading->properties({}, {})).total, 3u);
    EXPECT_EQ(value(reading->timeline({}, {})).at(1).members, "{\"n\":2.5}");
    const std::string text = event_line("open", "two", 1795172400, "{ \"n\": 2.5 }", "app", "1.1") +
                             "\n[ 3, \"2026-11-21 11:00:00\", \"app\", \"1.1\", \"two\", null, { } ]\n";
    const store::Upload again[] = {upload("a\nb", 'B', 0, 0, "one"), upload(text, '\0', 0, 0, "one")};
    for (const store::Upload& known : again) {
        const store::Upload* group = &known;
        EXPECT_EQ(value(writing->write({&group, 1}, {})).at(0).known, 2u);
    }
}

TEST_F(SqliteFile, IsMigratedStepByStepOrNotAtAll)
{
    const struct
    {
        std::vector<const char*> steps;
        int64_t version; ///< afterwards
        std::string tables;
    } rows[] = {{{"CREATE TABLE a(x)"}, 1, "a"},
                {{"done already", "CREATE TABLE b(x)", "CREATE TABLE c(x)"}, 3, "abc"},
                {{"", "", "", "CREATE TABLE d(x)", "no SQL"}, 3, "abc"},
                {{"", ""}, 3, "abc"}};
    const std::string path = m_folder.file("events.db");
    support::write_file(path, "");
    for (const auto& row : rows) {
        store::sqlite::Database before, after;
        before.open(path, store::sqlite::Access::write, std::chrono::milliseconds(50));
        store::sqlite::migrate(before, row.steps);
        EXPECT_EQ(before.ok(), row.version == static_cast<int64_t>(row.steps.size()));
        after.open(path, store::sqlite::Access::read, std::chrono::milliseconds(50));
        EXPECT_EQ(after.number("PRAGMA user_version"), row.version);
        store::sqlite::Statement names(after, "SELECT group_concat(name, '') FROM sqlite_master");
        EXPECT_TRUE(names.step());
        EXPECT_EQ(names.text(0), row.tables);
    }
}

TEST_F(SqliteFile, IsBusyOnlyWhileAnotherHasIt)
{
    const std::string path = m_folder.file("events.db");
    auto opened = open(path, store::Opening::serve);
    auto writing = std::move(*(*opened)->writing());
    store::Upload one = upload(event_line("n"));
    const store::Upload* group = &one;
    sqlite3* other = nullptr;
    sqlite3_open(path.c_str(), &other);
    sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    EXPECT_EQ(writing->write({&group, 1}, {}).fault().kind, store::FaultKind::busy);
    sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    EXPECT_EQ(value(writing->write({&group, 1}, {})).front().events, 1u);
}

TEST_F(SqliteFile, HoldsNoByteOfAForgottenId)
{
    const std::string path = m_folder.file("events.db"), start = "6f1c2a90-3b7e-4d25-9a61-";
    auto opened = open(path, store::Opening::serve);
    auto writing = std::move(*(*opened)->writing());
    auto reading = std::move(*(*opened)->reading());
    // Enough ids that pages are split and rows moved, over and over.
    for (int batch = 0; batch < 4; ++batch) {
        std::string text;
        for (int i = 0; i < 500; ++i)
            text += event_line("n", start + std::to_string(10000 + batch * 7 + i * 31)) + "\nbroken " + start +
                    std::to_string(i) + "\n";
        store::Upload sent = upload(text, static_cast<char>('A' + batch), 0, 0, start + "10000");
        const store::Upload* group = &sent;
        value(writing->write({&group, 1}, {}));
    }
    for (int i : {0, 31, 310, 3100}) {
        const std::string gone = start + std::to_string(10000 + i);
        EXPECT_TRUE(writing->forget(gone, std::chrono::seconds(5)));
        for (const char* end : {"", "-wal"})
            EXPECT_EQ(support::read_file(path + end).find(gone), std::string::npos) << gone;
    }
    EXPECT_EQ(std::filesystem::file_size(path + "-wal"), 0u);
}

// A deletion beside a server must not give a forgotten id, which is still in the server's memory, to another
// installation.
TEST_F(SqliteFile, NoticesWhatAnotherProcessDeleted)
{
    const std::string path = m_folder.file("events.db");
    auto one = open(path, store::Opening::serve), two = open(path, store::Opening::use);
    auto server = std::move(*(*one)->writing()), command = std::move(*(*two)->writing());
    auto write = [](store::Writing& writing, const std::string& installation, char batch) {
        store::Upload sent = upload(event_line("n", installation), batch);
        const store::Upload* group = &sent;
        value(writing.write({&group, 1}, {}));
    };
    write(*server, "first", 'A');
    EXPECT_EQ(value(command->forget("first", std::chrono::seconds(5))), 1u);
    write(*command, "second", 'B');
    write(*server, "first", 'C');
    auto rows = value((*(*one)->reading())->installations({}, {})).rows;
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_NE(rows[0].installation, rows[1].installation);
}

TEST_F(SqliteFile, IsCopiedWhileItIsWritten)
{
    const std::string path = m_folder.file("events.db"), copy = m_folder.file("copy.db");
    auto opened = open(path, store::Opening::serve);
    auto writing = std::move(*(*opened)->writing());
    int steps = 0;
    auto add = [&](const store::Progress&) {
        store::Upload sent = upload(event_line("n"), 'B', static_cast<uint32_t>(steps++));
        const store::Upload* group = &sent;
        return static_cast<bool>(writing->write({&group, 1}, {}));
    };
    add({});
    ASSERT_TRUE((*opened)->backup(copy, add));
    EXPECT_EQ((*opened)->backup(copy, add).fault().kind, store::FaultKind::exists);
    EXPECT_FALSE((*opened)->backup(m_folder.file("given up.db"), [](const auto&) { return false; }));
    EXPECT_FALSE(std::filesystem::exists(m_folder.file("given up.db")));
    auto copied = open(copy, store::Opening::use);
    ASSERT_TRUE(copied) << copied.fault().text;
    EXPECT_EQ(value((*(*copied)->reading())->health({})).events, 1u);
}

} // namespace test
