/// @file
/// CurlInit: libcurl and the TLS library under it, set up once per process.
#pragma once

namespace AnalyticsSDK {

/// Set-up on construction, clean-up on destruction. The library holds one static instance, so that no web client has to
/// care. Today's OpenSSL manages its own locking: of the TLS part only the start-up remains.
class CurlInit
{
public:
    CurlInit();
    /// Cleans up only when no web client is left: a host may exit while a client's thread is inside libcurl.
    ~CurlInit();
    CurlInit(const CurlInit&) = delete;
    CurlInit& operator=(const CurlInit&) = delete;

    /// A web client comes or goes. Any thread.
    static void AddUser();
    static void RemoveUser();
};

} // namespace AnalyticsSDK
