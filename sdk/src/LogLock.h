// The guard of the log's lock for each append.
#ifndef ANALYTICSSDK_LOGLOCK_H
#define ANALYTICSSDK_LOGLOCK_H

#include "EventLog.h"
#include "lumo/mutex.h"
#include "lumo/own/simd.h"

namespace AnalyticsSDK {

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

#endif
