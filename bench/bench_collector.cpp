// The collector's way from an upload's text to a safe row, without the network.
#include "collector_events.h"
#include "intake/intake.h"
#include "session.h"
#include "store/store.h"
#include "table.h"

#include <cstdio>
#include <filesystem>

using namespace bench;

namespace {

constexpr int g_uploads = 2000, g_events = 100;

double store_insert(const std::string& path, const std::vector<store::Upload>& uploads, double& bytes_an_event)
{
    remove_store(path);
    double seconds = 0;
    {
        auto opened = store::open(path, {store::Opening::create, std::chrono::seconds(5)});
        auto writing = std::move(*(*opened)->writing());
        std::vector<const store::Upload*> waiting;
        for (const store::Upload& upload : uploads)
            waiting.push_back(&upload);
        seconds = seconds_of([&] {
            for (size_t done = 0; done < waiting.size();)
                done += writing->write(std::span(waiting).subspan(done), {100, 100000, 8 << 20, std::chrono::hours(1)})
                            ->size();
        });
    }
    bytes_an_event = static_cast<double>(std::filesystem::file_size(path)) / (g_uploads * g_events);
    remove_store(path);
    return g_uploads * g_events / seconds;
}

const Group store_row("collector: store", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("collector.db");
    const std::vector<store::Upload> uploads = collector_uploads(0, g_uploads, 26, g_events);
    double bytes_an_event = 0;
    const Figures figures = compare_figures([&] { return store_insert(path, uploads, bytes_an_event); },
                                            [&] { return plain_insert(path, uploads); }, "events/s");
    table.row("store alone, groups of 100 uploads", "one plain SQLite insert of the rows", figures,
              at_least(0.08, 0.20));
    char text[64];
    snprintf(text, sizeof text, "%.0f bytes", bytes_an_event);
    table.note("store: an event on disk", text);
});

const Group lines_row("collector: lines", [](Table& table) {
    const std::string lines = collector_lines(1, 26, g_events);
    auto ours = [&](long times) {
        for (long i = 0; i < times; ++i) {
            intake::Form form;
            form.data = lines;
            store::Upload upload;
            intake::read_lines(std::move(form), std::nullopt, 0, {}, upload);
        }
    };
    double seconds = seconds_of([&] { ours(1000); }) / 1000;
    char text[64];
    snprintf(text, sizeof text, "%.0f us", seconds * 1e6);
    table.note("intake: an upload of 100 lines read", text);
});

} // namespace
