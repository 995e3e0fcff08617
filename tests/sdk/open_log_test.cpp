// What writers in several processes do to one file, killed or not, is run in tests/system.
// Labels: threads
#include "Cycle.h"
#include "OpenLog.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "support/child.h"
#include "support/scratch.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::write_file;
using Written = OpenLog::Written;

namespace {

/// What this program's flock() answers instead of locking; 0: it locks.
std::atomic<int> flock_error{0};
std::atomic<int> syncs{0};

struct OpenLogTest : testing::Test
{
    support::ScratchFolder folder;
    Options options;
    Outbox outbox{folder.file("log")};
    OpenLog log{outbox, options};
    std::string open = folder.file("log.open");

    /// The batches' texts in order of the alphabet, and what is open.
    std::string all() const
    {
        std::set<std::string> batches;
        for (const auto& batch : outbox.Scan().batches)
            batches.insert("(" + read_file(FileOf(outbox.Log(), batch.name, BatchKind::batch)) + ")");
        std::string text;
        for (const std::string& batch : batches)
            text += batch;
        return text + read_file(open);
    }
};

} // namespace

// In place of the system's, for the whole program.
extern "C" int flock(int file, int operation) noexcept
{
    if (flock_error == 0)
        return static_cast<int>(syscall(SYS_flock, file, operation));
    errno = flock_error;
    return -1;
}

extern "C" int fsync(int file)
{
    ++syncs;
    return static_cast<int>(syscall(SYS_fsync, file));
}

TEST_F(OpenLogTest, SealsBeforeTheLineThatWouldMakeTheFileTooLarge)
{
    options.Set(Option::batch_bytes, "4096");
    const std::string line(2047, 'x'), longLine(9000, 'y');
    EXPECT_EQ(log.Append(line + "\n"), Written::yes);
    EXPECT_EQ(log.Append(line + "\n"), Written::yes);
    EXPECT_EQ(log.Append("z\n"), Written::andSealed);
    EXPECT_EQ(log.Append(longLine + "\n"), Written::andSealed);
    EXPECT_TRUE(all() == "(" + line + "\n" + line + "\n)(z\n)" + longLine + "\n") << outbox.Scan().batches.size();
}

TEST_F(OpenLogTest, FollowsTheFileWhateverOthersDoWithIt)
{
    const Outbox otherOutbox{folder.file("other")};
    OpenLog other(otherOutbox, options);
    const auto number = [&] {
        struct stat file, mine;
        int found = 3;
        stat(open.c_str(), &mine);
        while (found < 64 && (fstat(found, &file) != 0 || file.st_ino != mine.st_ino))
            ++found;
        return found;
    };
    const struct
    {
        const char* what;
        std::function<void()> change;
        std::string expected;
    } rows[] = {
        {"sealed", [&] { outbox.SealOpen(0); }, "(1\n)2\n"},
        {"sealed by one that died", [&] { chmod(open.c_str(), 0444); }, "(1\n)2\n"},
        {"deleted", [&] { std::filesystem::remove(open); }, "2\n"},
        {"torn", [&] { write_file(open, "1\nto"); }, "1\nto\n2\n"},
        {"its number used by the host",
         [&] { dup2(::open(folder.file("host").c_str(), O_CREAT | O_RDWR, 0600), number()); }, "1\n2\n"},
        {"its number used by another log of ours",
         [&] {
             close(number());
             other.Append("other\n");
         },
         "1\n2\n"},
    };
    for (const auto& row : rows) {
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            std::filesystem::remove(entry);
        EXPECT_EQ(log.Append("1\n"), Written::yes) << row.what;
        row.change();
        EXPECT_EQ(log.Append("2\n"), Written::yes) << row.what;
        EXPECT_EQ(all(), row.expected) << row.what;
        EXPECT_EQ(read_file(folder.file("host")), "") << row.what;
    }
    EXPECT_TRUE(otherOutbox.SealOpen(0)) << "the other log's file was left locked";
}

