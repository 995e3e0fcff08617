// Which batch is next and what an answer does to it, with made-up answers and real files.
#include "Cycle.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "support/child.h"
#include "support/scratch.h"
#include "support/wait.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::write_file;

namespace {

Answer answer(long status, int64_t retryAfter_ms = 0)
{
    return {.status = status, .bodySent = true, .connected = true, .retryAfter_ms = retryAfter_ms};
}

/// A batch's id: one of letters stands for all its digits.
std::string id_of(char letter)
{
    return "0198a000000" + std::string(21, letter);
}

struct CycleTest : testing::Test
{
    support::ScratchFolder folder;
    Options options;
    Outbox outbox{folder.file("log")};
    Ledger ledger{options};
    std::string sent; ///< "a0+2 b0+1": batch, first line, number of lines; "z" behind when compressed, "-" for dropped
    CycleOutcome outcome;

    CycleTest()
    {
        options.Set(Option::retry_first_ms, "10");
        options.Set(Option::retry_most_ms, "86400000");
        options.Set(Option::outbox_days, "3650"); // the ids are old
    }
    std::string path(char letter, uint64_t first = 0, BatchKind kind = BatchKind::batch) const
    {
        return FileOf(outbox.Log(), {id_of(letter), first}, kind);
    }
    void put(const std::string& batches, const std::string& text = "1\n2\n") const
    {
        for (const char letter : batches)
            write_file(path(letter), text);
    }
    /// Runs a cycle in which the server answers so, and 200 afterwards.
    std::string run(std::vector<Answer> answers, bool asked = false)
    {
        sent.clear();
        Cycle cycle(outbox, options, ledger, {.asked = asked});
        outcome = cycle.Run([&](const BatchRequest& request) {
            sent += (sent.empty() ? "" : " ") + request.id.substr(31) + std::to_string(request.first) +
                    (request.dropped ? "-" + std::to_string(request.dropped) : "+" + std::to_string(request.lines)) +
                    (request.compressed ? "z" : "");
            const Answer next = answers.empty() ? answer(200) : answers.front();
            if (!answers.empty())
                answers.erase(answers.begin());
            return next;
        });
        return sent;
    }
    /// In a process that may not read or write everything; skips where root cannot become somebody else.
    void asOrdinaryUser(const std::function<bool()>& holds) const
    {
        support::Child child([&] {
            const auto give = [](const std::string& file) {
                return chown(file.c_str(), 65534, 65534) == 0 || errno == ENOENT;
            };
            if (getuid() == 0 && (!give(folder.path()) || !give(path('a')) || !give(path('b')) || setgid(65534) != 0 ||
                                  setuid(65534) != 0))
                return 77;
            return holds() ? 0 : 1;
        });
        ASSERT_TRUE(child.wait());
        if (child.status() == 77)
            GTEST_SKIP() << "root that may not become somebody else";
        EXPECT_EQ(child.status(), 0);
    }
    std::string left() const
    {
        std::string names;
        for (const auto& batch : outbox.Scan().batches)
            names += batch.name.id.back() + std::to_string(batch.name.first) + " ";
        return names;
    }
};

} // namespace

