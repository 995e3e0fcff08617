#include "system/crash_run.h"

#include "support/child.h"
#include "support/scratch.h"
#include "system/numbered_log.h"

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace {

// The number that the host reports, in memory that outlives it.
class Progress
{
public:
    explicit Progress(const std::string& path)
    {
        support::write_file(path, std::string(sizeof(long), '\0'));
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        void* memory = mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        host::require(memory != MAP_FAILED, "shared memory");
        m_number = static_cast<std::atomic<long>*>(memory);
        close(file);
    }
    ~Progress() { munmap(m_number, sizeof(long)); }
    std::atomic<long>& number() { return *m_number; }

private:
    std::atomic<long>* m_number;
};

class CrashRun
{
public:
    CrashRun(std::string host, std::string folder, unsigned seed)
        : m_host(std::move(host)), m_folder(std::move(folder)), m_progress(m_folder + "/progress"), m_random(seed)
    {}

    CrashReport run(int kills)
    {
        while (m_report.kills < kills && m_report.finding.empty()) {
            run_and_kill();
            judge();
        }
        return m_report;
    }

private:
    // Half of the hosts die at any moment, their start included; the others in the middle of their work.
    void run_and_kill()
    {
        support::Child child({m_host, m_folder, m_folder + "/progress", std::to_string(m_next)});
        if (m_random() % 2)
            support::wait_until([&] { return m_progress.number() >= m_next; });
        std::this_thread::sleep_for(std::chrono::microseconds(m_random() % 12'000)); // the random moment itself
        child.kill(SIGKILL);
        host::require(child.wait() && child.status() == 128 + SIGKILL, "a host that lived until it was killed");
        ++m_report.kills;
    }

    void judge()
    {
        const std::string path = host::log_file(m_folder);
        const NumberedLog found = numbered_log(support::read_file(path));
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
        const long returned = m_progress.number();
        if (m_report.finding.empty() && (m_next - 1 < returned || m_next - 1 > returned + 1))
            m_report.finding =
                "the file ends with " + std::to_string(m_next - 1) + ", the host with " + std::to_string(returned);
        m_report.closed += closed;
        m_report.events += static_cast<long>(found.numbers.size());
        keep_tail(path, found, had_tail && !closed);
    }

    // The next host finds the tail and nothing else, so that the file stays small.
    void keep_tail(const std::string& path, const NumberedLog& found, bool still_the_old_one)
    {
        m_report.tails += !found.tail.empty() && !still_the_old_one;
        m_tail = found.tail;
        if (m_tail.empty())
            std::filesystem::remove(path);
        else
            support::write_file(path, m_tail);
    }

    std::string m_host, m_folder;
    Progress m_progress;
    std::mt19937 m_random;
    long m_next = 1;
    std::string m_tail;
    CrashReport m_report;
};

} // namespace

CrashReport kill_again_and_again(const std::string& host, const std::string& folder, int kills, unsigned seed)
{
    return CrashRun(host, folder, seed).run(kills);
}
