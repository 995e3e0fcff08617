#include "lumo/tova/directory.h"
#include "lumo/tova/file.h"
#include "support/scratch.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using support::read_file;
using support::write_file;

namespace {

struct File : testing::Test
{
    support::ScratchFolder folder;
    std::string path = folder.file("file");
    tova_file f;
    File() { tova_file_init(&f); }
    ~File() override { tova_file_close(&f); }

    std::string read_all()
    {
        std::string text;
        char block[7];
        while (tova_file_read(&f, block, sizeof block, &count))
            text.append(block, count);
        EXPECT_EQ(0u, count);
        EXPECT_EQ(0, f._error);
        return text;
    }
    uint32_t count = 99;
};

TEST_F(File, OpensInEachModeAsTheModeSays)
{
    static const struct
    {
        int32_t mode;
        bool makes_a_missing_one, writes;
        const char* then; // what stands in a file with "before" after a write of "AB"
    } modes[] = {{tova_file_read_only, false, false, "before"},
                 {tova_file_read_write, false, true, "ABfore"},
                 {tova_file_append, false, true, "beforeAB"},
                 {tova_file_open_or_create, true, true, "ABfore"},
                 {tova_file_truncate, true, true, "AB"}};
    for (const auto& m : modes) {
        SCOPED_TRACE(m.mode);
        EXPECT_EQ(m.makes_a_missing_one, tova_file_open(&f, path.c_str(), m.mode));
        EXPECT_EQ(m.makes_a_missing_one ? 0 : ENOENT, f._error);
        tova_file_close(&f);
        write_file(path, "before");
        tova_file_init(&f);
        ASSERT_EQ(1, tova_file_open(&f, path.c_str(), m.mode));
        EXPECT_TRUE(fcntl(f._file, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(m.writes, tova_file_write(&f, "AB", 2));
        EXPECT_EQ(m.writes ? 0 : EBADF, f._error);
        tova_file_close(&f);
        EXPECT_EQ(m.then, read_file(path));
        EXPECT_EQ(1, tova_file_remove(path.c_str()));
        tova_file_init(&f);
    }
}

TEST_F(File, ReportsItsEndAsFailureWithoutAnError)
{
    write_file(path, "0123456789");
    ASSERT_EQ(1, tova_file_open(&f, path.c_str(), tova_file_read_write));
    EXPECT_EQ("0123456789", read_all());
    EXPECT_EQ(1, tova_file_seek(&f, 8));
    EXPECT_EQ("89", read_all());
    EXPECT_EQ(1, tova_file_seek_end(&f));
    EXPECT_EQ(1, tova_file_seek(&f, 5'000'000'000)); // beyond 32 bits
    EXPECT_EQ(1, tova_file_write(&f, "!", 1));
    EXPECT_EQ(5'000'000'001u, tova_file_size(&f));
    EXPECT_EQ(0, tova_file_seek(&f, -1));
    EXPECT_EQ(EINVAL, f._error);
    tova_file_close(&f);
    tova_file_close(&f);
    count = 99;
    EXPECT_EQ(0, tova_file_read(&f, &count, 4, &count)); // closed, it refuses everything
    EXPECT_EQ(0u, count);
    EXPECT_EQ(EBADF, f._error);
    EXPECT_EQ(0, tova_file_seek(&f, 0));
    EXPECT_EQ(0, tova_file_seek_end(&f));
    EXPECT_EQ(0u, tova_file_size(&f));
}

TEST_F(File, TellsAWriteThatCameOutShortFromAWholeOne)
{
    ASSERT_EQ(1, tova_file_open(&f, path.c_str(), tova_file_truncate));
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {10, before.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(0, tova_file_write(&f, "0123456789abc", 13));
    EXPECT_EQ(ENOSPC, f._error);
    EXPECT_EQ(0, tova_file_write(&f, "d", 1));
    EXPECT_EQ(EFBIG, f._error);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ("0123456789", read_file(path));
}

TEST_F(File, CopiesContentOverTheDestination)
{
    const std::string copy = folder.file("copy");
    for (size_t size : {0, 1, 511, 512, 513, 5000}) {
        const std::string text = std::string(size / 2, 'a') + std::string(size - size / 2, 'b');
        write_file(path, text);
        write_file(copy, std::string(6000, 'o'));
        EXPECT_EQ(1, tova_file_copy(path.c_str(), copy.c_str()));
        EXPECT_EQ(text, read_file(copy));
    }
    EXPECT_EQ(0, tova_file_copy(folder.file("missing").c_str(), copy.c_str()));
    EXPECT_EQ(5000u, read_file(copy).size()); // not even emptied
    EXPECT_EQ(0, tova_file_copy(path.c_str(), "/dev/full"));
    EXPECT_EQ(0, tova_file_copy(folder.path().c_str(), copy.c_str())); // a directory opens, and cannot be read
}

TEST_F(File, IsTherePastLinksOnlyAsARegularFile)
{
    const std::string link = folder.file("link"), dangling = folder.file("dangling");
    write_file(path, "");
    ASSERT_EQ(0, symlink(path.c_str(), link.c_str()));
    ASSERT_EQ(0, symlink("nowhere", dangling.c_str()));
    const struct
    {
        std::string name;
        bool file, directory;
    } cases[] = {{path, true, false},          {link, true, false},         {dangling, false, false},
                 {folder.path(), false, true}, {path + "/x", false, false}, {"/dev/null", false, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.file, tova_file_exists(c.name.c_str())) << c.name;
        EXPECT_EQ(c.directory, tova_directory_exists(c.name.c_str())) << c.name;
    }
    EXPECT_EQ(1, tova_file_remove(link.c_str()));
    EXPECT_EQ(0, tova_file_remove(link.c_str()));
    EXPECT_EQ(1, tova_file_exists(path.c_str()));
}

TEST_F(File, AreFoundInADirectoryEachOnce)
{
    for (const char* name : {"a", ".hidden", "b.txt"})
        write_file(folder.file(name), "");
    ASSERT_EQ(1, tova_directory_create(folder.file("sub").c_str(), nullptr, 0));
    ASSERT_EQ(0, symlink("sub", folder.file(".link").c_str()));
    std::multiset<std::string> found;
    tova_file_find walk;
    for (int more = tova_file_find_first(&walk, folder.path().c_str()); more; more = tova_file_find_next(&walk))
        found.insert(tova_file_find_name(&walk) + std::string(tova_file_find_is_hidden(&walk) ? " hidden" : "") +
                     (tova_file_find_is_dir(&walk) ? " folder" : ""));
    EXPECT_EQ((std::multiset<std::string>{"a", ".hidden hidden", "b.txt", "sub folder", ".link hidden folder"}), found);
    EXPECT_STREQ("", tova_file_find_name(&walk));
    for (const char* empty : {"sub", "missing"}) {
        for (int times = 0; times < 2; ++times)
            tova_file_find_close(&walk);
        EXPECT_EQ(0, tova_file_find_first(&walk, folder.file(empty).c_str()));
        EXPECT_EQ(0, tova_file_find_next(&walk));
    }
    tova_file_find_close(&walk);
    EXPECT_EQ(1, tova_file_find_first_pattern(&walk, folder.path().c_str(), "*"));
    tova_file_find_close(&walk); // in the middle
}

} // namespace
