#include "logouts.h"

#include "private_file.h"

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace http {

FileLogouts::FileLogouts(std::string file) : m_file(std::move(file))
{
    using namespace std::chrono;
    if (!m_file.empty() && access(m_file.c_str(), F_OK) == 0)
        load(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}

// What has run out goes here, so the file stays as small as the logouts of two weeks.
void FileLogouts::load(store::Seconds now)
{
    std::ifstream in(m_file);
    std::string session, text;
    for (store::Seconds until; in >> session >> until;)
        if (until > now) {
            m_ended[session] = until;
            text += session + " " + std::to_string(until) + "\n";
        }
    replace_file(m_file, text, "ended logins");
}

void FileLogouts::end(const std::string& session, store::Seconds until)
{
    std::lock_guard hold(m_lock);
    m_ended[session] = until;
    if (!m_file.empty())
        append_line(m_file, session + " " + std::to_string(until) + "\n", "ended logins");
}

bool FileLogouts::has_ended(const std::string& session)
{
    std::lock_guard hold(m_lock);
    return m_ended.count(session) != 0;
}

} // namespace http
