// A time zone in force as long as it lives.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace support {

class Zone
{
public:
    explicit Zone(const char* name)
    {
        if (const char* before = getenv("TZ"))
            m_before = before;
        setenv("TZ", name, 1);
        tzset();
    }
    ~Zone()
    {
        if (m_before)
            setenv("TZ", m_before->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> m_before;
};

} // namespace support