TEST_F(CycleTest, AnswersDecideWhatBecomesOfABatch)
{
    const Answer none{.connected = true}, unreachable{}, cut{.status = 200, .connected = true};
    const struct
    {
        const char* what;
        std::vector<Answer> answers;
        const char *first, *second; ///< what two cycles send
        bool asked = false, allTaken = false;
    } rows[] = {
        {"taken", {answer(204)}, "a0+2 b0+2 c0+2", "", false, true},
        {"answered before all was sent", {cut}, "a0+2", "b0+2 c0+2 a0+2"},
        {"busy", {answer(200), answer(503)}, "a0+2 b0+2", "c0+2 b0+2"},
        {"too many", {answer(429)}, "a0+2", "b0+2 c0+2 a0+2"},
        {"time-out of the server", {answer(408)}, "a0+2", "b0+2 c0+2 a0+2"},
        {"too early", {answer(425)}, "a0+2", "b0+2 c0+2 a0+2"},
        {"silent", {none}, "a0+2", "b0+2 c0+2 a0+2"},
        {"unreachable", {unreachable}, "a0+2", "b0+2 c0+2 a0+2"},
        {"refused once", {answer(403)}, "a0+2 b0+2 c0+2", ""},
        {"refused twice", {answer(403), answer(403)}, "a0+2 b0+2", "c0+2"},
        {"refused for different reasons", {answer(403), answer(400), answer(403)}, "a0+2 b0+2 c0+2", ""},
        {"refused, asked again", {answer(303)}, "a0+2 b0+2 c0+2", "a0+2", true},
        {"small and too large", {answer(413)}, "a0+2 b0+2 c0+2", ""},
        {"asked to wait", {answer(503, 60'000)}, "a0+2", ""},
        {"refused and asked to wait", {answer(404, 60'000)}, "a0+2", ""},
    };
    for (const auto& row : rows) {
        support::ScratchFolder fresh;
        Outbox here(fresh.file("log"));
        for (const char letter : {'a', 'b', 'c'})
            write_file(FileOf(here.Log(), {id_of(letter), 0}, BatchKind::batch), "1\n2\n");
        Ledger book(options);
        std::vector<Answer> answers = row.answers;
        for (const char* expected : {row.first, row.second}) {
            std::string requests;
            Cycle cycle(here, options, book, {.asked = row.asked});
            const CycleOutcome end = cycle.Run([&](const BatchRequest& request) {
                requests += (requests.empty() ? "" : " ") + request.id.substr(31) + std::to_string(request.first) +
                            "+" + std::to_string(request.lines);
                const Answer next = answers.empty() ? answer(200) : answers.front();
                if (!answers.empty())
                    answers.erase(answers.begin());
                return next;
            });
            EXPECT_EQ(requests, expected) << row.what;
            if (expected == row.first) {
                EXPECT_EQ(end.allTaken, row.allTaken) << row.what;
            }
        }
    }
}

TEST_F(CycleTest, WhatIsTooLargeIsSplitUntilItFitsOrDropped)
{
    const std::string line(3000, 'x');
    put("a", line + "\n" + line + "\n" + line + "\n" + std::string(5000, 'y') + "\n");
    EXPECT_EQ(run({answer(413), answer(200), answer(413), answer(200), answer(413)}), "a0+4 a0+2 a2+2 a2+1 a3+1 a3-1");
    EXPECT_EQ(left(), "");
    EXPECT_EQ(ledger.figures.delivered, 3u);
    EXPECT_EQ(ledger.figures.dropped, 1u);
    EXPECT_EQ(ledger.figures.failuresInARow, 0u);
}

TEST_F(CycleTest, AFileAboveItsLimitIsSplitBeforeItIsSent)
{
    options.Set(Option::batch_bytes, "4096");
    std::string text;
    for (int number = 0; number < 100; ++number)
        text += std::string(100, 'l') + "\n";
    put("a", text);
    EXPECT_EQ(run({}), "a0+25 a25+25 a50+25 a75+25");
}

TEST_F(CycleTest, ThreeSilencesInARowSplitABatchOrSetASingleLineBehind)
{
    const Answer none{.connected = true}, unreachable{}, ended{.connected = true, .endedHere = true};
    put("a", std::string(3000, 'x') + "\n" + std::string(3000, 'y') + "\n");
    put("b", std::string(9000, 'z') + "\n");
    for (int round = 0; round < 3; ++round) { // what the session ends, and a server that is not there, do not count
        EXPECT_EQ(run({ended}), round == 0 ? "a0+2" : "a0+2");
        EXPECT_EQ(run({unreachable}), "a0+2");
        EXPECT_EQ(run({none}), "b0+1");
    }
    EXPECT_EQ(run({none}), "a0+2"); // b is set behind
    EXPECT_EQ(run({none}), "a0+2");
    EXPECT_EQ(run({none}), "a0+2");
    EXPECT_EQ(run({}), "a1+1 a0+1");
    EXPECT_EQ(left(), "b0 ");
}

TEST_F(CycleTest, SendsPlainToAServerThatRefusesPackedBodies)
{
    options.Set(Option::compress, "gzip");
    put("abc");
    EXPECT_EQ(run({answer(415), answer(503)}), "a0+2z a0+2") << "that it takes plain ones is not known yet";
    EXPECT_EQ(run({answer(200), answer(400), answer(200)}), "b0+2z c0+2z c0+2 a0+2");
}

TEST_F(CycleTest, TellsWhatWasDroppedAfterAllBatches)
{
    put("b");
    write_file(path('a', 3, BatchKind::dropped), "7\n");
    write_file(path('c', 0, BatchKind::dropped), "1\n");
    EXPECT_EQ(run({answer(503), answer(503), answer(404)}), "b0+2 a3-7 c0-1");
    EXPECT_EQ(run({answer(200), answer(503)}), "b0+2 a3-7 c0-1");
    EXPECT_TRUE(outcome.allTaken);
    EXPECT_EQ(run({}), "a3-7");
    EXPECT_EQ(run({}), "");
}

TEST_F(CycleTest, WhoAsksWaitsForWhatOthersHaveClaimed)
{
    options.Set(Option::request_ms, "100");
    put("ab");
    std::unique_ptr<Batch> held;
    ASSERT_EQ(Batch::Claim(outbox.Log(), {id_of('a'), 0}, BatchKind::batch, 0, held), Batch::Claimed::yes);
    EXPECT_EQ(run({}), "b0+2");
    EXPECT_TRUE(outcome.allTaken) << "a planned cycle leaves it to them";
    EXPECT_EQ(run({}, true), "");
    EXPECT_FALSE(outcome.allTaken);
    options.Set(Option::request_ms, "30000");
    std::thread other([&] {
        held->Split(*held->Halves(held->Whole()));
        held->Delete();
        held.reset();
    });
    EXPECT_EQ(run({}, true), "a1+1");
    other.join();
    EXPECT_TRUE(outcome.allTaken);
}

TEST_F(CycleTest, WithoutAPlaceToWriteItSendsPartsOnce)
{
    put("a", std::string(5000, 'x') + "\n" + std::string(5000, 'y') + "\n");
    asOrdinaryUser([&] {
        chmod(folder.path().c_str(), 0555);
        const std::string first = run({answer(413)}), second = run({});
        chmod(folder.path().c_str(), 0755);
        const std::string third = run({});
        return first == "a0+2 a0+1 a1+1" && second.empty() && third.empty() && left().empty();
    });
}

TEST_F(CycleTest, ABatchThatCannotBeReadIsKeptAndNamed)
{
    put("ab");
    asOrdinaryUser([&] {
        chmod(path('a').c_str(), 0);
        for (const bool asked : {false, true}) // and a host that asks does not wait for it
            if (run({}, asked) != (asked ? "" : "b0+2") || outcome.allTaken ||
                ledger.LastError().find("Permission denied") == std::string::npos)
                return false;
        chmod(path('a').c_str(), 0200); // now as a file that is written to, which its owner may not read
        std::filesystem::rename(path('a'), outbox.OpenPath());
        return run({}).size() == 4 && outcome.allTaken;
    });
}

TEST_F(CycleTest, WaitsGrowUntilASuccess)
{
    options.Set(Option::retry_first_ms, "1000");
    options.Set(Option::retry_most_ms, "3000");
    for (const int64_t limit : {1000, 2000, 3000, 3000, 0, 1000}) {
        const auto now = DeliveryClock::now();
        if (limit == 0) {
            ledger.Succeed();
            continue;
        }
        ledger.BackOff();
        const auto wait = ledger.BackOffEnd() - now;
        EXPECT_GE(wait, std::chrono::milliseconds(limit / 2));
        EXPECT_LE(wait, std::chrono::milliseconds(limit + 1000));
    }
}

TEST(RetryAfter, IsSecondsOrADateCountedFromTheAnswersOwn)
{
    const char* const noon = "Sun, 06 Nov 1994 12:00:00 GMT";
    const struct
    {
        const char *value, *date;
        int64_t expected_ms;
    } rows[] = {
        {"7", "", 7000},
        {"0", "", 0},
        {"86401", "", 86'400'000},
        {"99999999999999999999999", "", 86'400'000},
        {"-1", "", 0},
        {"soon", "", 0},
        {"", "", 0},
        {"Sun, 06 Nov 1994 12:01:00 GMT", noon, 60'000},
        {"Sun, 06 Nov 1994 11:00:00 GMT", noon, 0},
        {"Sun, 06 Nov 2094 12:00:00 GMT", "", 86'400'000},
    };
    for (const auto& row : rows)
        EXPECT_EQ(RetryAfter_ms(row.value, row.date), row.expected_ms) << row.value;
}
