// A text's way into the store: every line is an event or a reject, the members of every event are valid JSON, and the
// same text sent again stores nothing.
#include "intake/intake.h"
#include "store/store.h"

#include "fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

struct Place
{
    // In memory where the system has such a folder, because each run waits for the disk twice.
    std::string folder =
        std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    std::string path = folder + "/analytics-fuzz-" + std::to_string(getpid()) + ".db";
    std::unique_ptr<store::Store> spStore = std::move(*store::open(path, {store::Opening::create, {}}));
    std::unique_ptr<store::Writing> spWriting = std::move(*spStore->writing());
    std::unique_ptr<store::Reading> spReading = std::move(*spStore->reading());

    ~Place()
    {
        spReading.reset();
        spWriting.reset();
        for (const char* end : {"", "-wal", "-shm"})
            std::filesystem::remove(path + end);
    }
};

store::Receipt write(store::Writing& writing, const store::Upload& upload)
{
    const store::Upload* group = &upload;
    auto receipts = writing.write({&group, 1}, {});
    fuzz::require("written", static_cast<bool>(receipts));
    return receipts->front();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Place place;
    static uint32_t run = 0;
    intake::Form form;
    form.data.assign(reinterpret_cast<const char*>(data), size);
    form.sender = "sender " + std::to_string(++run); // a sender of its own: nothing of it is known
    store::Upload upload;
    fuzz::require("a text is never refused",
                  !intake::read_lines(std::move(form), std::nullopt, run, {4096, 0}, upload));
    fuzz::require("upload.events.size() + upload.rejects.size() == upload.lines.size()",
                  upload.events.size() + upload.rejects.size() == upload.lines.size());
    for (const store::Line& line : upload.lines) {
        if (!line.is_event)
            continue;
        const auto whole = nlohmann::json::parse(line.text, nullptr, false);
        const auto members = nlohmann::json::parse(upload.events[line.index].members, nullptr, false);
        fuzz::require("members are JSON", members.is_object());
        fuzz::require("members are the line's", whole.is_discarded() || whole[6] == members);
    }
    store::Receipt receipt = write(*place.spWriting, upload);
    fuzz::require("receipt.events == upload.events.size() && receipt.rejects == upload.rejects.size()",
                  receipt.events == upload.events.size() && receipt.rejects == upload.rejects.size());
    fuzz::require("write(*place.spWriting, upload).known == upload.lines.size()",
                  write(*place.spWriting, upload).known == upload.lines.size());
    store::Query query;
    query.limit = 10;
    fuzz::require("answered", static_cast<bool>(place.spReading->timeline(query, {})));
    return 0;
}
