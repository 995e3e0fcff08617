#include "support/scratch.h"
#include "system/crash_run.h"
#include "system/programs.h"

#include <gtest/gtest.h>

TEST(Crash, AHostKilledAtAnyMomentLeavesWholeLinesAndAtMostOneUnfinishedTail)
{
    support::ScratchFolder folder;
    const CrashReport report = kill_again_and_again(host_program("steps_host"), folder.path().string(), 60, 1);
    EXPECT_EQ(report.finding, "");
    EXPECT_EQ(report.kills, 60);
    EXPECT_GT(report.events, 60);
    printf("%d kills, %ld events, %d unfinished tails, %d closed off\n", report.kills, report.events, report.tails,
           report.closed);
}
