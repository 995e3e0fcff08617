// The event log file, holding anything: what is appended becomes a line of its own whatever stood there, what is read
// for an upload is the file up to its first NUL without blanks at the end.

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

void check_reading(const std::string& content)
{
    std::stringstream stream;
    unsigned long length = 99;
    manager().LoadDataToSend(stream, length);
    std::string expected = content.c_str();
    expected.erase(expected.find_last_not_of(' ') + 1);
    fuzz::same("the length", static_cast<long long>(content.size()), static_cast<long long>(length));
    fuzz::same("the text to send", expected, stream.str());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    // Two files in turn: where a file ends as the library left it, the library does not look at its end again, and a
    // foreign file of the same name and length would be mistaken for its own.
    static unsigned number = 0;
    const std::string log_file = fuzz::scratch() + "/events" + std::to_string(++number % 2);
    const std::string content(reinterpret_cast<const char*>(bytes), size);
    fuzz::write_file(log_file, content);
    manager().SetLogVersion(3);
    manager().SetUniqueId("id");
    manager().SetEventLogFilePath(log_file.c_str());
    check_reading(content);

    // The first append finds an end that another program wrote, the second one its own.
    std::string expected = content;
    for (const char* name : {"a", "b"}) {
        AnalyticsSDK::LogObject event;
        event.EndObject();
        manager().LogEvent(name, &event);
        if (!expected.empty() && expected.back() != '\n')
            expected += '\n';
        const std::string whole = fuzz::read_file(log_file);
        fuzz::same("what stood there", expected, whole.substr(0, expected.size()));
        model::check_line({"", "", "id"}, model::in_quotes(name), "{ }", whole.substr(expected.size()));
        expected = whole;
    }
    check_reading(expected);
    unlink(log_file.c_str());
    return 0;
}
