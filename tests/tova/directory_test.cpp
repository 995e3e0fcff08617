// Directories, standard places, and the permissions that files and directories are given.
#include "lumo/tova/directory.h"
#include "lumo/tova/file.h"
#include "support/child.h"
#include "support/scratch.h"

#include <cerrno>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(Directory, IsMadeWithItsParentsOnlyWhenAsked)
{
    support::ScratchFolder folder;
    const std::string a = folder.file("a"), c = folder.file("a/b/c"), d = folder.file("a/b/c/d");
    EXPECT_EQ(1, tova_directory_create(a.c_str(), nullptr, 0));
    EXPECT_EQ(0, tova_directory_create(c.c_str(), nullptr, 0));
    EXPECT_EQ(1, tova_directory_create(c.c_str(), nullptr, 1));
    EXPECT_EQ(0, tova_directory_create(c.c_str(), nullptr, 1)); // it is there
    EXPECT_EQ(1, tova_directory_create(d.c_str(), nullptr, 1));
    EXPECT_EQ(0, tova_directory_remove(c.c_str())); // not empty
    EXPECT_EQ(1, tova_directory_remove(d.c_str()));
    EXPECT_EQ(0, tova_directory_create("/proc/none/such", nullptr, 1));
    EXPECT_EQ(0, tova_directory_create("", nullptr, 1)); // missing, and without a parent to make
}

// The mask does not count for a file made with an object: that is applied to the file once it is there.
TEST(Security, OfNewFilesIgnoresTheMaskThatDirectoriesObey)
{
    support::ScratchFolder folder;
    const std::string path = folder.file("made"), nowhere = folder.file("no/where");
    tova_security s;
    tova_file f;
    tova_security_init(&s);
    tova_file_init(&f);
    tova_security_set(&s, tova_security_everyone, tova_security_read_write);
    const auto bits = [&] {
        struct stat made = {};
        stat(path.c_str(), &made);
        return made.st_mode & 07777;
    };
    const mode_t mask = umask(027);
    static const struct
    {
        tova_security* security;
        mode_t directory, file;
    } cases[] = {{nullptr, 0750, 0640}, {&s, 0640, 0666}};
    for (const auto& c : cases) {
        EXPECT_EQ(1, tova_directory_create(path.c_str(), c.security, 0));
        EXPECT_EQ(c.directory, bits());
        EXPECT_EQ(1, tova_directory_remove(path.c_str()));
        EXPECT_EQ(1, tova_file_create(&f, path.c_str(), c.security));
        tova_file_close(&f);
        EXPECT_EQ(c.file, bits());
        EXPECT_EQ(1, tova_file_remove(path.c_str()));
    }
    umask(mask);
    support::write_file(path, "another's");
    const mode_t another_s = bits();
    ASSERT_EQ(0, symlink(path.c_str(), folder.file("link").c_str()));
    EXPECT_EQ(0, tova_file_create(&f, folder.file("link").c_str(), &s));
    EXPECT_EQ(std::pair(another_s, std::string("another's")), std::pair(bits(), support::read_file(path)));
    EXPECT_EQ(0, tova_file_create(&f, nowhere.c_str(), &s));
    EXPECT_EQ(0, tova_security_file_set(&s, nowhere.c_str()));
    EXPECT_EQ(ENOENT, f._error);
    EXPECT_EQ(ENOENT, s._error);
}

std::string place(int32_t kind)
{
    char buffer[4096] = "untouched";
    tova_directory_get(kind, buffer, sizeof buffer);
    return buffer;
}

