// WebClient: the library's HTTP engine. IWebClient.h describes its operations.
//
// Queued transfers run side by side on the "WebClient Thread", the only user of libcurl's multi interface; other
// threads reach them through a list with a lock. A synchronous request runs on its caller's thread alone. Each request
// asks the proxy manager for its route and the credential store for its login before every attempt.
#pragma once

#include <atomic>
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

/// The one implementation of IWebClient. Most users make it with CreateWebClient() and see the interface only; the
/// class is exported for hosts with their own proxy managers.
///
/// A transfer takes 60 seconds at most, 30 of them to connect, and is given up after 60 seconds of silence. In a child
/// made by fork() nothing can be queued any more, and closing and destroying leave the parent's connections alone.
class TOVA_API WebClient : public IWebClient, public ThreadHelper
{
public:
    /// Makes a client without a thread: what is queued waits for Init(). Synchronous requests need none.
    WebClient();
    WebClient(const WebClient&) = delete;
    WebClient& operator=(const WebClient&) = delete;

    // IWebClient.h describes these.
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
    /// Closes the client unless that was done, and ends remaining transfers without calling their callbacks.
    ~WebClient() override;
    /// Runs until no transfer is under way or a stop was asked for.
    void Process() override;

    /// Starts the thread. Init() is what an owner calls.
    bool start() override;
    /// Asks the thread to stop and ends its wait for activity. Close() is what an owner calls.
    void stop() override;

    /// Chooses proxies from now on. To be called before the first request: nothing guards the pointer.
    ///
    /// @param manager not owned, and asked from several threads; must live until the client is closed and the last
    ///     synchronous request has returned. Null: no proxy support
    void SetProxyManager(IProxyManager* manager);
    /// Supplies proxy logins from now on; otherwise as SetProxyManager. Null: no logins.
    void SetCredentialStore(ICredentialStore* store);
    /// The manager in use: the client's own after Init(true), else what SetProxyManager was given; null at first.
    IProxyManager* GetProxyManager() const;
    /// The store in use, likewise.
    ICredentialStore* GetCredentialStore() const;
    /// Why the last synchronous request of this client failed, in libcurl's words and without any login; empty before
    /// the first and after a success. Any thread; where several make requests, whichever ended last.
    std::string GetLastError() const;
    /// Wakes the client's thread. Queueing does so by itself.
    void StartDownload();
    /// The first queued transfer with this item id, null when there is none. Still the client's, and valid until the
    /// transfer ends: for use on the client's thread, that is within a callback.
    CurlEasyHandle* FindRequestByID(const char* itemID);

    /// Sets the proxy and login of a transfer's next attempt and removes those of the last one.
    ///
    /// @param handle the transfer, not under way; its record of proxies is made here when it has none
    /// @param url where it goes
    /// @param manager chooses; null leaves libcurl to its own rules, the environment's http_proxy included
    /// @param store knows the logins, by the manager's exact text; may be null
    /// @return true when a proxy was set, false for a direct connection and when handle, URL or manager is missing
    static bool SetProxyToNextValidProxy(CurlEasyHandle* handle, const char* url, IProxyManager* manager,
                                         ICredentialStore* store);

    /// Bans the transfer's proxy for 30 minutes when the result shows that it failed.
    ///
    /// @param result libcurl's: 6 (a name not resolved), 7 (no connection) and 28 (time-out) are failures of the proxy
    /// @param handle the transfer
    /// @param url not needed
    /// @return true when a proxy was in use and is banned now, so that another attempt takes another route
    bool HandleProxyError(long result, CurlEasyHandle* handle, const char* url);

    /// Remembers the transfer's proxy for the URL's host, unless one is remembered already.
    ///
    /// @param result not needed: a proxy that asked for a login is remembered, too
    /// @param handle the transfer
    /// @param url whose host it is remembered for
    /// @return true when a proxy was in use and a manager could be told
    bool HandleProxySuccess(long result, CurlEasyHandle* handle, const char* url);

private:
    friend class Courier; // posts with terms that IWebClient's operations have no place for
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
    lumo::mutex certificateLock{lumo::mutex::fast};
    std::string strLastError LUMO_GUARDED_BY(errorLock);
    mutable lumo::mutex errorLock{lumo::mutex::fast};
    std::atomic<bool> bThreadRefused{false}; ///< the system had no thread left at Init()
};

} // namespace AnalyticsSDK
