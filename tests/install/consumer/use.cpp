// A C++17 host: the C++ face, and the exported classes beneath it.
#include <AnalyticsSDK/EventManager.h>
#include <AnalyticsSDK/Identity.h>
#include <AnalyticsSDK/LogObject.h>
#include <AnalyticsSDK/WebClient.h>
#include <analytics.hpp>
#include <lumo/tova/tova.h>

static_assert(__cplusplus == 201703L, "what is installed must not need more than C++17");

namespace {

// A host's static objects may use the library before main().
struct EarlyUse
{
    EarlyUse()
    {
        tova_thread_create(&thread);
        tova_thread_start(
            &thread, [](void*) {}, nullptr);
        tova_thread_join(&thread);
        char cpu[256] = "";
        analytics_property_get(nullptr, "cpu", cpu, sizeof cpu);
        analytics::settings settings;
        settings.unique_id = "U";
        settings.event_log_file = "/dev/null";
        analytics::session session(settings);
        logged = session.open_event("early").end() == analytics::result::ok;
    }

    tova_thread thread;
    bool logged;
} early;

} // namespace

int main(int argc, char** argv)
{
    analytics::settings settings;
    settings.upload_url = "http://127.0.0.1:1/";
    settings.unique_id = "U";
    settings.event_log_file = argc > 1 ? argv[1] : "events.log";
    analytics::session session(settings);
    session.open_event("cpp").add("text", "value");

    AnalyticsSDK::LogObject object;
    object.AddInt("n", 1);
    object.EndObject();
    bool good = object.ToString() == "{ \"n\": 1 }" && AnalyticsSDK::GenerateUuid().size() == 36;
    return early.logged && good && session.send() == analytics::result::send_failed ? 0 : 1;
}
