#include "support/child.h"
#include "support/scratch.h"
#include "system/crash_run.h"
#include "system/numbered_log.h"
#include "system/programs.h"

#include <fcntl.h>
#include <gtest/gtest.h>

TEST(Crash, AHostKilledAtAnyMomentLeavesWholeLinesAndAtMostOneUnfinishedTail)
{
    support::ScratchFolder folder;
    const CrashReport report = kill_again_and_again(host_program("log_host"), folder.path().string(), 60, 1);
    EXPECT_EQ(report.finding, "");
    EXPECT_EQ(report.kills, 60);
    EXPECT_GT(report.events, 60);
    printf("%d kills, %ld events, %d unfinished tails, %d closed off\n", report.kills, report.events, report.tails,
           report.closed);
}

TEST(Crash, TheNextAppendClosesAnUnfinishedTailOff)
{
    support::ScratchFolder folder;
    const std::string log = host::log_file(folder.path().string());
    for (const std::string& tail :
         {std::string("["), host::line_start() + "\"e\", { \"n\": 1, \"fi", std::string(70'000, 'x')}) {
        support::write_file(log, host::line_start() + host::numbered_text(7, 3) + "\n" + tail);
        support::write_file(folder.file("progress"), std::string(sizeof(long), '\0'));
        const auto ended =
            support::run({host_program("log_host"), folder.path().string(), folder.file("progress"), "8", "10"});
        ASSERT_EQ(ended.status, 0) << ended.errors;
        const NumberedLog found = numbered_log(support::read_file(log));
        EXPECT_EQ(found.numbers, (std::vector<long>{7, 8, 9, 10}));
        ASSERT_EQ(found.broken.size(), 1u);
        EXPECT_EQ(found.broken[0], tail);
        EXPECT_EQ(found.tail, "");
    }
}
