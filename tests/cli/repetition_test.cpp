// How the receiving example tells an upload that comes again.
#include "collector/repetition.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

TEST(Repetitions, DropOnlyTheTextThatAnotherUploadBeginsWith)
{
    // An upload is the digit of its sender and its text, in which "/" stands for a line feed.
    const struct
    {
        std::vector<std::string> uploads;
        const char* taken;
    } cases[] = {
        {{"1same/same/"}, "same/same/"},
        {{"1a/b/", "1a/b/"}, "a/b/"},
        {{"1a/b", "1a/b/", "1a/b"}, "a/b"},
        {{"1a/a", "1a/a/a/b", "1a/a/a/b/b/"}, "a/aa/bb/"},
        {{"1", "1a/", "1", "1a/b/"}, "a/b/"},
        {{"1a/", "1b/a/"}, "a/b/a/"},
        {{"1a/", "2a/"}, "a/a/"},
        {{"1a/be", "1a/better/c/"}, "a/bebetter/c/"},
        {{"1be", "1better/"}, "bebetter/"},
        {{"1a/", "1b/", "1c/", "1d/", "1e/", "1f/", "1g/", "1h/", "1a/"}, "a/b/c/d/e/f/g/h/"},
        {{"1a/", "1b/", "1c/", "1d/", "1e/", "1f/", "1g/", "1h/", "1i/", "1a/"}, "a/b/c/d/e/f/g/h/i/a/"},
    };
    for (const auto& [uploads, expected] : cases) {
        collector::Repetitions repetitions;
        std::string taken;
        for (std::string data : uploads) {
            const std::string sender = data.substr(0, 1);
            std::replace(data.begin(), data.end(), '/', '\n');
            taken += data.substr(1 + repetitions.take(sender, data.substr(1)));
        }
        std::replace(taken.begin(), taken.end(), '\n', '/');
        EXPECT_EQ(taken, expected) << uploads.back();
    }
}
