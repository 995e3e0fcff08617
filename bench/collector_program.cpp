#include "collector_program.h"

#include "UploadForm.h"
#include "collector_events.h"
#include "server.h"
#include "table.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

std::string escaped(const std::string& text)
{
    std::string out;
    char escape[4];
    for (const char c : text) {
        snprintf(escape, sizeof escape, "%%%02x", static_cast<unsigned char>(c));
        out += std::isalnum(static_cast<unsigned char>(c)) ? std::string(1, c) : escape;
    }
    return out;
}

/// Answers here are short: header and sentence come in one piece.
void expect_taken(int connection)
{
    char answer[2000];
    const ssize_t size = read(connection, answer, sizeof answer);
    if (size < 12 || std::memcmp(answer + 9, "200", 3) != 0)
        throw std::runtime_error("the collector did not take an upload: " +
                                 std::string(answer, static_cast<size_t>(std::max<ssize_t>(size, 0))));
}

} // namespace

CollectorProgram::CollectorProgram(const std::vector<std::string>& options)
{
    std::vector<std::string> words = {"analytics-collector",
                                      "serve",
                                      "--listen",
                                      "127.0.0.1:0",
                                      "--rate-address",
                                      "0",
                                      "--rate-installation",
                                      "0",
                                      "--connections-address",
                                      "0",
                                      "--disk-reserve",
                                      "0"};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int out[2];
    if (pipe(out) != 0 || (m_process = fork()) < 0)
        throw std::runtime_error("no process for the collector");
    if (m_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM); // also when the bench is killed
        dup2(out[1], STDOUT_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO); // its log
        execv(BENCH_COLLECTOR, arguments.data());
        _exit(127);
    }
    close(out[1]);
    char line[200] = "";
    const ssize_t size = read(out[0], line, sizeof line - 1);
    close(out[0]);
    const char* port = size > 0 ? std::strstr(line, "127.0.0.1:") : nullptr;
    if (port == nullptr)
        throw std::runtime_error("the collector did not start");
    m_port = static_cast<uint16_t>(std::atoi(port + std::strlen("127.0.0.1:")));
}

CollectorProgram::~CollectorProgram()
{
    kill(m_process, SIGTERM);
    waitpid(m_process, nullptr, 0);
}

int CollectorProgram::connect() const
{
    const int stream = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(stream, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(stream, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("the collector takes no connection");
    return stream;
}

std::vector<std::string> upload_requests(int first, int count, int events)
{
    std::vector<std::string> all;
    for (int i = first; i < first + count; ++i) {
        char batch[33];
        snprintf(batch, sizeof batch, "%032x", i + 1);
        const std::string body = "b=" + std::string(batch) + "&d=0&data=" + escaped(collector_lines(i, 26, events)) +
                                 "&g=bench&n=" + std::to_string(events) +
                                 "&o=0&t=" + AnalyticsSDK::UploadToken("bench") + "&v=1";
        all.push_back("POST /events HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                      "Content-Length: " +
                      std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    return all;
}

double seconds_to_take(const std::vector<const CollectorProgram*>& programs, const std::vector<std::string>& uploads,
                       size_t count)
{
    std::deque<Descriptor> connections;
    for (size_t i = 0; i < count; ++i)
        connections.emplace_back(programs[i % programs.size()]->connect());
    return seconds_of([&] {
        at_once(count, [&](size_t i) {
            for (size_t next = i; next < uploads.size(); next += count) {
                send_all(connections[i].get(), uploads[next]);
                expect_taken(connections[i].get());
            }
        });
    });
}

} // namespace bench
