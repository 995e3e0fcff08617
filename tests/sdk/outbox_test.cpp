// The files of the outbox: their names, what a scan makes of a folder, splitting, limits, claims.
// Labels: threads
#include "Outbox.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
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

const std::string idA = "0198a0000000" + std::string(20, 'a'), idB = "0198a0000001" + std::string(20, 'b');

struct OutboxTest : testing::Test
{
    support::ScratchFolder folder;
    Outbox outbox{folder.file("log")};

    std::string path(const std::string& end) const { return folder.file("log." + end); }
    void put(const std::string& end, const std::string& text) const
    {
        write_file(path(end), text);
        chmod(path(end).c_str(), 0444);
    }
    std::unique_ptr<Batch> claim(const BatchName& name, BatchKind kind = BatchKind::batch) const
    {
        std::unique_ptr<Batch> batch;
        Batch::Claim(outbox.Log(), name, kind, 0, batch);
        return batch;
    }
    /// Every file of the folder and its text, in order.
    std::string all() const
    {
        std::set<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            if (entry.is_regular_file() && !entry.is_symlink())
                files.insert(entry.path().filename().string() + "=" + read_file(entry.path()));
        std::string text;
        for (const std::string& file : files)
            text += file + ";";
        return text;
    }
};

} // namespace

TEST_F(OutboxTest, FileNamesAreReadExactly)
{
    const struct
    {
        std::string file;
        bool read;
    } rows[] = {
        {"log." + idA + ".0.batch", true},
        {"log." + idA + ".18446744073709551615.dropped", true},
        {"log." + idA + ".7.tmp", true},
        {"log." + idA + ".18446744073709551616.batch", false},
        {"log." + idA + ".07.batch", false},
        {"log." + idA + ".-1.batch", false},
        {"log." + idA + "..batch", false},
        {"log." + idA + ".batch", false},
        {"log." + idA + ".0.batch~", false},
        {"log." + idA + ".0.BATCH", false},
        {"log." + idA + ".0.open", false},
        {"log." + idA + "a.0.batch", false},
        {"log." + idA.substr(1) + ".0.batch", false},
        {"log." + idA.substr(1) + "A.0.batch", false},
        {"log2." + idA + ".0.batch", false},
        {"log" + idA + ".0.batch", false},
        {"log.", false},
        {"log.open", false},
        {"", false},
    };
    for (const auto& row : rows) {
        const auto name = ReadFileName(row.file, "log");
        ASSERT_EQ(name.has_value(), row.read) << row.file;
        if (name) {
            EXPECT_EQ(FileOf("log", name->first, name->second), row.file);
        }
    }
}

