#include "TransferProxy.h"

#include <cstring>
#include <string>

#include "TransferOptions.h"
#include "lumo/tova/own/curl_safeguards.h"

namespace AnalyticsSDK::TransferProxy {
namespace {

// With a login in hand libcurl still starts without it, to hear which schemes the proxy takes. A post must then keep
// its body back: libcurl 7.88 hangs when the proxy's refusal arrives while the body is on its way. In a tunnel the
// question is settled before.
void SetLogin(CurlEasyHandle& handle, const char* proxy, ICredentialStore* store)
{
    CUserCredentials credentials;
    const bool bLogin = store && store->CopyUserCredentials(proxy, credentials);
    if (bLogin)
        tova::set_proxy_login(handle.GetHandle(), proxy, credentials.strUserName, credentials.strPassword);
    else // An empty login would still be sent as one.
        curl_easy_setopt(handle.GetHandle(), CURLOPT_PROXYUSERPWD, static_cast<const char*>(nullptr));
    AskBeforeBody(&handle, bLogin && handle.bPost && !IsHttps(handle.GetUrl()));
}

} // namespace

bool SetNext(CurlEasyHandle* pHandle, const char* url, IProxyManager* manager, ICredentialStore* store)
{
    if (manager == nullptr || pHandle == nullptr || url == nullptr || *url == '\0')
        return false;
    CURL* curl = pHandle->GetHandle();
    if (!manager->GetProxy(url, pHandle->spProxyInfo)) {
        // Not null: libcurl would then look for a proxy in the environment.
        curl_easy_setopt(curl, CURLOPT_PROXY, "");
        // Removes the login of an earlier attempt's proxy, which the server must not see.
        SetLogin(*pHandle, "", nullptr);
        return false;
    }
    tova_assert(pHandle->spProxyInfo.Get());
    const char* pszProxy = pHandle->spProxyInfo->GetProxy();
    tova_assert(0 < strlen(pszProxy));
    curl_easy_setopt(curl, CURLOPT_PROXY, pszProxy);
    // no_proxy of the environment does not override the manager's choice.
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "");
    curl_easy_setopt(curl, CURLOPT_PROXYAUTH, -1L); // any scheme that the proxy asks for
    SetLogin(*pHandle, pszProxy, store);
    // For https the proxy passes bytes on and sees none of them.
    if (IsHttps(url))
        curl_easy_setopt(curl, CURLOPT_HTTPPROXYTUNNEL, 1L);
    return true;
}

// Only failures before the proxy's first answer count as the proxy's: later ones may be the server's.
bool Ban(const CurlEasyHandle& handle, long result, IProxyManager* manager)
{
    const bool bBlame =
        result == CURLE_COULDNT_RESOLVE_HOST || result == CURLE_COULDNT_CONNECT || result == CURLE_OPERATION_TIMEDOUT;
    if (!bBlame || !handle.UsesProxy() || manager == nullptr)
        return false;
    manager->AddProxyToBlackList(handle.spProxyInfo->GetProxy());
    return true;
}

// Deliberate: a proxy that is known for the host is kept, even when another has just worked, because a host may have
// set it.
bool Remember(const CurlEasyHandle& handle, const char* url, IProxyManager* manager)
{
    if (!handle.UsesProxy() || manager == nullptr)
        return false;
    std::string known;
    if (!manager->FindProxyInCache(url, known))
        manager->AddProxyToCache(url, handle.spProxyInfo->GetProxy());
    return true;
}

} // namespace AnalyticsSDK::TransferProxy
