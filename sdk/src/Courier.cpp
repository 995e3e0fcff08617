#include "Courier.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "AnalyticsSDK/Utilities.h"
#include "CurlHandles.h"
#include "Gzip.h"
#include "Reasons.h"
#include "TransferOptions.h"

namespace AnalyticsSDK {
namespace {

constexpr long connect_most_ms = 30'000, preset_total_ms = 60'000;
constexpr auto look = std::chrono::milliseconds(50);
constexpr long status_see_other = 303, status_proxy_login = 407;

bool StartsWithNoCase(std::string_view line, std::string_view name)
{
    return line.size() >= name.size() &&
           std::equal(name.begin(), name.end(), line.begin(), [](char a, char b) { return a == (b | 0x20); });
}

std::string_view Trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Results after which a redirect's status is the server's last word, and not just a step on the way.
bool IsLastWord(long result)
{
    return result == CURLE_OK || result == CURLE_WRITE_ERROR || result == CURLE_TOO_MANY_REDIRECTS ||
           result == CURLE_UNSUPPORTED_PROTOCOL || result == CURLE_URL_MALFORMAT;
}

} // namespace

/// What the last answer's headers said.
struct Courier::Headers
{
    CurlEasyHandle* handle = nullptr;
    bool inBatches = false;
    long status = 0;
    bool whole = false; ///< up to the empty line
    std::string retryAfter = {}, date = {};

    bool Take(std::string_view line)
    {
        if (line.substr(0, 5) == "HTTP/") {
            *this = {.handle = handle, .inBatches = inBatches};
            status = std::atol(std::string(line.substr(std::min(line.find(' '), line.size()))).c_str());
        } else if (StartsWithNoCase(line, "retry-after:")) {
            retryAfter = Trimmed(line.substr(std::strlen("retry-after:")));
        } else if (StartsWithNoCase(line, "date:")) {
            date = Trimmed(line.substr(std::strlen("date:")));
        } else if (Trimmed(line).empty()) {
            whole = true;
            handle->NoteSentBody();
            // libcurl would go on with a GET, whose success is not the batch's.
            return !inBatches || status != status_see_other;
        }
        return true;
    }

    static size_t Hear(char* data, size_t size, size_t count, void* user)
    try {
        return static_cast<Headers*>(user)->Take({data, size * count}) ? size * count : 0;
    } catch (...) {
        return 0; // an exception must not pass through libcurl, which is C
    }
};

/// A post in the client's queue. Lives until the client has let go of it.
class Courier::Queued final : public IProgressCallback
{
public:
    Queued(const Courier& courier, const PostTerms& courierTerms, IProgressCallback& callback)
        : terms(courierTerms), m_courier(courier), m_callback(callback)
    {}

    void OnDownloadComplete(const char* item) override
    {
        if (handle->IsCancelDownload()) // cancelled meanwhile: the host is not told what arrived
            return OnDownloadCancel(item);
        if (Hear(handle->nResult))
            End([&] { m_callback.OnDownloadComplete(item); });
    }
    void OnDownloadCancel(const char* item) override
    {
        if (Hear(CURLE_ABORTED_BY_CALLBACK))
            End([&] { m_callback.OnDownloadCancel(item); });
    }
    void OnDownloadError(const char* item, long code) override
    {
        if (Hear(handle->nResult))
            End([&] { m_callback.OnDownloadError(item, code); });
    }
    void OnProxyAuthenticationError(const char* item, long code, const char* proxy) override
    {
        if (Hear(handle->nResult))
            End([&] { m_callback.OnProxyAuthenticationError(item, code, proxy); });
    }
    void OnProgressUpdate(const char* item, double downloaded, double total, double speed) override
    {
        m_callback.OnProgressUpdate(item, downloaded, total, speed);
    }

    /// Waits for the end, or until the terms say that time is over. False then.
    bool Wait()
    {
        std::unique_lock hold(m_mutex);
        while (!m_ended)
            if (!m_change.wait_for(hold, look, [this] { return m_ended; }) && terms.isOver())
                return m_ended;
        return true;
    }
    bool HasEnded()
    {
        std::lock_guard hold(m_mutex);
        return m_ended;
    }

