// The same way of an event as host.c, with the C++ face: everything that is opened ends by itself.
//
//     host_cpp URL FOLDER
#include "analytics.hpp"

#include <condition_variable>
#include <iostream>
#include <mutex>

namespace {

// Observers run on a thread of the library's own; this hands one value from there to here.
class Outcome
{
public:
    void leave(analytics::result result)
    {
        std::lock_guard<std::mutex> hold(m_lock);
        m_result = result;
        m_known.notify_one();
    }

    analytics::result wait()
    {
        std::unique_lock<std::mutex> hold(m_lock);
        m_known.wait_for(hold, std::chrono::minutes(2), [this] { return m_result.has_value(); });
        return m_result.value_or(analytics::result::send_failed);
    }

private:
    std::mutex m_lock;
    std::condition_variable m_known;
    std::optional<analytics::result> m_result;
};

void log_document(analytics::session& session, const std::string& title, std::optional<int> pages)
{
    auto event = session.open_event("document_opened");
    event.add("title", title);
    event.add("pages", pages);
    auto margins = event.open_array("margins");
    for (double margin : {2.5, 2.0, 2.5, 3.0})
        margins.add(margin);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: host_cpp URL FOLDER\n";
        return 2;
    }
    const std::string folder = argv[2];
    analytics::settings settings;
    settings.upload_url = argv[1];
    settings.event_log_file = folder + "/events.log";
    settings.unique_id_file = folder + "/unique-id";
    settings.application_id = "example-host-cpp";
    settings.application_version = "1.0";

    Outcome outcome; // outlives the session, whose observers refer to it
    analytics::session session(settings);
    session.observe(analytics::upload::complete, [&](auto, auto) { outcome.leave(analytics::result::ok); });
    session.observe(analytics::upload::error,
                    [&](std::uint32_t code, auto) { outcome.leave(static_cast<analytics::result>(code)); });

    log_document(session, "Quarterly report", 12);
    log_document(session, "Untitled", std::nullopt);
    session.open_event("machine").add_property("os_name");

    analytics::result started = session.start_send();
    analytics::result result = started == analytics::result::ok ? outcome.wait() : started;
    std::cout << analytics::text(result) << "\n";
    return result == analytics::result::ok ? 0 : 1;
}
