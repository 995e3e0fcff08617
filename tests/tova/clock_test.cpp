#include "lumo/tova/clock.h"
#include "lumo/tova/file.h"
#include "lumo/tova/own/internal.h"
#include "support/scratch.h"
#include "support/zone.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

TEST(Clock, TakesTicksPerSecondFromTheTimeBase)
{
    EXPECT_EQ(1'000'000'000u, tova::ticks_per_second(1, 1));
    EXPECT_EQ(24'000'000u, tova::ticks_per_second(125, 3));
    EXPECT_EQ((9'000'000'000 - 2 * 4'294'967'296) / 2, tova::ticks_per_second(2, 9)); // wraps
    EXPECT_EQ(g_resolution, tova_time_resolution());
}

TEST(Clock, ScalesTicksToMsUsNs)
{
    const uint64_t before = g_resolution;
    static const struct
    {
        uint64_t per_second, units, ms, us, ns;
    } cases[] = {
        {1'000'000'000, 2'500'000, 2, 2'500, 2'500'000},
        // A coarse clock goes to microseconds by way of a double, a fine one by whole division.
        {24'000'000, 24'000'001, 1'000, 1'000'000, 1'000'000'041},
        {999'999'999, 999'999'999, 1'000, 1'000'000, 1'000'000'000},
        {2'000'000'000, 3ull << 62, 6'917'529'027'641, 6'917'529'027'641'081, 6'917'529'027'641'081'856},
        // More nanoseconds than there is room for stay at the most.
        {24'000'000, UINT64_MAX, 768'614'336'404'564, 768'614'336'404'564'608, UINT64_MAX},
        {1'000'000'000, UINT64_MAX, 18'446'744'073'709, 18'446'744'073'709'551, UINT64_MAX},
    };
    for (const auto& c : cases) {
        tova::set_resolution(c.per_second);
        EXPECT_EQ(c.ms, tova_time_ms(c.units));
        EXPECT_EQ(c.us, tova_time_us(c.units));
        EXPECT_EQ(c.ns, tova_time_ns(c.units));
    }
    tova::set_resolution(before);
}

std::string full(const tova_time& t)
{
    char text[32];
    tova_time_string(&t, tova_time_form_full, text, sizeof text);
    return text;
}

std::string described(const tm& t)
{
    char text[64];
    return {text, strftime(text, sizeof text, "%F %T %w %j %Z %z ", &t)};
}

TEST(UniversalTime, IsReckonedAsTheCLibraryReckonsIt)
{
    constexpr time_t day = 86400, century = 36525 * day;
    tm ours, theirs;
    for (time_t moment = -20 * century; moment < 100 * century; moment += 33 * day + 4321) { // every month and hour
        ASSERT_TRUE(tova::time_utc_from(moment, &ours));
        ASSERT_EQ(described(*gmtime_r(&moment, &theirs)), described(ours)) << moment;
    }
    // The last second of a year and the day that only some years have.
    for (const time_t moment : {-1L, 0L, 951'782'399L, 951'868'800L, 4'107'542'400L, 1'230'767'999L})
        EXPECT_EQ(described(*gmtime_r(&moment, &theirs)), (tova::time_utc_from(moment, &ours), described(ours)));
    for (const time_t moment : {INT64_MAX, INT64_MIN})
        EXPECT_FALSE(tova::time_utc_from(moment, &ours));
}

TEST(LocalTime, IsUniversalTimeLessItsBias)
{
    const support::Zone zone("EAST-3");
    tova_time local, utc, later;
    do {
        tova_time_gmt(&utc);
        tova_time_local(&local);
        tova_time_gmt(&later);
    } while (utc.hour != later.hour);
    EXPECT_STREQ("GMT", utc.zone);
    EXPECT_EQ(-180, local.bias);
    EXPECT_EQ((utc.hour + 3) % 24, local.hour);
}

// The files' times stand for all local times: they alone can be chosen.
TEST(FileInfo, TellsLocalTimesWithTheirBiasEastOfGreenwich)
{
    support::ScratchFolder folder;
    const std::string path = folder.file("told");
    support::write_file(path, "12345");
    const timespec times[] = {{1'262'304'000, 0}, {1'276'765'503, 0}}; // access 2010-01-01 00:00, change 06-17 09:05:03
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
    const auto told = [](const tova_time& t) {
        return full(t) + " " + std::to_string(t.bias) + " " + std::to_string(t.daylight) + " " + t.zone;
    };
    static const struct
    {
        const char *zone, *accessed, *modified;
    } cases[] = {
        {"UTC0", "2010-01-01 00:00:00.000 0 0 UTC", "2010-06-17 09:05:03.000 0 0 UTC"},
        {"America/New_York", "2009-12-31 19:00:00.000 -300 0 EST", "2010-06-17 05:05:03.000 -240 1 EDT"},
        {"Australia/Lord_Howe", "2010-01-01 11:00:00.000 660 1 +11", "2010-06-17 19:35:03.000 630 0 +1030"},
    };
    tova_file_info info;
    for (const auto& [name, accessed, modified] : cases) {
        const support::Zone zone(name);
        ASSERT_EQ(1, tova_file_info_get(path.c_str(), &info));
        EXPECT_EQ(accessed, told(info.accessed));
        EXPECT_EQ(modified, told(info.modified));
        EXPECT_GE(info.changed.year, 2024);
        EXPECT_EQ(5u, info.size);
    }
    EXPECT_EQ(0, tova_file_info_get(folder.file("missing").c_str(), &info));
    EXPECT_EQ(0u, info.size);
    EXPECT_EQ(0, info.modified.year);
    tova::time_local_from(INT64_MAX, &info.accessed); // a file system may hold a time beyond any calendar
    EXPECT_EQ("0-00-00 00:00:00.000", full(info.accessed));
}

TEST(TimeText, HasFourForms)
{
    const tova_time t = {2010, 6, 4, 17, 9, 5, 3, 42, 0, 0, "EDT"};
    const tova_time first = {999, 1, 0, 1, 0, 0, 60, 0, 0, 0, ""};
    static const struct
    {
        const tova_time& time;
        int32_t form;
        const char* text;
    } cases[] = {{t, tova_time_form_full, "2010-06-17 09:05:03.042"},
                 {t, tova_time_form_date, "2010-06-17"},
                 {t, tova_time_form_iso, "2010-06-17T09:05:03"},
                 {t, tova_time_form_header, "Thu, 17 Jun 2010 09:05:03 "},
                 {first, tova_time_form_header, "Sun, 01 Jan 0999 00:00:60 "}};
    for (const auto& c : cases) {
        const int32_t length = static_cast<int32_t>(strlen(c.text));
        char buffer[40];
        EXPECT_EQ(length, tova_time_string(&c.time, c.form, buffer, length + 1));
        EXPECT_STREQ(c.text, buffer);
        EXPECT_EQ(0, tova_time_string(&c.time, c.form, buffer, length));
        EXPECT_STREQ("", buffer);
    }
}

} // namespace