    const PostTerms terms;
    Headers headers;
    CurlEasyHandle* handle = nullptr; ///< the client's, valid until the end is heard
    std::function<void(const Answer&)> heard;
    Answer answer;
    std::string id;

private:
    // True when the callback is to hear the end, too.
    bool Hear(long result)
    {
        const bool forwards = heard != nullptr; // read first: the thread that End() wakes may destroy this
        answer = m_courier.Judge(*handle, headers, result, terms);
        if (forwards)
            heard(answer);
        else
            End([] {});
        return forwards;
    }

    template <typename Call>
    void End(Call call)
    {
        call();
        std::lock_guard hold(m_mutex);
        m_ended = true;
        m_change.notify_one();
    }

    const Courier& m_courier;
    IProgressCallback& m_callback;
    std::mutex m_mutex;
    std::condition_variable m_change;
    bool m_ended = false;
};

Courier::Courier(WebClient& client) : m_client(client) {}

Courier::~Courier() = default;

bool Courier::Prepare(CurlEasyHandle& handle, const std::string& url, const UploadFields& form, const PostTerms& terms,
                      bool queued, Headers& headers)
{
    CURL* curl = handle.GetHandle();
    handle.SetUrl(url.c_str());
    if (!curl || !ApplyTransferOptions(&handle, RequestTypePost, &form, queued, CertificateFile()))
        return false;
    if (terms.compressed) {
        std::string packed;
        if (!Gzip(handle.strPostFields, packed) || !handle.AddHeader("Content-Encoding: gzip"))
            return false;
        handle.strPostFields = std::move(packed);
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, *handle.GetHttpHeaders());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, handle.strPostFields.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(handle.strPostFields.size()));
    }
    if (terms.total_ms != preset_total_ms) {
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, terms.total_ms);
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, std::min(terms.total_ms, connect_most_ms));
        handle.SetTimeout(static_cast<double>(terms.total_ms));
    }
    if (queued)
        m_client.spMultiHandle->sockets.Watch(handle);
    headers.handle = &handle;
    headers.inBatches = terms.inBatches;
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, Headers::Hear);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &headers);
    curl_easy_setopt(curl, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L); // a name look-up that hangs must not hold up the end
    return true;
}

// Copied: no lock of the client's is held while libcurl works.
std::string Courier::CertificateFile() const
{
    lumo::scoped_lock hold(m_client.certificateLock);
    return m_client.strCertificateFile;
}

Answer Courier::Judge(CurlEasyHandle& handle, const Headers& headers, long result, const PostTerms& terms) const
{
    Answer answer;
    CURL* curl = handle.GetHandle();
    long sent = 0, connect = 0;
    curl_off_t connected_us = 0;
    curl_easy_getinfo(curl, CURLINFO_REQUEST_SIZE, &sent);
    curl_easy_getinfo(curl, CURLINFO_CONNECT_TIME_T, &connected_us);
    curl_easy_getinfo(curl, CURLINFO_HTTP_CONNECTCODE, &connect);
    const bool final =
        headers.whole && headers.status >= 200 && (headers.status < 300 || headers.status >= 400 || IsLastWord(result));
    answer.status = final ? headers.status : connect == status_proxy_login ? connect : 0;
    answer.bodySent = handle.WasBodySent();
    answer.connected = sent > 0 || connected_us > 0;
    answer.endedHere = result == CURLE_ABORTED_BY_CALLBACK;
    if (terms.inBatches && final)
        answer.retryAfter_ms = RetryAfter_ms(headers.retryAfter, headers.date);
    const char* words = handle.GetErrorBuffer();
    // libcurl quotes a proxy that it does not understand, the login in its URL included.
    if (*words == '\0' || std::strchr(words, '@'))
        words = curl_easy_strerror(static_cast<CURLcode>(result));
    std::string certificates = CertificateFile();
    if (certificates.empty())
        GetAbsolutePath("cacert.pem", certificates);
    answer.reason = ReasonOf({result, answer.status, words, certificates});
    return answer;
}

