#include "TransferOptions.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

#include "AnalyticsSDK/Utilities.h"
#include "TransferSettings.h"
#include "lumo/own/large_text.h"
#include "lumo/percent.h"
#include "lumo/tova/own/curl_safeguards.h"

namespace AnalyticsSDK {
namespace {

// The same lines, in this order, whatever the request is for.
constexpr const char* request_header_lines[] = {
    "Accept: text/xml, application/xml, application/xhtml+xml, text/html;q=0.9, text/plain;q=0.8, text/css, image/png, "
    "image/jpeg, image/gif;q=0.8, application/x-shockwave-flash, video/mp4;q=0.9, "
    "flv-application/octet-stream;q=0.8, video/x-flv;q=0.7, audio/mp4, application/futuresplash, */*;q=0.5",
    "Connection: Keep-Alive",
    "Cache-Control: no-cache",
};

// Cut behind its name, the line makes libcurl leave the header out. Otherwise libcurl would add it to large posts, and
// wait a whole second with every server that ignores it.
constexpr const char* line_ask_first = "Expect: 100-continue";
constexpr std::size_t ask_name_length = std::string_view("Expect:").size();

// libcurl's setter, which collects failures: one check at the end tells whether all options were set.
class OptionSetter
{
public:
    explicit OptionSetter(CURL* curl) : m_curl(curl) {}

    template <class Value>
    OptionSetter& operator()(CURLoption option, Value value)
    {
        m_ok = curl_easy_setopt(m_curl, option, value) == CURLE_OK && m_ok;
        return *this;
    }

    // For what not every build of libcurl has.
    template <class Value>
    void Try(CURLoption option, Value value)
    {
        curl_easy_setopt(m_curl, option, value);
    }

    void Require(bool done) { m_ok = m_ok && done; }
    bool Ok() const { return m_ok; }

private:
    CURL* m_curl;
    bool m_ok = true;
};

// In doubles, which is how progress is reported; libcurl answers -1 of its own accord where a length is not known.
double ReadDouble(CURL* curl, CURLINFO info)
{
    double value = -1.0;
    return curl_easy_getinfo(curl, info, &value) == CURLE_OK ? value : -1.0;
}

struct Amounts
{
    explicit Amounts(CURL* curl)
        : expected(ReadDouble(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD)),
          received(ReadDouble(curl, CURLINFO_SIZE_DOWNLOAD))
    {}

    // Minus one says that libcurl does not know.
    bool IsWhole() const { return expected != -1.0 && expected == received; }

