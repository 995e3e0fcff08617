// What writers in several processes do to one file, killed or not, is run in tests/system.
// Labels: threads
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
#include <thread>
#include <unistd.h>

#include "support/child.h"
#include "support/scratch.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::write_file;
using Written = OpenLog::Written;

namespace {

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
