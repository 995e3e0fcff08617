/// @file
/// How the server is, for programs that watch it: Prometheus' text format, and members of /api/health.
#pragma once

#include "server.h"
#include "uploads.h"

namespace http {

/// All counters, in the text exposition format, version 0.0.4.
std::string metrics(const ServerCounts& server, const Uploads& uploads, const store::WriterStatus& writer,
                    const std::optional<store::ClusterStatus>& cluster);
/// The same for people, as members of a JSON object without its braces.
std::string health_json(const ServerCounts& server, const Uploads& uploads);

} // namespace http
