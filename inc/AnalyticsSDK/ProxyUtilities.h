// Which proxy a transfer goes through: the proxy manager, and the texts that its lists are made from.
//
// A proxy is a text like "host:port", possibly with a scheme in front ("socks5://host:port"; libcurl's CURLOPT_PROXY
// says which there are), and is compared and passed on unchanged. Times are milliseconds. Null texts count as empty.
// Any thread may use a manager; a CProxyInfo belongs to one transfer.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"
#include "lumo/tova/base.h"

namespace AnalyticsSDK {

using lumo::scoped_ptr;

/// The route of one transfer: the candidates found for its URL, and the choice.
class TOVA_API CProxyInfo
{
public:
    /// The chosen proxy, empty when none is; valid until SetProxy.
    const char* GetProxy() const;
    /// Chooses; does not touch bUseProxy.
    void SetProxy(const char* proxy);

    std::vector<std::string> vProxies; ///< candidates, in the order to try
    std::string strReserved;           ///< empty, not used
    std::vector<std::string> vBypass;  ///< bypass entries
    int32_t nReserved = 0;             ///< not used
    int32_t bUseProxy = 0;             ///< not 0 when strProxy is to be used
    int32_t bBypassLocal = 0;          ///< not 0 when "<local>" stood among the bypass entries
    std::string strProxy;              ///< the chosen proxy
};

/// Chooses proxies. The order of the operations is part of the binary interface.
class TOVA_API IProxyManager
{
public:
    virtual ~IProxyManager();

    /// Chooses the proxy of a transfer's next attempt.
    ///
    /// @param url where the transfer goes
    /// @param spProxyInfo the transfer's record; made here when empty
    /// @return true when the record holds a proxy to use, false for a direct connection
    virtual bool GetProxy(const char* url, scoped_ptr<CProxyInfo>& spProxyInfo) = 0;

    /// Bans a proxy that failed, for 30 minutes. One that is banned already stays so until its first ban ends.
    virtual void AddProxyToBlackList(const char* proxy) = 0;

    /// The proxy that is remembered for the URL's host, whatever the scheme, port and path.
    ///
    /// @param url where a transfer goes
    /// @param proxy receives it; empty when none is known
    /// @return false when none is known
    virtual bool FindProxyInCache(const char* url, std::string& proxy) = 0;

    /// Remembers a proxy for the URL's host, in place of an older one. This is also how a host names a proxy to use.
    ///
    /// @param url whose host it is for
    /// @param proxy as CURLOPT_PROXY takes it, without a login
    /// @return false, and no change, when the URL names no host or the proxy is empty
    virtual bool AddProxyToCache(const char* url, const char* proxy) = 0;
};

/// The library's proxy manager: a cache of proxies that worked, by host, and a list of banned ones. Both live in memory
/// only, as long as the manager.
class TOVA_API CProxyManager : public IProxyManager
{
public:
    CProxyManager();
    ~CProxyManager() override;

    /// The cached proxy of the URL's host comes first, banned or not. Otherwise a record that has once used a cached
    /// proxy takes its first candidate that is not banned; with all of them banned the connection is direct.
    /// Deliberate: candidates that the system named are not used before the cache holds a proxy for the host, so that a
    /// host's transfers go direct until one proxy is known to work.
    bool GetProxy(const char* url, scoped_ptr<CProxyInfo>& spProxyInfo) override;
    void AddProxyToBlackList(const char* proxy) override;
    bool FindProxyInCache(const char* url, std::string& proxy) override;
    bool AddProxyToCache(const char* url, const char* proxy) override;

    /// Bans a proxy for so many milliseconds of the monotonic clock (GetCurrentTimeInMillis). One that is listed
    /// already keeps the end of its ban, even one in the past.
    void AddProxyToBlackList(const char* proxy, double durationMs);
    /// Lets the proxy be chosen again at once.
    void RemoveProxyFromBlackList(const char* proxy);
    /// Whether a ban holds. A ban that has ended is taken off the list here.
    bool IsProxyInBlackList(const char* proxy);
    /// The first candidate that is not banned. @return false, and an empty text, when there is none
    bool GetFirstValidProxy(CProxyInfo* info, std::string& proxy);

private:
    std::map<std::string, double> mapBlackList LUMO_GUARDED_BY(blackListLock); ///< proxy to the end of its ban
    lumo::mutex blackListLock{lumo::mutex::recursive};
    std::map<std::string, std::string> mapProxyCache LUMO_GUARDED_BY(cacheLock); ///< host to proxy
    lumo::mutex cacheLock{lumo::mutex::recursive};
};

/// Fills the candidates and bypass entries of a record from the system's settings for a URL. Its choice, and whether
/// that is to be used, stay as they are. On Linux and darwin the system is never found to name a proxy.
///
/// @return false, and no change, when the URL is empty, the record null, or the system names no proxy
TOVA_API bool GetProxyInfoForUrl(const char* url, CProxyInfo* info);

/// Splits a proxy list at semicolons and spaces. `out` is cleared first; entries that are just ":" or "::" (what is
/// left of an entry without a host) are dropped.
TOVA_API void TokenizeProxyString(const char* text, std::vector<std::string>& out);

/// Splits a bypass list likewise. `out` is cleared first; "<local>", in just these letters, raises the flag instead.
TOVA_API void TokenizeProxyBypassString(const char* text, std::vector<std::string>& out, bool& bBypassLocal);

/// Whether a host name has no dot. False for an empty one.
TOVA_API bool IsHostLocal(const char* host);

/// Always false. Deliberate: bypass entries are kept for hosts to read, but no request is exempt from its proxy, since
/// a direct connection may be forbidden.
TOVA_API bool IsProxyBypassed(const char* host, std::vector<std::string>& bypass, bool bBypassLocal);

} // namespace AnalyticsSDK