    double expected, received;
};

// By its type, not its buffer: std::cout of a host that has called sync_with_stdio(false) has an open file buffer,
// which must not be closed.
std::filebuf* OpenFileOf(std::ostream* out)
{
    std::filebuf* file = nullptr;
    if (auto* written = dynamic_cast<std::ofstream*>(out))
        file = written->rdbuf();
    else if (auto* both_ways = dynamic_cast<std::fstream*>(out))
        file = both_ways->rdbuf();
    return file && file->is_open() ? file : nullptr;
}

bool IsText(std::ostream* out)
{
    return dynamic_cast<std::ostringstream*>(out) || dynamic_cast<std::stringstream*>(out);
}

// Deliberate: a file that cannot be written loses its data without an error, because the outcome of a transfer is about
// the network. It is closed with its last block, so that the file is complete when the end is reported.
void WriteToFile(std::ostream& out, std::filebuf& file, std::string_view block, bool bWhole)
{
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
    if (bWhole) {
        out.flush();
        file.close();
    }
}

// False when the text could not grow: the stream swallows the exception, and a body with a gap is useless. A stream
// that was at its end or had failed before just drops the data, which counts as success.
bool WriteToText(std::ostream& out, std::string_view block, bool bWhole)
{
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
    if (bWhole)
        out.flush();
    return !out.bad();
}

// Data past the limit is dropped, which counts as success: a long answer must not fail the upload.
bool KeepText(CurlEasyHandle& handle, std::string_view block, bool bWhole)
{
    const std::size_t limit = TransferSettings::text_body_limit;
    const std::string_view kept = block.substr(0, limit - std::min(limit, handle.nTextKept));
    handle.nTextKept += kept.size();
    return WriteToText(*handle.GetStream(), kept, bWhole);
}

// For queued transfers. Any result but the block's size makes libcurl end the transfer with its write error.
bool TakeBlock(CurlEasyHandle& handle, std::string_view block)
{
    const Amounts amounts(handle.GetHandle());
    const double speed = ReadDouble(handle.GetHandle(), CURLINFO_SPEED_DOWNLOAD);
    std::ostream* out = handle.GetStream();
    if (std::filebuf* file = OpenFileOf(out)) {
        WriteToFile(*out, *file, block, amounts.IsWhole());
        handle.SetLastUpdate(TransferSettings::Now());
    } else if (IsText(out)) {
        if (!KeepText(handle, block, amounts.IsWhole()))
            return false;
        handle.SetLastUpdate(TransferSettings::Now());
    }
    if (IProgressCallback* callback = handle.GetCallback())
        callback->OnProgressUpdate(handle.GetItemID(), amounts.received, amounts.expected, speed);
    return true;
}

// For synchronous requests. Data for neither a file nor a text is dropped, which counts as success.
bool TakePlainBlock(CurlEasyHandle& handle, std::string_view block)
{
    const Amounts amounts(handle.GetHandle());
    std::ostream* out = handle.GetExternalStream();
    if (std::filebuf* file = OpenFileOf(out))
        WriteToFile(*out, *file, block, amounts.IsWhole());
    else if (IsText(out))
        return WriteToText(*out, block, amounts.IsWhole());
    return true;
}

// An exception must not travel through libcurl, which is C: it becomes the write error.
std::size_t WriteWithProgress(char* data, std::size_t size, std::size_t count, void* user)
try {
    auto& handle = *static_cast<CurlEasyHandle*>(user);
    if (handle.IsCancelDownload()) {
        handle.CloseStream();
        return 0;
    }
    return TakeBlock(handle, {data, size * count}) ? size * count : 0;
} catch (...) {
    return 0;
}

std::size_t WritePlain(char* data, std::size_t size, std::size_t count, void* user)
try {
    return TakePlainBlock(*static_cast<CurlEasyHandle*>(user), {data, size * count}) ? size * count : 0;
} catch (...) {
    return 0;
}

// The empty line behind an answer's headers is the last that is seen of a post before a 303 turns it into a GET, which
// sets libcurl's counts back.
std::size_t HearHeader(char*, std::size_t size, std::size_t count, void* user)
{
    if (size * count <= std::string_view("\r\n").size())
        static_cast<CurlEasyHandle*>(user)->NoteSentBody();
    return size * count;
}

void SetHeaderLines(OptionSetter& set, CurlEasyHandle* handle)
{
    for (const char* line : request_header_lines)
        set.Require(handle->AddHeader(line));
    set.Require(handle->AddHeader(line_ask_first));
    if (!set.Ok())
        return;
    curl_slist* last = *handle->GetHttpHeaders();
    while (last->next)
        last = last->next;
    handle->pAskLine = last->data;
    AskBeforeBody(handle, false);
    set(CURLOPT_HTTPHEADER, *handle->GetHttpHeaders());
}

void SetCommonOptions(OptionSetter& set, CurlEasyHandle* handle, bool bProgress)
{
    set(CURLOPT_URL, handle->GetUrl());
    set(CURLOPT_WRITEFUNCTION, bProgress ? WriteWithProgress : WritePlain)(CURLOPT_WRITEDATA, handle);
    set(CURLOPT_HEADERFUNCTION, HearHeader)(CURLOPT_HEADERDATA, handle);
    set(CURLOPT_FAILONERROR, 1L); // from 400 on, so that an error page is not delivered as the body
    set(CURLOPT_NOPROGRESS, 1L)(CURLOPT_FOLLOWLOCATION, 1L)(CURLOPT_MAXREDIRS, 10L);
    set(CURLOPT_CONNECTTIMEOUT_MS, TransferSettings::connect_timeout_ms.load());
    set(CURLOPT_TIMEOUT_MS, TransferSettings::total_timeout_ms.load());
    // Without NOSIGNAL libcurl may time name look-ups by SIGALRM, which is the host's.
    set(CURLOPT_NOSIGNAL, 1L)(CURLOPT_HTTPAUTH, -1L);
    SetHeaderLines(set, handle);
    set(CURLOPT_ERRORBUFFER, handle->GetErrorBuffer());
}

// TLS before 1.2 is what RFC 8996 forbids.
void SetSafeguards(OptionSetter& set)
{
    tova::set_safeguards(set);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
}

void SetFormBody(OptionSetter& set, CurlEasyHandle* handle, const FormParameters& params)
{
    // Kept by the transfer: libcurl reads the body in place, and a copy of a large log would cost its size once more.
    handle->strPostFields = BuildFormBody(params);
    handle->bPost = true;
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDS, handle->strPostFields.c_str());
    // By its size: what a field's name holds is not escaped, and may hold a zero byte.
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(handle->strPostFields.size()));
}