TEST_F(OutboxTest, ScanOfAHostileFolderFindsItsOwnFilesOnly)
{
    for (int number = 0; number < 100'000; ++number)
        close(open(path(std::to_string(number)).c_str(), O_CREAT | O_WRONLY, 0600));
    put(idB + ".0.batch", "b\n");
    put(idA + ".10.batch", "a\n");
    put(idA + ".9.batch", "a\n");
    put(idA + ".20.dropped", "3\n");
    std::filesystem::create_symlink(path(idB + ".0.batch"), path(idB + ".1.batch"));
    std::filesystem::create_directory(path(idB + ".2.batch"));
    mkfifo(path(idB + ".3.batch").c_str(), 0600);
    if (getuid() == 0) {
        put(idB + ".4.batch", "somebody else's\n");
        ASSERT_EQ(chown(path(idB + ".4.batch").c_str(), 65534, 65534), 0);
    }
    for (const OutboxContents& found : {outbox.Scan(), outbox.Tidy()}) {
        ASSERT_EQ(found.batches.size(), 3u);
        EXPECT_EQ(found.batches[0].name, (BatchName{idA, 9})); // by number, not by its digits
        EXPECT_EQ(found.batches[2].name, (BatchName{idB, 0}));
        EXPECT_EQ(found.dropped, (std::vector<BatchName>{{idA, 20}}));
        EXPECT_EQ(found.Bytes(), 6u);
    }
}

TEST_F(OutboxTest, TidyPutsInOrderWhatACrashLeaves)
{
    put(idA + ".0.tmp", "half");
    put(idA + ".1.batch", "");
    put(idA + ".2.batch", "dropped\n");
    put(idA + ".2.dropped", "1\n");
    put(idA + ".3.batch", "kept\n");
    put(idA + ".3.dropped", "one\n");
    put(idA + ".4.dropped", "5"); // cut
    put(idB + ".0.tmp", "in the making");
    const auto made = claim({idB, 0}, BatchKind::temporary);
    outbox.Tidy();
    EXPECT_EQ(all(),
              "log." + idA + ".2.dropped=1\n;log." + idA + ".3.batch=kept\n;log." + idB + ".0.tmp=in the making;");
}

TEST_F(OutboxTest, FinishesTheSealingThatWasBegun)
{
    const struct
    {
        const char* text;
        mode_t mode;
        size_t batches;
    } rows[] = {{"line\n", 0644, 1}, {"begun\n", 0444, 1}, {"", 0644, 0}, {"", 0444, 1}};
    for (const auto& row : rows)
        for (const bool isOpen : {true, false}) {
            const std::string file = isOpen ? outbox.OpenPath() : outbox.Log();
            write_file(file, row.text);
            chmod(file.c_str(), row.mode);
            if (isOpen)
                outbox.SealOpen(0);
            else
                outbox.TakeOver(); // which leaves an empty one alone
            const auto found = outbox.Scan().batches;
            ASSERT_EQ(found.size(), isOpen || *row.text ? row.batches : 0) << row.text << row.mode;
            EXPECT_EQ(std::filesystem::exists(file), found.empty());
            std::filesystem::remove(file);
            for (const auto& batch : found) {
                EXPECT_EQ(read_file(FileOf(outbox.Log(), batch.name, BatchKind::batch)), row.text);
                std::filesystem::remove(FileOf(outbox.Log(), batch.name, BatchKind::batch));
            }
        }
}

TEST_F(OutboxTest, CountsAsSealedWhatAnotherSealsDuringTheWait)
{
    write_file(outbox.OpenPath(), "line\n");
    HeldFile other;
    struct stat now;
    ASSERT_TRUE(other.Open(outbox.OpenPath(), O_RDONLY) && other.Look(now));
    ASSERT_EQ(other.TryLock(), HeldFile::Lock::held);
    bool sealed = false;
    std::thread sealer([&] { sealed = outbox.SealOpen(60'000); });
    const auto has_opened = [&] {
        int handles = 0;
        std::error_code closed; // a descriptor may go while it is looked at
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            handles += std::filesystem::read_symlink(entry, closed) == outbox.OpenPath();
        return handles == 2;
    };
    EXPECT_TRUE(support::wait_until(has_opened));
    EXPECT_TRUE(SealHeld(other, now, outbox.OpenPath(), outbox.Log())); // and holds it as for a request
    sealer.join();
    EXPECT_TRUE(sealed);
    EXPECT_EQ(outbox.Scan().batches.size(), 1u);
}

TEST_F(OutboxTest, SplitsAtTheLineEndNearestBelowHalf)
{
    const struct
    {
        std::string text, first;
        uint64_t second; ///< number of its first line; 0: cannot be split
    } rows[] = {
        {"aaaa\nbbbb\n", "aaaa\n", 6},
        {"aaaa\nbbbb", "aaaa\n", 6},
        {"aaaaaaaa\nb\nc\n", "aaaaaaaa\n", 6},
        {"a\nb\ncccccccc\n", "a\nb\n", 7},
        {"one line only\n", "", 0},
        {"\n\n\n\na\n\n\n\n", "", 0},
        {"\n\n\n\n\n\na\nb\n", "\n\n\n\n\n\na\n", 6},
        {" \nb\n\n\n\n\n\n", " \n", 6},
        {std::string(100'000, 'x') + "\ny\n" + std::string(90'000, 'z'), std::string(100'000, 'x') + "\n", 6},
    };
    for (const auto& row : rows) {
        put(idA + ".5.batch", row.text);
        const auto batch = claim({idA, 5});
        const auto halves = batch->Halves(batch->Whole());
        ASSERT_EQ(halves.has_value(), row.second != 0) << row.text;
        if (!halves)
            continue;
        ASSERT_EQ(batch->Split(*halves), (BatchName{idA, row.second})) << row.text;
        const std::string second = path(idA + "." + std::to_string(row.second) + ".batch");
        EXPECT_EQ(read_file(path(idA + ".5.batch")), row.first);
        EXPECT_EQ(read_file(path(idA + ".5.batch")) + read_file(second), row.text);
        EXPECT_FALSE(claim({idA, 5})) << "the first half stays claimed";
        EXPECT_TRUE(batch->Delete());
        std::filesystem::remove(second);
    }
    EXPECT_EQ(all(), "");
}

TEST_F(OutboxTest, LimitsDropTheOldest)
{
    const BatchName young{BatchName::NewId(), 0}, future{"f" + idA.substr(1), 0}, ancient{std::string(32, '0'), 0};
    for (const auto& name : {BatchName{idA, 0}, BatchName{idA, 2}, BatchName{idB, 0}, young, future, ancient})
        put(name.id + "." + std::to_string(name.first) + ".batch", "l\n\nm\n");
    uint64_t lost = 0;
    const auto limit = [&](uint64_t bytes, int64_t age_ms) {
        auto contents = outbox.Tidy();
        outbox.KeepLimits(contents, {bytes, age_ms}, [&](uint64_t lines) { lost += lines; });
        return contents;
    };
    const auto held = claim({idA, 0});
    EXPECT_EQ(limit(100, 1000).batches.size(), 4u) << "the held one, the young, and two whose clocks were wrong";
    EXPECT_EQ(lost, 4u);
    EXPECT_EQ(read_file(path(idB + ".0.dropped")), "2\n");
    const auto contents = limit(10, 10'000'000'000'000);
    EXPECT_EQ(lost, 8u);
    EXPECT_EQ(contents.batches.size(), 2u);
    EXPECT_EQ(contents.dropped, (std::vector<BatchName>{ancient, {idA, 2}, {idB, 0}, young}));
    for (int told = 4; told < 1000; ++told)
        put(idB + "." + std::to_string(told) + ".dropped", "1\n");
    put(idA + ".4.batch", "l\n\nm\n");
    EXPECT_EQ(limit(10, 10'000'000'000'000).dropped.size(), 1000u);
    EXPECT_EQ(lost, 10u) << "past a thousand numbers a batch goes without one";
    EXPECT_FALSE(std::filesystem::exists(path(idA + ".4.batch")));
}

TEST_F(OutboxTest, AClaimEndsWithItsProcessEvenIfAChildLivesOn)
{
    put(idA + ".0.batch", "line\n");
    int lives[2];
    ASSERT_EQ(pipe(lives), 0);
    support::Child holder([&] {
        const auto batch = claim({idA, 0});
        if (fork() == 0) {
            char none;
            close(lives[1]);
            _exit(static_cast<int>(read(lives[0], &none, 1))); // until the test ends
        }
        return batch ? 0 : 1;
    });
    ASSERT_TRUE(holder.wait());
    EXPECT_EQ(holder.status(), 0);
    std::unique_ptr<Batch> batch, second;
    EXPECT_EQ(Batch::Claim(outbox.Log(), {idA, 0}, BatchKind::batch, 0, batch), Batch::Claimed::yes);
    EXPECT_EQ(Batch::Claim(outbox.Log(), {idA, 0}, BatchKind::batch, 0, second), Batch::Claimed::busy);
    EXPECT_TRUE(batch->Delete());
    EXPECT_EQ(Batch::Claim(outbox.Log(), {idA, 0}, BatchKind::batch, 0, second), Batch::Claimed::gone);
    close(lives[0]);
    close(lives[1]);
}
