#include "UniqueIdFile.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "AnalyticsSDK/EventManager.h"
#include "made_up_facts.h"
#include "support/child.h"
#include "support/scratch.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::ScratchFolder;
using support::write_file;

namespace {

size_t FilesIn(const ScratchFolder& folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder.path()), {}));
}

void MakesFirstAndNotSecond(const std::string& path)
{
    EXPECT_TRUE(UniqueIdFile::Create(path, "first"));
    EXPECT_FALSE(UniqueIdFile::Create(path, "second"));
    EXPECT_EQ(read_file(path), "first");
}

std::atomic<bool> hardLinks{true};

std::string IdOfANewManager(const std::string& path)
{
    EventManager manager("http://127.0.0.1/");
    manager.SetPidFilePath(path.c_str());
    manager.InitUniqueId();
    return manager.GetUniqueId();
}

} // namespace

// The library's call comes through here: some file systems know no hard links.
extern "C" int link(const char* from, const char* to) noexcept
{
    if (hardLinks)
        return linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
    errno = EPERM;
    return -1;
}

TEST(UniqueIdFile, IsMadeOnceBesideWhatADeadProcessLeft)
{
    ScratchFolder folder;
    write_file(folder.file("id." + std::to_string(getpid()) + ".0"), "half");
    MakesFirstAndNotSecond(folder.file("id"));
    EXPECT_EQ(FilesIn(folder), 2u) << "nothing more is left beside it";
}

TEST(UniqueIdFile, IsMadeInItsPlaceWithoutHardLinksButNeverInPart)
{
    ScratchFolder folder;
    const std::string longest = folder.file(std::string(255, 'n')); // what stands beside it would have a longer name
    EXPECT_TRUE(UniqueIdFile::Create(longest, "id"));
    EXPECT_EQ(read_file(longest), "id");
    std::filesystem::remove(longest);
    hardLinks = false;
    MakesFirstAndNotSecond(folder.file("id"));
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{4, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_FALSE(UniqueIdFile::Create(folder.file("other"), "too long"));
    setrlimit(RLIMIT_FSIZE, &limit);
    hardLinks = true;
    EXPECT_EQ(FilesIn(folder), 1u);
}

TEST(UniqueIdFile, OfAnySizeIsReadUpToItsFirstNulWithinABound)
{
    ScratchFolder folder;
    static constexpr struct
    {
        size_t characters;
        off_t size; // with the NULs behind them
        size_t loaded;
    } files[] = {
        {0, off_t{1} << 40, 0}, {5000, off_t{1} << 40, 5000}, {5000, 5001, 5000}, {50'000'000, 50'000'000, 65536}};
    for (const auto& [characters, size, loaded] : files) {
        write_file(folder.file("id"), std::string(characters, 'i'));
        std::filesystem::resize_file(folder.file("id"), static_cast<uintmax_t>(size));
        std::string id = "before";
        EXPECT_TRUE(UniqueIdFile::Load(folder.file("id"), id));
        EXPECT_EQ(id.size(), loaded);
    }
}

TEST(UniqueIdFile, IsNotMadeWhereSomethingElseStandsOrNothingCan)
{
    ScratchFolder folder;
    std::filesystem::create_directory(folder.file("directory"));
    std::filesystem::create_symlink(folder.file("target"), folder.file("dangling"));
    ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
    for (const std::string& path : {std::string(), folder.file("directory"), folder.file("dangling"),
                                    folder.file("fifo"), folder.file("missing/id")})
        EXPECT_FALSE(UniqueIdFile::Create(path, "id")) << path;
    EXPECT_FALSE(std::filesystem::exists(folder.file("target"))) << "a link is not followed to make a file";
    EXPECT_EQ(FilesIn(folder), 3u);
}

TEST(UniqueId, IsTheSameForAllProcessesThatStartAtOnce)
{
    for (int round = 0; round < 10; ++round) {
        ScratchFolder folder;
        int gate[2];
        ASSERT_EQ(pipe(gate), 0);
        std::vector<std::unique_ptr<support::Child>> children;
        for (int number = 0; number < 6; ++number)
            children.push_back(std::make_unique<support::Child>([&] {
                char byte;
                close(gate[1]);
                while (read(gate[0], &byte, 1) > 0) // opens for all when the parent closes its end
                    ;
                printf("%s", IdOfANewManager(folder.file("id")).c_str());
                fflush(stdout);
                return 0;
            }));
        close(gate[0]);
        close(gate[1]);
        std::set<std::string> ids;
        for (auto& child : children) {
            ASSERT_TRUE(child->wait());
            ids.insert(child->output());
        }
        ids.insert(read_file(folder.file("id")));
        EXPECT_EQ(ids.size(), 1u);
        EXPECT_EQ(ids.begin()->size(), 36u);
        EXPECT_EQ(FilesIn(folder), 1u);
    }
}

TEST(UniqueId, StaysFromStartToStartUnlessItCannotBeKept)
{
    ScratchFolder folder;
    const std::string id = IdOfANewManager(folder.file("id"));
    EXPECT_EQ(id.size(), 36u);
    EXPECT_EQ(read_file(folder.file("id")), id) << "the characters and nothing else";
    EXPECT_EQ(IdOfANewManager(folder.file("id")), id);
    write_file(folder.file("empty"), "");
    for (const std::string& path : {folder.file("missing/id"), folder.file("empty")})
        EXPECT_NE(IdOfANewManager(path), IdOfANewManager(path));
    EXPECT_EQ(read_file(folder.file("empty")), "") << "never rewritten";
    const MadeUpFacts noRandomBytes;
    EXPECT_EQ(IdOfANewManager(folder.file("none")), "");
    EXPECT_FALSE(std::filesystem::exists(folder.file("none"))) << "a later start may have an id to keep";
}

TEST(UniqueId, ThatIsSuppliedDoesNotReplaceTheFile)
{
    ScratchFolder folder;
    EventManager manager("");
    manager.SetPidFilePath(folder.file("id").c_str());
    manager.SetUniqueId("first");
    EXPECT_EQ(FilesIn(folder), 0u) << "setting writes nothing";
    for (const char* id : {"mine", "other"}) {
        manager.SetUniqueId(id);
        manager.SaveUniqueIdToFile();
        EXPECT_EQ(read_file(folder.file("id")), "mine");
        EXPECT_STREQ(manager.GetUniqueId(), id);
    }
    manager.SetUniqueId(nullptr);
    EXPECT_STREQ(manager.GetUniqueId(), "mine") << "an empty id is looked for again";
}
