// The outbox in a hostile folder: whatever the names, texts and kinds of its entries, it finds the batches that are its
// own, by their exact names, and nothing else is changed.

#include "Outbox.h"
#include "fuzz.h"

#include <map>
#include <set>
#include <vector>

using namespace AnalyticsSDK;

namespace {

constexpr std::string_view extensions[] = {".batch", ".dropped", ".tmp"};

struct Entry
{
    enum Kind
    {
        file,
        folder,
        link
    } kind;
    std::string text;
};

bool is_digits(const std::string& text)
{
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
    return digits && text.size() <= 20 && (text.size() < 20 || text <= "18446744073709551615") &&
           (text[0] != '0' || text == "0");
}

/// The extension of a name that is one of the outbox "log"; empty for any other.
std::string extension_of(const std::string& name)
{
    const size_t id = 4, first = id + 32 + 1, dot = name.rfind('.');
    if (name.compare(0, id, "log.") != 0 || name.size() <= first || name[first - 1] != '.' || dot < first ||
        dot == name.npos || name.substr(id, 32).find_first_not_of("0123456789abcdef") != name.npos ||
        !is_digits(name.substr(first, dot - first)))
        return {};
    for (const std::string_view extension : extensions)
        if (name.substr(dot) == extension)
            return name.substr(dot);
    return {};
}

// Near to what the outbox makes, and often exactly that.
std::string some_name(FuzzedDataProvider& input)
{
    if (input.ConsumeIntegralInRange(0, 7) == 0)
        return input.ConsumeRandomLengthString(40);
    std::string name =
        "log." + std::string(32, input.ConsumeBool() ? 'a' : '0') + '.' +
        std::to_string(input.ConsumeBool() ? input.ConsumeIntegralInRange(0, 2) : input.ConsumeIntegral<uint64_t>()) +
        std::string(extensions[input.ConsumeIntegralInRange(0, 2)]);
    if (input.ConsumeIntegralInRange(0, 2) == 0) {
        const size_t at = input.ConsumeIntegralInRange<size_t>(0, name.size());
        name = name.substr(0, at) + input.ConsumeRandomLengthString(3) +
               name.substr(std::min(name.size(), at + input.ConsumeIntegralInRange<size_t>(0, 3)));
    }
    return name;
}

std::map<std::string, Entry> fill(const std::string& folder, FuzzedDataProvider& input)
{
    std::map<std::string, Entry> entries;
    for (int count = 0; count < 8 && input.remaining_bytes() > 0; ++count) {
        std::string name = some_name(input).c_str();
        if (name.empty() || name == "." || name == ".." || name.find('/') != name.npos || name.size() > 255 ||
            entries.count(name) != 0 || name == "log.open")
            continue;
        const auto kind = static_cast<Entry::Kind>(std::max(0, input.ConsumeIntegralInRange(-3, 2)));
        const Entry entry{kind, input.ConsumeRandomLengthString(60)};
        const std::string path = folder + '/' + name;
        if (kind == Entry::folder)
            mkdir(path.c_str(), 0700);
        else if (kind == Entry::link)
            fuzz::require("a link", symlink("/dev/null", path.c_str()) == 0);
        else
            fuzz::write_file(path, entry.text);
        entries.emplace(std::move(name), entry);
    }
    return entries;
}

std::set<std::string> names(const std::vector<OutboxContents::Waiting>& batches)
{
    std::set<std::string> found;
    for (const auto& batch : batches)
        found.insert(FileOf("log", batch.name, BatchKind::batch));
    return found;
}

void check_scan(const OutboxContents& found, const std::map<std::string, Entry>& entries)
{
    std::set<std::string> batches;
    uint64_t bytes = 0;
    size_t dropped = 0;
    for (const auto& [name, entry] : entries) {
        const std::string extension = entry.kind == Entry::file ? extension_of(name) : "";
        dropped += extension == ".dropped";
        if (extension == ".batch") {
            batches.insert(name);
            bytes += entry.text.size();
        }
    }
    fuzz::require("the batches by name", names(found.batches) == batches);
    fuzz::same("their bytes", static_cast<long long>(bytes), static_cast<long long>(found.Bytes()));
    fuzz::same("the dropped ones", static_cast<long long>(dropped), static_cast<long long>(found.dropped.size()));
}

// What is not the outbox's is as it was; so is a batch that holds anything and has no number beside it.
void check_kept(const std::string& folder, const std::map<std::string, Entry>& entries)
{
    for (const auto& [name, entry] : entries) {
        const std::string extension = extension_of(name), stem = name.substr(0, name.rfind('.'));
        const bool other = entry.kind != Entry::file || extension.empty();
        if (!other && (extension != ".batch" || entry.text.empty() || entries.count(stem + ".dropped") != 0))
            continue;
        struct stat status;
        fuzz::require("what is left alone", lstat((folder + '/' + name).c_str(), &status) == 0);
        if (entry.kind == Entry::file)
            fuzz::same("its text", entry.text, fuzz::read_file(folder + '/' + name));
    }
}

// Splits every batch as far as it goes: the parts together are the whole.
void check_splits(const Outbox& outbox)
{
    for (const auto& waiting : outbox.Scan().batches) {
        const std::string path = FileOf(outbox.Log(), waiting.name, BatchKind::batch), text = fuzz::read_file(path);
        std::unique_ptr<Batch> batch;
        if (Batch::Claim(outbox.Log(), waiting.name, BatchKind::batch, 0, batch) != Batch::Claimed::yes)
            continue;
        const auto halves = batch->Halves(batch->Whole());
        if (!halves)
            continue;
        const auto second = batch->Split(*halves);
        // The name of the second half may be taken, or its number be past the largest.
        if (second)
            fuzz::same("the halves", text,
                       fuzz::read_file(path) + fuzz::read_file(FileOf(outbox.Log(), *second, BatchKind::batch)));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    const std::string folder = fuzz::scratch() + "/outbox";
    std::filesystem::remove_all(folder);
    mkdir(folder.c_str(), 0700);
    const Outbox outbox(folder + "/log");
    const auto entries = fill(folder, input);
    check_scan(outbox.Scan(), entries);
    check_kept(folder, entries);
    OutboxContents contents = outbox.Tidy();
    check_kept(folder, entries);
    check_splits(outbox);
    outbox.KeepLimits(contents, {0, 0}, [](uint64_t) {});
    fuzz::require("nothing of the outbox is left", outbox.DeleteAll());
    fuzz::require("not even a name", outbox.Scan().batches.empty() && outbox.Scan().dropped.empty());
    return 0;
}
