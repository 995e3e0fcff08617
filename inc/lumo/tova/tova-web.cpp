// One transfer at a time over libcurl's easy interface. Every option is set for every request, to its default too: the
// handle is kept, and what an earlier request set must not linger.
#include "lumo/tova/tova-web.h"
#include "lumo/tova/own/curl_safeguards.h"
#include "lumo/tova/runtime.h"

#include <cstring>
#include <curl/curl.h>
#include <initializer_list>
#include <new>
#include <openssl/crypto.h>

namespace {

// Overwrites a text in a way that no compiler drops.
void wipe(tova_string* s)
{
    if (s->_text)
        OPENSSL_cleanse(s->_text, s->_capacity);
}

void check(const tova_http* h)
{
    tova_assert(h);
    tova_assert(h->_version == tova_version);
}

void check(const tova_http_response* r)
{
    tova_assert(r);
    tova_assert(r->_version == tova_version);
}

} // namespace

// libcurl counts these two by itself, so a host and a session may each make their own calls.
void tova_http_initialize(int32_t)
{
    curl_global_init(CURL_GLOBAL_ALL);
}

void tova_http_shutdown(void)
{
    curl_global_cleanup();
}

namespace {

// The text options, indexed by their numbers.
tova_string tova_http::*const string_options[] = {
    &tova_http::_url,         &tova_http::_user_agent,     &tova_http::_unused,
    &tova_http::_cookie_file, &tova_http::_proxy,          &tova_http::_proxy_second,
    &tova_http::_proxy_user,  &tova_http::_proxy_password, &tova_http::_path,
};
// Option numbers are part of the interface, gaps included: a null stands for a number that is no plain flag.
int32_t tova_http::*const number_options[] = {&tova_http::_connect_timeout, &tova_http::_timeout};
int32_t tova_http::*const bool_options[] = {
    &tova_http::_verbose,  &tova_http::_follow_redirects, &tova_http::_use_cookies, nullptr, nullptr,
    &tova_http::_disabled,
};

// The member that an option's number stands for, null when it stands for none.
template <class Member, size_t count>
Member option_member(Member const (&options)[count], int32_t option)
{
    return option >= 0 && static_cast<size_t>(option) < count ? options[option] : nullptr;
}

} // namespace

void tova_http_init(tova_http* h)
{
    tova_assert(h);
    memset(h, 0, sizeof *h);
    h->_version = tova_version;
    for (auto text : string_options)
        tova_string_init(&(h->*text));
    tova_string_set(&h->_cookie_file, "-");
    tova_string_set(&h->_user_agent, "tova-1.2");
    // The defaults. Both time-outs are set, so that every request ends by itself: the calling thread waits for it.
    h->_follow_redirects = 1;
    h->_connect_timeout = 60;
    h->_timeout = 30;
}

int32_t tova_http_option_string_set(tova_http* h, int32_t option, const char* text)
{
    check(h);
    if (auto member = option_member(string_options, option)) {
        // Copied to a new string first: `text` may point into the old one, and the old one may be a password, to be
        // wiped.
        tova_string fresh;
        tova_string_init(&fresh);
        tova_string_set(&fresh, text);
        wipe(&(h->*member));
        tova_string_clear(&(h->*member));
        h->*member = fresh;
    }
    if (option == tova_http_proxy || option == tova_http_proxy_second)
        h->_proxy_resolved = 0;
    return 1;
}

int32_t tova_http_option_number_set(tova_http* h, int32_t option, int32_t value)
{
    check(h);
    auto member = option_member(number_options, option);
    if (member)
        h->*member = value;
    return member != nullptr;
}

namespace {

// Empties both proxies. Deliberate: it never returns 1, because a 1 would say that proxies were found, and only the
// host can set some.
int32_t reset_proxies(tova_http* h)
{
    if (tova_string_length(&h->_url) == 0)
        return 0;
    for (auto member : {&tova_http::_proxy, &tova_http::_proxy_second}) {
        tova_string_reserve(&(h->*member), 256);
        tova_string_set(&(h->*member), "");
    }
    h->_proxy_resolved = 0;
    return 0;
}

} // namespace

int32_t tova_http_option_bool_set(tova_http* h, int32_t option, int32_t value)
{
    check(h);
    if (option == tova_http_reset_proxies)
        return reset_proxies(h);
    auto member = option_member(bool_options, option);
    if (!member)
        return 0;
    // While disabled, the host may have used the handle and texts for its own; what they hold must not be sent.
    if (option == tova_http_disabled && h->_disabled && !value)
        tova_http_close(h);
    h->*member = value;
    return 1;
}

const char* tova_http_option_string_get(const tova_http* h, int32_t option)
{
    check(h);
    auto member = option_member(string_options, option);
    return member ? tova_string_get(&(h->*member)) : "";
}

int32_t tova_http_option_number_get(const tova_http* h, int32_t option)
{
    check(h);
    auto member = option_member(number_options, option);
    return member ? h->*member : 0;
}

