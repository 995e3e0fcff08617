#include "support/child.h"
#include "support/scratch.h"
#include "system/numbered_log.h"
#include "system/programs.h"
#include "system/runs.h"

#include <filesystem>
#include <random>
#include <thread>

namespace {

class CrashRun
{
public:
    CrashRun(const std::string& folder, unsigned seed) : m_log(folder + "/log"), m_random(seed) {}

    CrashReport run(int kills)
    {
        while (m_report.kills < kills && m_report.finding.empty())
            run_and_kill();
        return m_report;
    }

private:
    // Half of the hosts die at any moment, their start included; the others in the middle of their work.
    void run_and_kill()
    {
        support::Child child(
            {host_program("steps_host"), "log=" + m_log, "open", "log_and_tell=" + std::to_string(m_next)});
        if (m_random() % 2)
            child.wait_for_output("\n");
        std::this_thread::sleep_for(std::chrono::microseconds(m_random() % 12'000)); // the random moment itself
        child.kill(SIGKILL);
        host::require(child.wait() && child.status() == 128 + SIGKILL, "a host that lived until it was killed");
        ++m_report.kills;
        judge(child.output());
    }

    // `told`: the numbers whose analytics_event_end returned, a line each; the kill may have come before the last was
    // said, or cut it where a page ends.
    void judge(const std::string& told)
    {
        const NumberedLog found = numbered_log(support::read_file(m_log));
        const bool had_tail = !m_tail.empty();
        const bool closed = had_tail && !found.broken.empty();
        if (found.broken.size() > (had_tail ? 1 : 0))
            m_report.finding = "a bad line: " + found.broken.back().substr(0, 300);
        else if (closed && found.broken[0] != m_tail)
            m_report.finding = "a tail that became more than one bad line: " + found.broken[0].substr(0, 300);
        for (long number : found.numbers) {
            if (number != m_next++ && m_report.finding.empty())
                m_report.finding =
                    "number " + std::to_string(number) + " where " + std::to_string(m_next - 1) + " belongs";
        }
        const std::vector<std::string> lines = support::split_lines(told.substr(0, told.rfind('\n') + 1));
        const long returned =
            lines.empty() ? m_next - 1 - static_cast<long>(found.numbers.size()) : std::stol(lines.back());
        if (m_report.finding.empty() && (m_next - 1 < returned || m_next - 1 > returned + 1))
            m_report.finding =
                "the file ends with " + std::to_string(m_next - 1) + ", the host with " + std::to_string(returned);
        m_report.events += static_cast<long>(found.numbers.size());
        keep_tail(found, had_tail && !closed);
    }

    // The next host finds the tail and nothing else, so that the file stays small.
    void keep_tail(const NumberedLog& found, bool still_the_old_one)
    {
        m_report.tails += !found.tail.empty() && !still_the_old_one;
        m_tail = found.tail;
        if (m_tail.empty())
            std::filesystem::remove(m_log);
        else
            support::write_file(m_log, m_tail);
    }

    std::string m_log;
    std::mt19937 m_random;
    long m_next = 1;
    std::string m_tail;
    CrashReport m_report;
};

} // namespace

CrashReport kill_again_and_again(const std::string& folder, int kills, unsigned seed)
{
    return CrashRun(folder, seed).run(kills);
}
