// CurlInit: sets libcurl and the TLS library under it up once per process, and keeps threads out of them once the
// process exits.
#pragma once

#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"

/// A lock that OpenSSL has made for itself while it runs. OpenSSL names the type and leaves it to us.
struct CRYPTO_dynlock_value;

namespace AnalyticsSDK {

/// Set-up on construction, clean-up on destruction. The library has one static instance, so no web client needs to do
/// this.
///
/// OpenSSL before 1.1 is safe for several threads only with locks from outside, which is what the callbacks are for.
/// Today's has its own: it asks for one lock, and installing the callbacks does nothing.
class CurlInit
{
public:
    /// A recursive mutex with a default constructor, for arrays.
    struct Lock : lumo::mutex
    {
        Lock() : mutex(lumo::mutex::recursive) {}
    };

    CurlInit();
    /// Cleans up when no web client is left. Otherwise the process exits with threads alive: waits, for a second at
    /// most, until none of them is inside libcurl or OpenSSL, and lets none in any more.
    ~CurlInit();
    CurlInit(const CurlInit&) = delete;
    CurlInit& operator=(const CurlInit&) = delete;

    /// Makes as many locks as OpenSSL asks for, in place of earlier ones, and installs the callbacks.
    /// @return false when there is no memory for the locks; nothing is installed then
    bool InitOpenSSLCallbacks();
    /// Removes the callbacks and then the locks, so that no lock is used after its end.
    /// @return false when there are no locks
    bool CloseOpenSSLCallbacks();
    /// OpenSSL's locks; empty when the callbacks are not installed.
    const lumo::scoped_array<Lock>& GetLocks() const { return locks; }

    // The callbacks, as OpenSSL calls them, from any thread. They use the locks of the library's instance.

    /// Locks lock number `n` when bit 0 of `mode` is set, else unlocks it. `n` is not checked; `file` and `line` are
    /// not used.
    static void locking_function(int mode, int n, const char* file, int line);
    /// The system's number of the calling thread.
    static unsigned long id_function();
    /// A new lock, null when there is no memory. The other two lock or unlock it, and end it.
    static CRYPTO_dynlock_value* dyn_create_function(const char* file, int line);
    static void dyn_lock_function(int mode, CRYPTO_dynlock_value* lock, const char* file, int line);
    static void dyn_destroy_function(CRYPTO_dynlock_value* lock, const char* file, int line);

    /// Counts the web clients. Any thread.
    static void AddUser();
    static void RemoveUser();

private:
    lumo::scoped_array<Lock> locks;
};

/// Held by a thread while it is inside libcurl or OpenSSL, in steps that end soon; may be nested.
///
/// False once the process exits: these libraries may have torn down their state by then. Their objects must be leaked
/// then; the system frees the memory.
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