int32_t tova_http_option_bool_get(const tova_http* h, int32_t option)
{
    check(h);
    auto member = option_member(bool_options, option);
    return member ? h->*member : 0;
}

// Only the pointer is kept: bodies are large, and their owner keeps them until the request ends in any case.
void tova_http_data_set(tova_http* h, const void* data, uint32_t size)
{
    check(h);
    h->_data = data;
    h->_size = size;
}

void tova_http_close(tova_http* h)
{
    check(h);
    curl_easy_cleanup(h->_curl);
    h->_curl = nullptr;
    // Before it is released: freed memory keeps its content.
    wipe(&h->_proxy_password);
    for (auto text : string_options)
        tova_string_clear(&(h->*text));
}

namespace {

// libcurl's callbacks. Those for body and header always report success: only the progress callback can stop a transfer.
size_t body_adapter(char* bytes, size_t size, size_t count, void* user)
{
    auto* r = static_cast<tova_http_response*>(user);
    const uint32_t length = static_cast<uint32_t>(size * count);
    if (r->_body) {
        r->received += length;
        r->_body(r->_user, bytes, length, r);
    }
    return size * count;
}

size_t header_adapter(char* bytes, size_t size, size_t count, void* user)
{
    auto* r = static_cast<tova_http_response*>(user);
    if (r->_header)
        r->_header(r->_user, bytes, static_cast<uint32_t>(size * count), r);
    return size * count;
}

int progress_adapter(void* user, double expected, double received, double, double)
{
    auto* r = static_cast<tova_http_response*>(user);
    tova_assert(r);
    // 0 means "not known yet" and must not overwrite an earlier value.
    if (expected != 0)
        r->_expected = static_cast<uint64_t>(expected);
    return r->_progress(r->_user, static_cast<uint64_t>(expected), static_cast<uint64_t>(received)) == 0;
}

void set_proxy(tova_http* h)
{
    CURL* curl = h->_curl;
    // Left to itself, libcurl would read a proxy, and hosts to reach without one, from the environment; a request is
    // configured by its record alone.
    curl_easy_setopt(curl, CURLOPT_PROXY, tova_string_get(&h->_proxy));
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "");
    // Any method that the proxy asks for; libcurl takes the strongest that both know.
    if (tova_string_length(&h->_proxy))
        curl_easy_setopt(curl, CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_ANY));
}

void set_proxy_login(tova_http* h)
{
    // Null sends no login; an empty text would be sent as an empty login.
    if (!tova_string_length(&h->_proxy_user)) {
        curl_easy_setopt(h->_curl, CURLOPT_PROXYUSERPWD, nullptr);
        return;
    }
    try {
        tova::set_proxy_login(h->_curl, tova_string_get(&h->_proxy), tova_string_get(&h->_proxy_user),
                              tova_string_get(&h->_proxy_password));
    } catch (const std::bad_alloc&) {
        tova_assert(false); // as where texts grow
    }
}

// Keeps a request within HTTP, and finite, whatever the server answers. What it shares with the web client stands in
// curl_safeguards.h.
void set_safeguards(CURL* curl)
{
    tova::set_safeguards([curl](CURLoption option, auto value) { curl_easy_setopt(curl, option, value); });
    // Without a scheme libcurl would guess by the host's name and speak FTP with "ftp.example.com".
    curl_easy_setopt(curl, CURLOPT_DEFAULT_PROTOCOL, "http");
    // Redirects in a circle would go on until the time-out, and without one for ever.
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 50L);
    // Otherwise libcurl switches SIGPIPE off and on for the whole process, and two threads get in each other's way.
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
}

// libcurl gathers the names of cookie files and reads them all again with every request. Emptying that list throws the
// cookies away too, so those are put aside meanwhile: what servers set lives as long as the handle.
void set_cookies(const tova_http* h)
{
    CURL* curl = h->_curl;
    curl_slist* kept = nullptr;
    curl_easy_getinfo(curl, CURLINFO_COOKIELIST, &kept);
    curl_easy_setopt(curl, CURLOPT_COOKIEFILE, nullptr);
    // "-" would make libcurl read standard input. The empty name switches cookies on without reading any.
    const char* file = tova_string_get(&h->_cookie_file);
    curl_easy_setopt(curl, CURLOPT_COOKIEFILE, h->_use_cookies && strcmp(file, "-") != 0 ? file : "");
    for (const curl_slist* cookie = kept; cookie; cookie = cookie->next)
        curl_easy_setopt(curl, CURLOPT_COOKIELIST, cookie->data);
    curl_slist_free_all(kept);
}

void set_options(tova_http* h)
{
    CURL* curl = h->_curl;
    set_safeguards(curl);
    curl_easy_setopt(curl, CURLOPT_VERBOSE, static_cast<long>(h->_verbose != 0));
    set_proxy(h);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(h->_connect_timeout));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(h->_timeout));
    set_proxy_login(h);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, static_cast<long>(h->_follow_redirects != 0));
    set_cookies(h);
    // No header at all rather than an empty one.
    const char* agent = tova_string_get(&h->_user_agent);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, *agent ? agent : nullptr);
}

