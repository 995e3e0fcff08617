// Disks that fill up, turn read-only, fail in the middle of a line or go away: earlier lines stay whole, no line is
// torn, the host lives on, and logging works again when the fault is gone.
// Labels: faults

#include "support/child.h"
#include "support/scratch.h"
#include "system/numbered_log.h"
#include "system/programs.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

class Disk : public testing::Test
{
protected:
    ~Disk() override { analytics_shutdown(m_session); }

    std::string folder() const { return m_scratch.path().string() + "/disk"; }
    std::string log() const { return host::log_file(folder()); }
    void SetUp() override { std::filesystem::create_directory(folder()); }

    void log_event(long number, size_t fill = 300)
    {
        if (!m_session)
            m_session = host::open(folder(), "http://127.0.0.1:9/");
        host::log_numbered(m_session, number, fill);
    }

    // The numbers in the file, which must hold whole lines and nothing else.
    std::vector<long> whole_lines() const
    {
        const NumberedLog found = numbered_log(support::read_file(log()));
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
    for (const size_t fill : {300, 9000}) { // within a page; and over several, so that a write is cut
        for (long number = 1; number <= 400; ++number)
            log_event(number, fill);
        std::vector<long> kept = whole_lines();
        ASSERT_GT(kept.size(), 64'000 / (fill + 200));
        ASSERT_LT(kept.size(), 400u);
        EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end()));
        EXPECT_EQ(kept[kept.size() / 2], static_cast<long>(kept.size() / 2 + 1)) << "a gap before the disk was full";

        remount(0, "size=256k");
        log_event(1000, fill);
        kept.push_back(1000);
        EXPECT_EQ(whole_lines(), kept);
        std::filesystem::remove(log());
        remount(0, "size=64k");
    }
}

TEST_F(SmallDisk, ThatTurnsReadOnlyLosesOnlyWhatIsLoggedMeanwhile)
{
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
    log_event(1);
    std::filesystem::rename(folder(), folder() + ".away");
    log_event(2);
    std::filesystem::rename(folder() + ".away", folder());
    log_event(3);
    EXPECT_EQ(whole_lines(), (std::vector<long>{1, 3}));
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
