#include "CurlInit.h"

#include <atomic>

#include <curl/curl.h>
#include <openssl/crypto.h>

namespace AnalyticsSDK {
namespace {

// Trivially destroyed, so that it still counts rightly while static objects are torn down around live threads.
constinit std::atomic<int> g_nUsers{0};

CurlInit g_curlInit;

} // namespace

// OpenSSL's own exit handler would pull the TLS state from under a transfer that is under way when the host exits. It
// stays away when the first start-up of the process says so; the system takes the memory back anyway.
CurlInit::CurlInit()
{
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    curl_global_init(CURL_GLOBAL_ALL);
}

CurlInit::~CurlInit()
{
    if (g_nUsers == 0)
        curl_global_cleanup();
}

void CurlInit::AddUser()
{
    ++g_nUsers;
}

void CurlInit::RemoveUser()
{
    --g_nUsers;
}

} // namespace AnalyticsSDK
