#include "AnalyticsSDK/EventManager.h"

#include <limits>
#include <ostream>

#include "AnalyticsSDK/Identity.h"
#include "AnalyticsSDK/Utilities.h"
#include "EventLine.h"
#include "EventLog.h"
#include "UniqueIdFile.h"
#include "UploadForm.h"

namespace AnalyticsSDK {

static constexpr uint32_t uploadInterval_ms = 3'600'000;
static constexpr time_t never = -1;

constinit lumo::mutex& EventManager::m_spLogMutex = EventLog::lock.mutex;

// Hosts use the class directly, too; a null would be undefined in the string's assignment.
static const char* TextOf(const char* text)
{
    return text != nullptr ? text : "";
}

EventManager::EventManager(const char* serverUrl)
    : m_pWebClient(nullptr), m_strServerUrl(TextOf(serverUrl)), m_nCommonFieldsTime(never)
{
    m_nWaitInterval = uploadInterval_ms;
    m_pWebClient = CreateWebClient();
}

// Neither stops nor joins the worker, which would by now call into a half-destroyed object: Close() came before.
EventManager::~EventManager()
{
    if (m_pWebClient != nullptr)
        m_pWebClient->Release();
}

void EventManager::Init()
{
    // The client first: the worker may begin with a cycle, and the client without proxies of its own would go by the
    // environment's.
    if (m_pWebClient != nullptr)
        m_pWebClient->Init(true);
    ThreadHelper::Init("EventManager Thread");
}

void EventManager::Close()
{
    ThreadHelper::Close(); // first: an upload of the worker's still needs the client
    if (m_pWebClient != nullptr)
        m_pWebClient->Close();
}

void EventManager::Process()
{
    if (IsShuttingDown())
        return;
    // No look at the network first: without one the request fails, and the file waits for the next cycle. Nor is the
    // lock held from the read to the deletion: logging would stand still for as long as the server takes.
    std::string text;
    unsigned long size = 0; // the file's, and what decides: blanks alone are sent too, and then deleted
    if (ReadPendingEvents(text, size) && size > 0 && Upload(std::move(text)))
        DeleteEventLogFile();
}

// Settings. Each that a line holds makes the common fields be written anew. They take no lock: a host sets them before
// Init(), or between events, and what the worker reads of them (address, id, version) does not change later.

unsigned long EventManager::GetTimeout() const
{
    return m_nWaitInterval;
}

void EventManager::SetTimeout(unsigned long milliseconds)
{
    // The wait takes 32 bits; cut off, an interval of "for ever" could become one of no time at all.
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
    // At once, not at Init(): requests of a direct user's may come before it.
    if (m_pWebClient != nullptr)
        m_pWebClient->SetCertificateFile(m_strCertificateFile.c_str());
}

// The unique id. It tells installations apart, so it is kept where it can be, and made anew only where none is held.

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
    // Somebody else may have made the file since it was looked for: then that id is this installation's. An empty file
    // stays empty, and the new id with us.
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

// Asking for an empty id makes one, which saves it in turn: that ends there, as the id is no longer empty then.
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

// A number stays one in the line, so that servers tell it from a name made of digits.
void EventManager::LogEvent(int id, LogObject* event)
{
    if (event == nullptr)
        return;
    BeginLine();
    m_pCurrentEvent->element(nullptr, id);
    FinishLine(event);
}

// A line's first half is the same for all events of one second, so it is kept as text; its writer keeps its memory.
void EventManager::BeginLine()
{
    RefreshCommonFields();
    m_pCurrentEvent->Restart(m_strCommonFields);
}

void EventManager::RefreshCommonFields()
{
    // Read before the text is made: at the turn of a second it is then made once too often, never once too seldom.
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
    std::string time; // stays empty should the clock be unreadable: a line without a time is better than none
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

// Kept before the append: hosts read back what they logged, even where the disk did not take it.
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

// Appended, not assigned: a direct user may have put text of another file before it.
//
// For direct users: an unreadable file looks like none to them, and must not be deleted by them either way.
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

// A forked child's copy of the client shares connections with the parent: a request of its own would garble theirs.
bool EventManager::MaySend() const
{
    return m_pWebClient != nullptr && IsOwnProcess();
}

bool EventManager::Upload(std::string&& text)
{
    if (!MaySend())
        return false;
    std::ostream nowhere(nullptr); // however much the server answers
    long status = 0; // nor does it matter what it answers with: the result says whether it took the events
    auto form = UploadForm(GetUniqueId(), m_strApplicationVersion, std::move(text));
    return m_pWebClient->ExecRequest(m_strServerUrl.c_str(), &nowhere, status, RequestTypePost, &form);
}

// Without an item id: whoever hears of one upload hears of all, and does the same for each.
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

// The worker uploads, not the caller, whom a slow server would keep. Its hour begins anew with this cycle.
void EventManager::StartUpload()
{
    Wake();
}

} // namespace AnalyticsSDK