Courier::Outcome Courier::Post(const std::string& url, const UploadFields& form, const PostTerms& terms)
{
    Outcome outcome;
    Headers headers;
    CurlEasyHandle handle;
    long status = 0;
    if (!Prepare(handle, url, form, terms, false, headers)) {
        outcome.answer.reason = ReasonOf({.result = CURLE_OUT_OF_MEMORY, .words = "memory is short"});
        return outcome;
    }
    handle.pIsOver = &terms.isOver;
    outcome.taken = m_client.RunToEnd(&handle, url.c_str(), status);
    outcome.answer = Judge(handle, headers, handle.nResult, terms);
    return outcome;
}

// A post that nobody waits for stays here until the client has ended it.
void Courier::Keep(std::unique_ptr<Queued> queued)
{
    lumo::scoped_lock hold(m_lock);
    m_queued.remove_if([](const auto& left) { return left->HasEnded(); });
    m_queued.push_back(std::move(queued));
}

bool Courier::Enqueue(const std::string& url, const UploadFields& form, Queued& queued)
{
    scoped_ptr<CurlEasyHandle> handle(new CurlEasyHandle);
    if (!m_client.IsOwnProcess() || m_client.bThreadRefused || !handle->OpenStringStream() ||
        !Prepare(*handle, url, form, queued.terms, true, queued.headers))
        return false;
    queued.handle = handle.Get();
    handle->SetCallback(&queued);
    handle->SetItemID(queued.id.c_str());
    WebClient::SetProxyToNextValidProxy(handle.Get(), url.c_str(), m_client.pProxyManager, m_client.pCredentialStore);
    m_client.spMultiHandle->AddEasyHandle(handle.Get());
    static_cast<void>(handle.Detach()); // the list's now
    m_client.StartDownload();
    return true;
}

Answer Courier::PostQueued(const std::string& url, const UploadFields& form, const PostTerms& terms,
                           IProgressCallback& progress)
{
    static std::atomic<unsigned> number{0};
    auto queued = std::make_unique<Queued>(*this, terms, progress);
    queued->id = "delivery " + std::to_string(++number);
    if (!Enqueue(url, form, *queued))
        return {.reason = ReasonOf({.result = CURLE_OUT_OF_MEMORY, .words = "nothing could be queued"})};
    if (queued->Wait())
        return queued->answer;
    // It ends when its next data arrive, or with the client; what it carries may still be taken.
    m_client.CancelDownloadByID(queued->id.c_str());
    Keep(std::move(queued));
    return {.connected = true, .endedHere = true, .reason = ReasonOf({.result = CURLE_ABORTED_BY_CALLBACK})};
}

// The session's observers are told of every upload alike, so they need no id to tell one from another.
bool Courier::Queue(const std::string& url, const UploadFields& form, const PostTerms& terms,
                    IProgressCallback& callback, std::function<void(const Answer&)> heard)
{
    auto queued = std::make_unique<Queued>(*this, terms, callback);
    Queued& post = *queued;
    post.heard = std::move(heard);
    Keep(std::move(queued)); // before it can end
    if (Enqueue(url, form, post))
        return true;
    lumo::scoped_lock hold(m_lock);
    m_queued.remove_if([&](const auto& left) { return left.get() == &post; });
    return false;
}

void Courier::CallThere(const std::function<void()>& call, const std::function<bool()>& isOver)
{
    const auto done = std::make_shared<std::atomic<bool>>(false);
    m_client.spMultiHandle->Call([=] {
        call();
        *done = true;
    });
    m_client.StartDownload();
    while (!*done && !isOver())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// The sockets are shut at once, because the client's thread may be in the middle of sending, or in an observer that
// waits for this. That thread then takes the transfers out of libcurl, between two turns.
void Courier::EndQueued()
{
    CurlMultiHandle& queue = *m_client.spMultiHandle;
    queue.CancelAllDownloads();
    queue.sockets.Shut();
    queue.Call([this] {
        for (CurlEasyHandle* handle : m_client.spMultiHandle->GetCancelled())
            m_client.FinishTransfer(handle, CURLE_WRITE_ERROR);
    });
    m_client.StartDownload();
}

} // namespace AnalyticsSDK