void set_callbacks(tova_http* h, tova_http_response* r)
{
    CURL* curl = h->_curl;
    if (r->_progress) {
        curl_easy_setopt(curl, CURLOPT_PROGRESSFUNCTION, progress_adapter);
        curl_easy_setopt(curl, CURLOPT_PROGRESSDATA, r);
    }
    // This also prevents a call of the function of an earlier response, which the handle still has.
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, r->_progress ? 0L : 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, body_adapter);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, r);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, header_adapter);
    curl_easy_setopt(curl, CURLOPT_WRITEHEADER, r);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, r->_error);
}

void set_method(tova_http* h)
{
    CURL* curl = h->_curl;
    // One is switched off before the other on: the handle remembers the method of the last request.
    if (h->_method != tova_http_post) {
        curl_easy_setopt(curl, CURLOPT_POST, 0L);
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
        return;
    }
    curl_easy_setopt(curl, CURLOPT_HTTPGET, 0L);
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    // The size always goes along: the data may hold a NUL or lack a terminator. No data is an empty body; a null
    // pointer would make libcurl read standard input.
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, h->_data ? static_cast<long>(h->_size) : 0L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, h->_data ? h->_data : "");
}

void set_url(tova_http* h)
{
    const char* url = tova_string_get(&h->_url);
    char replaced[256];
    if (tova_string_length(&h->_path)) {
        // Deliberate: the scheme is left out, so that libcurl takes http: servers have always received these requests
        // so.
        tova_uri uri;
        tova_uri_parse(&uri, url);
        // What does not fit aborts: an address that was cut short would be another server's.
        tova_strncpy(replaced, sizeof replaced, uri.host.text ? uri.host.text : "", uri.host.length);
        tova_strcat(replaced, sizeof replaced, tova_string_get(&h->_path));
        url = replaced;
    }
    curl_easy_setopt(h->_curl, CURLOPT_URL, url);
}

void log_failure(const char* call, CURLcode code)
{
    tova_log(2, "Failed %s error %d", call, static_cast<int>(code));
}

void perform(tova_http* h, tova_http_response* r)
{
    CURLcode code = curl_easy_perform(h->_curl);
    // libcurl may write an error when the handle closes its connections, and the response may be gone by then.
    curl_easy_setopt(h->_curl, CURLOPT_ERRORBUFFER, nullptr);
    if (code != CURLE_OK) {
        // No failure, because the caller's own callback asked for it.
        r->cancelled = code == CURLE_ABORTED_BY_CALLBACK;
        log_failure("curl_easy_perform", code);
        r->status = -1;
        return;
    }
    long status = 0;
    code = curl_easy_getinfo(h->_curl, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK)
        log_failure("curl_easy_getinfo", code);
    r->status = static_cast<int32_t>(status);
}

} // namespace

int32_t tova_http_request(tova_http* h, tova_http_response* r, int32_t method)
{
    check(h);
    check(r);
    h->_method = method;
    // Callbacks and capacity are kept; the results of the last request are cleared.
    r->_error[0] = 0;
    r->status = 0;
    r->_expected = 0;
    r->received = 0;
    r->cancelled = 0;
    if (h->_disabled)
        return 0;
    // Made late and kept, because connections and cookies live in the handle.
    if (!h->_curl)
        h->_curl = curl_easy_init();
    if (!h->_curl || !tova_string_length(&h->_url))
        return 0;
    set_options(h);
    set_callbacks(h, r);
    set_method(h);
    set_url(h);
    perform(h, r);
    // Only a callback can have set it since the check above: it has taken the request over.
    if (h->_disabled)
        return 1;
    // Deliberate: up to 302, because a redirect that was not to be followed is an answer too, and hosts rely on it.
    return !r->cancelled && r->status >= 200 && r->status <= 302;
}

void tova_http_response_create(tova_http_response* r)
{
    tova_assert(r);
    memset(r, 0, sizeof *r);
    r->_version = tova_version;
    r->_capacity = 1024;
}

void tova_http_response_destroy(tova_http_response* r)
{
    tova_assert(r);
    r->_version = 0; // nothing else to release: callbacks and user data are the caller's
}

void tova_http_response_callback_set(tova_http_response* r, void* user, tova_http_data_callback body,
                                     tova_http_data_callback header, tova_http_progress_callback progress)
{
    check(r);
    r->_user = user;
    r->_body = body;
    r->_header = header;
    r->_progress = progress;
}

const char* tova_http_response_string_get(const tova_http_response* r, int32_t which)
{
    check(r);
    return which == tova_http_response_error ? r->_error : "";
}

int64_t tova_http_response_number_get(const tova_http_response* r, int32_t which)
{
    check(r);
    switch (which) {
    case tova_http_response_status:
        return r->status;
    case tova_http_response_expected:
        return static_cast<int64_t>(r->_expected);
    case tova_http_response_received:
        return r->received;
    case tova_http_response_cancelled:
        return r->cancelled;
    case tova_http_response_capacity:
        return r->_capacity;
    default:
        return 0;
    }
}
