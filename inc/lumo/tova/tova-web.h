// One blocking HTTP transfer at a time, and URIs.
//
// The caller owns the request and response records and uses both from one thread during a request; callbacks run on
// that thread. A failed transfer is a result, one line through tova_log (level 2) and a text in the response; null or
// unstamped records abort. The library's uploads use a client of their own instead.
#pragma once

#include "lumo/tova/base.h"
#include "lumo/tova/text.h"

TOVA_C_BEGIN

/// Text options of a request, set with tova_http_option_string_set. Empty by default unless stated otherwise.
enum
{
    /// Where the request goes: http or https, and http where no scheme is named.
    tova_http_url = 0,
    /// The User-Agent header: "tova-1.2" by default. When empty, the header is left out.
    tova_http_user_agent = 1,
    /// Kept, not used.
    tova_http_unused = 2,
    /// A file to read cookies from; "-", the default, reads none.
    tova_http_cookie_file = 3,
    /// A proxy in libcurl's form, "host:port" for example. When empty no proxy is used, whatever the environment says.
    tova_http_proxy = 4,
    /// Kept, not used.
    tova_http_proxy_second = 5,
    /// The user that the proxy asks for, as typed; empty, no login is sent. docs/limits.md tells of logins that some
    /// libcurls send wrongly at first.
    tova_http_proxy_user = 6,
    /// The password that goes with it, as typed; overwritten in memory when it is replaced or released.
    tova_http_proxy_password = 7,
    /// When not empty, it takes the place of path and query, and of scheme and user information too: what remains of
    /// the URL is its host, reached by http. Host and path have 255 characters together, or the request aborts.
    tova_http_path = 8
};

/// Number options of a request, in seconds; 0 sets no limit.
enum
{
    /// Until the connection is made, name look-up included: 60 by default.
    tova_http_connect_timeout = 0,
    /// For the whole transfer, connecting included: 30 by default.
    tova_http_timeout = 1
};

/// Yes-or-no options of a request.
enum
{
    /// libcurl reports each step on standard error, headers included; logins are among them.
    tova_http_verbose = 0,
    /// Follows up to 50 redirects, to http and https only: 1 by default. A post stays one after 301 and 302; after 303,
    /// which says that the data was taken, it goes on as a GET.
    tova_http_follow_redirects = 1,
    /// Reads the cookie file with each request. Cookies that servers set are kept until tova_http_close in any case.
    tova_http_use_cookies = 2,
    /// Empties both proxies when there is a URL. Deliberate: setting it returns 0 all the same, because a 1 would say
    /// that proxies were found.
    tova_http_reset_proxies = 4,
    /// While set, requests return 0 unsent. Clearing it releases the handle and all texts, as tova_http_close does.
    tova_http_disabled = 5
};

/// The methods of tova_http_request; any other number is a GET too.
enum
{
    tova_http_get = 0,
    tova_http_post = 1
};

/// A request; the members are the layer's own.
typedef struct tova_http
{
    int32_t _version;
    int32_t _method;
    /// libcurl's easy handle, made by the first request and kept for the next.
    void* _curl;
    tova_string _url;
    tova_string _user_agent;
    tova_string _unused;
    tova_string _cookie_file;
    tova_string _proxy;
    tova_string _proxy_second;
    tova_string _proxy_user;
    tova_string _proxy_password;
    tova_string _path;
    /// The body of a post, the caller's.
    const void* _data;
    /// Its size in bytes.
    uint32_t _size;
    int32_t _connect_timeout;
    int32_t _timeout;
    int32_t _use_cookies;
    int32_t _follow_redirects;
    int32_t _verbose;
    int32_t _proxy_resolved;
    int32_t _disabled;
} tova_http;

struct tova_http_response;

/// Receives a block of the body, or one header line with its line end. The bytes are valid during the call only.
typedef void (*tova_http_data_callback)(void* user, const void* bytes, uint32_t count,
                                        struct tova_http_response* response);

/// Receives the progress of the download, in bytes; `expected` is 0 while unknown. Returns non-zero to continue, 0 to
/// stop.
///
/// Called again and again, about once a second while nothing arrives. This is the only way to stop a request early.
typedef int32_t (*tova_http_progress_callback)(void* user, uint64_t expected, uint64_t received);

/// What came back. The members without underscore may be read after a request.
typedef struct tova_http_response
{
    int32_t _version;
    /// libcurl's error text after a failure, empty after a success.
    char _error[256];
    /// HTTP status of the last answer, -1 when the transfer failed, 0 when there was none.
    int32_t status;
    /// Bytes that the server announced, 0 while unknown or without a progress callback.
    uint64_t _expected;
    /// Bytes given to the body callback; starts over at 4 GiB.
    uint32_t received;
    /// 1,024, always.
    uint32_t _capacity;
    void* _user;
    tova_http_data_callback _body;
    tova_http_data_callback _header;
    tova_http_progress_callback _progress;
    /// 1 when the progress callback stopped the transfer.
    int32_t cancelled;
} tova_http_response;

/// Numbers of tova_http_response_number_get.
enum
{
    tova_http_response_status = 0,
    tova_http_response_expected = 1,
    tova_http_response_received = 2,
    tova_http_response_cancelled = 3,
    tova_http_response_capacity = 4
};

/// Texts of tova_http_response_string_get.
enum
{
    tova_http_response_error = 0
};

