// Uploads: making the body, memory, the whole way, and how soon a queued request is on the wire.
#include "AnalyticsSDK/EventManager.h"
#include "lines.h"
#include "lumo/own/large_text.h"
#include "lumo/percent.h"
#include "lumo/uri.h"
#include "server.h"
#include "session.h"
#include "table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <sstream>

using namespace bench;

namespace {

constexpr std::size_t megabyte = 1 << 20;

void write_lines(const std::string& path, const std::string& lines)
{
    std::ofstream(path, std::ios::binary) << lines;
}

// Reading and encoding in the simplest way: the reference.
std::string body_by_streams(const std::string& path)
{
    std::array<bool, 256> safe{};
    for (int c = '!'; c <= 'z'; ++c)
        safe[static_cast<std::size_t>(c)] = std::strchr(lumo::g_uri_unsafe_characters, c) == nullptr;
    std::ostringstream all;
    all << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string text = all.str();
    std::string body = "data=";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (safe[byte]) {
            body += c;
            continue;
        }
        body += '%';
        body += "0123456789abcdef"[byte >> 4];
        body += "0123456789abcdef"[byte & 15];
    }
    return body;
}

// The same as the library does it.
std::string body_at_once(AnalyticsSDK::EventManager& manager)
{
    std::string text, body;
    unsigned long size = 0;
    if (!manager.ReadPendingEvents(text, size) || size == 0)
        throw std::runtime_error("the log file of the bench is gone");
    lumo::reserve_large(body, 5 + lumo::percent_encoded_size(text));
    body = "data=";
    lumo::percent_encode(text, body);
    return body;
}

const Group body_row("upload: body", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("events.log");
    write_lines(path, event_lines(64 * megabyte));
    AnalyticsSDK::EventManager manager("http://127.0.0.1:1/");
    manager.SetEventLogFilePath(path.c_str());
    const Figures figures =
        compare_figures([&] { return 1e9 * seconds_of([&] { keep(body_at_once(manager)[0]); }); },
                        [&] { return 1e9 * seconds_of([&] { keep(body_by_streams(path)[0]); }); }, "ns");
    table.row("64 MB log file to request body", "ifstream, ostringstream, str, byte by byte", figures,
              at_most(0.35, 0.15));
});

// Peak memory since it was last reset, in bytes.
double peak_memory()
{
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("VmHWM:", 0) == 0)
            return std::strtod(line.c_str() + 6, nullptr) * 1024;
    throw std::runtime_error("the system does not tell the peak of memory");
}

void reset_peak_memory()
{
    // What the allocator keeps from the turn before would hide the same amount of this one.
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
}

void send_now(const Session& session)
{
    if (analytics_send(session.get(), 1) != ANALYTICS_OK)
        throw std::runtime_error("an upload of the bench failed");
}

const Group memory_row("upload: memory", [](Table& table) {
    const Folder folder;
    Server server;
    const std::string path = folder.file("events.log");
    const Session session(path, server.url());
    double file_size = 0, encoded_size = 0;
    const auto added = [&] {
        {
            // Gone again before the peak is reset: the host's file is on disk, not in its memory.
            const std::string lines = event_lines(64 * megabyte);
            file_size = static_cast<double>(lines.size());
            encoded_size = static_cast<double>(lumo::percent_encoded_size(lines));
            write_lines(path, lines);
        }
        reset_peak_memory();
        const double before = peak_memory();
        send_now(session);
        return (peak_memory() - before) / 1e6;
    };
    const Figures figures = compare_figures(
        added, [&] { return (file_size + encoded_size) / 1e6; }, "MB");
    // The reference of the first turn is not known before it; the sizes are the same in all.
    const Figures all = {figures.ours, (file_size + encoded_size) / 1e6,
                         figures.ours * 1e6 / (file_size + encoded_size), "MB"};
    table.row("peak memory, upload of 64 MB", "the file and its encoded form", all, at_most(1.30, 1.05));
});

// One upload of `lines` through the session; the time is the send's alone.
double upload_ns(const Session& session, const std::string& path, const std::string& lines)
{
    write_lines(path, lines);
    return 1e9 * seconds_of([&] { send_now(session); });
}

const Group whole_row("upload: whole", [](Table& table) {
    const Folder folder;
    Server server;
    const std::string path = folder.file("events.log"), lines = event_lines(10 * megabyte);
    const Session session(path, server.url());
    std::string body = "data=";
    lumo::percent_encode(lines, body);
    // Open all the time, as the session's connection is after its first upload.
    const Descriptor connection(server.connect());
    const std::string head =
        "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    const auto raw = [&] {
        return 1e9 * seconds_of([&] {
                   send_all(connection.get(), head);
                   send_all(connection.get(), body);
                   read_answer(connection.get());
               });
    };
    const Figures figures = compare_figures([&] { return upload_ns(session, path, lines); }, raw, "ns", 15);
    table.row("whole upload, 10 MB of lines", "raw socket send of the ready-made body", figures, at_most(4.5, 2.4));
});

const Group packed_row("upload: packed", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("events.log"), lines = event_lines(megabyte / 2);
    Server server;
    const Session session(path, server.url());
    const auto bytes_of = [&](const char* how, double& seconds) {
        write_lines(path, lines);
        const std::size_t before = server.taken();
        if (analytics_option_set(session.get(), "compress", how) != ANALYTICS_OK)
            throw std::runtime_error("no such way to pack");
        seconds = seconds_of([&] {
            if (analytics_send(session.get(), 1) != ANALYTICS_OK)
                throw std::runtime_error("the upload of the bench failed");
        });
        return static_cast<double>(server.taken() - before);
    };
    double packed_s = 0, plain_s = 0;
    const Figures figures =
        compare_figures([&] { return bytes_of("gzip", packed_s); }, [&] { return bytes_of("none", plain_s); }, "bytes");
    table.row("512 KB of lines, packed", "the same, as they are", figures, at_most(0.15, 0.15));
    char text[100];
    std::snprintf(text, sizeof text, "%.1f ms packed, %.1f ms plain", packed_s * 1e3, plain_s * 1e3);
    table.note("time of such an upload", text);
});

const Group size_curve("curve: log file size", [](Table& table) {
    const Folder folder;
    Server server;
    const std::string path = folder.file("events.log");
    const Session session(path, server.url());
    const auto per_byte = [&](const std::string& lines) {
        return upload_ns(session, path, lines) / static_cast<double>(lines.size());
    };
    const auto show = [&](int size, double per_byte_ns) {
        char text[64];
        std::snprintf(text, sizeof text, "%d MB: %.2f ns per byte", size, per_byte_ns);
        table.note("cost of an upload", text);
    };
    const std::string small = event_lines(megabyte), medium = event_lines(16 * megabyte),
                      large = event_lines(128 * megabyte);
    // Shown only: of so small an upload the round trip is most.
    std::vector<double> of_small;
    for (int i = 0; i < 25; ++i)
        of_small.push_back(per_byte(small));
    const Figures figures = compare_figures([&] { return per_byte(large); }, [&] { return per_byte(medium); }, "ns", 7);
    show(1, median(of_small));
    show(16, figures.reference);
    show(128, figures.ours);
    table.row("cost per byte, 128 MB", "cost per byte, 16 MB", figures, at_most(1.5, 1.5));
});

} // namespace
