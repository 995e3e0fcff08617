/// What both of the library's users of libcurl owe the host. Not installed.
#ifndef LUMO_TOVA_OWN_CURL_SAFEGUARDS_H
#define LUMO_TOVA_OWN_CURL_SAFEGUARDS_H

#include "lumo/tova/platform/platform.h"

#include <curl/curl.h>

namespace tova {

/// For CURLOPT_OPENSOCKETFUNCTION: a program that the host starts must not inherit a connection, nor one that it starts
/// on another thread at this very moment. The failure of socket() is libcurl's to tell.
inline curl_socket_t open_connection(void*, curlsocktype, curl_sockaddr* address)
{
    return platform::open_socket(address->family, address->socktype, address->protocol);
}

} // namespace tova

#endif
