// Owning wrappers around libcurl: a form, a header list, one transfer, and all queued transfers.
//
// Each releases what it holds in its destructor. A transfer belongs to one thread; the list of queued ones is shared,
// see CurlMultiHandle.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <curl/curl.h>
#include <sys/types.h>

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/ProxyUtilities.h"
#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"

namespace AnalyticsSDK {

using lumo::scoped_array;
using lumo::scoped_ptr;

/// A multipart form under construction.
class CurlPostData
{
public:
    CurlPostData() = default;
    CurlPostData(const CurlPostData&) = delete;
    CurlPostData& operator=(const CurlPostData&) = delete;
    ~CurlPostData();

    /// Adds a field; name and value are copied and may hold any bytes. @return false when memory ran out
    bool AddField(const std::string& name, const std::string& value);

    curl_httppost* pFirst = nullptr;
    curl_httppost* pLast = nullptr;
};

/// Request header lines.
class CurlHttpHeaders
{
public:
    CurlHttpHeaders() = default;
    CurlHttpHeaders(const CurlHttpHeaders&) = delete;
    CurlHttpHeaders& operator=(const CurlHttpHeaders&) = delete;
    ~CurlHttpHeaders();

    /// Appends a line as it is; nothing for null. @return false when memory ran out
    bool AddHeader(const char* line);
    /// Appends "name: value"; nothing when either is empty or null.
    void SetHeader(const char* name, const char* value);

    curl_slist* pList = nullptr;
};

class CurlSockets;

/// One transfer: libcurl's handle and everything that must live as long as it. Used by one thread at a time; only the
/// cancel flag may be touched by any.
class CurlEasyHandle
{
public:
    CurlEasyHandle();
    CurlEasyHandle(const CurlEasyHandle&) = delete;
    CurlEasyHandle& operator=(const CurlEasyHandle&) = delete;
    ~CurlEasyHandle();

    /// Null when libcurl could not make one: the transfer is then unusable.
    CURL* GetHandle() const { return hCurl; }
    std::ostream* GetStream() const { return spStream.Get(); }
    void SetExternalStream(std::ostream* stream) { pExternalStream = stream; }
    std::ostream* GetExternalStream() const { return pExternalStream; }
    void SetCallback(IProgressCallback* callback) { pCallback = callback; }
    IProgressCallback* GetCallback() const { return pCallback; }
    bool IsCancelDownload() const { return bCancel.load(std::memory_order_relaxed) != 0; }
    /// Milliseconds of GetCurrentTimeInMillis; 0.0 means not yet started.
    void SetLastUpdate(double time_ms) { dLastUpdate = time_ms; }
    double GetLastUpdate() const { return dLastUpdate; }
    void SetTimeout(double silence_ms) { dTimeout = silence_ms; }
    double GetTimeout() const { return dTimeout; }
    void SetUrl(const char* url) { strUrl = url; }
    const char* GetUrl() const { return strUrl.c_str(); }
    void SetItemID(const char* id) { strItemID = id; }
    const char* GetItemID() const { return strItemID.c_str(); }
    void SetUserAgent(const char* agent) { strUserAgent = agent; }
    const char* GetUserAgent() const { return strUserAgent.c_str(); }
    const char* GetFilePath() const { return strFilePath.c_str(); }

    /// 256 bytes for libcurl's error text, zeroed on first use.
    char* GetErrorBuffer();
    /// The list inside the transfer's headers, for appending in place.
    curl_slist** GetHttpHeaders();
    /// As CurlHttpHeaders::AddHeader.
    bool AddHeader(const char* line);
    CurlPostData* GetPostData();

    /// Gives the transfer a stream that keeps the body in memory, in place of an earlier one.
    std::ostream* OpenStringStream();
    /// The same with a file, created or truncated. The write callback checks whether it could be opened.
    std::ostream* OpenFileStream(const char* path);
    /// Closes a file, all of it written. A text needs no closing and stays readable.
    void CloseStream();
    /// Makes the transfer on the calling thread and waits for its end. @return libcurl's result
    CURLcode Perform();
    /// Asks the transfer to end; any thread. The stream is left to the thread that may be writing it.
    void CancelDownload() { bCancel.store(1, std::memory_order_relaxed); }

    /// Notes whether the body of the current post was sent whole, as far as libcurl knows now. Does nothing for a GET,
    /// so that after a 303 the note about the post is kept.
    void NoteSentBody();
    /// What was noted last; true when there was no post.
    bool WasBodySent() const { return bBodySent; }

    /// Whether the chosen proxy is to be used.
    bool UsesProxy() const { return spProxyInfo && spProxyInfo->bUseProxy; }

