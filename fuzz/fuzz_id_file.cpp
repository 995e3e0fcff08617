// The unique-id file, holding anything: the id is its text up to the first NUL, the file is never changed, and the id
// travels into the event line as it is.

#include "AnalyticsSDK/EventManager.h"
#include "AnalyticsSDK/LogObject.h"
#include "fuzz.h"
#include "model.h"

namespace {

AnalyticsSDK::EventManager& manager()
{
    static AnalyticsSDK::EventManager only("http://127.0.0.1:9/");
    return only;
}

void check_event_line(const std::string& log_file, const std::string& id)
{
    AnalyticsSDK::LogObject event;
    event.EndObject();
    manager().SetLogVersion(3);
    manager().SetEventLogFilePath(log_file.c_str());
    manager().LogEvent("e", &event);
    model::check_line({"", "", id}, "\"e\"", "{ }", fuzz::read_file(log_file));
    unlink(log_file.c_str());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    static const std::string id_file = fuzz::scratch() + "/id", log_file = fuzz::scratch() + "/events.log";
    const std::string content(reinterpret_cast<const char*>(bytes), size);
    fuzz::write_file(id_file, content);

    manager().SetPidFilePath(id_file.c_str());
    manager().SetUniqueId("before");
    const bool loaded = manager().LoadUniqueIdFromFile();
    fuzz::require("a file that holds anything is loaded", loaded == !content.empty());
    std::string id = content.empty() ? "before" : content.c_str();
    fuzz::same("the id loaded", id, manager().GetUniqueId()[0] || id.empty() ? manager().GetUniqueId() : "");

    manager().SetUniqueId("");
    manager().InitUniqueId();
    id = manager().GetUniqueId();
    if (content.c_str()[0] != '\0')
        fuzz::same("the id in use", content.c_str(), id);
    else
        fuzz::require("a new id", content.empty() ? id.size() == 36 : true);
    check_event_line(log_file, manager().GetUniqueId());

    // Other processes use the id that is in the file as well, so nobody replaces it.
    manager().SetUniqueId("another");
    manager().SaveUniqueIdToFile();
    fuzz::same("the file is never changed", content, fuzz::read_file(id_file));
    return 0;
}
