// The collector as a whole: uploads over loopback, tokens checked, answered after the commit.
#include "UploadForm.h"
#include "collector_events.h"
#include "server.h"
#include "session.h"
#include "table.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace bench;

namespace {

constexpr int g_uploads = 2000, g_events = 100, g_connections = 32;

/// The running program on a free port.
class Program
{
public:
    explicit Program(const std::string& store)
    {
        int out[2];
        if (pipe(out) != 0 || (m_process = fork()) < 0)
            throw std::runtime_error("no process for the collector");
        if (m_process == 0) {
            dup2(out[1], STDOUT_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDERR_FILENO); // its log
            execl(BENCH_COLLECTOR, "analytics-collector", "serve", "--store", store.c_str(), "--listen", "127.0.0.1:0",
                  "--rate-address", "0", "--rate-installation", "0", "--disk-reserve", "0", nullptr);
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
    ~Program()
    {
        kill(m_process, SIGTERM);
        waitpid(m_process, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    int connect() const
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

private:
    pid_t m_process = -1;
    uint16_t m_port = 0;
};

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

/// Whole requests, made before the clock runs: a token costs its maker as much as its checker.
std::vector<std::string> requests()
{
    std::vector<std::string> all;
    for (int i = 0; i < g_uploads; ++i) {
        char batch[33];
        snprintf(batch, sizeof batch, "%032x", i + 1);
        const std::string body = "b=" + std::string(batch) + "&d=0&data=" + escaped(collector_lines(i, g_events)) +
                                 "&g=bench&n=100&o=0&t=" + AnalyticsSDK::UploadToken("bench") + "&v=1";
        all.push_back("POST /events HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                      "Content-Length: " +
                      std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    return all;
}

/// Answers here are short: header and sentence come in one piece.
void expect_taken(int connection)
{
    char answer[2000];
    const ssize_t size = read(connection, answer, sizeof answer);
    if (size < 12 || std::memcmp(answer + 9, "200", 3) != 0)
        throw std::runtime_error("the collector did not take an upload");
}

double program_insert(const std::string& store, const std::vector<std::string>& uploads)
{
    remove_store(store);
    double seconds = 0;
    {
        const Program program(store);
        std::vector<int> connections;
        for (int i = 0; i < g_connections; ++i)
            connections.push_back(program.connect());
        seconds = seconds_of([&] {
            std::vector<std::thread> clients;
            for (int i = 0; i < g_connections; ++i)
                clients.emplace_back([&, i] {
                    for (size_t next = static_cast<size_t>(i); next < uploads.size(); next += g_connections) {
                        send_all(connections[static_cast<size_t>(i)], uploads[next]);
                        expect_taken(connections[static_cast<size_t>(i)]);
                    }
                });
            for (std::thread& client : clients)
                client.join();
        });
        for (const int connection : connections)
            close(connection);
    }
    remove_store(store);
    return g_uploads * g_events / seconds;
}

const Group program_row("collector: whole program", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("collector.db");
    const std::vector<std::string> uploads = requests();
    const std::vector<store::Upload> rows = collector_uploads(g_uploads, g_events);
    const Figures figures = compare_figures([&] { return program_insert(path, uploads); },
                                            [&] { return plain_insert(path, rows); }, "events/s", 3);
    table.row("uploads of 100 events, whole collector", "one plain SQLite insert of the rows", figures,
              at_least(0.05, 0.08));
});

} // namespace
