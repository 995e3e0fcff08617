// The options of every transfer, and the handling of received data.
#pragma once

#include <map>
#include <string>

#include "AnalyticsSDK/IWebClient.h"
#include "CurlHandles.h"

namespace AnalyticsSDK {

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
/// @return false when libcurl refused an option, for lack of memory for example: the transfer must not be started then
bool ApplyTransferOptions(CurlEasyHandle* handle, RequestType type, const FormParameters* params, bool bProgress,
                          const std::string& certificateFile);

/// Makes a post wait for the server's permission ("Expect: 100-continue", a second at most) before it sends its body;
/// by default it does not wait. Does nothing before the options are set.
void AskBeforeBody(CurlEasyHandle* handle, bool bAsk);

/// Whether a URL is an https one by its first letters, exactly as they stand.
bool IsHttps(const char* url);

} // namespace AnalyticsSDK