/// Prepares libcurl for this process. `reserved` is ignored; pass 0, or in C++ nothing. Once per tova_http_shutdown,
/// and neither of the two while another thread is inside libcurl.
TOVA_API void tova_http_initialize(int32_t reserved TOVA_DEFAULT(0));

/// Releases what tova_http_initialize prepared.
TOVA_API void tova_http_shutdown(void);

/// Stamps a request and gives every option its first value. Nothing is sent or opened before the first request.
TOVA_API void tova_http_init(tova_http* h);

/// Copies `text` into a text option; null counts as empty. Always 1; an unknown option is ignored.
TOVA_API int32_t tova_http_option_string_set(tova_http* h, int32_t option, const char* text);

/// Sets a number option: 1, or 0 when it is unknown.
TOVA_API int32_t tova_http_option_number_set(tova_http* h, int32_t option, int32_t value);

/// Sets a yes-or-no option: 1, or 0 when it is unknown or tova_http_reset_proxies.
TOVA_API int32_t tova_http_option_bool_set(tova_http* h, int32_t option, int32_t value);

/// The text of an option, "" when unset or unknown; valid until it is set again.
TOVA_API const char* tova_http_option_string_get(const tova_http* h, int32_t option);

/// The value of a number option, 0 when unknown.
TOVA_API int32_t tova_http_option_number_get(const tova_http* h, int32_t option);

/// The value of a yes-or-no option, 0 when unknown.
TOVA_API int32_t tova_http_option_bool_get(const tova_http* h, int32_t option);

/// Sets the body of a post, `size` bytes of any kind. It is not copied and must outlive the request. Null is an empty
/// body.
TOVA_API void tova_http_data_set(tova_http* h, const void* data, uint32_t size);

/// Makes one transfer and waits for its end: 1 when the status is 200 to 302, else 0.
///
/// Deliberate: a redirect that was not followed counts as success, unless it is 303 or more, because a host that does
/// not follow wants to see it. A callback that sets tova_http_disabled takes the request over: the answer is then 1,
/// whatever came of the transfer.
TOVA_API int32_t tova_http_request(tova_http* h, tova_http_response* r, int32_t method);

/// Gets the URL into a file: 1 when the request succeeded and the whole body is in the file, else 0.
///
/// There is no response to look at: a log line tells why a transfer failed. The file appears whole or not at all: the
/// body is written to a temporary file beside it, which is renamed at the end.
TOVA_API int32_t tova_http_to_file(tova_http* h, const char* path);

/// Releases the handle and the text options, the URL and user agent too: connections end, cookies go. The record stays
/// usable. Not for use in a callback, while the handle works.
TOVA_API void tova_http_close(tova_http* h);

/// Stamps a response without callbacks.
TOVA_API void tova_http_response_create(tova_http_response* r);

/// Clears the stamp; a second destroy does nothing.
TOVA_API void tova_http_response_destroy(tova_http_response* r);

/// Sets the callbacks of the transfer; any may be null. `user` is passed to each.
TOVA_API void tova_http_response_callback_set(tova_http_response* r, void* user, tova_http_data_callback body,
                                              tova_http_data_callback header, tova_http_progress_callback progress);

/// A text of the response, "" when it is unknown; valid until the next request.
TOVA_API const char* tova_http_response_string_get(const tova_http_response* r, int32_t which);

/// A number of the response, 0 when it is unknown.
TOVA_API int64_t tova_http_response_number_get(const tova_http_response* r, int32_t which);

/// The system's proxy settings for one URL: two lists, separated by semicolons or spaces.
typedef struct tova_proxy
{
    /// The proxies as the system lists them, with separators, terminated.
    char proxies[1024];
    /// The hosts that need none, likewise.
    char bypass[1024];
} tova_proxy;

/// Looks up the proxies for `url`: always 0, none found, with both lists empty. Setting proxies is up to the host. Any
/// thread, as with the two functions below.
TOVA_API int32_t tova_proxy_get_for_url(const char* url, tova_proxy* proxy);

/// A part of a URI within the text that was parsed: not terminated, null when the part is absent.
typedef struct tova_uri_part
{
    /// Inside the parsed text, not terminated.
    const char* text;
    /// Characters.
    uint32_t length;
} tova_uri_part;

/// The parts of a URI. They point into the text, which must outlive the record.
typedef struct tova_uri
{
    /// Before "://".
    tova_uri_part scheme;
    /// Before "@", up to ":".
    tova_uri_part user;
    /// Behind that colon.
    tova_uri_part password;
    /// With any ":port".
    tova_uri_part host;
    /// From its "/" to the end, query and fragment included.
    tova_uri_part path;
} tova_uri;

/// Splits `text` into its parts; nothing is decoded, nothing is refused.
///
/// Deliberate: whatever precedes the first ":" is the scheme, so "host:80/x" has the scheme "host". Nothing is
/// validated, and callers that accept addresses without a scheme look for one themselves.
TOVA_API void tova_uri_parse(tova_uri* uri, const char* text);

/// Replaces "%" and two hexadecimal digits by the byte they give and returns the bytes written, terminator not counted.
///
/// Reads up to the terminator of `text` or `length` characters and writes at most `size` - 1 and a terminator.
/// Deliberate: an invalid digit counts as 0 and ":" to "?" as 10 to 15, because a decoder for display need not
/// validate, and hosts saw these results since the first version. A "%" without two characters after it is dropped.
TOVA_API int32_t tova_uri_decode(char* out, unsigned size, const char* text, unsigned length);

TOVA_C_END
