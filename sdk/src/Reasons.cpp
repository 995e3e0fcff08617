#include "Reasons.h"

#include <curl/curl.h>

namespace AnalyticsSDK {
namespace {

constexpr struct
{
    long status;
    const char* sentence;
} by_status[] = {
    {401, "The server asks for a login (401); look at the address."},
    {403, "The server refuses these events (403); look at the address and at what the server knows of this host."},
    {404, "The server does not know the address (404); look at its path."},
    {407, "The proxy asks for a login (407); give the credential store one for it."},
    {408, "The server waited too long for the request (408); the line may be too slow for request_ms."},
    {413, "The server finds the request too large (413); set delivery to batches, or a smaller batch_bytes."},
    {414, "The server finds the address too long (414); shorten it."},
    {415, "The server does not take a packed body (415); set compress to none."},
    {429, "The server asks to be left alone for a while (429); the events are sent later."},
};

constexpr struct
{
    long result;
    const char* sentence;
} by_result[] = {
    {CURLE_URL_MALFORMAT, "The address cannot be understood; give a whole one with http or https."},
    {CURLE_UNSUPPORTED_PROTOCOL, "The address is neither http nor https; give one that is."},
    {CURLE_COULDNT_RESOLVE_PROXY, "The proxy's name was not found; look at the proxy and at the network."},
    {CURLE_COULDNT_RESOLVE_HOST, "The server's name was not found; look at the address and at the network."},
    {CURLE_COULDNT_CONNECT,
     "The server refused the connection or cannot be reached; look whether it runs and at the network."},
    {CURLE_OPERATION_TIMEDOUT, "Time ran out before the server answered; look at the server, or give request_ms more."},
    {CURLE_PEER_FAILED_VERIFICATION,
     "The server's certificate is not one that the authorities vouch for; look at the certificate file and the clock."},
    {CURLE_GOT_NOTHING, "The server closed the connection without an answer; it is tried again later."},
    {CURLE_SEND_ERROR, "The connection broke off while the events were sent; they are sent again later."},
    {CURLE_RECV_ERROR, "The connection broke off before the answer; the events are sent again later."},
    {CURLE_TOO_MANY_REDIRECTS, "The server leads in a circle (more than 10 redirects); look at the address."},
    {CURLE_ABORTED_BY_CALLBACK, "The session ended the request; the events wait for the next one."},
};

} // namespace

std::string ReasonOf(const Failure& failure)
{
    if (failure.result == CURLE_SSL_CACERT_BADFILE)
        return "There is no certificate file at " + failure.certificates +
               "; put the authorities there, or name another file.";
    for (const auto& row : by_status)
        if (row.status == failure.status)
            return row.sentence;
    if (failure.status >= 300)
        return "The server answered " + std::to_string(failure.status) + "; look at the server.";
    for (const auto& row : by_result)
        if (row.result == failure.result)
            return row.sentence;
    return "The request failed (" + failure.words + "); it is tried again later.";
}

} // namespace AnalyticsSDK
