// A relay on loopback that breaks connections after so many bytes.
#pragma once

#include "support/raw_server.h"

#include <cstdint>

namespace support {

/// Hands bytes on between clients and a server. When either side has sent its budget, the client's connection is reset.
class CuttingRelay
{
public:
    static constexpr size_t unlimited = SIZE_MAX;

    CuttingRelay(int server_port, size_t from_server, size_t from_client = unlimited);

    int port() const { return m_clients.port(); }
    /// How many connections were cut because a budget was spent.
    int cuts() const { return m_cuts; }

private:
    std::atomic<int> m_cuts{0};
    RawServer m_clients;
};

} // namespace support
