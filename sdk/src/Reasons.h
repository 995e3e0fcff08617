// Why a request failed, in one sentence that says what to do.
#pragma once

#include <string>

namespace AnalyticsSDK {

/// What is known of a failed request.
struct Failure
{
    long result = 0;               ///< libcurl's
    long status = 0;               ///< HTTP's, 0 without one
    std::string words = {};        ///< libcurl's own, without any login
    std::string certificates = {}; ///< path of the file of authorities
};

std::string ReasonOf(const Failure& failure);

} // namespace AnalyticsSDK
