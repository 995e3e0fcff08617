#include "Properties.h"

#include <cstring>
#include <new>

#include <pthread.h>

#include "AnalyticsSDK/SystemInfo.h"
#include "analytics.h"
#include "host/host.h"
#include "lumo/mutex.h"
#include "lumo/strings.h"
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
} caches_start TOVA_BEFORE_THE_HOST;
constinit CachedText& cpu = caches.texts[0];
constinit CachedText& cpuClock = caches.texts[1];

// In a child forked while another thread held the lock it would stay locked for ever.
[[maybe_unused]] const int fork_handlers = pthread_atfork(
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

// The facts that the system tells in its own words, and those that are numbers.

template <host::text_fact fact>
int32_t ReadText(char* buffer, unsigned int size)
{
    host::text value{};
    const host::answer given = host::facts().fact_text(fact, value);
    if (given == host::answer::found)
        lumo::sprintf_safe(buffer, size, "%s", value.data());
    return static_cast<int32_t>(given);
}

using Number = int32_t (*)(uint64_t& value);

template <host::number_fact fact>
int32_t ReadNumber(uint64_t& value)
{
    return static_cast<int32_t>(host::facts().fact_number(fact, value));
}

template <uint64_t host::volume::*blocks>
int32_t ReadVolume(uint64_t& bytes)
{
    host::volume start_up{};
    const host::answer given = host::facts().first_volume(start_up);
    bytes = start_up.block_size * (start_up.*blocks);
    return static_cast<int32_t>(given);
}

struct Property
{
    const char* key;
    const char* sentence;
    Probe probe;                 ///< null for a number
    CachedText* cache = nullptr; ///< null: asked every time
    Number number = nullptr;
};

using host::number_fact;
using host::text_fact;

// "uuid" is no fact of the machine: every read makes a new one, so it must not be cached.
constinit const Property properties[] = {
    {"os_name", "Always mac: the name that servers know this family of hosts by.", GetOSName},
    {"os_ver", "Version of the system as three numbers; on Linux the kernel's.", GetOSVersion},
    {"mfg", "Always Apple, likewise.", GetManufacturer},
    {"model", "The maker's name of the model.", GetModel},
    {"arch", "Processor architecture: ppc, x86, 68K or unknown.", GetArchitectureType},
    {"cpu", "The processor's name.", GetCPUType, &cpu},
    {"cpu_clock", "The processor's clock in MHz.", GetCPUClockSpeed, &cpuClock},
    {"cpu_usage", "Share of time that the processors were busy since the start.", GetCPUUsage},
    {"ram_total", "Physical memory in MB of 1,048,576 bytes.", GetTotalRAM},
    {"ram_free", "Always 0 MB: no figure was ever sent under this key.", GetFreeRAM},
    {"vm_total", "Memory that the pager manages, in MB.", GetTotalVirtualMemory},
    {"vm_free", "Its free part in MB, counted in 32 bits.", GetFreeVirtualMemory},
    {"hd_total", "Size of the start-up volume in GB of 1,000,000,000 bytes.", GetTotalHardDrive},
    {"hd_free", "What an ordinary user may still fill of it, in GB.", GetFreeHardDrive},
    {"bios", "The same as mfg.", GetBIOS},
    {"uuid", "A fresh random identifier at every call.", GetUUID},
    {"tz", "Distance of local time from UTC.", GetTimeZone},
    {"system", "The family of systems: linux or darwin.", ReadText<text_fact::system>},
    {"system_version", "The release's own name or number.", ReadText<text_fact::system_version>},
    {"kernel", "The kernel's release.", ReadText<text_fact::kernel>},
    {"machine", "The processor's instruction set.", ReadText<text_fact::machine>},
    {"processors", "Processors that run; a number.", nullptr, nullptr, ReadNumber<number_fact::processors>},
    {"memory_bytes", "Memory in bytes; a number.", nullptr, nullptr, ReadNumber<number_fact::memory>},
    {"memory_available_bytes", "Bytes that programs can still get without swapping; a number.", nullptr, nullptr,
     ReadNumber<number_fact::memory_available>},
    {"disk_bytes", "Size of the start-up volume in bytes; a number.", nullptr, nullptr,
     ReadVolume<&host::volume::blocks>},
    {"disk_free_bytes", "Bytes of it that an ordinary user may still fill; a number.", nullptr, nullptr,
     ReadVolume<&host::volume::available_blocks>},
    {"locale", "Language and territory that the user chose.", ReadText<text_fact::locale>},
    {"time_zone", "The name of the local time zone.", ReadText<text_fact::time_zone>},
    {"desktop", "The desktop that the process runs in; empty without one.", ReadText<text_fact::desktop>},
    {"display", "Where windows can be shown: wayland, x11 or none.", ReadText<text_fact::display>},
    {"virtualized", "container, the hypervisor's name, or no.", ReadText<text_fact::virtualized>},
    {"boot_seconds", "Seconds since the machine started; a number.", nullptr, nullptr,
     ReadNumber<number_fact::boot_seconds>}};

// A walk through the rows: a few keys that are asked for now and then do not pay for a map.
const Property* Find(const char* key)
{
    for (const Property& property : properties)
        if (key != nullptr && std::strcmp(key, property.key) == 0)
            return &property;
    return nullptr;
}

uint32_t TextOf(const Property& property, char* buffer, unsigned int size)
{
    if (property.cache != nullptr)
        return static_cast<uint32_t>(property.cache->Get(property.probe, buffer, size));
    if (property.number == nullptr) // then it has a probe
        return static_cast<uint32_t>(property.probe(buffer, size));
    uint64_t value = 0;
    const int32_t result = property.number(value);
    if (result == ANALYTICS_OK)
        lumo::sprintf_safe(buffer, size, "%llu", static_cast<unsigned long long>(value));
    return static_cast<uint32_t>(result);
}

} // namespace

uint32_t GetProperty(const char* key, char* buffer, unsigned int size)
{
    buffer[0] = '\0'; // so that a caller that ignores the result prints nothing rather than garbage
    const Property* property = Find(key);
    if (property == nullptr)
        return ANALYTICS_UNKNOWN_PROPERTY;
    return TextOf(*property, buffer, size);
}

uint32_t ReadProperty(const char* key, PropertyValue& value)
{
    const Property* property = Find(key);
    value.isNumber = property != nullptr && property->number != nullptr;
    if (value.isNumber)
        return static_cast<uint32_t>(property->number(value.number));
    return GetProperty(key, value.text, sizeof value.text);
}

void EachProperty(void (*each)(void* context, const char* key, const char* sentence), void* context)
{
    for (const Property& property : properties)
        each(context, property.key, property.sentence);
}

} // namespace AnalyticsSDK
