// What a full disk, a failing one, a killed writer and several writers do to the file is tested in tests/system.
#include "EventLog.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
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

constexpr int notAllowed = 77;

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

TEST(EventLogFile, IsMadeWhereALinkPointsForItsOwnerToReadAndIsNotMadeWhereItCannotBe)
{
    ScratchFolder folder;
    for (const std::string& path : {std::string(), folder.path().string(), folder.file(std::string(300, 'n'))})
        EventLog::Append(path, "lost\n");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    std::filesystem::create_symlink(folder.file("real"), folder.file("link"));
    EventLog::Append(folder.file("link"), "line\n");
    EXPECT_EQ(read_file(folder.file("real")), "line\n");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
    struct stat made;
    ASSERT_EQ(stat(folder.file("real").c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0711u, 0600u);
}

TEST(EventLogFile, WritesToAFileThatItMayNotRead)
{
    ScratchFolder folder;
    write_file(folder.file("log"), "torn");
    chmod(folder.file("log").c_str(), 0222);
    chmod(folder.path().c_str(), 0755);
    support::Child child([&] {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            return notAllowed;
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

TEST(EventLogFile, TellsAMissingFileFromOneThatCannotBeReadAndDeletesFilesOnly)
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
        EventLog::Delete(c.path);
    }
    EventLog::Append(folder.file("fifo"), std::string(1'000'000, 'x')); // more than a pipe holds: it must not wait
    EXPECT_TRUE(std::filesystem::exists(folder.file("directory")) && std::filesystem::exists(folder.file("fifo")));
    EXPECT_FALSE(std::filesystem::exists(folder.file("huge")));
}

TEST(ThreadsEventLogFile, LosesNothingBetweenAnAppendAndAReadWithDeletion)
{
    ScratchFolder folder;
    const std::string path = folder.file("log");
    std::atomic<bool> done{false};
    std::string received, expected;
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
    for (int number = 0; number < 3000; ++number) {
        EventLog::Append(path, std::to_string(number) + '\n');
        expected += std::to_string(number) + '\n';
    }
    done = true;
    reader.join();
    EXPECT_EQ(received + read_file(path), expected);
}

TEST(ThreadsEventLogFile, CanBeUsedInAChildForkedWhileOthersAppend)
{
    ScratchFolder folder;
    std::atomic<bool> done{false};
    const auto append = [&] {
        while (!done)
            EventLog::Append(folder.file("parent"), "parent\n");
    };
    std::thread writers[] = {std::thread(append), std::thread(append)};
    for (int round = 0; round < 50; ++round) {
        support::Child child([&] {
            EventLog::Append(folder.file("child"), "child\n");
            return 0;
        });
        EXPECT_TRUE(child.wait());
    }
    done = true;
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(support::split_lines(read_file(folder.file("child"))).size(), 50u);
}
