// Disks that fill up, turn read-only, fail in the middle of a line or go away: earlier lines stay whole, no line is
// torn, the host lives on, and logging works again when the fault is gone.
// Labels: faults

#include "support/child.h"
#include "support/scratch.h"
#include "system/numbered_log.h"
#include "system/programs.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Disk : public testing::Test
{
protected:
    ~Disk() override { analytics_shutdown(m_session); }

    std::string folder() const { return m_scratch.path().string() + "/disk"; }
    std::string log() const { return host::log_file(folder()); }
    void SetUp() override { std::filesystem::create_directory(folder()); }

    /// Opens the session anew, on an empty folder.
    void begin(const char* delivery)
    {
        analytics_shutdown(m_session);
        for (const auto& entry : std::filesystem::directory_iterator(folder()))
            std::filesystem::remove(entry);
        m_session = host::open(folder(), "http://127.0.0.1:9/");
        host::require(analytics_option_set(m_session, "delivery", delivery) == 0, delivery);
    }

    void log_event(long number, size_t fill = 300) { host::log_numbered(m_session, number, fill); }
    uint64_t failed() const
    {
        analytics_stats stats;
        analytics_stats_get(m_session, &stats, sizeof stats);
        return stats.events_failed;
    }

    // The numbers in the files, oldest first, which must hold whole lines and nothing else.
    std::vector<long> whole_lines() const
    {
        std::set<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder()))
            files.insert(entry.path());
        std::string text;
        for (const std::string& file : files)
            text += support::read_file(file);
        const NumberedLog found = numbered_log(text);
        EXPECT_TRUE(found.broken.empty()) << found.broken.size() << " torn lines: " << found.broken[0].substr(0, 200);
        EXPECT_EQ(found.tail, "");
        return found.numbers;
    }

    support::ScratchFolder m_scratch;
    analytics_session* m_session = nullptr;
};

// The folder on a small file system of its own, seen by this test alone.
class SmallDisk : public Disk
{
protected:
    void SetUp() override
    {
        Disk::SetUp();
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", folder().c_str(), "tmpfs", 0, "size=64k") != 0)
            GTEST_SKIP() << "mounting a small disk is not allowed here (" << strerror(errno) << ")";
        m_mounted = true;
    }
    ~SmallDisk() override
    {
        if (m_mounted)
            umount2(folder().c_str(), MNT_DETACH);
    }
    void remount(unsigned long flags, const char* options)
    {
        ASSERT_EQ(mount("tmpfs", folder().c_str(), "tmpfs", MS_REMOUNT | flags, options), 0) << strerror(errno);
    }

private:
    bool m_mounted = false;
};

} // namespace

TEST_F(SmallDisk, ThatFillsUpKeepsWholeLines)
{
    const struct
    {
        const char* delivery;
        size_t fill; // within a page; and over several, so that a write is cut
    } rows[] = {{"whole", 300}, {"whole", 9000}, {"batches", 300}, {"batches", 9000}};
    for (const auto& [delivery, fill] : rows) {
        begin(delivery);
        remount(0, "size=64k");
        for (long number = 1; number <= 400; ++number)
            log_event(number, fill);
        std::vector<long> kept = whole_lines();
        ASSERT_GT(kept.size(), 64'000 / (fill + 200));
        ASSERT_LT(kept.size(), 400u);
        EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end()));
        EXPECT_EQ(kept[kept.size() / 2], static_cast<long>(kept.size() / 2 + 1)) << "a gap before the disk was full";
        EXPECT_EQ(failed(), 400 - kept.size());

        remount(0, "size=256k");
        log_event(1000, fill);
        kept.push_back(1000);
        EXPECT_EQ(whole_lines(), kept) << delivery;
    }
}

TEST_F(SmallDisk, ThatTurnsReadOnlyLosesOnlyWhatIsLoggedMeanwhile)
{
    begin("whole");
    log_event(1);
    remount(MS_RDONLY, "size=64k");
    log_event(2);
    EXPECT_EQ(whole_lines(), (std::vector<long>{1}));
    remount(0, "size=64k");
    log_event(3);
    EXPECT_EQ(whole_lines(), (std::vector<long>{1, 3}));
}

