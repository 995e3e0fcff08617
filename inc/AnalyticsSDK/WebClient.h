/// @file
/// WebClient: the library's HTTP engine. What its operations do stands in IWebClient.h.
///
/// Queued transfers run side by side on the "WebClient Thread", the only user of libcurl's multi interface; other
/// threads reach them through a list with a lock. A synchronous request runs on its caller's thread alone.
#pragma once

#include <map>
#include <ostream>
#include <sstream>
#include <string>

#include "AnalyticsSDK/CredentialStore.h"
#include "AnalyticsSDK/IWebClient.h"
#include "AnalyticsSDK/ProxyUtilities.h"
#include "AnalyticsSDK/ThreadHelper.h"
#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"
#include "lumo/tova/base.h"

namespace AnalyticsSDK {

class CurlEasyHandle;
class CurlMultiHandle;

/// The one implementation of IWebClient. In a child made by fork() nothing can be queued any more, and closing and
/// destroying leave the parent's connections alone.
class TOVA_API WebClient : public IWebClient, public ThreadHelper
{
public:
    WebClient();
    WebClient(const WebClient&) = delete;
    WebClient& operator=(const WebClient&) = delete;

    void Release() override;
    bool Init(bool bUseOwnProxySupport) override;
    void Close() override;
    bool QueueFileForDownload(const char* url, const char* filePath, IProgressCallback* callback,
                              const char* itemID) override;
    bool QueueRequest(const char* url, IProgressCallback* callback, RequestType type,
                      std::map<std::string, std::string>* params, const char* itemID) override;
    bool ExecRequest(const char* url, std::ostream* out, long& httpCode, RequestType type,
                     std::map<std::string, std::string>* params) override;
    std::ostringstream* GetStream(const char* itemID) override;
    void CancelDownloadByID(const char* itemID) override;
    void CancelDownload(const char* url) override;
    void CancelAllDownloads() override;
    void SetCertificateFile(const char* path) override;
    ~WebClient() override;
    void Process() override;

    /// Starts the thread. Init() is what an owner calls.
    bool start() override;
    /// Asks the thread to stop and ends its wait for activity. Close() is what an owner calls.
    void stop() override;

    /// Chooses proxies from now on; not owned. Before the first request.
    void SetProxyManager(IProxyManager* manager);
    /// Supplies proxy logins from now on; not owned. Before the first request.
    void SetCredentialStore(ICredentialStore* store);
    /// The manager and the store in use: the client's own after Init(true); null when there is none.
    IProxyManager* GetProxyManager() const;
    /// The logins, owned by the client; null when it was started without its own proxies.
    ICredentialStore* GetCredentialStore() const;
    /// Why the last synchronous request of this client failed, in libcurl's words; empty after a success. Any thread.
    std::string GetLastError() const;
    /// Wakes the client's thread.
    void StartDownload();
    /// The first queued transfer with this item id, null when there is none; for use on the client's thread.
    CurlEasyHandle* FindRequestByID(const char* itemID);

    /// Gives a transfer the proxy and login of its next attempt. @return true when a proxy was set
    static bool SetProxyToNextValidProxy(CurlEasyHandle* handle, const char* url, IProxyManager* manager,
                                         ICredentialStore* store);
    /// Bans the transfer's proxy when `result` (libcurl's: 6, 7 or 28) puts the blame on it. @return true when banned
    bool HandleProxyError(long result, CurlEasyHandle* handle, const char* url);
    /// Remembers the transfer's proxy for the URL's host, unless one is known. @return true when the cache holds one
    bool HandleProxySuccess(long result, CurlEasyHandle* handle, const char* url);

private:
    using ThreadHelper::Init;

    bool Queue(scoped_ptr<CurlEasyHandle>& spHandle, const char* url, IProgressCallback* callback, RequestType type,
               std::map<std::string, std::string>* params, const char* itemID);
    bool SetCurlTransferOptions(CurlEasyHandle* handle, const char* url, RequestType type,
                                std::map<std::string, std::string>* params, bool bProgress);
    void RememberError(CurlEasyHandle* handle, long result);
    bool RunToEnd(CurlEasyHandle* handle, const char* url, long& httpCode);
    bool ProcessOnce(int& running);
    bool PerformTransfers(int& running);
    void FinishTransfers();
    void FinishTransfer(CurlEasyHandle* handle, long result);
    void NotifyEnd(CurlEasyHandle* handle, long result, long status);
    void AbortTimedOutTransfers();

    scoped_ptr<CurlMultiHandle> spMultiHandle;
    std::string strCertificateFile LUMO_GUARDED_BY(certificateLock);
    IProxyManager* pProxyManager = nullptr;
    ICredentialStore* pCredentialStore = nullptr;
    CProxyManager proxyManager;
    CCredentialStore credentialStore;
    lumo::mutex certificateLock{true};
    std::string strLastError LUMO_GUARDED_BY(errorLock);
    mutable lumo::mutex errorLock{true};
    bool bStarted = false;
};

} // namespace AnalyticsSDK