    CurlSockets* pSockets = nullptr;    ///< where this transfer's connections are listed
    scoped_ptr<CProxyInfo> spProxyInfo; ///< null until a proxy was asked for
    std::string strPostFields;          ///< body of a form post; libcurl reads it in place

private:
    CURL* hCurl;
    IProgressCallback* pCallback = nullptr;
    scoped_ptr<std::ostream> spStream;
    std::ostream* pExternalStream = nullptr;
    std::string strUrl, strItemID, strFilePath, strUserAgent;
    std::atomic<int32_t> bCancel{0};
    scoped_ptr<CurlPostData> spPostData;
    scoped_ptr<CurlHttpHeaders> spHttpHeaders;
    scoped_array<char> pErrorBuffer;
    double dTimeout = 60000.0;
    double dLastUpdate = 0.0;
    bool bBodySent = true;

public:
    std::size_t nTextKept = 0;                      ///< bytes of body in the string stream
    bool bPost = false;                             ///< whether the request started as a post
    const std::function<bool()>* pIsOver = nullptr; ///< asked by Perform() some times a second: true ends it
    long nResult = CURLE_OK;                        ///< libcurl's, or the judgement on it, once the transfer has ended
    char* pAskLine = nullptr; ///< the header line that AskBeforeBody changes; null until options are set
};

/// Transfers, owned.
class CurlEasyHandleArray : public std::vector<CurlEasyHandle*>
{
public:
    CurlEasyHandleArray() = default;
    CurlEasyHandleArray(const CurlEasyHandleArray&) = delete;
    CurlEasyHandleArray& operator=(const CurlEasyHandleArray&) = delete;
    ~CurlEasyHandleArray();
};

/// The sockets that queued transfers have opened. Any thread may shut them: what libcurl sends from then on is refused
/// by the system, wherever its thread is.
class CurlSockets
{
public:
    /// Makes a transfer's connections known here from now on, and refuses it new ones once it is cancelled.
    void Watch(CurlEasyHandle& handle);
    void Shut() LUMO_EXCLUDES(lock);

private:
    struct Socket
    {
        curl_socket_t socket;
        ino_t number; ///< tells it from another file that has got its descriptor
    };
    static int Opened(void* handle, curl_socket_t socket, curlsocktype purpose);
    static int Close(void* sockets, curl_socket_t socket);

    std::vector<Socket> open LUMO_GUARDED_BY(lock);
    lumo::mutex lock{lumo::mutex::fast};
};

/// All queued transfers.
///
/// Two parts with different rules. The list, guarded by the lock, is for any thread: to add, to cancel and to count.
/// libcurl's multi handle is for the worker alone, which adopts, performs and removes, and never holds the lock while
/// inside libcurl, because libcurl calls back into code that may queue. A pointer that a Find operation returns stays
/// valid only on the worker, because only the worker removes.
class CurlMultiHandle
{
public:
    CurlMultiHandle();
    CurlMultiHandle(const CurlMultiHandle&) = delete;
    CurlMultiHandle& operator=(const CurlMultiHandle&) = delete;
    ~CurlMultiHandle();

    CURLM* GetHandle() const { return hMulti; }

    CurlSockets sockets; ///< first, as libcurl closes sockets when transfers are destroyed

    /// Takes ownership of a transfer and wakes the worker, which adds it to libcurl. Any thread.
    void AddEasyHandle(CurlEasyHandle* handle) LUMO_EXCLUDES(lock);
    CurlEasyHandle* FindEasyHandle(const char* url) LUMO_EXCLUDES(lock);
    CurlEasyHandle* FindEasyHandleByID(const char* id) LUMO_EXCLUDES(lock);
    CurlEasyHandle* FindEasyHandle(void* curl) LUMO_EXCLUDES(lock);
    int GetDownloadQueueSize() LUMO_EXCLUDES(lock);
    /// Find and cancel in one, so that no pointer leaves the lock. Nothing happens when there is no such transfer.
    void CancelDownload(const char* url) LUMO_EXCLUDES(lock);
    void CancelDownloadByID(const char* id) LUMO_EXCLUDES(lock);
    void CancelAllDownloads() LUMO_EXCLUDES(lock);
    /// The transfers that were cancelled and have not ended yet. Worker only.
    std::vector<CurlEasyHandle*> GetCancelled() LUMO_EXCLUDES(lock);
    /// Ends the worker's wait for activity, or its next one. Any thread.
    void Wake();

    /// Lets the worker run something between its transfers. Any thread. What has not run when the client closes never
    /// does.
    void Call(std::function<void()> call) LUMO_EXCLUDES(lock);

    /// Runs what Call() was given. Worker only, as are the following.
    void RunCalls() LUMO_EXCLUDES(lock);
    /// Hands what was added since the last call to libcurl. Transfers that it refuses are appended to `refused`.
    void AdoptQueued(std::vector<CurlEasyHandle*>& refused) LUMO_EXCLUDES(lock);
    /// Restarts a transfer with the options that it has now.
    void RetryEasyHandle(CurlEasyHandle* handle);
    /// Ends a transfer: takes it from list and libcurl, closes its stream, destroys it.
    void RemoveEasyHandle(CurlEasyHandle* handle) LUMO_EXCLUDES(lock);
    /// Appends the transfers that are to be given up: all when the machine is offline, else those that were silent for
    /// more than their time-out. The silence of a transfer starts with its first check.
    void GetTimedOutTransfers(std::vector<CurlEasyHandle*>& out) LUMO_EXCLUDES(lock);

private:
    template <class Match>
    CurlEasyHandle* Find(Match match) LUMO_REQUIRES(lock);

    CURLM* hMulti;
    CurlEasyHandleArray arrHandles LUMO_GUARDED_BY(lock);
    lumo::mutex lock{true};
    std::vector<std::function<void()>> arrCalls LUMO_GUARDED_BY(lock);
    std::vector<CurlEasyHandle*> arrQueued LUMO_GUARDED_BY(lock); ///< listed, not yet libcurl's
};

/// Percent-encodes one form value. The handle is not used.
std::string EscapeParams(CurlEasyHandle* handle, const std::string& value);

} // namespace AnalyticsSDK
