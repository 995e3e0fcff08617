/// @file
/// The options that every transfer gets, and what becomes of the data that arrives.
#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <string>

#include "AnalyticsSDK/IWebClient.h"
#include "CurlHandles.h"

namespace AnalyticsSDK {

/// The limits of transfers. Fixed in practice: tests put smaller ones, and a clock of their own, in their place.
struct TransferSettings
{
    static inline std::atomic<long> connect_timeout_ms{30'000};
    /// From the start of a transfer to its end, the upload included.
    static inline std::atomic<long> total_timeout_ms{60'000};
    /// Bytes of body that a queued request keeps in memory.
    static inline std::atomic<std::size_t> text_body_limit{16 * 1024 * 1024};
    /// The clock of stall detection, in milliseconds; null for GetCurrentTimeInMillis.
    static inline std::atomic<double (*)()> clock{nullptr};

    static double Now();
};

using FormParameters = std::map<std::string, std::string>;

/// The body of a URL-encoded form, built once at its exact size: names as they are, values percent-encoded.
std::string BuildFormBody(const FormParameters& params);

/// Sets every option of a transfer but its proxy.
///
/// @param handle the transfer
/// @param type how `params` are sent; null sends a GET
/// @param params needed during the call only
/// @param bProgress whether progress is reported and cancelling heeded (queued transfers), or data just written
/// @param certificateFile authorities for an https URL; empty: "cacert.pem" beside the program
/// @return false when libcurl took an option badly, as when memory is short: the transfer is then not fit to be made
bool ApplyTransferOptions(CurlEasyHandle* handle, RequestType type, const FormParameters* params, bool bProgress,
                          const std::string& certificateFile);

/// Makes a post wait for the go-ahead ("Expect: 100-continue", a second at most) before it sends its body, or not wait,
/// as at first. Nothing for a transfer without options.
void AskBeforeBody(CurlEasyHandle* handle, bool bAsk);

/// Whether a URL is an https one by its first letters, exactly as they stand.
bool IsHttps(const char* url);

} // namespace AnalyticsSDK
