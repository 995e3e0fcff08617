/// @file
/// CurlInit: libcurl and the TLS library under it, set up once per process, and left alone once the process leaves.
#pragma once

#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"

/// A lock that OpenSSL has made for itself while it runs. OpenSSL names the type and leaves it to us.
struct CRYPTO_dynlock_value;

namespace AnalyticsSDK {

/// Set-up on construction, clean-up on destruction. The library holds one static instance, so that no web client has to
/// care.
///
/// OpenSSL before 1.1 is safe for several threads only with locks from outside, which is what the callbacks are for.
/// Today's has its own: it asks for one lock, and installing the callbacks does nothing.
class CurlInit
{
public:
    /// A mutex of the recursive kind, to be had in arrays.
    struct Lock : lumo::mutex
    {
        Lock() : mutex(false) {}
    };

    CurlInit();
    /// Cleans up when no web client is left. Otherwise the process is leaving with threads alive: waits, a second at
    /// most, until none of them is inside libcurl or OpenSSL, and lets none in any more.
    ~CurlInit();
    CurlInit(const CurlInit&) = delete;
    CurlInit& operator=(const CurlInit&) = delete;

    /// Makes as many locks as OpenSSL wants, in place of earlier ones, and installs the callbacks.
    /// @return false when there is no memory for the locks; nothing is installed then
    bool InitOpenSSLCallbacks();
    /// Takes the callbacks away and then the locks, so that none is used once it is gone.
    /// @return false when there are no locks
    bool CloseOpenSSLCallbacks();
    /// OpenSSL's locks; empty when the callbacks are not installed.
    const lumo::scoped_array<Lock>& GetLocks() const { return locks; }

    // The callbacks, as OpenSSL calls them, from any thread. They use the locks of the library's instance.

    /// Locks lock `n` when bit 0 of `mode` is set, else unlocks it. Neither is `n` checked nor place and line used.
    static void locking_function(int mode, int n, const char* file, int line);
    /// The system's number of the calling thread.
    static unsigned long id_function();
    /// A new lock, null when there is no memory. The other two lock or unlock it, and end it.
    static CRYPTO_dynlock_value* dyn_create_function(const char* file, int line);
    static void dyn_lock_function(int mode, CRYPTO_dynlock_value* lock, const char* file, int line);
    static void dyn_destroy_function(CRYPTO_dynlock_value* lock, const char* file, int line);

    /// A web client comes or goes. Any thread.
    static void AddUser();
    static void RemoveUser();

private:
    lumo::scoped_array<Lock> locks;
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
