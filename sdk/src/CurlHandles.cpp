#include "CurlHandles.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

#include "AnalyticsSDK/Identity.h"
#include "CurlInit.h"
#include "TransferSettings.h"
#include "host/streams.h"
#include "lumo/percent.h"

namespace AnalyticsSDK {

// How late a synchronous request may learn that the process is leaving: nothing else ends its wait.
static constexpr int alone_wait_ms = 1000;
// The same for one whose maker may end it.
static constexpr int asked_wait_ms = 30;

CurlPostData::~CurlPostData()
{
    curl_formfree(pFirst);
    pFirst = pLast = nullptr;
}

// With its lengths: a name or value may hold zero bytes, at which a plain C string would end.
bool CurlPostData::AddField(const std::string& name, const std::string& value)
{
    return CURL_FORMADD_OK == curl_formadd(&pFirst, &pLast, CURLFORM_COPYNAME, name.c_str(), CURLFORM_NAMELENGTH,
                                           static_cast<long>(name.size()), CURLFORM_COPYCONTENTS, value.c_str(),
                                           CURLFORM_CONTENTLEN, static_cast<curl_off_t>(value.size()), CURLFORM_END);
}

CurlHttpHeaders::~CurlHttpHeaders()
{
    curl_slist_free_all(pList);
    pList = nullptr;
}

bool CurlHttpHeaders::AddHeader(const char* line)
{
    if (line == nullptr)
        return true;
    // Null means that memory ran out; the list is then as it was, and still ours.
    curl_slist* grown = curl_slist_append(pList, line);
    if (grown)
        pList = grown;
    return grown != nullptr;
}

// A line without a value would say something else: that libcurl is to leave out its own header of that name.
void CurlHttpHeaders::SetHeader(const char* name, const char* value)
{
    if (name && value && *name != '\0' && *value != '\0')
        AddHeader((std::string(name) + ": " + value).c_str());
}

CurlEasyHandle::CurlEasyHandle() : hCurl(curl_easy_init()) {}

// libcurl lets go of the buffers before they are freed. Once the process is leaving its handle is leaked: what stands
// under it may be gone already.
CurlEasyHandle::~CurlEasyHandle()
{
    if (const CurlUse use; use)
        curl_easy_cleanup(hCurl);
    hCurl = nullptr;
    pErrorBuffer.Reset();
    spPostData.Reset();
    spHttpHeaders.Reset();
    CloseStream();
    spStream.Reset();
}

// Zeros, because libcurl writes nothing where it has no words, and the buffer is read either way.
char* CurlEasyHandle::GetErrorBuffer()
{
    if (!pErrorBuffer)
        pErrorBuffer.Reset(new char[CURL_ERROR_SIZE]());
    return pErrorBuffer.Get();
}

curl_slist** CurlEasyHandle::GetHttpHeaders()
{
    if (!spHttpHeaders)
        spHttpHeaders.Reset(new CurlHttpHeaders);
    return &spHttpHeaders->pList;
}

bool CurlEasyHandle::AddHeader(const char* line)
{
    GetHttpHeaders();
    return spHttpHeaders->AddHeader(line);
}

CurlPostData* CurlEasyHandle::GetPostData()
{
    if (!spPostData)
        spPostData.Reset(new CurlPostData);
    return spPostData.Get();
}

std::ostream* CurlEasyHandle::OpenStringStream()
{
    spStream.Reset(new std::ostringstream);
    return spStream.Get();
}

std::ostream* CurlEasyHandle::OpenFileStream(const char* path)
{
    strFilePath = path;
    auto* file = new std::ofstream;
    // A file that does not open is found out by the write callback, block by block.
    spStream.Reset(file);
    host::OpenForWriting(*file, path);
    return file;
}

// A text has nothing to close and stays readable: its owner asks for it after the end.
void CurlEasyHandle::CloseStream()
{
    if (!spStream)
        return;
    spStream->flush();
    auto* file = dynamic_cast<std::ofstream*>(spStream.Get());
    if (file && file->is_open())
        file->close();
}

// By libcurl's own count of the bytes that the system took, against the length that it announced.
void CurlEasyHandle::NoteSentBody()
{
    const char* method = nullptr;
    curl_off_t sent = 0, announced = 0;
    curl_easy_getinfo(hCurl, CURLINFO_EFFECTIVE_METHOD, &method);
    curl_easy_getinfo(hCurl, CURLINFO_SIZE_UPLOAD_T, &sent);
    curl_easy_getinfo(hCurl, CURLINFO_CONTENT_LENGTH_UPLOAD_T, &announced);
    if (method && std::strcmp(method, "POST") == 0)
        bBodySent = sent >= announced;
}

// What curl_easy_perform does, in steps between which the process may leave. With a multi handle of its own, as the one
// of the queue is the worker's alone.
CURLcode CurlEasyHandle::Perform()
{
    CurlMultiHandle own;
    *GetErrorBuffer() = '\0'; // the words of an earlier attempt
    CURLMcode code = curl_multi_add_handle(own.GetHandle(), hCurl);
    for (int running = 1; code == CURLM_OK && running > 0;) {
        {
            const CurlUse use;
            if (!use)
                return CURLE_ABORTED_BY_CALLBACK;
            code = curl_multi_perform(own.GetHandle(), &running);
        }
        // Outside the use: a process that leaves would have to wait for this wait.
        if (code == CURLM_OK && running > 0)
            code = curl_multi_poll(own.GetHandle(), nullptr, 0, pIsOver ? asked_wait_ms : alone_wait_ms, nullptr);
        if (running > 0 && pIsOver && (*pIsOver)())
            code = CURLM_ABORTED_BY_CALLBACK;
    }
    // The message goes with the removal below: its result is copied before.
    int left = 0;
    const CURLMsg* message = curl_multi_info_read(own.GetHandle(), &left);
    CURLcode result = code == CURLM_OK && message ? message->data.result : CURLE_FAILED_INIT;
    if (code == CURLM_ABORTED_BY_CALLBACK)
        result = CURLE_ABORTED_BY_CALLBACK;
    const CurlUse use;
    if (use)
        curl_multi_remove_handle(own.GetHandle(), hCurl);
    return result;
}

CurlEasyHandleArray::~CurlEasyHandleArray()
{
    for (CurlEasyHandle* handle : *this)
        delete handle;
    clear();
}

CurlMultiHandle::CurlMultiHandle() : hMulti(curl_multi_init()) {}

// Before the transfers that are in it, which the list destroys after this.
CurlMultiHandle::~CurlMultiHandle()
{
    if (const CurlUse use; use)
        curl_multi_cleanup(hMulti);
    hMulti = nullptr;
}

// Listed at once, so that it can be found and cancelled, but not yet handed to libcurl: only the worker may do that.
void CurlMultiHandle::AddEasyHandle(CurlEasyHandle* handle)
{
    {
        lumo::scoped_lock hold(lock);
        arrQueued.push_back(handle);
        // In both lists or in none: what is only queued could not be cancelled, what is only listed would never start.
        try {
            arrHandles.push_back(handle);
        } catch (...) {
            arrQueued.pop_back();
            throw;
        }
    }
    Wake();
}

// The one call of libcurl's multi interface that any thread may make at any time.
void CurlMultiHandle::Wake()
{
    curl_multi_wakeup(hMulti);
}

void CurlMultiHandle::Call(std::function<void()> call)
{
    {
        lumo::scoped_lock hold(lock);
        arrCalls.push_back(std::move(call));
    }
    Wake();
}

void CurlMultiHandle::RunCalls()
{
    std::vector<std::function<void()>> calls;
    {
        lumo::scoped_lock hold(lock);
        calls.swap(arrCalls);
    }
    for (const auto& call : calls)
        call();
}

void CurlMultiHandle::AdoptQueued(std::vector<CurlEasyHandle*>& refused)
{
    std::vector<CurlEasyHandle*> fresh;
    {
        lumo::scoped_lock hold(lock);
        fresh.swap(arrQueued);
    } // Not under the lock: libcurl may run callbacks, from which a host may queue.
    for (CurlEasyHandle* handle : fresh) {
        if (curl_multi_add_handle(hMulti, handle->GetHandle()) != CURLM_OK)
            refused.push_back(handle);
    }
}

// Out and in again: libcurl takes up changed options when a transfer starts.
void CurlMultiHandle::RetryEasyHandle(CurlEasyHandle* handle)
{
    curl_multi_remove_handle(hMulti, handle->GetHandle());
    curl_multi_add_handle(hMulti, handle->GetHandle());
}

void CurlMultiHandle::RemoveEasyHandle(CurlEasyHandle* handle)
{
    {
        lumo::scoped_lock hold(lock);
        // From both: a transfer that is given up while the machine is offline may not have been adopted yet.
        for (std::vector<CurlEasyHandle*>* list :
             {static_cast<std::vector<CurlEasyHandle*>*>(&arrHandles), &arrQueued}) {
            const auto entry = std::find(list->begin(), list->end(), handle);
            if (entry != list->end())
                list->erase(entry);
        }
    }
    // Whether it was listed or not, and libcurl's or not: this is a transfer's only way out.
    curl_multi_remove_handle(hMulti, handle->GetHandle());
    handle->CloseStream();
    delete handle;
}

// The first match counts: nothing keeps a host from giving two transfers one id or URL.
template <class Match>
CurlEasyHandle* CurlMultiHandle::Find(Match match)
{
    const auto entry = std::find_if(arrHandles.begin(), arrHandles.end(), match);
    return entry == arrHandles.end() ? nullptr : *entry;
}

namespace {

auto HasUrl(const char* url)
{
    return [url](const CurlEasyHandle* handle) { return std::strcmp(handle->GetUrl(), url) == 0; };
}

auto HasItemID(const char* id)
{
    return [id](const CurlEasyHandle* handle) { return std::strcmp(handle->GetItemID(), id) == 0; };
}

} // namespace

CurlEasyHandle* CurlMultiHandle::FindEasyHandle(const char* url)
{
    lumo::scoped_lock hold(lock);
    return Find(HasUrl(url));
}

CurlEasyHandle* CurlMultiHandle::FindEasyHandleByID(const char* id)
{
    lumo::scoped_lock hold(lock);
    return Find(HasItemID(id));
}

CurlEasyHandle* CurlMultiHandle::FindEasyHandle(void* curl)
{
    lumo::scoped_lock hold(lock);
    return Find([curl](const CurlEasyHandle* handle) { return handle->GetHandle() == curl; });
}

int CurlMultiHandle::GetDownloadQueueSize()
{
    lumo::scoped_lock hold(lock);
    return static_cast<int>(arrHandles.size());
}

void CurlMultiHandle::CancelDownload(const char* url)
{
    lumo::scoped_lock hold(lock);
    if (CurlEasyHandle* handle = Find(HasUrl(url)))
        handle->CancelDownload();
}

void CurlMultiHandle::CancelDownloadByID(const char* id)
{
    lumo::scoped_lock hold(lock);
    if (CurlEasyHandle* handle = Find(HasItemID(id)))
        handle->CancelDownload();
}

void CurlMultiHandle::CancelAllDownloads()
{
    lumo::scoped_lock hold(lock);
    for (CurlEasyHandle* handle : arrHandles)
        handle->CancelDownload();
}

void CurlMultiHandle::GetTimedOutTransfers(std::vector<CurlEasyHandle*>& out)
{
    lumo::scoped_lock hold(lock);
    for (CurlEasyHandle* handle : arrHandles) {
        // With no network every pending transfer is given up, whatever its times. That is meant. Asked for each
        // transfer anew: the network may go while the list is walked.
        if (!IsOnline()) {
            out.push_back(handle);
            continue;
        }
        const double now = TransferSettings::Now();
        // The clock of silence starts at the first look, not when the transfer was queued.
        if (handle->GetLastUpdate() == 0.0)
            handle->SetLastUpdate(now);
        else if (now - handle->GetLastUpdate() > handle->GetTimeout())
            out.push_back(handle);
    }
}

// The handle is not needed: which characters stay is our own rule, not libcurl's.
std::string EscapeParams(CurlEasyHandle*, const std::string& value)
{
    std::string escaped;
    lumo::percent_encode(value, escaped);
    return escaped;
}

} // namespace AnalyticsSDK
