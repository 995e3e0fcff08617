// FOLDER URL: a host that uses libcurl itself before, during and after a session. Every transfer, its own and the
// session's, must succeed; ends with 0 then.

#include "host.h"

#include <atomic>
#include <curl/curl.h>
#include <thread>

static size_t discard(char*, size_t size, size_t count, void*)
{
    return size * count;
}

static bool fetch(const char* url)
{
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discard);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    const bool done = curl_easy_perform(curl) == CURLE_OK;
    curl_easy_cleanup(curl);
    return done;
}

static void run_a_session(const char* folder, const char* url)
{
    analytics_session* session = host::open(folder, url);
    host::log_numbered(session, 1, 10);
    host::require(analytics_send(session, 1) == 0, "an upload");
    host::require(fetch(url), "a transfer of the host's during the session");
    // The host's own start-up and clean-up in pairs, while the session has a transfer under way.
    host::log_numbered(session, 2, 10);
    host::require(analytics_send(session, 0) == 0, "an upload in the background");
    curl_global_init(CURL_GLOBAL_ALL);
    host::require(fetch(url), "a transfer of the host's during an upload");
    curl_global_cleanup();
    host::log_numbered(session, 3, 10);
    host::require(analytics_send(session, 1) == 0, "an upload after the host's clean-up");
    analytics_shutdown(session);
}

int main(int count, char** arguments)
{
    host::require(count == 3, "FOLDER URL");
    curl_global_init(CURL_GLOBAL_ALL);
    host::require(fetch(arguments[2]), "a transfer before any session");
    std::atomic<bool> over{false}, well{true};
    std::thread beside([&] {
        while (!over)
            well = fetch(arguments[2]) && well;
    });
    for (int round = 0; round < 3; ++round)
        run_a_session(arguments[1], arguments[2]);
    over = true;
    beside.join();
    host::require(well, "transfers of the host's beside the sessions");
    host::require(fetch(arguments[2]), "a transfer after the sessions");
    curl_global_cleanup();
    run_a_session(arguments[1], arguments[2]);
    return 0;
}
