#include "EventLog.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "AnalyticsSDK/EventManager.h"
#include "support/child.h"
#include "support/scratch.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::ScratchFolder;
using support::write_file;

namespace {

std::string NumberedLine(int writer, int number, size_t padding = 0)
{
    return std::to_string(writer) + ' ' + std::to_string(number) + ' ' + std::string(padding, 'x') + '\n';
}

/// Every line is whole and each writer's lines come in order, without a gap, up to `count`.
void ExpectEveryLine(const std::string& text, int writers, int count)
{
    std::vector<int> next(static_cast<size_t>(writers), 0);
    for (const std::string& line : support::split_lines(text)) {
        size_t writer = 0;
        int number = -1;
        ASSERT_EQ(sscanf(line.c_str(), "%zu %d x", &writer, &number), 2) << line;
        ASSERT_LT(writer, next.size());
        ASSERT_EQ(number, next[writer]++) << "writer " << writer;
    }
    for (int lines : next)
        EXPECT_EQ(lines, count);
    EXPECT_EQ(text.back(), '\n');
}

constexpr int notAllowed = 77;

void SkipWhenNotAllowed(const support::Child& child)
{
    if (child.status() == notAllowed)
        GTEST_SKIP() << "this user may not mount a file system of its own";
    EXPECT_EQ(child.status(), 0) << child.errors();
}

/// In a child: a file system of 64 KB at `folder`, seen by this process alone.
bool MountSmallDisk(const std::filesystem::path& folder)
{
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k") == 0;
}

/// In a child: no file may grow beyond `size` bytes; a write over that border is cut there.
void LimitFiles(rlim_t size)
{
    const rlimit limit{size, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
}

} // namespace

TEST(EventLogFile, ClosesOffATailThatSomebodyLeft)
{
    const struct
    {
        const char* before;
        const char* after;
    } cases[] = {{"", "new\n"}, {"old\n", "old\nnew\n"}, {"torn", "torn\nnew\n"}, {"old\nto", "old\nto\nnew\n"}};
    for (const auto& c : cases) {
        ScratchFolder folder;
        write_file(folder.file("log"), c.before);
        EventLog::Append(folder.file("log"), "new\n");
        EXPECT_EQ(read_file(folder.file("log")), c.after);
        // Also when the tail appears after an append of our own.
        std::ofstream(folder.file("log"), std::ios::app) << "torn";
        EventLog::Append(folder.file("log"), "newer\n");
        EXPECT_EQ(read_file(folder.file("log")), std::string(c.after) + "torn\nnewer\n");
    }
}

TEST(EventLogFile, LosesTheLineAndNothingElseWhenItCannotBeOpened)
{
    ScratchFolder folder;
    std::filesystem::create_directory(folder.file("directory"));
    for (const std::string& path : {std::string(), folder.file("missing/log"), folder.file("directory"),
                                    std::string("/dev/full"), folder.file(std::string(300, 'n'))}) {
        EventLog::Append(path, "line\n");
        std::error_code unnameable;
        EXPECT_FALSE(std::filesystem::is_regular_file(path, unnameable)) << path;
    }
    EventLog::Append(folder.file("log"), "line\n");
    EXPECT_EQ(read_file(folder.file("log")), "line\n");
}

TEST(EventLogFile, FollowsALinkAndMakesTheFileCloseOnExecAndReadableByItsOwner)
{
    ScratchFolder folder;
    std::filesystem::create_symlink(folder.file("real"), folder.file("link"));
    EventLog::Append(folder.file("link"), "line\n");
    EXPECT_EQ(read_file(folder.file("real")), "line\n");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
    struct stat made;
    ASSERT_EQ(stat(folder.file("real").c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0600u, 0600u);
    EXPECT_EQ(made.st_mode & 0111u, 0u);
}

TEST(EventLogFile, WritesToAFileThatItMayNotRead)
{
    ScratchFolder folder;
    write_file(folder.file("log"), "torn");
    chmod(folder.file("log").c_str(), 0222);
    chmod(folder.path().c_str(), 0755);
    support::Child child([&] {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            return getuid() == 0 ? notAllowed : 0;
        EventLog::Append(folder.file("log"), "line\n");
        std::string text;
        unsigned long size = 1;
        // There is a file, so "no events" would be a lie that gets it deleted.
        return EventLog::Read(folder.file("log"), text, size) == EventLog::Content::unreadable && size == 0 ? 0 : 1;
    });
    ASSERT_TRUE(child.wait());
    if (child.status() == notAllowed)
        GTEST_SKIP() << "root that may not become somebody else";
    EXPECT_EQ(child.status(), 0);
    chmod(folder.file("log").c_str(), 0644);
    EXPECT_EQ(read_file(folder.file("log")), "tornline\n");
}

TEST(EventLogFile, TakesAShortWriteBack)
{
    ScratchFolder folder;
    const std::string path = folder.file("log");
    support::Child child([&] {
        LimitFiles(100);
        EventLog::Append(path, std::string(59, 'a') + '\n');
        EventLog::Append(path, std::string(59, 'b') + '\n'); // 40 bytes of it would fit
        EventLog::Append(path, std::string(39, 'c') + '\n'); // all of it fits
        EventLog::Append(path, "d\n");                       // nothing fits
        return 0;
    });
    ASSERT_TRUE(child.wait());
    EXPECT_EQ(child.status(), 0);
    EXPECT_EQ(read_file(path), std::string(59, 'a') + '\n' + std::string(39, 'c') + '\n');
}

TEST(EventLogFile, EndsWithAWholeLineAfterTheDiskFilledUp)
{
    ScratchFolder folder;
    const std::string path = folder.file("log");
    support::Child child([&] {
        if (!MountSmallDisk(folder.path()))
            return notAllowed;
        for (int number = 0; number < 300; ++number) // three times what fits
            EventLog::Append(path, NumberedLine(0, number, 700));
        const std::string full = read_file(path);
        const int written = static_cast<int>(support::split_lines(full).size());
        if (written < 50 || full.back() != '\n' || full.find(NumberedLine(0, written - 1, 700)) == full.npos)
            return 1;
        write_file(folder.file("other"), "");
        EventLog::Delete(path); // there is room again
        EventLog::Append(path, NumberedLine(0, 300));
        return read_file(path) == NumberedLine(0, 300) ? 0 : 2;
    });
    ASSERT_TRUE(child.wait());
    SkipWhenNotAllowed(child);
}

TEST(EventLogFile, LogsAgainWhenAReadOnlyDiskCanBeWrittenAgain)
{
    ScratchFolder folder;
    const std::string path = folder.file("log");
    support::Child child([&] {
        if (!MountSmallDisk(folder.path()))
            return notAllowed;
        EventLog::Append(path, "one\n");
        mount("tmpfs", folder.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
        EventLog::Append(path, "lost\n");
        EventLog::Delete(path);
        mount("tmpfs", folder.path().c_str(), nullptr, MS_REMOUNT, nullptr);
        EventLog::Append(path, "two\n");
        return read_file(path) == "one\ntwo\n" ? 0 : 1;
    });
    ASSERT_TRUE(child.wait());
    SkipWhenNotAllowed(child);
}

TEST(EventLogFile, IsReadUpToTheFirstNulWithoutTheBlanksAtItsEnd)
{
    const std::string large(200'000, 'l');
    const struct
    {
        std::string file, text;
    } cases[] = {{"", ""},
                 {"a\n", "a\n"},
                 {"a\n  ", "a\n"},
                 {" a \t ", " a \t"},
                 {"   ", ""},
                 {std::string("a \0b\n", 5), "a"},
                 {std::string("\0b\n", 3), ""},
                 {large + "\n", large + "\n"},
                 {large + std::string(1, '\0') + large, large}};
    for (const auto& c : cases) {
        ScratchFolder folder;
        write_file(folder.file("log"), c.file);
        std::string text = "left over";
        unsigned long size = 1;
        EXPECT_EQ(EventLog::Read(folder.file("log"), text, size), EventLog::Content::whole);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(size, c.file.size()) << "the length of the file, whatever of it is text";
    }
}

TEST(EventLogFile, TellsAMissingFileFromOneThatCannotBeRead)
{
    ScratchFolder folder;
    std::filesystem::create_directory(folder.file("directory"));
    write_file(folder.file("huge"), "");
    std::filesystem::resize_file(folder.file("huge"), 4ull << 30); // sparse
    ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
    const struct
    {
        std::string path;
        EventLog::Content content;
    } cases[] = {{"", EventLog::Content::none},
                 {folder.file("missing"), EventLog::Content::none},
                 {folder.file("missing/log"), EventLog::Content::none},
                 {folder.file("directory"), EventLog::Content::unreadable},
                 {folder.file("fifo"), EventLog::Content::unreadable},
                 {folder.file("huge"), EventLog::Content::unreadable}};
    for (const auto& c : cases) {
        std::string text = "left over";
        unsigned long size = 1;
        EXPECT_EQ(EventLog::Read(c.path, text, size), c.content) << c.path;
        EXPECT_EQ(text, "");
        EXPECT_EQ(size, 0u);
    }
}

TEST(EventLogFile, HoldsWholeLinesAndOneTornTailAtMostAfterAWriterWasKilled)
{
    ScratchFolder folder;
    const std::string path = folder.file("log");
    for (int round = 0; round < 20; ++round) {
        EventLog::Delete(path);
        support::Child child([&] {
            for (int number = 0;; ++number) {
                EventLog::Append(path, NumberedLine(0, number, 5000));
                if (write(STDOUT_FILENO, ".", 1) != 1) // this one returned
                    return 1;
            }
        });
        ASSERT_TRUE(child.wait_for_output(std::string(static_cast<size_t>(1 + 3 * round), '.')));
        child.kill();
        ASSERT_TRUE(child.wait());
        const std::string text = read_file(path);
        const std::string whole = text.substr(0, text.rfind('\n') + 1);
        const int lines = static_cast<int>(support::split_lines(whole).size());
        EXPECT_GE(lines, static_cast<int>(child.output().size())) << "an append that returned is on the disk";
        ExpectEveryLine(whole, 1, lines);
        EventLog::Append(path, "next\n");
        EXPECT_EQ(read_file(path), text + (whole == text ? "next\n" : "\nnext\n"));
    }
}

TEST(ThreadsEventLogFile, TakesLinesOfThreadsAndProcessesInOrderOfEachWriter)
{
    constexpr int processes = 1, threads = 8, count = 400;
    ScratchFolder folder;
    const std::string path = folder.file("log");
    const auto writeAll = [&](int writer) {
        for (int number = 0; number < count; ++number)
            EventLog::Append(path, NumberedLine(writer, number, static_cast<size_t>(number % 90)));
        return 0;
    };
    std::vector<std::unique_ptr<support::Child>> children;
    for (int writer = 0; writer < processes; ++writer)
        children.push_back(std::make_unique<support::Child>([&, writer] { return writeAll(writer); }));
    std::vector<std::thread> writers;
    for (int writer = processes; writer < processes + threads; ++writer)
        writers.emplace_back(writeAll, writer);
    for (std::thread& writer : writers)
        writer.join();
    for (auto& child : children) {
        ASSERT_TRUE(child->wait());
        EXPECT_EQ(child->status(), 0) << child->errors();
    }
    ExpectEveryLine(read_file(path), processes + threads, count);
}

TEST(ThreadsEventLogFile, LosesNothingBetweenAnAppendAndAReadWithDeletion)
{
    constexpr int count = 3000;
    ScratchFolder folder;
    const std::string path = folder.file("log");
    std::atomic<bool> done{false};
    std::string received;
    std::thread reader([&] {
        std::string text;
        unsigned long size;
        do {
            // Here nobody appends between the two: the lines of a read are exactly the lines of a deletion.
            lumo::scoped_lock hold(EventManager::m_spLogMutex);
            ASSERT_NE(EventLog::Read(path, text, size), EventLog::Content::unreadable);
            EventLog::Delete(path);
            received += text;
        } while (!done);
    });
    for (int number = 0; number < count; ++number)
        EventLog::Append(path, NumberedLine(0, number));
    done = true;
    reader.join();
    ExpectEveryLine(received + read_file(path), 1, count);
}

TEST(ThreadsEventLogFile, CanBeUsedInAChildForkedWhileOthersAppend)
{
    ScratchFolder folder;
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 2; ++writer)
        writers.emplace_back([&] {
            while (!done)
                EventLog::Append(folder.file("parent"), "parent\n");
        });
    for (int round = 0; round < 50; ++round) {
        support::Child child([&] {
            EventLog::Append(folder.file("child"), "child\n");
            return 0;
        });
        ASSERT_TRUE(child.wait());
        EXPECT_EQ(child.status(), 0);
    }
    done = true;
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(support::split_lines(read_file(folder.file("child"))).size(), 50u);
}
