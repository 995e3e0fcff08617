// IProgressCallback: reports the progress and outcome of a queued transfer.
//
// Every call comes from the web client's own thread, never with a lock of the library held, and carries first the item
// id that was given when the transfer was queued. A call may queue or cancel transfers; it must not close or release
// the web client, which would wait for the very thread that it is on. Each transfer ends with exactly one of complete,
// cancel, error or proxy authentication error, unless the client is closed first: then none of them is called.
#pragma once

#include "lumo/tova/base.h"

namespace AnalyticsSDK {

/// Implemented by whoever queues transfers. Not owned and never deleted through this interface; the implementer must
/// outlive its transfers, or close the web client first. Texts are valid during the call only.
class TOVA_API IProgressCallback
{
public:
    /// The transfer succeeded. A text body can be read now, and only now, with IWebClient::GetStream.
    virtual void OnDownloadComplete(const char* itemID) = 0;

    /// The transfer ended because it was cancelled.
    virtual void OnDownloadCancel(const char* itemID) = 0;

    /// The transfer failed, and is over.
    ///
    /// @param itemID the transfer
    /// @param code the HTTP status (for https through a proxy: the proxy's answer to CONNECT), 0 when there was none;
    ///     -3 when nothing arrived for too long or the machine is offline; -7 when its proxy failed and another was
    ///     chosen, so that queueing it again takes another route
    virtual void OnDownloadError(const char* itemID, long code) = 0;

    /// The transfer failed, and is over, because a proxy (or the server) asked for a login.
    ///
    /// @param itemID the transfer
    /// @param code 407
    /// @param proxy the proxy in use, just as ICredentialStore::AddCredentials takes it; empty when there was none
    virtual void OnProxyAuthenticationError(const char* itemID, long code, const char* proxy) = 0;

    /// A block of the body arrived.
    ///
    /// @param itemID the transfer
    /// @param downloaded bytes received so far
    /// @param total bytes expected, -1.0 when the server did not say
    /// @param speed bytes per second, averaged over the transfer
    virtual void OnProgressUpdate(const char* itemID, double downloaded, double total, double speed) = 0;

protected:
    ~IProgressCallback() = default;
};

} // namespace AnalyticsSDK
