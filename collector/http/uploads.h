/// @file
/// The service behind /events and /u/KEY: looks at an upload before and after its body, has its token checked on a
/// pool, hands it to the store's writer and answers once it is committed.
#pragma once

#include "keys.h"
#include "message.h"
#include "rates.h"
#include "turns.h"

#include "intake/intake.h"
#include "store/writer.h"

#include <atomic>

namespace http {

struct UploadLimits
{
    intake::Limits intake;
    double rate_address = 50;         ///< uploads a second of one client; 0: no limit
    double rate_installation = 20;    ///< of one `g`; 0: no limit
    uint64_t disk_reserve = 1u << 30; ///< bytes that must stay free where the store lies
    unsigned token_threads = 0;       ///< 0: one a core
    size_t memory = 96u << 20;        ///< of unpacked and decoded texts at once, bytes
};

/// Read on any thread.
struct UploadCounts
{
    std::atomic<uint64_t> taken{0}, events{0}, rejects{0}, known{0};
    std::atomic<uint64_t> refused_400{0}, refused_403{0}, refused_413{0}, refused_415{0}, refused_429{0},
        refused_503{0}, refused_other{0};
    std::atomic<int64_t> last_at{0}; ///< milliseconds since 1970 UTC of the last one that was taken
};

class Uploads final : public Service
{
public:
    /// @param store_file where the store lies: its disk is looked at; empty looks at none
    Uploads(store::Writer& writer, Keys& keys, const UploadLimits& limits, std::string store_file);

    /// Whether this path is one for uploads, keys or not.
    static bool is_upload(const std::string& path);
    std::optional<Answer> admit(const Request& head, uint64_t& body_limit) override;
    void handle(Request request, Reply reply) override;
    void refused(const Request& head, const Answer& answer) override;
    /// Runs the uploads that wait for their turn to their end. Call it after the server has left.
    void stop() { m_turns.stop(); }

    const UploadCounts& counts() const { return m_counts; }
    size_t waiting() const { return m_turns.waiting(); }
    /// Called after each commit with the events' receipt: the live stream looks at the store then. Set before serving.
    std::function<void()> on_stored;
    /// Called when a limit met a client on this machine, whose address may stand for many: a front server's.
    std::function<void(const char* limit)> on_loopback_limit;
    /// Called when uploads are refused by what somebody has to mend: one sentence for the log. Any thread, and often.
    std::function<void(const std::string& sentence)> on_trouble;

private:
    struct Job;
    std::optional<Answer> look(const Request& head);
    std::optional<Answer> look_at_key(const Request& head);
    bool disk_is_full();
    Answer cannot_store(store::FaultKind kind, const std::string& why);
    Answer refuse(Answer answer);
    void take(Job& job);
    void submit(Job& job, store::Upload upload);
    Answer answer_to(const store::Result<store::Receipt>& receipt);

    store::Writer& m_writer;
    Keys& m_keys;
    const UploadLimits m_limits;
    const std::string m_store_file;
    Rates m_addresses, m_installations;
    UploadCounts m_counts;
    std::atomic<uint64_t> m_memory{0};
    std::atomic<int64_t> m_disk_looked{0};
    std::atomic<bool> m_disk_full{false};
    Turns m_turns; ///< last: its threads use what stands above
};

} // namespace http
