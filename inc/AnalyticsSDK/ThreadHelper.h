// A worker: one background thread that does something after every wait, until it is stopped.
//
// Base of the event manager and of the web client. Times are milliseconds.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "lumo/mutex.h"
#include "lumo/thread.h"
#include "lumo/tova/base.h"
#include "lumo/tova/event.h"

namespace AnalyticsSDK {

/**
 * A thread that waits, calls Process(), and waits again.
 *
 * The owner starts it once with Init() and must have returned from Close() before destroying it. Init() and Close() may
 * come from any thread, but not from the worker itself. A worker does not survive fork(): in the child, Close() ends at
 * once and the object may be destroyed.
 */
class TOVA_API ThreadHelper : public lumo::runnable_thread
{
public:
    /// Starts nothing. The interval is 30,000 ms until the derived class sets another.
    ThreadHelper();
    ThreadHelper(const ThreadHelper&) = delete;
    ThreadHelper& operator=(const ThreadHelper&) = delete;

    /// The worker's loop: wait (for the interval, or less when woken), return when stopped, else call Process().
    ///
    /// A Process() that throws counts as a failed cycle; the next one comes after the next wait.
    /// @return not 0: the result of the wait for the stop event that ended it
    int run() override;

    ~ThreadHelper() override;

    /// One cycle of work, on the worker thread. May take as long as it likes; Close() waits for it. A wake that comes
    /// meanwhile leads to one more cycle.
    virtual void Process() = 0;

    /// Starts the worker, once: while it runs, a second start aborts with an assertion.
    ///
    /// A thread that the system refuses is not reported: then nothing runs, and Close() ends at once.
    /// @param threadName kept, not shown to the operating system; null counts as empty
    virtual void Init(const char* threadName);

    /// Stops the worker and waits until it has left Process(), which is not called again. Later calls are harmless. The
    /// request is never taken back: a worker that is started afterwards leaves before its first cycle.
    virtual void Close();

    /// Same as Init(): keeps the name, starts the thread, lets it run first.
    void StartBackgroundThread(const char* threadName);

    /// Same as Close(). While one thread stops the worker, a call from another one returns at once, without waiting.
    void StopBackgroundThread();

    /// True from the request of a stop on. Any thread.
    bool IsShuttingDown();

protected:
    /// Ends the current wait, or the next one when a cycle is under way. Several calls merge into one. Any thread.
    void Wake();

    /// True in the process that started the worker (or would start it), false in a child made by fork().
    bool IsOwnProcess() const;

    lumo::mutex m_stopGuard;               ///< guards m_stopper
    tova_event m_wakeEvent;                ///< auto-reset
    std::atomic<uint32_t> m_nWaitInterval; ///< milliseconds between cycles, re-read for every wait
    std::string m_strThreadName;           ///< what Init() was given; the system does not get to see it

private:
    /// Whether the stop belongs to the calling thread, now or since an earlier call.
    bool ClaimStop();
    /// In a forked child: makes what the worker may have held destroyable.
    void ForgetWorker();

    std::thread::id m_stopper; ///< the thread that the stop belongs to; none before the first
    int32_t m_nProcess;        ///< the process that the worker lives in
};

} // namespace AnalyticsSDK
