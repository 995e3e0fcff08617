#include "Answers.h"

#include <algorithm>
#include <ctime>

#include <curl/curl.h>

#include "Options.h"

namespace AnalyticsSDK {
namespace {

// The first row that matches counts. Statuses below 200 are never final; 0 means that there was none.
constexpr struct
{
    long least, most;
    Verdict verdict;
} verdicts[] = {
    {413, 413, Verdict::split}, {0, 199, Verdict::later},   {408, 408, Verdict::later},
    {425, 425, Verdict::later}, {429, 429, Verdict::later}, {500, 599, Verdict::later},
};

bool IsSuccess(long status)
{
    return status >= 200 && status < 300;
}

} // namespace

// A server that answers before it has the whole body has not taken it.
Verdict Judge(const Answer& answer, bool compressed)
{
    if (IsSuccess(answer.status))
        return answer.bodySent ? Verdict::taken : Verdict::later;
    if (compressed && (answer.status == 415 || answer.status == 400))
        return Verdict::plain;
    for (const auto& row : verdicts)
        if (answer.status >= row.least && answer.status <= row.most)
            return row.verdict;
    return Verdict::aside;
}

bool IsFailure(const Answer& answer)
{
    const Verdict verdict = Judge(answer, false);
    return verdict != Verdict::taken && verdict != Verdict::split && !answer.endedHere;
}

int64_t RetryAfter_ms(std::string_view retryAfter, std::string_view date)
{
    constexpr int64_t day_s = 86'400;
    // A number with too many digits still means a long time.
    const bool digits = !retryAfter.empty() && retryAfter.find_first_not_of("0123456789") == retryAfter.npos;
    int64_t seconds = digits ? ReadDigits(retryAfter).value_or(day_s) : 0;
    if (!digits) {
        const time_t until = curl_getdate(std::string(retryAfter).c_str(), nullptr);
        const time_t sent = curl_getdate(std::string(date).c_str(), nullptr);
        seconds = until == -1 ? 0 : until - (sent == -1 ? ::time(nullptr) : sent);
    }
    return std::clamp<int64_t>(seconds, 0, day_s) * 1000;
}

} // namespace AnalyticsSDK
