// The guard of EventManager::m_spLogMutex on the way of every event.
#ifndef ANALYTICSSDK_LOGLOCK_H
#define ANALYTICSSDK_LOGLOCK_H

#include "AnalyticsSDK/EventManager.h"
#include "lumo/mutex.h"
#include "lumo/simd.h"

namespace AnalyticsSDK {

/// Holds m_spLogMutex. Appends take a few microseconds, so a waiting thread first tries for about as long: putting it
/// to sleep and waking it again would cost more than the append itself.
class LUMO_THREAD_ANNOTATION(scoped_lockable) LogLock
{
public:
    LogLock() LUMO_THREAD_ANNOTATION(acquire_capability(EventManager::m_spLogMutex)) LUMO_NO_THREAD_SAFETY_ANALYSIS
    {
        for (int tries = 0; tries < 200; ++tries) {
            if (EventManager::m_spLogMutex.try_lock())
                return;
            for (int rests = 0; rests < 4; ++rests)
                lumo::simd::rest();
        }
        EventManager::m_spLogMutex.lock();
    }
    ~LogLock() LUMO_THREAD_ANNOTATION(release_capability()) { EventManager::m_spLogMutex.unlock(); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;
};

} // namespace AnalyticsSDK

#endif
