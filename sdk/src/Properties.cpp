#include "Properties.h"

#include <cstring>
#include <new>

#include <pthread.h>

#include "AnalyticsSDK/SystemInfo.h"
#include "analytics.h"
#include "lumo/mutex.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/text.h"

namespace AnalyticsSDK {
namespace {

using Probe = int32_t (*)(char* buffer, unsigned int size);

/// A text that does not change while the process runs; empty until a probe gave one. A fixed array allocates nothing,
/// so that never destroying it is no leak.
class CachedText
{
public:
    /// Copies the text, or calls the probe and keeps what it wrote, whatever its status. After an empty text the probe
    /// is called again next time.
    int32_t Get(Probe probe, char* buffer, unsigned int size)
    {
        lumo::scoped_lock hold(m_lock);
        if (m_text[0] != '\0') {
            tova_strcpy(buffer, size, m_text);
            return ANALYTICS_OK;
        }
        // The probe is called under the lock: threads that ask at once wait for one call instead of making several.
        const int32_t result = probe(buffer, size);
        // A text that is too long to keep is returned all the same, and read again next time.
        if (std::strlen(buffer) < sizeof m_text)
            tova_strcpy(m_text, sizeof m_text, buffer);
        return result;
    }

    void LockBeforeFork() LUMO_NO_THREAD_SAFETY_ANALYSIS { m_lock.lock(); }
    void UnlockInParent() LUMO_NO_THREAD_SAFETY_ANALYSIS { m_lock.unlock(); }
    void RenewInChild() { new (&m_lock) lumo::mutex(lumo::mutex::fast); }

private:
    lumo::mutex m_lock{lumo::mutex::fast};
    char m_text[256] LUMO_GUARDED_BY(m_lock) = ""; // far more than any answer
};

// Never destroyed: a property may be read while the process exits.
constinit union Caches
{
    constexpr Caches() : none() {}
    ~Caches() {}
    char none;
    CachedText texts[2];
} caches;
[[maybe_unused]] const struct CachesStart
{
    CachesStart()
    {
        for (CachedText& text : caches.texts)
            new (&text) CachedText;
    }
} cachesStart TOVA_BEFORE_THE_HOST;
constinit CachedText& cpu = caches.texts[0];
constinit CachedText& cpuClock = caches.texts[1];

// In a child forked while another thread held the lock it would stay locked for ever.
[[maybe_unused]] const int forkHandlers = pthread_atfork(
    [] {
        cpu.LockBeforeFork();
        cpuClock.LockBeforeFork();
    },
    [] {
        cpuClock.UnlockInParent();
        cpu.UnlockInParent();
    },
    [] {
        cpu.RenewInChild();
        cpuClock.RenewInChild();
    });

// "uuid" is no fact of the machine: every read makes a new one, so it must not be cached.
constinit const struct
{
    const char* key;
    Probe probe;
    CachedText* cache; ///< null: asked every time
} properties[] = {{"os_name", GetOSName, nullptr},
                  {"os_ver", GetOSVersion, nullptr},
                  {"mfg", GetManufacturer, nullptr},
                  {"model", GetModel, nullptr},
                  {"arch", GetArchitectureType, nullptr},
                  {"cpu", GetCPUType, &cpu},
                  {"cpu_clock", GetCPUClockSpeed, &cpuClock},
                  {"cpu_usage", GetCPUUsage, nullptr},
                  {"ram_total", GetTotalRAM, nullptr},
                  {"ram_free", GetFreeRAM, nullptr},
                  {"vm_total", GetTotalVirtualMemory, nullptr},
                  {"vm_free", GetFreeVirtualMemory, nullptr},
                  {"hd_total", GetTotalHardDrive, nullptr},
                  {"hd_free", GetFreeHardDrive, nullptr},
                  {"bios", GetBIOS, nullptr},
                  {"uuid", GetUUID, nullptr},
                  {"tz", GetTimeZone, nullptr}};

} // namespace

// A linear search: seventeen keys that are rarely read need no map.
uint32_t GetProperty(const char* key, char* buffer, unsigned int size)
{
    buffer[0] = '\0'; // so that a caller that ignores the result prints nothing rather than garbage
    for (const auto& property : properties)
        if (key != nullptr && std::strcmp(key, property.key) == 0) {
            const int32_t result = property.cache != nullptr ? property.cache->Get(property.probe, buffer, size)
                                                             : property.probe(buffer, size);
            return static_cast<uint32_t>(result);
        }
    return ANALYTICS_UNKNOWN_PROPERTY;
}

} // namespace AnalyticsSDK
