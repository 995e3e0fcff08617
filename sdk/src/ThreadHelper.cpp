#include "AnalyticsSDK/ThreadHelper.h"

#include <exception>
#include <new>

namespace AnalyticsSDK {

namespace {

constexpr uint32_t default_interval_ms = 30'000;

} // namespace

ThreadHelper::ThreadHelper() : m_stopGuard(false), m_nWaitInterval(default_interval_ms), m_nProcess(tova_process_id())
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
        // The wait comes first, so that an upload does not slow the start of the host. It does not matter why the wait
        // ended: there is a cycle to do unless the worker was stopped.
        tova_event_wait_time(&m_wakeEvent, m_nWaitInterval);
        if (const int stopped = tova_event_wait_time(&_stop_event, 0))
            return stopped;
        // Running out of memory costs this cycle, but does not end the host.
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
    m_nProcess = tova_process_id(); // a forked child may start a worker that its parent only constructed
    start();
    tova_thread_yield(); // on a single processor, lets the worker reach its first wait
}

void ThreadHelper::StopBackgroundThread()
{
    if (!IsOwnProcess() || !ClaimStop())
        return;
    stop(); // before the wake: the worker must find the request when it looks
    Wake();
    // Waits for the current cycle: after this no code of the owner is called any more.
    tova_thread_join(&_thread);
}

// The stop belongs to the thread that asked first, permanently. Kept as a thread id rather than as a mutex that is
// never unlocked, because such a mutex could not be destroyed.
bool ThreadHelper::ClaimStop()
{
    lumo::scoped_lock hold(m_stopGuard);
    const std::thread::id caller = std::this_thread::get_id();
    if (m_stopper == std::thread::id())
        m_stopper = caller;
    return m_stopper == caller;
}

// The stop event stays set, so every caller gets the same result, in any order.
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
// locks: destroying them as they are would wait for ever. Made anew, they can be destroyed.
void ThreadHelper::ForgetWorker()
{
    new (&m_stopGuard) lumo::mutex(lumo::mutex::recursive);
    tova_event_create(&m_wakeEvent, 1);
    tova_event_create(&_stop_event, 0);
    _thread._target = nullptr;
}

} // namespace AnalyticsSDK
