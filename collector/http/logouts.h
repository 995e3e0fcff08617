/// @file
/// The ended logins of a collector that shares its store with no other one: kept in memory and in a file.
#pragma once

#include "store/logouts.h"

#include <map>
#include <mutex>

namespace http {

class FileLogouts final : public store::Logouts
{
public:
    /// @param file lines "NUMBER UNTIL", read now and written on; empty: in memory alone, which is enough where a
    /// restart ends every login
    explicit FileLogouts(std::string file);
    void end(const std::string& session, store::Seconds until) override;
    bool has_ended(const std::string& session) override;

private:
    void load(store::Seconds now);
    const std::string m_file;
    std::mutex m_lock;
    std::map<std::string, store::Seconds> m_ended;
};

} // namespace http
