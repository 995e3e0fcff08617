#include "AnalyticsSDK/ThreadHelper.h"

#include <exception>
#include <new>

namespace AnalyticsSDK {

static constexpr uint32_t defaultInterval_ms = 30'000;

ThreadHelper::ThreadHelper() : m_stopGuard(false), m_nWaitInterval(defaultInterval_ms), m_nProcess(tova_process_id())
{
    tova_event_create(&m_wakeEvent, 1);
}

ThreadHelper::~ThreadHelper()
{
    if (!IsOwnProcess())
        ForgetWorker();
    tova_event_destroy(&m_wakeEvent);
}

int ThreadHelper::run()
{
    for (;;) {
        // The wait comes first: a program that has just started has better things to do than to upload. Why it ended
        // does not matter: there is a cycle to do, woken or not, unless the worker was woken to stop.
        tova_event_wait_time(&m_wakeEvent, m_nWaitInterval);
        if (const int stopped = tova_event_wait_time(&_stop_event, 0))
            return stopped;
        // Running out of memory costs this cycle, never the host.
        try {
            Process();
        } catch (const std::exception&) {
        }
    }
}

void ThreadHelper::Init(const char* threadName)
{
    StartBackgroundThread(threadName);
}

void ThreadHelper::Close()
{
    StopBackgroundThread();
}

void ThreadHelper::StartBackgroundThread(const char* threadName)
{
    m_strThreadName = threadName != nullptr ? threadName : "";
    m_nProcess = tova_process_id(); // a forked child may start what its parent had only made
    start();
    tova_thread_yield(); // lets the worker reach its first wait, where one processor has to do
}

void ThreadHelper::StopBackgroundThread()
{
    if (!IsOwnProcess() || !ClaimStop())
        return;
    stop(); // before the wake: the worker must find the request when it looks
    Wake();
    // As long as the cycle in hand takes: once this returns, nothing of the owner's is called any more.
    tova_thread_join(&_thread);
}

// The stop belongs to the thread that asked first, for good. Remembered, rather than expressed by a mutex that is never
// given back: nobody could destroy that one.
bool ThreadHelper::ClaimStop()
{
    lumo::scoped_lock hold(m_stopGuard);
    const std::thread::id caller = std::this_thread::get_id();
    if (m_stopper == std::thread::id())
        m_stopper = caller;
    return m_stopper == caller;
}

// The stop event stays set, so everyone who asks hears the same, in any order.
bool ThreadHelper::IsShuttingDown()
{
    return tova_event_wait_time(&_stop_event, 0) != 0;
}

void ThreadHelper::Wake()
{
    tova_event_set(&m_wakeEvent);
}

// Compared by number at every use: asking the system costs little, and a flag would need a fork handler for each
// worker.
bool ThreadHelper::IsOwnProcess() const
{
    return m_nProcess == tova_process_id();
}

// In a child made by fork() the worker is gone, but the events still count it as waiting, and it may have held their
// locks: destroying them as they are would wait for ever. Made anew, they can go.
void ThreadHelper::ForgetWorker()
{
    new (&m_stopGuard) lumo::mutex(false);
    tova_event_create(&m_wakeEvent, 1);
    tova_event_create(&_stop_event, 0);
    _thread._target = nullptr;
}

} // namespace AnalyticsSDK
