/// @file
/// /healthz and /readyz: whether a balancer is to send uploads here, and whether writing and reading work.
#pragma once

#include "message.h"

#include "store/writer.h"

namespace http {

/// What the answers are made from.
struct Readiness
{
    bool is_leaving = false;
    store::WriterStatus writer;
    std::optional<store::ClusterStatus> cluster;
    std::optional<store::Fault> reading; ///< of the last look at the store, when it failed
};

/// Whether this path is one that a balancer or watcher asks: any Host, no login, on every listener.
inline bool is_health(const std::string& path)
{
    return path == "/healthz" || path == "/readyz";
}

/// /healthz: 200 while another upload is welcome. /readyz: 200 while writing and reading work, a line for each;
/// /readyz?writing and /readyz?reading ask for one of them.
Answer readiness_answer(const Request& request, const Readiness& now);

} // namespace http
