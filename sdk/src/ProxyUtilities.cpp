#include "AnalyticsSDK/ProxyUtilities.h"

#include <cstring>

#include "AnalyticsSDK/Utilities.h"
#include "lumo/proxy.h"

namespace AnalyticsSDK {
namespace {

// Less than the hour between two uploads, so that each upload tries a proxy that failed again.
constexpr double default_ban_ms = 30 * 60 * 1000;

bool IsEmpty(const char* text)
{
    return text == nullptr || *text == '\0';
}

// The key of the cache: by host alone, whatever the scheme, port and path. False when the URL names no host, as one
// cache entry must not serve all of those.
bool GetCacheKey(const char* url, std::string& host)
{
    return !IsEmpty(url) && GetHostFromUrl(url, host) && !host.empty();
}

} // namespace

const char* CProxyInfo::GetProxy() const
{
    return strProxy.c_str();
}

void CProxyInfo::SetProxy(const char* proxy)
{
    strProxy = proxy ? proxy : "";
}

IProxyManager::~IProxyManager() = default;
CProxyManager::CProxyManager() = default;
CProxyManager::~CProxyManager() = default;

bool CProxyManager::GetProxy(const char* url, scoped_ptr<CProxyInfo>& spProxyInfo)
{
    const bool is_new = !spProxyInfo;
    if (is_new)
        spProxyInfo.Reset(new CProxyInfo);
    tova_assert(spProxyInfo.Get());
    if (IsEmpty(url))
        return false;
    std::string proxy;
    // Deliberate: a cached proxy is returned even while it is banned, because it may be the only one that the host can
    // use.
    if (FindProxyInCache(url, proxy)) {
        spProxyInfo->bUseProxy = 1;
        spProxyInfo->strProxy = proxy;
        return true;
    }
    // A record that is not new keeps its lists, so that a retry goes on where the attempt before it failed.
    if (is_new && !GetProxyInfoForUrl(url, spProxyInfo.Get()))
        return false;
    // Only the cache sets the flag; the header says why candidates wait for that.
    if (!spProxyInfo->bUseProxy)
        return false;
    if (!GetFirstValidProxy(spProxyInfo.Get(), proxy)) {
        spProxyInfo->bUseProxy = 0;
        return false;
    }
    spProxyInfo->strProxy = proxy;
    return true;
}

bool CProxyManager::FindProxyInCache(const char* url, std::string& proxy)
{
    lumo::scoped_lock hold(cacheLock);
    proxy.clear(); // the old text of the caller must not look like a result
    std::string host;
    if (!GetCacheKey(url, host))
        return false;
    const auto entry = mapProxyCache.find(host);
    if (entry == mapProxyCache.end())
        return false;
    proxy = entry->second;
    return true;
}

bool CProxyManager::AddProxyToCache(const char* url, const char* proxy)
{
    lumo::scoped_lock hold(cacheLock);
    std::string host;
    if (IsEmpty(proxy) || !GetCacheKey(url, host))
        return false;
    // Assigned, unlike a ban: the newest proxy counts.
    mapProxyCache[host] = proxy;
    return true;
}

void CProxyManager::AddProxyToBlackList(const char* proxy)
{
    lumo::scoped_lock hold(blackListLock); // locked again by the call, which a recursive mutex allows
    AddProxyToBlackList(proxy, default_ban_ms);
}

void CProxyManager::AddProxyToBlackList(const char* proxy, double durationMs)
{
    lumo::scoped_lock hold(blackListLock);
    // Emplaced, not assigned: a second failure does not extend the ban.
    if (!IsEmpty(proxy))
        mapBlackList.emplace(proxy, GetCurrentTimeInMillis() + durationMs);
}

void CProxyManager::RemoveProxyFromBlackList(const char* proxy)
{
    lumo::scoped_lock hold(blackListLock);
    if (!IsEmpty(proxy))
        mapBlackList.erase(proxy);
}

bool CProxyManager::IsProxyInBlackList(const char* proxy)
{
    lumo::scoped_lock hold(blackListLock);
    if (IsEmpty(proxy))
        return false;
    const auto entry = mapBlackList.find(proxy);
    if (entry == mapBlackList.end())
        return false;
    if (GetCurrentTimeInMillis() < entry->second)
        return true;
    // Ended bans are only removed here, by the first question after their end.
    RemoveProxyFromBlackList(proxy);
    return false;
}

// Each candidate is checked under the lock, but not the whole loop: a ban that is added meanwhile takes effect a moment
// later.
bool CProxyManager::GetFirstValidProxy(CProxyInfo* info, std::string& proxy)
{
    proxy.clear();
    if (info == nullptr)
        return false;
    for (const std::string& candidate : info->vProxies) {
        if (!IsProxyInBlackList(candidate.c_str())) {
            proxy = candidate;
            return true;
        }
    }
    return false;
}

bool GetProxyInfoForUrl(const char* url, CProxyInfo* info)
{
    // Into local texts: when the system names nothing, the record stays unchanged.
    std::string proxies, bypass;
    if (IsEmpty(url) || info == nullptr || !lumo::proxy::get_for_url(url, proxies, bypass))
        return false;
    TokenizeProxyString(proxies.c_str(), info->vProxies);
    bool is_local_bypassed = false;
    TokenizeProxyBypassString(bypass.c_str(), info->vBypass, is_local_bypassed);
    info->bBypassLocal = is_local_bypassed;
    return true;
}

void TokenizeProxyString(const char* text, std::vector<std::string>& out)
{
    out.clear();
    if (IsEmpty(text))
        return;
    Tokenize(std::string(text), out, std::string("; "));
    // What is left of an entry without a host.
    std::erase_if(out, [](const std::string& token) { return token == ":" || token == "::"; });
}

void TokenizeProxyBypassString(const char* text, std::vector<std::string>& out, bool& bBypassLocal)
{
    out.clear();
    bBypassLocal = false;
    if (IsEmpty(text))
        return;
    Tokenize(std::string(text), out, std::string("; "));
    // The comparison is exact: "<LOCAL>" is an entry like any other.
    bBypassLocal = std::erase(out, "<local>") > 0;
}

// By the name alone: an address without a dot, as IPv6 ones are, counts as local, too.
bool IsHostLocal(const char* host)
{
    return !IsEmpty(host) && std::strchr(host, '.') == nullptr;
}

// Never exempts a host; the header says why.
bool IsProxyBypassed(const char*, std::vector<std::string>&, bool)
{
    return false;
}

} // namespace AnalyticsSDK
