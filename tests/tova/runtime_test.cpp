#include "lumo/tova/own/internal.h"
#include "lumo/tova/runtime.h"

#include <gmock/gmock.h>

namespace {

std::vector<std::pair<int32_t, std::string>> logged;

void remember(int32_t level, const char* message)
{
    logged.emplace_back(level, message);
}

TEST(Log, HandsWholeMessagesOverOrEmptyOnes)
{
    tova_log(2, "nobody %s", "hears");
    tova_log_register(remember);
    tova_log(2, "Failed %s error %d", "curl_easy_perform", 7);
    for (size_t length : {511, 512})
        tova_log(-1, "%s", std::string(length, 'x').c_str());
    tova_log_register(nullptr);
    tova_log(2, "nobody again");
    EXPECT_THAT(logged, testing::ElementsAre(testing::Pair(2, "Failed curl_easy_perform error 7"),
                                             testing::Pair(-1, std::string(511, 'x')), testing::Pair(-1, "")));
}

} // namespace