void SetMultipartBody(OptionSetter& set, CurlEasyHandle* handle, const FormParameters& params)
{
    for (const auto& [name, value] : params)
        set.Require(handle->GetPostData()->AddField(name, value));
    handle->bPost = true;
    // In place as well; a form without fields is null, and still a post.
    set(CURLOPT_HTTPPOST, handle->GetPostData()->pFirst);
}

// Only the given file counts: libcurl's default folder would add all authorities that the system trusts.
void SetCertificateOptions(OptionSetter& set, const std::string& certificateFile)
{
    std::string path = certificateFile;
    if (path.empty())
        GetAbsolutePath("cacert.pem", path);
    set(CURLOPT_SSL_VERIFYHOST, 2L)(CURLOPT_CAINFO, path.c_str())(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    // Read for each connection: libcurl would otherwise cache the file for a day. Without OpenSSL libcurl has no such
    // cache and does not know the option.
    set.Try(CURLOPT_CA_CACHE_TIMEOUT, 0L);
}

} // namespace

// Measured first: a body that grew step by step could take twice the memory.
std::string BuildFormBody(const FormParameters& params)
{
    std::size_t size = params.empty() ? 0 : params.size() - 1;
    for (const auto& [name, value] : params)
        size += name.size() + 1 + lumo::percent_encoded_size(value);
    std::string body;
    lumo::reserve_large(body, size);
    for (const auto& [name, value] : params) {
        if (!body.empty())
            body += '&';
        body.append(name) += '=';
        lumo::percent_encode(value, body);
    }
    return body;
}

bool ApplyTransferOptions(CurlEasyHandle* handle, RequestType type, const FormParameters* params, bool bProgress,
                          const std::string& certificateFile)
{
    OptionSetter set(handle->GetHandle());
    SetCommonOptions(set, handle, bProgress);
    SetSafeguards(set);
    if (params && type == RequestTypePost)
        SetFormBody(set, handle, *params);
    if (params && type == RequestTypePostMultipart)
        SetMultipartBody(set, handle, *params);
    if (IsHttps(handle->GetUrl()))
        SetCertificateOptions(set, certificateFile);
    return set.Ok();
}

// In place, between two attempts: nothing that needs memory can fail then, and libcurl goes on reading the same list.
void AskBeforeBody(CurlEasyHandle* handle, bool bAsk)
{
    if (handle->pAskLine)
        handle->pAskLine[ask_name_length] = bAsk ? line_ask_first[ask_name_length] : '\0';
}

bool IsHttps(const char* url)
{
    return StartsWith(url, "https");
}

} // namespace AnalyticsSDK
