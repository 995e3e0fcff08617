// IWebClient: HTTP and HTTPS requests, queued on a thread of the client's own or made on the caller's.
//
// Texts are 8-bit and copied in; a null text counts as empty. Except for Init, Close and Release, which belong to the
// owner, every operation may be called from any thread, callbacks included. Failures are results, never exceptions.
// TLS is version 1.2 at least, with peer and host verified; redirects (10 at most) never leave http and https.
#pragma once

#include <map>
#include <ostream>
#include <sstream>
#include <string>

#include "lumo/tova/base.h"

namespace AnalyticsSDK {

class IProgressCallback;

/// What a request sends. The numbers are part of the interface.
enum RequestType : int
{
    RequestTypeGet = 0,          ///< a GET; parameters are not sent
    RequestTypePost = 1,         ///< a post of a URL-encoded form
    RequestTypePostMultipart = 2 ///< a post of a multipart form
};

/// The web client as its users see it. The order of the operations is part of the binary interface.
class TOVA_API IWebClient
{
public:
    /// Destroys the client; the pointer is dead afterwards. Stops its thread first if Close was not called.
    virtual void Release() = 0;

    /// Starts the client's thread; once per client.
    ///
    /// @param bUseOwnProxySupport true: proxies and their logins come from tables of the client's own; false: no proxy
    ///     support unless managers were set, and libcurl's own rules hold (environment variables such as http_proxy)
    /// @return true when the thread was started
    virtual bool Init(bool bUseOwnProxySupport) = 0;

    /// Cancels every transfer and waits until the thread has ended. Transfers that are cut off here end without a call
    /// to their callback. May last as long as a name look-up under way. Further calls are harmless.
    virtual void Close() = 0;

    /// Queues a GET whose body is written to a file, which is created or truncated at once.
    ///
    /// A file that cannot be opened or written does not fail the transfer: the body is then lost without an error.
    /// @param url what to get
    /// @param filePath where to; there is no limit of size
    /// @param callback receives progress and outcome; not owned, may be null
    /// @param itemID handed to every call of the callback
    /// @return false when nothing was queued
    virtual bool QueueFileForDownload(const char* url, const char* filePath, IProgressCallback* callback,
                                      const char* itemID) = 0;

    /// Queues a request whose body is kept in memory, 16 MB at most: the rest is dropped.
    ///
    /// @param url what to request
    /// @param callback receives progress and outcome; not owned, may be null
    /// @param type how the parameters are sent
    /// @param params names and values, sent in the map's order; not needed any more after the return; null sends a GET.
    ///     In a URL-encoded form values are encoded and names are not
    /// @param itemID handed to every call of the callback; GetStream and CancelDownloadByID find the transfer by it
    /// @return false when nothing was queued
    virtual bool QueueRequest(const char* url, IProgressCallback* callback, RequestType type,
                              std::map<std::string, std::string>* params, const char* itemID) = 0;

    /// Makes a request on the calling thread and waits for its end, 60 seconds per attempt at most.
    ///
    /// A proxy that cannot be reached is banned and the next one tried within the same call, in ten attempts at most.
    /// @param url what to request
    /// @param out receives the body when it is a file stream that is open or a string stream; any other stream, like
    ///     std::cout or `std::ostream(nullptr)`, or null discards the body, which then costs no memory
    /// @param httpCode receives the HTTP status (for https through a proxy: the proxy's answer to CONNECT), 0 if none
    /// @param type how the parameters are sent
    /// @param params as for QueueRequest
    /// @return true when the server took the request: all of it was sent, and the last page got a status from 200 on
    ///     and below 400
    virtual bool ExecRequest(const char* url, std::ostream* out, long& httpCode, RequestType type,
                             std::map<std::string, std::string>* params) = 0;

    /// The body of a queued request, for use within its OnDownloadComplete only. The client owns it and destroys it
    /// when that returns. With no such request, or one that downloads to a file, the process aborts (an assertion).
    virtual std::ostringstream* GetStream(const char* itemID) = 0;

    /// Cancels the first queued transfer with this item id, if any. It ends when its next data arrives; a transfer that
    /// receives no more data ends with its own outcome.
    virtual void CancelDownloadByID(const char* itemID) = 0;

    /// The same for the first transfer with exactly this URL.
    virtual void CancelDownload(const char* url) = 0;

    /// The same for every transfer in the queue.
    virtual void CancelAllDownloads() = 0;

    /// Sets the file of certificate authorities (PEM) that https servers are verified with, and nothing else. Empty,
    /// the default: "cacert.pem" beside the program. Holds for requests made from now on; the file is read for each
    /// connection, so that one that is replaced counts from the next connection on.
    virtual void SetCertificateFile(const char* path) = 0;

    /// Use Release.
    virtual ~IWebClient();

    /// One turn of the client's thread; called by that thread alone.
    virtual void Process() = 0;
};

/// Makes a web client. The caller owns it and gives it back with IWebClient::Release.
TOVA_API IWebClient* CreateWebClient();

} // namespace AnalyticsSDK
