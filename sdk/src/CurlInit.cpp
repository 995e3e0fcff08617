#include "CurlInit.h"

#include <atomic>
#include <new>

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include "lumo/tova/own/internal.h"
#include "lumo/tova/thread.h"

struct CRYPTO_dynlock_value : AnalyticsSDK::CurlInit::Lock
{};

namespace AnalyticsSDK {
namespace {

constexpr int leaving_limit_ms = 1000;

// Trivially destroyed, so that threads may still use them while static objects are destroyed.
constinit std::atomic<int> g_nUsers{0};  // web clients
constinit std::atomic<int> g_nInside{0}; // uses under way
constinit std::atomic<bool> g_bLeaving{false};
constinit thread_local int t_nInside = 0; // those of this thread, because a host may call exit() from a callback

CurlInit g_curlInit TOVA_BEFORE_THE_HOST;

void WaitUntilNobodyIsInside()
{
    g_bLeaving = true;
    for (int waited_ms = 0; g_nInside > t_nInside && waited_ms < leaving_limit_ms; ++waited_ms)
        tova_sleep(1);
}

// OpenSSL locks in one call and unlocks in another, which the thread-safety analysis cannot follow.
void LockOrUnlock(lumo::mutex& mutex, int mode) LUMO_NO_THREAD_SAFETY_ANALYSIS
{
    if (mode & CRYPTO_LOCK)
        mutex.lock();
    else
        mutex.unlock();
}

} // namespace

// OpenSSL's own exit handler would free the TLS state under a transfer that still runs when the host exits. The handler
// is not installed when the first initialisation in the process asks for that; the system frees the memory anyway. But
// the host may have initialised OpenSSL before, so our destructor waits as well: it runs before that handler, because
// what is made later is destroyed earlier.
CurlInit::CurlInit()
{
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    curl_global_init(CURL_GLOBAL_ALL);
    InitOpenSSLCallbacks();
    SSL_load_error_strings();
    SSL_library_init();
}

CurlInit::~CurlInit()
{
    const bool bThreadsLeft = g_nUsers != 0;
    if (bThreadsLeft)
        WaitUntilNobodyIsInside();
    CloseOpenSSLCallbacks();
    ERR_free_strings();
    if (!bThreadsLeft)
        curl_global_cleanup();
}

bool CurlInit::InitOpenSSLCallbacks()
{
    locks.Reset(new (std::nothrow) Lock[CRYPTO_num_locks()]);
    if (!locks)
        return false;
    CRYPTO_set_locking_callback(locking_function);
    CRYPTO_set_id_callback(id_function);
    CRYPTO_set_dynlock_create_callback(dyn_create_function);
    CRYPTO_set_dynlock_lock_callback(dyn_lock_function);
    CRYPTO_set_dynlock_destroy_callback(dyn_destroy_function);
    return true;
}

bool CurlInit::CloseOpenSSLCallbacks()
{
    if (!locks)
        return false;
    CRYPTO_set_dynlock_create_callback(nullptr);
    CRYPTO_set_dynlock_lock_callback(nullptr);
    CRYPTO_set_dynlock_destroy_callback(nullptr);
    CRYPTO_set_locking_callback(nullptr);
    CRYPTO_set_id_callback(nullptr);
    locks.Reset();
    return true;
}

void CurlInit::locking_function(int mode, int n, const char*, int)
{
    LockOrUnlock(g_curlInit.locks[static_cast<size_t>(n)], mode);
}

unsigned long CurlInit::id_function()
{
    return tova_thread_id();
}

CRYPTO_dynlock_value* CurlInit::dyn_create_function(const char*, int)
{
    return new (std::nothrow) CRYPTO_dynlock_value; // OpenSSL destroys it by dyn_destroy_function
}

void CurlInit::dyn_lock_function(int mode, CRYPTO_dynlock_value* lock, const char*, int)
{
    LockOrUnlock(*lock, mode);
}

void CurlInit::dyn_destroy_function(CRYPTO_dynlock_value* lock, const char*, int)
{
    const lumo::scoped_ptr<CRYPTO_dynlock_value> ended(lock);
}

void CurlInit::AddUser()
{
    ++g_nUsers;
}

void CurlInit::RemoveUser()
{
    --g_nUsers;
}

// Incremented before the flag is read: then either this thread sees the flag, or the one that set it sees the count.
CurlUse::CurlUse() : m_bAllowed(true)
{
    ++g_nInside;
    ++t_nInside;
    m_bAllowed = !g_bLeaving;
}

CurlUse::~CurlUse()
{
    --t_nInside;
    --g_nInside;
}

} // namespace AnalyticsSDK
