#include "CurlHandles.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "AnalyticsSDK/Identity.h"
#include "CurlInit.h"
#include "TransferSettings.h"
#include "host/streams.h"
#include "lumo/percent.h"

namespace AnalyticsSDK {

namespace {

// How late a synchronous request may notice that the process exits: nothing else ends its wait.
constexpr int alone_wait_ms = 1000;
// The same for one whose maker may end it.
constexpr int asked_wait_ms = 30;

} // namespace

CurlPostData::~CurlPostData()
{
    curl_formfree(pFirst);
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

// A line without a value would have another meaning: that libcurl leaves out its own header of that name.
void CurlHttpHeaders::SetHeader(const char* name, const char* value)
{
    if (name && value && *name != '\0' && *value != '\0')
        AddHeader((std::string(name) + ": " + value).c_str());
}

CurlEasyHandle::CurlEasyHandle() : hCurl(curl_easy_init()) {}

// Before the members, whose buffers libcurl's handle uses. Once the process exits the handle is leaked: the libraries
// under it may be torn down already.
CurlEasyHandle::~CurlEasyHandle()
{
    if (const CurlUse use; use)
        curl_easy_cleanup(hCurl);
}

// Zeroed, because libcurl may write nothing, and the buffer is read in any case.
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
    // The write callback notices a file that could not be opened.
    spStream.Reset(file);
    host::open_for_writing(*file, path);
    return file;
}

// A string stream needs no closing and stays readable: its owner reads it after the end.
void CurlEasyHandle::CloseStream()
{
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

// The same as curl_easy_perform, in steps between which the process may exit. It uses a separate multi handle, because
// only the worker may use that of the queue.
CURLcode CurlEasyHandle::Perform()
{
    CurlMultiHandle own;
    *GetErrorBuffer() = '\0'; // the error of an earlier attempt
    CURLMcode code = curl_multi_add_handle(own.GetHandle(), hCurl);
    for (int running = 1; code == CURLM_OK && running > 0;) {
        {
            const CurlUse use;
            if (!use)
                return CURLE_ABORTED_BY_CALLBACK;
            code = curl_multi_perform(own.GetHandle(), &running);
        }
        // Outside the CurlUse: otherwise a process that exits would have to wait for this.
        if (code == CURLM_OK && running > 0)
            code = curl_multi_poll(own.GetHandle(), nullptr, 0, pIsOver ? asked_wait_ms : alone_wait_ms, nullptr);
        if (running > 0 && pIsOver && (*pIsOver)())
            code = CURLM_ABORTED_BY_CALLBACK;
    }
    // The message is destroyed by the removal below, so its result is copied first.
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
}

namespace {

ino_t NumberOf(curl_socket_t socket)
{
    struct stat file;
    return ::fstat(socket, &file) == 0 ? file.st_ino : 0;
}

} // namespace

void CurlSockets::Watch(CurlEasyHandle& handle)
{
    handle.pSockets = this;
    curl_easy_setopt(handle.GetHandle(), CURLOPT_SOCKOPTFUNCTION, Opened);
    curl_easy_setopt(handle.GetHandle(), CURLOPT_SOCKOPTDATA, &handle);
    curl_easy_setopt(handle.GetHandle(), CURLOPT_CLOSESOCKETFUNCTION, Close);
    curl_easy_setopt(handle.GetHandle(), CURLOPT_CLOSESOCKETDATA, this); // the connection may outlive its transfer
}

// Under the lock either Shut() finds the socket, or this sees that the transfer was cancelled before.
int CurlSockets::Opened(void* handle, curl_socket_t socket, curlsocktype)
try {
    const auto& transfer = *static_cast<CurlEasyHandle*>(handle);
    lumo::scoped_lock hold(transfer.pSockets->lock);
    if (transfer.IsCancelDownload())
        return CURL_SOCKOPT_ERROR;
    transfer.pSockets->open.push_back({socket, NumberOf(socket)});
    return CURL_SOCKOPT_OK;
} catch (...) {
    return CURL_SOCKOPT_ERROR;
}

int CurlSockets::Close(void* sockets, curl_socket_t socket)
{
    auto& own = *static_cast<CurlSockets*>(sockets);
    lumo::scoped_lock hold(own.lock); // until it is closed: Shut() must not meet the next file of this number
    std::erase_if(own.open, [=](const Socket& one) { return one.socket == socket; });
    return ::close(socket);
}

void CurlSockets::Shut()
{
    lumo::scoped_lock hold(lock);
    for (const Socket& one : open)
        if (NumberOf(one.socket) == one.number)
            ::shutdown(one.socket, SHUT_RDWR);
}

CurlMultiHandle::CurlMultiHandle() : hMulti(curl_multi_init()) {}

// Before the transfers that are in it, which the list destroys after this.
CurlMultiHandle::~CurlMultiHandle()
{
    if (const CurlUse use; use)
        curl_multi_cleanup(hMulti);
}

// Listed at once, so that it can be found and cancelled, but not yet handed to libcurl: only the worker may do that.
void CurlMultiHandle::AddEasyHandle(CurlEasyHandle* handle)
{
    {
        lumo::scoped_lock hold(lock);
        arrQueued.push_back(handle);
        // In both lists or in none: a transfer that is only queued could not be cancelled, one that is only listed
        // would never start.
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

// Removed and added again: libcurl reads changed options when a transfer starts.
void CurlMultiHandle::RetryEasyHandle(CurlEasyHandle* handle)
{
    curl_multi_remove_handle(hMulti, handle->GetHandle());
    curl_multi_add_handle(hMulti, handle->GetHandle());
}

void CurlMultiHandle::RemoveEasyHandle(CurlEasyHandle* handle)
{
    {
        lumo::scoped_lock hold(lock);
        // From both lists: a transfer that is given up while the machine is offline may not have been adopted yet.
        for (std::vector<CurlEasyHandle*>* list :
             {static_cast<std::vector<CurlEasyHandle*>*>(&arrHandles), &arrQueued}) {
            const auto entry = std::find(list->begin(), list->end(), handle);
            if (entry != list->end())
                list->erase(entry);
        }
    }
    // Called in any case, listed or not, added to libcurl or not: every transfer ends here.
    curl_multi_remove_handle(hMulti, handle->GetHandle());
    delete handle;
}

// The first match counts: a host may give two transfers the same id or URL.
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

std::vector<CurlEasyHandle*> CurlMultiHandle::GetCancelled()
{
    std::vector<CurlEasyHandle*> cancelled;
    lumo::scoped_lock hold(lock);
    std::copy_if(arrHandles.begin(), arrHandles.end(), std::back_inserter(cancelled),
                 [](const CurlEasyHandle* handle) { return handle->IsCancelDownload(); });
    return cancelled;
}

void CurlMultiHandle::GetTimedOutTransfers(std::vector<CurlEasyHandle*>& out)
{
    lumo::scoped_lock hold(lock);
    for (CurlEasyHandle* handle : arrHandles) {
        // Deliberate: without a network every pending transfer is given up, whatever its times, so that its owner hears
        // at once and keeps the data. Checked for each transfer, as the network may go down during the loop.
        if (!IsOnline()) {
            out.push_back(handle);
            continue;
        }
        const double now = TransferSettings::Now();
        // The time without data is measured from the first check, not from when the transfer was queued.
        if (handle->GetLastUpdate() == 0.0)
            handle->SetLastUpdate(now);
        else if (now - handle->GetLastUpdate() > handle->GetTimeout())
            out.push_back(handle);
    }
}

// The handle is not needed: the library has its own encoder instead of libcurl's.
std::string EscapeParams(CurlEasyHandle*, const std::string& value)
{
    std::string escaped;
    lumo::percent_encode(value, escaped);
    return escaped;
}

} // namespace AnalyticsSDK
