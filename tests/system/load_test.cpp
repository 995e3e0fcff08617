#include "support/scratch.h"
#include "system/load_run.h"
#include "system/programs.h"

#include <gtest/gtest.h>

TEST(ThreadsLoad, EveryEventOfSixteenBusySessionsIsAccountedFor)
{
    support::ScratchFolder folder;
    const LoadReport report = load(host_program("load_host"), folder.path().string(), 16, 1000);
    EXPECT_EQ(report.finding, "");
    EXPECT_EQ(report.events, 16'000);
    EXPECT_EQ(report.received + report.waiting + report.in_window, report.events);
    EXPECT_GT(report.received, report.events / 2);
    EXPECT_GT(report.uploads, report.accepted);
    EXPECT_LE(report.descriptors[3], report.descriptors[0] + 16) << "beyond one idle connection for each session";
    printf("%ld events: %ld received, %ld waiting, %ld in the window (%ld bytes); %d of %d uploads taken\n",
           report.events, report.received, report.waiting, report.in_window, report.window_bytes, report.accepted,
           report.uploads);
}
