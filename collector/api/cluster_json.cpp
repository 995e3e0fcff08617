#include "cluster_json.h"

namespace api {
namespace {

std::string text_or_null(const std::string& text)
{
    return text.empty() ? "null" : quoted(text);
}

std::string moment_or_null(store::Milliseconds moment)
{
    return moment == 0 ? "null" : std::to_string(moment);
}

std::string json_of(const store::LineAside& line)
{
    return Json('{')
        .text("table", line.table)
        .raw("code", std::to_string(line.code))
        .text("trouble", line.trouble)
        .raw("received_at", moment_or_null(line.received_at))
        .end('}');
}

std::string json_of(const store::ReplicaStatus& replica)
{
    return Json('{')
        .text("node", replica.node)
        .count("shard", replica.shard + 1)
        .raw("up", replica.is_up ? "true" : "false")
        .raw("last_code", std::to_string(replica.last_code))
        .raw("last_trouble", text_or_null(replica.last_trouble))
        .raw("trouble_at", moment_or_null(replica.trouble_at))
        .raw("answered_at", moment_or_null(replica.answered_at))
        .end('}');
}

} // namespace

std::string json_of(const store::SpoolStatus& spool)
{
    Json aside('[');
    for (const store::LineAside& line : spool.aside)
        aside.element(json_of(line));
    return Json('{')
        .text("file", spool.file)
        .count("bytes", spool.bytes)
        .count("limit", spool.limit)
        .raw("full", spool.is_full ? "true" : "false")
        .count("blocks_waiting", spool.blocks_waiting)
        .count("groups_unchecked", spool.groups_unchecked)
        .raw("oldest_waiting", moment_or_null(spool.oldest_waiting))
        .raw("oldest_kept", moment_or_null(spool.oldest_kept))
        .count("too_old", spool.too_old)
        .count("forgotten", spool.forgotten)
        .count("lines_aside", spool.lines_aside)
        .raw("aside", aside.end(']'))
        .end('}');
}

std::string json_of(const store::ClusterStatus& status)
{
    Json replicas('[');
    for (const store::ReplicaStatus& replica : status.replicas)
        replicas.element(json_of(replica));
    Json shut('[');
    for (const store::Fault& fault : status.shut)
        shut.element(quoted(fault.text));
    return Json('{')
        .raw("spool", json_of(status.spool))
        .raw("replicas", replicas.end(']'))
        .raw("upkeep", text_or_null(status.upkeep))
        .raw("shut", shut.end(']'))
        .raw("door", status.door ? quoted(status.door->text) : "null")
        .end('}');
}

} // namespace api
