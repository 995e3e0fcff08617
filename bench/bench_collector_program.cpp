// The collector as a whole: uploads over loopback, tokens checked, answered after the commit.
#include "collector_events.h"
#include "collector_program.h"
#include "session.h"
#include "table.h"

using namespace bench;

namespace {

constexpr int g_uploads = 2000, g_events = 100;

double program_insert(const std::string& store, const std::vector<std::string>& uploads)
{
    remove_store(store);
    double seconds = 0;
    {
        const CollectorProgram program({"--store", store});
        seconds = seconds_to_take({&program}, uploads);
    }
    remove_store(store);
    return g_uploads * g_events / seconds;
}

const Group program_row("collector: whole program", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("collector.db");
    const std::vector<std::string> uploads = upload_requests(0, g_uploads);
    const std::vector<store::Upload> rows = collector_uploads(g_uploads, g_events);
    const Figures figures = compare_figures([&] { return program_insert(path, uploads); },
                                            [&] { return plain_insert(path, rows); }, "events/s", 3);
    table.row("uploads of 100 events, whole collector", "one plain SQLite insert of the rows", figures,
              at_least(0.05, 0.08));
});

} // namespace