TEST_F(Disk, WhoseFolderVanishesLosesOnlyWhatIsLoggedMeanwhile)
{
    const std::string away = folder() + ".away";
    const struct
    {
        const char* delivery;
        bool deleted;
        std::vector<long> kept;
    } rows[] = {{"whole", false, {1, 3}},
                {"whole", true, {3}},
                // A file that is kept open goes where its folder goes.
                {"batches", false, {1, 2, 3}},
                {"batches", true, {3}}};
    for (const auto& row : rows) {
        begin(row.delivery);
        log_event(1);
        std::filesystem::rename(folder(), away);
        if (row.deleted)
            std::filesystem::remove_all(away);
        log_event(2);
        if (row.deleted)
            std::filesystem::create_directory(folder());
        else
            std::filesystem::rename(away, folder());
        log_event(3);
        EXPECT_EQ(whole_lines(), row.kept) << row.delivery << row.deleted;
        EXPECT_EQ(failed() == 0, row.kept.size() == 3) << row.delivery << row.deleted;
    }
}

// As an ordinary user: to root every file is open.
TEST_F(Disk, ThatRefusesItsFilesToTheUserTakesWhatItCan)
{
    const uid_t user = getuid() == 0 ? 65534 : getuid();
    const struct
    {
        const char* delivery;
        mode_t folder, file;
        uint64_t failed;
    } rows[] = {{"whole", 0755, 0, 3}, {"whole", 0555, 0, 3}, {"batches", 0755, 0, 0}, {"batches", 0555, 0, 3}};
    for (const auto& row : rows) {
        const support::ScratchFolder scratch;
        const std::string path = scratch.path().string();
        ASSERT_EQ(chown(path.c_str(), user, user), 0);
        support::Child host([&] {
            setgroups(0, nullptr);
            host::require(setuid(user) == 0, "to become somebody else");
            for (const std::string& file : {host::log_file(path), host::log_file(path) + ".open"})
                close(open(file.c_str(), O_CREAT | O_WRONLY, row.file));
            chmod(path.c_str(), row.folder);
            analytics_session* session = host::open(path, "http://127.0.0.1:9/");
            analytics_option_set(session, "delivery", row.delivery);
            for (long number = 1; number <= 3; ++number)
                host::log_numbered(session, number, 20); // answered as ever
            analytics_stats stats;
            analytics_stats_get(session, &stats, sizeof stats);
            return static_cast<int>(stats.events_failed);
        });
        ASSERT_TRUE(host.wait()) << host.errors();
        EXPECT_EQ(host.status(), static_cast<int>(row.failed)) << row.delivery << row.folder << host.errors();
    }
}

TEST_F(Disk, WithRandomErrorsOfItsSystemCallsNeverHoldsATornLine)
{
#ifdef ANALYTICS_SANITIZED
    GTEST_SKIP() << "libfiu and the sanitizers do not go together";
#endif
    if (support::run({"fiu-run", "-x", "true"}).status != 0)
        GTEST_SKIP() << "fiu-run is not there (package fiu-utils)";
    // An interrupted call is made again. When close() fails the line has been written already, so nothing is lost.
    static const struct
    {
        const char* point;
        int error;
        bool loses;
    } faults[] = {{"posix/io/rw/write", ENOSPC, true},
                  {"posix/io/rw/write", EIO, true},
                  {"posix/io/rw/write", EINTR, false},
                  {"posix/io/oc/open", EMFILE, true},
                  {"posix/io/oc/close", EIO, false}};
    for (const auto& fault : faults) {
        const std::string command = std::string("enable_random name=") + fault.point +
                                    ",probability=0.3,failinfo=" + std::to_string(fault.error);
        const auto ended = support::run({"fiu-run", "-x", "-c", command, host_program("steps_host"), "log=" + log(),
                                         "open", "numbered=1:200", "close"});
        EXPECT_EQ(ended.status, 0) << fault.point << ": " << ended.errors;
        const std::vector<long> kept = whole_lines();
        EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end())) << fault.point;
        EXPECT_GT(kept.size(), 50u) << fault.point;
        EXPECT_EQ(kept.size() < 200, fault.loses) << fault.point << ' ' << fault.error << ' ' << kept.size();
        std::filesystem::remove(log());
    }
}
