#include "Options.h"

#include <gtest/gtest.h>

#include "support/scratch.h"

using namespace AnalyticsSDK;

TEST(SessionOptions, RefuseOtherValuesWithoutAChange)
{
    const struct
    {
        Option option;
        const char* value;
        bool taken;
    } rows[] = {
        {Option::delivery, "batches", true},
        {Option::delivery, "Batches", false},
        {Option::delivery, "", false},
        {Option::delivery, "1", false},
        {Option::sync, "event", true},
        {Option::stamp, "", true},
        {Option::stamp, "sequence,event", true},
        {Option::stamp, "time_ms,", false},
        {Option::stamp, ",time_ms", false},
        {Option::stamp, "time_ms, event", false},
        {Option::stamp, "none", false},
        {Option::sync, nullptr, false},
        {Option::batch_bytes, "4096", true},
        {Option::batch_bytes, "4095", false},
        {Option::batch_bytes, "16777216", true},
        {Option::batch_bytes, "16777217", false},
        {Option::close_ms, "0", true},
        {Option::close_ms, "", false},
        {Option::close_ms, "-1", false},
        {Option::close_ms, "+1", false},
        {Option::close_ms, "0x10", false},
        {Option::close_ms, " 5", false},
        {Option::close_ms, "5 ", false},
        {Option::close_ms, "1e3", false},
        {Option::close_ms, "2147483647", true},
        {Option::close_ms, "99999999999999999999999", false},
        {Option::close_ms, "00000000000000000000005", false},
    };
    for (const auto& row : rows) {
        Options options;
        const std::string before = options.Text(row.option);
        EXPECT_EQ(options.Set(row.option, row.value), row.taken) << (row.value ? row.value : "null");
        EXPECT_EQ(options.Text(row.option), row.taken ? row.value : before);
    }
}

TEST(SessionOptions, AreTheOnesOfTheDocument)
{
    const std::string document = support::read_file(TEST_SOURCE_DIR "/docs/options.md");
    for (const OptionRow& row : Options::Table()) {
        std::string values = std::to_string(row.least) + " to " + std::to_string(row.most);
        std::string preset = std::to_string(row.preset);
        if (row.several) {
            preset = "-";
            values = "any of `time_ms`, `sequence`, `session`, `event`";
        } else if (row.words[0] != nullptr) {
            preset = row.words[static_cast<size_t>(row.preset)];
            values.clear();
            for (int64_t place = row.least; place <= row.most; ++place)
                values += std::string(place != row.least ? ", `" : "`") + row.words[static_cast<size_t>(place)] + "`";
        }
        const std::string line =
            std::string("\n| `") + row.key + "` | " + preset + " | " + values + " | " + row.sentence + " | ";
        EXPECT_NE(document.find(line), std::string::npos) << line;
        EXPECT_EQ(Options::Find(row.key), static_cast<Option>(&row - Options::Table().data()));
    }
    for (const char* other : {"Delivery", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(Options::Find(other).has_value());
}