TEST(StandardDirectory, FollowsTheEnvironment)
{
    support::ScratchFolder folder;
    const std::string home = folder.path(), config = folder.file("config");
    const std::string passwd_home = getpwuid(getuid())->pw_dir;
    support::write_file(home + "/plain", "");
    ASSERT_EQ(1, tova_directory_create((home + "/.config").c_str(), nullptr, 0));
    ASSERT_EQ(1, tova_directory_create(config.c_str(), nullptr, 0));
    support::write_file(home + "/.config/user-dirs.dirs",
                        "# a comment\nXDG_MUSIC_DIR=\"$HOME/Music\"\n  XDG_DOCUMENTS_DIR=\"$HOME/Old\"\n"
                        "XDG_DOCUMENTS_DIR=\"$HOME/My \\\"Papers\\\"\"\nXDG_DOCUMENTS_DIR=\"relative\"\n");
    support::write_file(config + "/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"/srv/papers\"\n");
    const std::string set_home = "HOME=" + home;
    static const struct
    {
        int32_t kind;
        std::vector<std::string> environment;
        std::string expected;
    } cases[] = {
        {tova_directory_temporary, {"TMPDIR=/var/tmp"}, "/var/tmp"},
        {tova_directory_temporary, {"TMPDIR=relative"}, "/tmp"},
        {tova_directory_documents, {set_home, "XDG_CONFIG_HOME"}, home + "/My \"Papers\""},
        {tova_directory_documents, {set_home, "XDG_CONFIG_HOME=" + config}, "/srv/papers"},
        {tova_directory_documents, {set_home, "XDG_CONFIG_HOME=/nowhere"}, home + "/Documents"},
        {tova_directory_documents, {"HOME", "XDG_CONFIG_HOME=/nowhere"}, passwd_home + "/Documents"},
        {tova_directory_application_support, {set_home, "XDG_DATA_HOME"}, home + "/.local/share"},
        {tova_directory_application_support, {"HOME=", "XDG_DATA_HOME=/srv/data"}, "/srv/data"},
    };
    for (const auto& c : cases) {
        support::Child asked([&] {
            for (const std::string& variable : c.environment)
                putenv(const_cast<char*>(variable.c_str())); // without "=" it removes the variable
            fputs(place(c.kind).c_str(), stdout);
            return 0;
        });
        EXPECT_TRUE(asked.wait());
        EXPECT_EQ(c.expected, asked.output());
    }
}

TEST(StandardDirectory, KnowsWhereTheProcessIs)
{
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const auto& [kind, expected] : {std::pair{tova_directory_current, std::filesystem::current_path()},
                                         std::pair{tova_directory_process, program}}) {
        EXPECT_EQ(expected, place(kind));
        char small[2] = "x";
        tova_directory_get(kind, small, sizeof small);
        EXPECT_STREQ("", small);
    }
}

TEST(Security, AddsPermissionBitsUpForWhomTheyAreGiven)
{
    static constexpr int bits[] = {0, 0, 4, 2, 6, 5, 7, 4, 7, 0, 0}; // from level -1 on
    for (int32_t level = -1; level < 10; ++level)
        EXPECT_EQ(bits[level + 1] * 64 + 8 * 4 + 2, tova_security_unix_mode(level, 6, 2)) << level;
    const group* staff = getgrnam("localaccounts") ? getgrnam("localaccounts") : getgrnam("staff");
    const int32_t users = staff ? static_cast<int32_t>(staff->gr_gid) : -1;
    const group* admin = getgrnam("admin");
    const int32_t administrators = admin ? static_cast<int32_t>(admin->gr_gid) : 0;
    static const struct
    {
        std::vector<std::pair<int32_t, int32_t>> given;
        int mode;
        int32_t group;
    } cases[] = {
        {{}, 0, -1},
        {{{1, 4}, {0, 2}}, 0777, -1},
        {{{2, 3}}, 0660, users},
        {{{2, 3}, {3, 4}, {1, 1}}, 0674, administrators},
    };
    for (const auto& c : cases) {
        tova_security s;
        tova_security_init(&s);
        for (const auto& [who, level] : c.given)
            tova_security_set(&s, who, level);
        EXPECT_EQ(std::tuple(c.mode, c.group, -1), std::tuple(tova_security_get(&s), s._group, s._user));
    }
}

} // namespace
