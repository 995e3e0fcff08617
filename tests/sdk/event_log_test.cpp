// What a full disk, a failing one, a killed writer and several writers do to the file is tested in tests/system.
// Labels: threads
#include "EventLog.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
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

constexpr int notAllowed = 77;

TEST(EventLogFile, ClosesOffATailThatSomebodyLeft)
{
    ScratchFolder folder;
    write_file(folder.file("log"), "old\nto");
    EventLog::Append(folder.file("log"), "new\n");
    std::ofstream(folder.file("log"), std::ios::app) << "torn"; // after an append of our own
    EventLog::Append(folder.file("log"), "newer\n");
    EXPECT_EQ(read_file(folder.file("log")), "old\nto\nnew\ntorn\nnewer\n");
}

TEST(EventLogFile, TakesALineBackThatFailedInItsMiddle)
{
    signal(SIGXFSZ, SIG_IGN);
    ScratchFolder folder;
    const std::string log = folder.file("log"), line = "a line of some bytes\n";
    EventLog::Append(log, line);
    std::string kept = line;
    for (const size_t part : {size_t{1}, size_t{2}, line.size() / 2, line.size() - 1}) {
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit small = {kept.size() + part, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        EventLog::Append(log, line);
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(read_file(log), kept) << "cut after " << part << " bytes";
        EventLog::Append(log, line);
        EXPECT_EQ(read_file(log), kept += line);
    }
}

TEST(EventLogFile, IsMadeWhereALinkPointsForItsOwnerToRead)
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
        // The file is there but cannot be read. The answer "no events" would get it deleted.
        return EventLog::Read(folder.file("log"), text, size) == EventLog::Content::unreadable && size == 0 ? 0 : 1;
    });
    ASSERT_TRUE(child.wait());
    if (child.status() == notAllowed)
        GTEST_SKIP() << "root that may not become somebody else";
    EXPECT_EQ(child.status(), 0);
    chmod(folder.file("log").c_str(), 0644);
    EXPECT_EQ(read_file(folder.file("log")), "tornline\n");
}

TEST(EventLogFile, IsReadUpToItsFirstNulOrItsLastBlanks)
{
    ScratchFolder folder;
    const std::string large(200'000, 'l');
    for (const auto& [file, expected] :
         {std::pair(large + "\n  ", large + "\n"), std::pair(large + '\0' + large, large)}) {
        write_file(folder.file("log"), file);
        std::string text = "left over";
        unsigned long size = 1;
        EXPECT_EQ(EventLog::Read(folder.file("log"), text, size), EventLog::Content::whole);
        EXPECT_EQ(text, expected);
        EXPECT_EQ(size, file.size()) << "the length of the file, whatever of it is text";
    }
}

TEST(EventLogFile, TellsAMissingFileFromAnUnreadableOne)
{
    ScratchFolder folder;
    std::filesystem::create_directory(folder.file("directory"));
    write_file(folder.file("huge"), "");
    std::filesystem::resize_file(folder.file("huge"), 4ull << 30); // sparse
    ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
    using EventLog::Content;
    static constexpr struct
    {
        const char* name;
        Content read;
        bool stays;
    } cases[] = {{"missing", Content::none, false},
                 {"missing/log", Content::none, false},
                 {"directory", Content::unreadable, true},
                 {"fifo", Content::unreadable, true},
                 {"huge", Content::unreadable, false}};
    for (const auto& [name, read, stays] : cases) {
        std::string text = "left over";
        unsigned long size = 1;
        EXPECT_EQ(EventLog::Read(folder.file(name), text, size), read) << name;
        EXPECT_EQ(text, "");
        EXPECT_EQ(size, 0u);
        EventLog::Delete(folder.file(name));
        EXPECT_EQ(std::filesystem::exists(folder.file(name)), stays) << name;
    }
    EventLog::Append(folder.file("fifo"), std::string(1'000'000, 'x')); // more than a pipe holds: it must not wait
}

TEST(EventLogFile, LosesNothingToAReadWithDeletion)
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

TEST(EventLogFile, CanBeUsedInAChildForkedWhileOthersAppend)
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
