// A relay on loopback that breaks connections after so many bytes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace support {

/// Hands bytes on between a client and a server, one connection at a time. When either side has sent its budget, the
/// client's connection is reset.
class CuttingRelay
{
public:
    static constexpr size_t unlimited = SIZE_MAX;

    CuttingRelay(int server_port, size_t from_server, size_t from_client = unlimited);
    ~CuttingRelay();
    CuttingRelay(const CuttingRelay&) = delete;
    CuttingRelay& operator=(const CuttingRelay&) = delete;

    int port() const { return m_port; }
    /// How many connections were cut because a budget was spent.
    int cuts() const { return m_cuts; }

private:
    void run();
    void relay(int client, int server);

    int m_server_port, m_port = 0, m_listener;
    size_t m_budgets[2]; // of the client, of the server
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_cuts{0};
    std::thread m_thread;
};

} // namespace support
