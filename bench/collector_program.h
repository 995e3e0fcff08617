// The collector as a program that runs beside the bench, and uploads for it.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

/// The running program on a free port; ended with this object.
class CollectorProgram
{
public:
    /// @param options  of `serve`, besides the address and no limits of rate and disk
    explicit CollectorProgram(const std::vector<std::string>& options);
    ~CollectorProgram();
    CollectorProgram(const CollectorProgram&) = delete;
    CollectorProgram& operator=(const CollectorProgram&) = delete;

    /// A connected socket, the caller's.
    int connect() const;

private:
    pid_t m_process = -1;
    uint16_t m_port = 0;
};

/// Whole requests, made before a clock runs: a token costs its maker as much as its checker.
std::vector<std::string> upload_requests(int first, int count, int events = 100);

/// How long the programs take for the uploads, which go to them in turns. A connection sends its next upload when the
/// one before is answered.
double seconds_to_take(const std::vector<const CollectorProgram*>& programs, const std::vector<std::string>& uploads,
                       size_t connections = 32);

} // namespace bench