TEST_F(OpenLogTest, WritesABatchOfItsOwnWhereTheFileCannotBeHad)
{
    const auto start = std::chrono::steady_clock::now();
    log.Append("1\n");
    const int other = ::open(open.c_str(), O_RDWR);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    EXPECT_EQ(log.Append("2\n"), Written::andSealed); // after its patience
    EXPECT_EQ(log.Append("3\n"), Written::andSealed); // at once
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    close(other);
    EXPECT_EQ(log.Append("4\n"), Written::yes);
    EXPECT_EQ(all(), "(2\n)(3\n)1\n4\n");
    std::filesystem::remove(open);
    std::filesystem::create_directory(open);
    EXPECT_EQ(log.Append("5\n"), Written::andSealed);
}

TEST_F(OpenLogTest, ForcesOntoTheDiskWhatTheOptionSays)
{
    const struct
    {
        const char* sync;
        int events, batch, aside; // calls of fsync() for two events, for their batch, for an event in its own batch
    } rows[] = {{"none", 0, 0, 0}, {"batch", 0, 1, 1}, {"event", 2, 0, 1}};
    for (const auto& row : rows) {
        Ledger ledger(options);
        options.Set(Option::sync, row.sync);
        const auto counted = [](int before) { return syncs - before; };
        int before = syncs;
        log.Append("1\n");
        log.Append("2\n");
        EXPECT_EQ(counted(before), row.events) << row.sync;
        before = syncs;
        EXPECT_TRUE(outbox.SealOpen(0));
        KeepInOrder(outbox, options, ledger);
        EXPECT_EQ(counted(before), row.batch) << row.sync;
        before = syncs;
        std::filesystem::create_directory(open);
        log.Append("3\n");
        EXPECT_EQ(counted(before), row.aside) << row.sync;
        outbox.DeleteAll();
        std::filesystem::remove(open);
    }
}

TEST_F(OpenLogTest, WorksWhereTheFileSystemHasNoLocks)
{
    for (const int error : {EBADF, ENOLCK, EOPNOTSUPP}) {
        flock_error = error;
        EXPECT_EQ(log.Append("1\n"), Written::yes) << error;
        EXPECT_EQ(log.Append("2\n"), Written::yes) << error;
        EXPECT_TRUE(outbox.SealOpen(0)) << error;
        EXPECT_EQ(log.Append("3\n"), Written::yes) << error;
        EXPECT_EQ(all(), "(1\n2\n)3\n") << error;
        std::unique_ptr<Batch> batch;
        Batch::Claim(outbox.Log(), outbox.Scan().batches[0].name, BatchKind::batch, 0, batch);
        EXPECT_TRUE(batch && batch->Delete()) << error;
        outbox.DeleteAll();
        flock_error = 0;
    }
}

TEST_F(OpenLogTest, TellsWhichEventsCouldNotBeWritten)
{
    for (const std::string& path : {std::string(), folder.path().string(), folder.file("missing/log")}) {
        const Outbox bad(path);
        EXPECT_EQ(OpenLog(bad, options).Append("lost\n"), Written::no) << path;
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(OpenLogTest, IsOpenedAnewInAChildForkedWhileOthersAppend)
{
    std::atomic<bool> done{false};
    std::thread writer([&] {
        while (!done)
            log.Append("parent\n");
    });
    for (int round = 0; round < 30; ++round) {
        support::Child child([&] { return log.Append("child\n") == Written::no; });
        EXPECT_TRUE(child.wait());
        EXPECT_EQ(child.status(), 0);
    }
    done = true;
    writer.join();
    outbox.SealOpen(1000);
    int children = 0;
    for (const auto& batch : outbox.Scan().batches)
        for (const std::string& line :
             support::split_lines(read_file(FileOf(outbox.Log(), batch.name, BatchKind::batch))))
            children += line == "child";
    EXPECT_EQ(children, 30);
}
