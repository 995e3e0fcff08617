#include "CurlInit.h"

#include <atomic>

#include <curl/curl.h>
#include <openssl/crypto.h>

#include "lumo/tova/thread.h"

namespace AnalyticsSDK {
namespace {

constexpr int leaving_limit_ms = 1000;

// Trivially destroyed, so that they still hold while static objects are torn down around live threads.
constinit std::atomic<int> g_nUsers{0};  // web clients
constinit std::atomic<int> g_nInside{0}; // uses under way
constinit std::atomic<bool> g_bLeaving{false};
constinit thread_local int t_nInside = 0; // those of this thread: a host may call exit() from a callback

CurlInit g_curlInit;

void WaitUntilNobodyIsInside()
{
    g_bLeaving = true;
    for (int waited_ms = 0; g_nInside > t_nInside && waited_ms < leaving_limit_ms; ++waited_ms)
        tova_sleep(1);
}

} // namespace

// OpenSSL's own exit handler would pull the TLS state from under a transfer that is under way when the host exits. It
// stays away when the first start-up of the process says so; the system takes the memory back anyway. A host may have
// started OpenSSL before: hence the care on leaving, which comes before that handler, as what is made later ends
// earlier.
CurlInit::CurlInit()
{
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    curl_global_init(CURL_GLOBAL_ALL);
}

CurlInit::~CurlInit()
{
    if (g_nUsers == 0)
        curl_global_cleanup();
    else
        WaitUntilNobodyIsInside();
}

void CurlInit::AddUser()
{
    ++g_nUsers;
}

void CurlInit::RemoveUser()
{
    --g_nUsers;
}

// Counted before the flag is read: whoever raises the flag either sees the count or is seen.
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
