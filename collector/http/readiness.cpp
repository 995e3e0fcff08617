#include "readiness.h"

#include <map>

namespace http {
namespace {

std::optional<std::string> unwelcome(const Readiness& now)
{
    if (now.is_leaving)
        return "leaving";
    if (now.cluster && now.cluster->spool.is_full)
        return "the spool is full";
    if (now.cluster && now.cluster->door)
        return now.cluster->door->text;
    return std::nullopt;
}

std::optional<std::string> writing_fault(const Readiness& now)
{
    if (now.writer.fault)
        return now.writer.fault->text;
    if (now.cluster && !now.cluster->shut.empty())
        return now.cluster->shut.front().text;
    return unwelcome(now);
}

/// A shard of which no replica answers is missing in every figure.
std::optional<std::string> reading_fault(const Readiness& now)
{
    std::map<uint32_t, bool> answers;
    if (now.cluster)
        for (const store::ReplicaStatus& replica : now.cluster->replicas)
            answers[replica.shard] |= replica.is_up;
    for (const auto& [shard, answered] : answers)
        if (!answered)
            return "no replica of shard " + std::to_string(shard + 1) + " answers";
    return now.reading ? std::optional(now.reading->text) : std::nullopt;
}

} // namespace

Answer readiness_answer(const Request& request, const Readiness& now)
{
    if (request.path == "/healthz") {
        const auto reason = unwelcome(now);
        return reason ? try_again(503, 10, *reason) : sentence(200, "ok");
    }
    const std::pair<const char*, std::optional<std::string>> parts[] = {{"writing", writing_fault(now)},
                                                                        {"reading", reading_fault(now)}};
    std::string text;
    bool works = true;
    for (const auto& [name, fault] : parts)
        if (request.query.empty() || request.query == name) {
            text += (text.empty() ? "" : "\n") + std::string(name) + (fault ? " failed: " + *fault : " ok");
            works &= !fault;
        }
    return sentence(works ? 200 : 503, text);
}

} // namespace http
