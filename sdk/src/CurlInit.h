/// @file
/// CurlInit: libcurl and the TLS library under it, set up once per process, and left alone once the process leaves.
#pragma once

namespace AnalyticsSDK {

/// Set-up on construction, clean-up on destruction. The library holds one static instance, so that no web client has to
/// care. Today's OpenSSL manages its own locking: of the TLS part only the start-up remains.
class CurlInit
{
public:
    CurlInit();
    /// Cleans up when no web client is left. Otherwise the process is leaving with threads alive: waits, a second at
    /// most, until none of them is inside libcurl or OpenSSL, and lets none in any more.
    ~CurlInit();
    CurlInit(const CurlInit&) = delete;
    CurlInit& operator=(const CurlInit&) = delete;

    /// A web client comes or goes. Any thread.
    static void AddUser();
    static void RemoveUser();
};

/// Held by a thread while it is inside libcurl or OpenSSL, in steps that end soon; may be nested.
///
/// False once the process is leaving: others may have torn down the state of these libraries by then. What they hold is
/// then to be leaked, for the system to take back.
class CurlUse
{
public:
    CurlUse();
    ~CurlUse();
    CurlUse(const CurlUse&) = delete;
    CurlUse& operator=(const CurlUse&) = delete;

    explicit operator bool() const { return m_bAllowed; }

private:
    bool m_bAllowed;
};

} // namespace AnalyticsSDK
