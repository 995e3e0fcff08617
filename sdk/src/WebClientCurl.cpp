#include "AnalyticsSDK/WebClient.h"

#include <cstring>
#include <utility>

#include "CurlHandles.h"
#include "CurlInit.h"
#include "TransferOptions.h"
#include "TransferProxy.h"

namespace AnalyticsSDK {
namespace {

// How late the worker notices what libcurl does not wake it for: a stall, or a lost network.
constexpr int wait_ms = 100;
// The cache returns a dead proxy even while it is banned, so without a limit attempts would never end.
constexpr int most_attempts = 10;
// What IProgressCallback::OnDownloadError reports beside HTTP statuses.
constexpr long code_stalled = -3, code_other_proxy = -7, status_final = 200, status_refused = 400,
               status_proxy_login = 407;

const char* OrEmpty(const char* text)
{
    return text ? text : "";
}

// Runs a step; running out of memory makes it a failed one. An exception would end a worker's cycle in the middle, or
// reach the host.
template <class Step>
bool Succeeds(Step step) noexcept
{
    try {
        return step();
    } catch (...) {
        return false;
    }
}

// The status to report. Deliberate: through a proxy to https it is the proxy's answer to CONNECT, so that a host sees a
// 407 of the proxy.
long ReadStatus(const CurlEasyHandle& handle)
{
    const bool bTunnel = IsHttps(handle.GetUrl()) && handle.UsesProxy();
    long status = 0;
    if (curl_easy_getinfo(handle.GetHandle(), bTunnel ? CURLINFO_HTTP_CONNECTCODE : CURLINFO_RESPONSE_CODE, &status))
        return 0;
    return status;
}

// Checks a success of libcurl, because events that the server took are deleted. libcurl also calls it a success when
// the connection ends before a final status came, or between a refusing status and the empty line behind its headers;
// and when it stopped sending, because the server answered early and closed.
long JudgeSuccess(CurlEasyHandle& handle, long result)
{
    if (result != CURLE_OK)
        return result;
    long status = 0;
    curl_easy_getinfo(handle.GetHandle(), CURLINFO_RESPONSE_CODE, &status);
    if (status < status_final)
        return CURLE_GOT_NOTHING;
    if (status >= status_refused)
        return CURLE_HTTP_RETURNED_ERROR;
    handle.NoteSentBody();
    return handle.WasBodySent() ? CURLE_OK : CURLE_SEND_ERROR;
}

} // namespace

IWebClient::~IWebClient() = default;

IWebClient* CreateWebClient()
{
    return new WebClient;
}

WebClient::WebClient() : spMultiHandle(new CurlMultiHandle)
{
    CurlInit::AddUser();
}

// A child made by fork() shares its parent's connections: cleaning up would send farewells on them. It also keeps the
// count up, so that its exit leaves libcurl alone.
WebClient::~WebClient()
{
    if (!IsOwnProcess()) {
        std::ignore = spMultiHandle.Detach();
        return;
    }
    Close();
    spMultiHandle.Reset();
    CurlInit::RemoveUser();
}

void WebClient::Release()
{
    delete this;
}

bool WebClient::Init(bool bUseOwnProxySupport)
{
    if (bUseOwnProxySupport) {
        pProxyManager = &proxyManager;
        pCredentialStore = &credentialStore;
    }
    // Init() of the base returns nothing; start(), which it calls, has noted whether there is a thread.
    ThreadHelper::Init("WebClient Thread");
    return !bThreadRefused;
}

bool WebClient::start()
{
    bThreadRefused = !ThreadHelper::start();
    return !bThreadRefused;
}

void WebClient::Close()
{
    // In a forked child the transfers are those of its parent.
    if (!IsOwnProcess())
        return;
    CancelAllDownloads();
    ThreadHelper::Close();
}

// The worker may wait inside libcurl, where the stop event does not wake it.
void WebClient::stop()
{
    ThreadHelper::stop();
    spMultiHandle->Wake();
}

void WebClient::SetProxyManager(IProxyManager* manager)
{
    pProxyManager = manager;
}

void WebClient::SetCredentialStore(ICredentialStore* store)
{
    pCredentialStore = store;
}

IProxyManager* WebClient::GetProxyManager() const
{
    return pProxyManager;
}

ICredentialStore* WebClient::GetCredentialStore() const
{
    return pCredentialStore;
}

void WebClient::SetCertificateFile(const char* path)
{
    lumo::scoped_lock hold(certificateLock);
    strCertificateFile = OrEmpty(path);
}

void WebClient::StartDownload()
{
    Wake();
}

CurlEasyHandle* WebClient::FindRequestByID(const char* itemID)
{
    return spMultiHandle->FindEasyHandleByID(OrEmpty(itemID));
}

// Any other call than within the completion of that text's transfer is a mistake in the host's program, which no result
// could report usefully.
std::ostringstream* WebClient::GetStream(const char* itemID)
{
    CurlEasyHandle* pHandle = FindRequestByID(itemID);
    tova_assert(NULL != pHandle);
    auto* pStream = dynamic_cast<std::ostringstream*>(pHandle->GetStream());
    tova_assert(NULL != pStream);
    return pStream;
}

void WebClient::CancelDownloadByID(const char* itemID)
{
    spMultiHandle->CancelDownloadByID(OrEmpty(itemID));
}

void WebClient::CancelDownload(const char* url)
{
    spMultiHandle->CancelDownload(OrEmpty(url));
}

void WebClient::CancelAllDownloads()
{
    spMultiHandle->CancelAllDownloads();
}

bool WebClient::QueueRequest(const char* url, IProgressCallback* callback, RequestType type,
                             std::map<std::string, std::string>* params, const char* itemID)
{
    return Succeeds([&] {
        scoped_ptr<CurlEasyHandle> spHandle(new CurlEasyHandle);
        return spHandle->GetHandle() && spHandle->OpenStringStream() &&
               Queue(spHandle, url, callback, type, params, itemID);
    });
}

bool WebClient::QueueFileForDownload(const char* url, const char* filePath, IProgressCallback* callback,
                                     const char* itemID)
{
    return Succeeds([&] {
        scoped_ptr<CurlEasyHandle> spHandle(new CurlEasyHandle);
        return spHandle->GetHandle() && spHandle->OpenFileStream(OrEmpty(filePath)) &&
               Queue(spHandle, url, callback, RequestTypeGet, nullptr, itemID);
    });
}

// A child made by fork() has no thread to perform what it queues, nor has a client whose thread could not be started:
// queued transfers would never be sent. Before Init() queueing is fine, as the thread is still to come.
bool WebClient::Queue(scoped_ptr<CurlEasyHandle>& spHandle, const char* url, IProgressCallback* callback,
                      RequestType type, std::map<std::string, std::string>* params, const char* itemID)
{
    if (!IsOwnProcess() || bThreadRefused)
        return false;
    spHandle->SetCallback(callback);
    spHandle->SetItemID(OrEmpty(itemID));
    if (!SetCurlTransferOptions(spHandle.Get(), url, type, params, true))
        return false;
    SetProxyToNextValidProxy(spHandle.Get(), url, pProxyManager, pCredentialStore);
    // Released only once it is listed: when the list cannot grow, the transfer is still owned here.
    spMultiHandle->AddEasyHandle(spHandle.Get());
    std::ignore = spHandle.Detach();
    StartDownload();
    return true;
}

bool WebClient::SetCurlTransferOptions(CurlEasyHandle* handle, const char* url, RequestType type,
                                       std::map<std::string, std::string>* params, bool bProgress)
{
    handle->SetUrl(OrEmpty(url));
    std::string certificate_file; // copied: no lock of ours is held while libcurl works
    {
        lumo::scoped_lock hold(certificateLock);
        certificate_file = strCertificateFile;
    }
    return ApplyTransferOptions(handle, type, params, bProgress, certificate_file);
}

bool WebClient::ExecRequest(const char* url, std::ostream* out, long& httpCode, RequestType type,
                            std::map<std::string, std::string>* params)
{
    httpCode = 0; // also for what fails before there is a request
    return Succeeds([&] {
        CurlEasyHandle handle;
        handle.SetExternalStream(out);
        return handle.GetHandle() && SetCurlTransferOptions(&handle, url, type, params, false) &&
               RunToEnd(&handle, url, httpCode);
    });
}

// libcurl quotes a proxy that it cannot parse, with the login in its URL: such messages are not kept.
void WebClient::RememberError(CurlEasyHandle* handle, long result)
{
    const char* text = handle->GetErrorBuffer();
    if (*text == '\0' || std::strchr(text, '@'))
        text = curl_easy_strerror(static_cast<CURLcode>(result));
    lumo::scoped_lock hold(errorLock);
    strLastError = result == CURLE_OK ? "" : text;
}

std::string WebClient::GetLastError() const
{
    lumo::scoped_lock hold(errorLock);
    return strLastError;
}

bool WebClient::RunToEnd(CurlEasyHandle* handle, const char* url, long& httpCode)
{
    for (int attempt = 1;; ++attempt) {
        SetProxyToNextValidProxy(handle, url, pProxyManager, pCredentialStore);
        httpCode = 0;
        const long result = handle->nResult = JudgeSuccess(*handle, handle->Perform());
        RememberError(handle, result);
        // Whatever the result: after a proxy's refusal libcurl may fail on what follows, and still knows the 407.
        httpCode = ReadStatus(*handle);
        if (result == CURLE_OK) {
            HandleProxySuccess(CURLE_OK, handle, url);
            return true;
        }
        if (httpCode == status_proxy_login) {
            HandleProxySuccess(result, handle, url);
            return false;
        }
        if (!HandleProxyError(result, handle, url) || attempt == most_attempts)
            return false;
    }
}

// Returns when no transfer is left; queueing sets the wake event, which leads back here.
void WebClient::Process()
{
    int running = -1;
    while (running != 0 && !IsShuttingDown() && ProcessOnce(running)) {
    }
}

// One turn, and then a wait for activity. The wait comes last, because nothing would end it for a transfer that is over
// already. False on libcurl's error, and when the process is leaving.
bool WebClient::ProcessOnce(int& running)
{
    if (!PerformTransfers(running))
        return false;
    CURLM* multi = spMultiHandle->GetHandle();
    return running == 0 || IsShuttingDown() || curl_multi_poll(multi, nullptr, 0, wait_ms, nullptr) == CURLM_OK;
}

// Adopts queued transfers, lets libcurl work, and handles those that have ended or stalled.
bool WebClient::PerformTransfers(int& running)
{
    const CurlUse use;
    if (!use)
        return false;
    spMultiHandle->RunCalls();
    std::vector<CurlEasyHandle*> refused; // libcurl reports no end of these, and each must end once
    spMultiHandle->AdoptQueued(refused);
    for (CurlEasyHandle* handle : refused)
        FinishTransfer(handle, CURLE_FAILED_INIT);
    // libcurl has not asked to be called again since 7.20; its interface still allows it.
    CURLMcode code = CURLM_OK;
    do {
        code = curl_multi_perform(spMultiHandle->GetHandle(), &running);
    } while (code == CURLM_CALL_MULTI_PERFORM && !IsShuttingDown());
    FinishTransfers();
    AbortTimedOutTransfers();
    return true;
}

// After a stop messages are left unread: Close() ends transfers without calling their callbacks.
void WebClient::FinishTransfers()
{
    int left = 0;
    while (!IsShuttingDown()) {
        CURLMsg* message = curl_multi_info_read(spMultiHandle->GetHandle(), &left);
        if (message == nullptr)
            return;
        // The message is destroyed with its transfer, so everything is read from it first.
        CurlEasyHandle* handle = spMultiHandle->FindEasyHandle(message->easy_handle);
        if (message->msg == CURLMSG_DONE && handle)
            FinishTransfer(handle, JudgeSuccess(*handle, message->data.result));
    }
}

void WebClient::FinishTransfer(CurlEasyHandle* handle, long result)
{
    const long status = ReadStatus(*handle);
    handle->nResult = result;
    handle->CloseStream(); // before the call, in which the host may open the file
    // Even if the host's code throws, the transfer has ended and must be removed, or it would end again as stalled.
    if (handle->GetCallback())
        Succeeds([&] {
            NotifyEnd(handle, result, status);
            return true;
        });
    spMultiHandle->RemoveEasyHandle(handle);
}

void WebClient::NotifyEnd(CurlEasyHandle* handle, long result, long status)
{
    IProgressCallback& callback = *handle->GetCallback();
    const char* id = handle->GetItemID();
    const char* url = handle->GetUrl();
    if (result == CURLE_WRITE_ERROR && handle->IsCancelDownload()) {
        callback.OnDownloadCancel(id);
    } else if (result == CURLE_OK) {
        HandleProxySuccess(CURLE_OK, handle, url);
        callback.OnDownloadComplete(id);
    } else if (result == CURLE_WRITE_ERROR) {
        callback.OnDownloadError(id, status);
    } else if (status == status_proxy_login) {
        // A proxy that asks for a login works: it is remembered, so that the next login is sent to it.
        HandleProxySuccess(result, handle, url);
        callback.OnProxyAuthenticationError(id, status, handle->spProxyInfo ? handle->spProxyInfo->GetProxy() : "");
    } else if (HandleProxyError(result, handle, url)) {
        // The transfer ends all the same: its owner decides whether to queue it again.
        Succeeds([&] { return SetProxyToNextValidProxy(handle, url, pProxyManager, pCredentialStore); });
        callback.OnDownloadError(id, code_other_proxy);
    } else {
        callback.OnDownloadError(id, status);
    }
}

// Collected first, then ended: ending takes a transfer from the list, and its callback may add others.
void WebClient::AbortTimedOutTransfers()
{
    std::vector<CurlEasyHandle*> stalled;
    spMultiHandle->GetTimedOutTransfers(stalled);
    for (CurlEasyHandle* handle : stalled) {
        handle->nResult = CURLE_OPERATION_TIMEDOUT;
        handle->CloseStream();
        if (IProgressCallback* callback = handle->GetCallback())
            Succeeds([&] {
                callback->OnDownloadError(handle->GetItemID(), code_stalled);
                return true;
            });
        spMultiHandle->RemoveEasyHandle(handle);
    }
}

bool WebClient::SetProxyToNextValidProxy(CurlEasyHandle* pHandle, const char* url, IProxyManager* manager,
                                         ICredentialStore* store)
{
    return TransferProxy::SetNext(pHandle, url, manager, store);
}

bool WebClient::HandleProxyError(long result, CurlEasyHandle* handle, const char*)
{
    return Succeeds([&] { return TransferProxy::Ban(*handle, result, pProxyManager); });
}

bool WebClient::HandleProxySuccess(long, CurlEasyHandle* handle, const char* url)
{
    return Succeeds([&] { return TransferProxy::Remember(*handle, url, pProxyManager); });
}

} // namespace AnalyticsSDK
