// What a server's answer to a request means for the batch that was in it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AnalyticsSDK {

/// What came of a request.
struct Answer
{
    long status = 0;           ///< the final HTTP status; 0: none arrived
    bool bodySent = false;     ///< the whole body went out
    bool connected = false;    ///< a connection to the server was made
    bool endedHere = false;    ///< the session itself ended the request
    int64_t retryAfter_ms = 0; ///< how long the server asks the client to wait; 0: it does not
    std::string reason = {};   ///< of a failure: one sentence that also says what to do
};

enum class Verdict
{
    taken,
    split, ///< too large for this server
    plain, ///< once more at once, not compressed
    later, ///< after the back-off; the cycle ends
    aside  ///< refused for a reason that waiting does not fix: tried after all others
};

/// @param compressed whether the request's body was
Verdict Judge(const Answer& answer, bool compressed);

/// Whether the answer counts as a failure for the back-off. A request that is too large does not: the server works.
bool IsFailure(const Answer& answer);

/// The wait that a Retry-After header asks for (RFC 9110, 10.2.3): seconds, or a date that is counted from the answer's
/// own Date; at most a day. 0 for what is neither, and for what is over.
int64_t RetryAfter_ms(std::string_view retryAfter, std::string_view date);

} // namespace AnalyticsSDK
