// What the library's two users of libcurl both set to protect the host. Not installed.
#pragma once

#include "lumo/tova/platform/platform.h"

#include <cstring>
#include <curl/curl.h>
#include <openssl/crypto.h>
#include <string>
#include <string_view>

namespace tova {

/// For CURLOPT_OPENSOCKETFUNCTION: a program that the host starts must not inherit a connection, nor one that it starts
/// on another thread at this very moment. libcurl reports a failure of socket().
inline curl_socket_t open_connection(void*, curlsocktype, curl_sockaddr* address)
{
    return platform::open_socket(address->family, address->socktype, address->protocol);
}

/// Hands the options that keep a transfer safe, whatever a server answers, to `set(option, value)`.
template <class Set>
void set_safeguards(Set&& set)
{
    set(CURLOPT_OPENSOCKETFUNCTION, &open_connection);
    // Without a limit an answer could lead to file:, ftp: and whatever else the system's libcurl was built with.
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    // A post that is redirected stays a post: libcurl would make it a GET, as RFC 9110 allows after 301 and 302, whose
    // success would look like a delivery. After 303 it is a GET, for which 303 asks: the server has the data.
    set(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_301 | CURL_REDIR_POST_302));
}

/// A text that is wiped when it goes. Room for all of it is made first: growing would leave a copy behind.
struct secret_string : std::string
{
    explicit secret_string(size_t most) { reserve(most); }
    ~secret_string() { OPENSSL_cleanse(data(), capacity()); }
    secret_string(const secret_string&) = delete;
    secret_string& operator=(const secret_string&) = delete;

    /// Appends a text with all but the unreserved characters of RFC 3986 as percent sequences.
    void append_encoded(std::string_view text)
    {
        for (const char c : text) {
            const auto byte = static_cast<unsigned char>(c);
            const char letter = static_cast<char>(byte | 0x20);
            if ((letter >= 'a' && letter <= 'z') || (c >= '0' && c <= '9') || (c != 0 && std::strchr("-._~", c)))
                *this += c;
            else
                append({'%', "0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
        }
    }
};

/// Gives a transfer the login for its proxy, whose text it has already. libcurl keeps copies of its own, out of our
/// reach, until the transfer ends. May throw std::bad_alloc.
inline void set_proxy_login(CURL* curl, std::string_view proxy, std::string_view user, std::string_view password)
{
    // libcurl decodes both halves, so that a user name may hold a colon.
    secret_string login(3 * (user.size() + password.size()) + 1);
    login.append_encoded(user);
    login += ':';
    login.append_encoded(password);
    curl_easy_setopt(curl, CURLOPT_PROXYUSERPWD, login.c_str());
    // libcurl 7.88 decodes once more with every further request of a transfer, which spoils a percent sign; what stands
    // in the proxy's text it decodes afresh each time. A text with a login of its own is left as it is.
    if (login.find("%25") == login.npos || proxy.empty() || proxy.find('@') != proxy.npos)
        return;
    const size_t scheme_end = proxy.find("://"), host = scheme_end == proxy.npos ? 0 : scheme_end + 3;
    secret_string url(proxy.size() + 1 + login.size());
    url.append(proxy.substr(0, host)).append(login).append("@").append(proxy.substr(host));
    curl_easy_setopt(curl, CURLOPT_PROXY, url.c_str());
}

} // namespace tova
