#include "AnalyticsSDK/EventManager.h"

#include <limits>
#include <ostream>

#include "AnalyticsSDK/Identity.h"
#include "AnalyticsSDK/Utilities.h"
#include "EventLine.h"
#include "EventLog.h"
#include "LogLock.h"
#include "UniqueIdFile.h"
#include "UploadForm.h"

namespace AnalyticsSDK {

namespace {

constexpr uint32_t upload_interval_ms = 3'600'000;
constexpr time_t never = -1;

} // namespace

constinit lumo::mutex& EventManager::m_spLogMutex = EventLog::lock.mutex;

namespace {

// Hosts use the class directly, too; a null would be undefined in the string's assignment.
const char* TextOf(const char* text)
{
    return text != nullptr ? text : "";
}

} // namespace

EventManager::EventManager(const char* serverUrl)
    : m_pWebClient(nullptr), m_strServerUrl(TextOf(serverUrl)), m_nCommonFieldsTime(never)
{
    m_nWaitInterval = upload_interval_ms;
    m_pWebClient = CreateWebClient();
}

// Neither stops nor joins the worker: Close() has done so. Here it would be too late, since the worker would call into
// a half-destroyed object.
EventManager::~EventManager()
{
    if (m_pWebClient != nullptr)
        m_pWebClient->Release();
}

void EventManager::Init()
{
    // The client first: the worker may begin with a cycle, and before its Init() the client would use the proxies of
    // the environment.
    if (m_pWebClient != nullptr)
        m_pWebClient->Init(true);
    ThreadHelper::Init("EventManager Thread");
}

void EventManager::Close()
{
    ThreadHelper::Close(); // first, because an upload of the worker still needs the client
    if (m_pWebClient != nullptr)
        m_pWebClient->Close();
}

void EventManager::Process()
{
    if (IsShuttingDown())
        return;
    // The network is not checked first: without it the request fails and the file waits for the next cycle. The lock is
    // not held from the read to the deletion: logging would stop for as long as the server takes.
    std::string text;
    unsigned long size = 0; // of the file, which decides: a file of blanks only is sent too, and then deleted
    if (ReadPendingEvents(text, size) && size > 0 && Upload(std::move(text)))
        DeleteEventLogFile();
}

// Settings. Changing one that is part of a line discards the common fields. No locks: a host sets them before Init() or
// between events, and those that the worker reads (address, id, version) do not change later.

unsigned long EventManager::GetTimeout() const
{
    return m_nWaitInterval;
}

void EventManager::SetTimeout(unsigned long milliseconds)
{
    // The wait takes 32 bits; truncating a huge interval could make it zero.
    constexpr uint32_t most = std::numeric_limits<uint32_t>::max();
    m_nWaitInterval = milliseconds < most ? static_cast<uint32_t>(milliseconds) : most;
}

int EventManager::GetLogVersion() const
{
    return m_nLogVersion;
}

void EventManager::SetLogVersion(int version)
{
    m_nLogVersion = version;
    m_nCommonFieldsTime = never;
}

std::string EventManager::GetEventLogFilePath() const
{
    return m_strEventLogFilePath;
}

void EventManager::SetEventLogFilePath(const char* path)
{
    m_strEventLogFilePath = TextOf(path);
}

std::string EventManager::GetPidFilePath() const
{
    return m_strPidFilePath;
}

void EventManager::SetPidFilePath(const char* path)
{
    m_strPidFilePath = TextOf(path);
}

const char* EventManager::GetApplicationId() const
{
    return m_strApplicationId.c_str();
}

void EventManager::SetApplicationId(const char* id)
{
    m_strApplicationId = TextOf(id);
    m_nCommonFieldsTime = never;
}

std::string EventManager::GetApplicationVersion() const
{
    return m_strApplicationVersion;
}

void EventManager::SetApplicationVersion(const char* version)
{
    m_strApplicationVersion = TextOf(version);
    m_nCommonFieldsTime = never;
}

void EventManager::SetCertificateFile(const char* path)
{
    m_strCertificateFile = TextOf(path);
    // At once, not at Init(): a host that uses the class directly may make requests before that.
    if (m_pWebClient != nullptr)
        m_pWebClient->SetCertificateFile(m_strCertificateFile.c_str());
}

// The unique id. It tells installations apart, so it is saved if possible, and a new one is made only when there is
// none.

void EventManager::SetUniqueId(const char* id)
{
    m_strUniqueId = TextOf(id);
    m_nCommonFieldsTime = never;
}

const char* EventManager::GetUniqueId()
{
    if (m_strUniqueId.empty())
        InitUniqueId();
    return m_strUniqueId.c_str();
}

std::string EventManager::CreateNewUniqueId() const
{
    return GenerateUuid();
}

void EventManager::InitUniqueId()
{
    if (LoadUniqueIdFromFile())
        return;
    SetUniqueId(CreateNewUniqueId().c_str());
    // Another process may have made the file since the check: then its id is this installation's. An empty file stays
    // empty, and the new id is kept in memory only.
    if (!UniqueIdFile::Create(m_strPidFilePath, m_strUniqueId))
        LoadUniqueIdFromFile();
}

bool EventManager::LoadUniqueIdFromFile()
{
    if (!UniqueIdFile::Load(m_strPidFilePath, m_strUniqueId))
        return false;
    m_nCommonFieldsTime = never;
    return true;
}

// GetUniqueId() may make an id and save it, which calls this again. That ends there, because the id is no longer empty.
void EventManager::SaveUniqueIdToFile()
{
    UniqueIdFile::Create(m_strPidFilePath, GetUniqueId());
}

// Events.

void EventManager::LogEvent(const char* name, LogObject* event)
{
    if (event == nullptr)
        return;
    BeginLine();
    m_pCurrentEvent->element(nullptr, name);
    FinishLine(event);
}

// A number is written as a number, so that servers can tell it from a name made of digits.
void EventManager::LogEvent(int id, LogObject* event)
{
    if (event == nullptr)
        return;
    BeginLine();
    m_pCurrentEvent->element(nullptr, id);
    FinishLine(event);
}

// The first elements of a line are the same for all events of one second, so their text is kept; the writer keeps its
// memory.
void EventManager::BeginLine()
{
    RefreshCommonFields();
    m_pCurrentEvent->Restart(m_strCommonFields);
}

void EventManager::RefreshCommonFields()
{
    // Read before the text is made: at the turn of a second the text is then rather made once too often than kept too
    // long.
    const time_t now = ::time(nullptr);
    if (m_pCurrentEvent && now == m_nCommonFieldsTime)
        return;
    m_pCurrentEvent.Reset(new EventLine);
    AddCommonEventFields();
    m_strCommonFields = m_pCurrentEvent->text;
    m_nCommonFieldsTime = now;
}

void EventManager::AddCommonEventFields()
{
    if (!m_pCurrentEvent)
        return;
    std::string time; // stays empty if the clock cannot be read: a line without a time is better than none
    GetCurrentDateTime(time, "%Y-%m-%d %H:%M:%S");
    m_pCurrentEvent->element(nullptr, m_nLogVersion);
    m_pCurrentEvent->element(nullptr, time.c_str());
    m_pCurrentEvent->element(nullptr, m_strApplicationId.c_str());
    m_pCurrentEvent->element(nullptr, m_strApplicationVersion.c_str());
    m_pCurrentEvent->element(nullptr, GetUniqueId());
}

void EventManager::FinishLine(LogObject* event)
{
    EventLog::Append(m_strEventLogFilePath, EndLine(event));
}

// Kept before the append: hosts can read back what they logged even when the disk did not take it.
std::string_view EventManager::EndLine(LogObject* event)
{
    if (const lumo::json_writer* writer = event->GetWriter()) {
        m_pCurrentEvent->element(nullptr, writer);
        m_strLastLoggedEvent = writer->text;
    }
    return m_pCurrentEvent->FinishLine();
}

const char* EventManager::GetLastLoggedEvent() const
{
    return m_strLastLoggedEvent.c_str();
}

// Uploads.

bool EventManager::ReadPendingEvents(std::string& text, unsigned long& size)
{
    return EventLog::Read(m_strEventLogFilePath, text, size) != EventLog::Content::unreadable;
}

// Appended, not assigned: a host that uses the class directly may have put other text before it.
//
// To such a host an unreadable file looks like no file, and it deletes neither.
void EventManager::LoadDataToSend(std::stringstream& stream, unsigned long& size)
{
    std::string text;
    ReadPendingEvents(text, size);
    stream << text;
}

void EventManager::DeleteEventLogFile()
{
    EventLog::Delete(m_strEventLogFilePath);
}

// A forked child's copy of the client shares connections with the parent: a request of the child would garble theirs.
bool EventManager::MaySend() const
{
    return m_pWebClient != nullptr && IsOwnProcess();
}

bool EventManager::Upload(std::string&& text)
{
    if (!MaySend())
        return false;
    std::ostream nowhere(nullptr); // discards the body, whatever its length
    long status = 0;               // not needed: the result says whether the server took the events
    auto form = UploadForm(GetUniqueId(), m_strApplicationVersion, std::move(text));
    return m_pWebClient->ExecRequest(m_strServerUrl.c_str(), &nowhere, status, RequestTypePost, &form);
}

// Without an item id: a callback treats all uploads alike.
bool EventManager::UploadAsync(std::string&& text, IProgressCallback* callback)
{
    if (!MaySend())
        return false;
    auto form = UploadForm(GetUniqueId(), m_strApplicationVersion, std::move(text));
    return m_pWebClient->QueueRequest(m_strServerUrl.c_str(), callback, RequestTypePost, &form, "");
}

bool EventManager::UploadData(std::stringstream& stream)
{
    return Upload(stream.str());
}

bool EventManager::UploadDataAsync(std::stringstream& stream, IProgressCallback* callback)
{
    return UploadAsync(stream.str(), callback);
}

// The worker uploads, not the caller, whom a slow server would block. The interval starts over after this cycle.
void EventManager::StartUpload()
{
    Wake();
}

} // namespace AnalyticsSDK
