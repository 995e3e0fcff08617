// The event manager of a session: keeps its settings and unique id, writes events to the event log file, uploads that
// file.
//
// Text is 8-bit and passes through unchanged; a null text given to a setter counts as empty. Nothing here reports an
// I/O error: a failed append loses that event, a failed upload leaves the file for the next cycle.
#pragma once

#include <ctime>
#include <sstream>
#include <string>
#include <string_view>

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/IWebClient.h"
#include "AnalyticsSDK/LogObject.h"
#include "AnalyticsSDK/ThreadHelper.h"
#include "lumo/mutex.h"
#include "lumo/scoped_ptr.h"

namespace AnalyticsSDK {

class EventLine;
using lumo::scoped_ptr;

/**
 * Settings, event log file, upload cycle and the worker that drives it.
 *
 * Order of use: construct, set, Init(), log and upload, Close(), destroy. Setters, and LogEvent(), belong to one host
 * thread at a time and take no lock; StartUpload() and SetTimeout() may come from any thread. After a fork() the child
 * may log and must not send: its uploads answer false, Close() and the destructor leave the parent's connections alone.
 */
class TOVA_API EventManager : public ThreadHelper
{
public:
    /// Makes the web client too; starts nothing. @param serverUrl where uploads are posted, fixed from now on
    explicit EventManager(const char* serverUrl);
    /// Close() must have returned. Releases the web client.
    ~EventManager() override;

    /// One upload cycle, on the worker thread: sends the whole file if it holds anything, deletes it on success.
    ///
    /// Deliberate: events appended between the read and the deletion are deleted unsent, because a lock over the whole
    /// upload would stop logging for as long as the server takes.
    void Process() override;

    using ThreadHelper::Init;
    /// Stops the worker (waits for an upload under way), then closes the web client.
    void Close() override;
    /// Starts the web client with proxies and credentials of its own, then the worker as "EventManager Thread". The
    /// first cycle comes after the first interval, or at once when StartUpload() was called before.
    virtual void Init();

    /// Milliseconds between two upload cycles, 3,600,000 at first.
    unsigned long GetTimeout() const;
    /// Takes effect from the worker's next wait; more than 32 bits count as the largest 32-bit number.
    void SetTimeout(unsigned long milliseconds);

    /// Version of the layout of event lines, their first element.
    int GetLogVersion() const;
    /// Goes into every later line.
    void SetLogVersion(int version);
    /// Path of the file that events are appended to.
    std::string GetEventLogFilePath() const;
    /// Null counts as empty; so it does in the setters below.
    void SetEventLogFilePath(const char* path);
    /// Path of the file that keeps the unique id.
    std::string GetPidFilePath() const;
    /// To be set before the unique id is first asked for.
    void SetPidFilePath(const char* path);
    /// Points into this object, valid until the next SetApplicationId().
    const char* GetApplicationId() const;
    /// Goes into every later line.
    void SetApplicationId(const char* id);
    /// The host's version as it goes into every line.
    std::string GetApplicationVersion() const;
    /// Goes into every later line.
    void SetApplicationVersion(const char* version);
    /// Certificate authorities (PEM) for https; handed to the web client at once.
    void SetCertificateFile(const char* path);

    /// Replaces the id in memory; writes nothing.
    void SetUniqueId(const char* id);
    /// The id; an empty one is first loaded or made. Points into this object, valid until the id changes.
    const char* GetUniqueId();
    /// A new random id; changes nothing.
    std::string CreateNewUniqueId() const;
    /// Loads the id from its file, or makes one and saves it; when another process saves first, takes that one.
    void InitUniqueId();
    /// The file's text, untrimmed, up to the first NUL. False, and no change, when it is missing, unreadable or empty.
    bool LoadUniqueIdFromFile();
    /// Writes the id, without a line end, unless a file is there: it is never overwritten, whatever it holds.
    ///
    /// The file appears whole or not at all, also when the process dies in between.
    void SaveUniqueIdToFile();

    /// Appends one line to the event log file: the common fields, the name, the event's text. Null event: nothing.
    ///
    /// The line is made without a lock and written in one piece under m_spLogMutex; when this returns the operating
    /// system has it, though it need not be on the disk yet. Without a path, or where the file cannot be written, it is
    /// lost.
    /// @param name null is written as null @param event ended, stays the caller's
    void LogEvent(const char* name, LogObject* event);
    /// The same with a number for a name.
    void LogEvent(int id, LogObject* event);
    /// Writes the first five elements of a line: log version, UTC time, application id and version, unique id.
    /// LogEvent() does so by itself; a call between two events has no effect.
    void AddCommonEventFields();
    /// Text of the last event object logged, whether or not it reached the disk. Valid until the next LogEvent().
    const char* GetLastLoggedEvent() const;

    /// Appends the waiting events to a stream, without blanks at the end, and tells the file's length in bytes.
    ///
    /// The length is 0 when there is no file; and when the file could not be read whole, with nothing appended.
    void LoadDataToSend(std::stringstream& stream, unsigned long& size);
    /// Posts the stream's text and waits. The body of the answer is discarded. Returns true when the server took the
    /// text; the caller then deletes the file.
    bool UploadData(std::stringstream& stream);
    /// Queues the post; the callback (on the web client's thread, item id "") receives the outcome and deletes the
    /// file.
    /// @return false when nothing was queued, also when that thread does not exist: the callback is not called then
    bool UploadDataAsync(std::stringstream& stream, IProgressCallback* callback);
    /// Lets the worker run a cycle now; returns at once. The interval begins anew after that cycle.
    void StartUpload();

    /// Reads the whole event log file, straight into `text`: the same as LoadDataToSend(), without its copies.
    /// @return false when there is a file but it could not be read whole; nothing must be sent or deleted then
    bool ReadPendingEvents(std::string& text, unsigned long& size);
    /// The same as UploadData(), for a text, which is moved from.
    bool Upload(std::string&& text);
    /// The same as UploadDataAsync(), for a text, which is moved from.
    bool UploadAsync(std::string&& text, IProgressCallback* callback);
    /// Deletes the event log file, under its lock.
    void DeleteEventLogFile();

    /// Guards every append to, read of and deletion of event log files in this process. Recursive; never destroyed, so
    /// that a worker may outlive the host's main().
    static lumo::mutex& m_spLogMutex;

private:
    friend class Delivery; // the session's own kind, which also delivers in batches
    void BeginLine();
    void FinishLine(LogObject* event);
    std::string_view EndLine(LogObject* event);
    void RefreshCommonFields();
    bool MaySend() const;

    IWebClient* m_pWebClient;
    std::string m_strUniqueId;
    std::string m_strEventLogFilePath;
    std::string m_strPidFilePath;
    std::string m_strApplicationId;
    int m_nLogVersion = 0;
    std::string m_strServerUrl;
    std::string m_strApplicationVersion;
    std::string m_strLastLoggedEvent;
    std::string m_strCertificateFile;
    scoped_ptr<EventLine> m_pCurrentEvent; ///< the line being built, or last built; null before the first

    std::string m_strCommonFields; ///< text of the first five elements: the same for all events of one second
    time_t m_nCommonFieldsTime;    ///< the second that it was made for; -1 when a setting has changed since
};

} // namespace AnalyticsSDK
