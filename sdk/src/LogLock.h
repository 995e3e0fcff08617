// The log's lock, and its guard for each append.
#pragma once

#include "lumo/mutex.h"
#include "lumo/own/simd.h"

namespace AnalyticsSDK {
namespace EventLog {

/// Never destroyed: after main() workers may still append, and static destructors of the host may log.
union LastingMutex
{
    constexpr LastingMutex() : none() {}
    ~LastingMutex() {}

    char none; ///< until the mutex is made, before any global object of the host's
    lumo::mutex mutex;
};

/// Guards every append to, read of and deletion of event log files in this process. Recursive. Hosts know it as
/// EventManager::m_spLogMutex. It is made with EventLog.
extern LastingMutex lock;

} // namespace EventLog

/// Holds the lock. An append takes a few microseconds, so a waiting thread first polls for about as long: sleeping and
/// being woken would cost more than the append itself.
class LUMO_THREAD_ANNOTATION(scoped_lockable) LogLock
{
public:
    LogLock() LUMO_THREAD_ANNOTATION(acquire_capability(EventLog::lock.mutex)) LUMO_NO_THREAD_SAFETY_ANALYSIS
    {
        for (int tries = 0; tries < 200; ++tries) {
            if (EventLog::lock.mutex.try_lock())
                return;
            for (int rests = 0; rests < 4; ++rests)
                lumo::simd::rest();
        }
        EventLog::lock.mutex.lock();
    }
    ~LogLock() LUMO_THREAD_ANNOTATION(release_capability()) { EventLog::lock.mutex.unlock(); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;
};

} // namespace AnalyticsSDK
