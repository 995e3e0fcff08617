// Posts forms for a session: with a time limit of their own, compressed if asked for, and with all that the answer
// says.
//
// IWebClient's operations stay as they are, hosts call them; what a session needs beyond them goes this way through the
// same client, its proxies and its queue.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/WebClient.h"
#include "Answers.h"
#include "UploadForm.h"

namespace AnalyticsSDK {

/// The terms of one post.
struct PostTerms
{
    long total_ms = 60'000; ///< from its start to its end
    bool compressed = false;
    bool inBatches = true; ///< a 303 is no success, and what a server asks for with Retry-After is read
    std::function<bool()> isOver = [] { return false; }; ///< asked several times a second: true ends the post
};

class CurlEasyHandle;

class Courier
{
public:
    /// @param client must outlive this, and be closed before this goes
    explicit Courier(WebClient& client);
    ~Courier();
    Courier(const Courier&) = delete;
    Courier& operator=(const Courier&) = delete;

    struct Outcome
    {
        bool taken = false; ///< as ExecRequest() answers
        Answer answer = {};
    };
    /// Posts a form on the calling thread.
    Outcome Post(const std::string& url, const UploadFields& form, const PostTerms& terms);
    /// Posts a form through the client's queue and waits for the outcome.
    /// @param progress is told of the answer's bytes, on the client's thread, and of nothing else
    Answer PostQueued(const std::string& url, const UploadFields& form, const PostTerms& terms,
                      IProgressCallback& progress);
    /// Puts a post into the client's queue. @return false when that could not be
    /// @param callback hears all of it, on the client's thread @param heard is told the answer before
    bool Queue(const std::string& url, const UploadFields& form, const PostTerms& terms, IProgressCallback& callback,
               std::function<void(const Answer&)> heard);
    /// Runs `call` on the client's thread and waits until it has returned, or until `isOver` says true.
    void CallThere(const std::function<void()>& call, const std::function<bool()>& isOver);
    /// Ends every post that is in the client's queue: no byte of them is sent any more, and no observer hears of it.
    /// Any thread, the client's own too; posts that others queue meanwhile may be missed.
    void EndQueued();

private:
    class Queued;
    struct Headers;

    bool Prepare(CurlEasyHandle& handle, const std::string& url, const UploadFields& form, const PostTerms& terms,
                 bool queued, Headers& headers);
    bool Enqueue(const std::string& url, const UploadFields& form, Queued& queued);
    std::string CertificateFile() const;
    Answer Judge(CurlEasyHandle& handle, const Headers& headers, long result, const PostTerms& terms) const;
    void Keep(std::unique_ptr<Queued> queued);

    WebClient& m_client;
    lumo::mutex m_lock{true};
    /// That nobody waits for and the client still has.
    std::list<std::unique_ptr<Queued>> m_queued LUMO_GUARDED_BY(m_lock);
};

} // namespace AnalyticsSDK
