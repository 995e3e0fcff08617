// Percent-encoding of event lines, the inner loop of every upload.
#include "lines.h"
#include "lumo/percent.h"
#include "table.h"

#include <cstring>
#include <curl/curl.h>
#include <memory>
#include <string_view>

using namespace bench;

namespace {

constexpr std::size_t piece = 64 * 1024;

template <class Step>
void in_pieces(std::string_view text, Step step)
{
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size())))
        step(text.substr(0, piece));
}

const Group percent_rows("percent", [](Table& table) {
    const std::string lines = event_lines(16 << 20);
    // Room for the worst case at once: the encoder is measured, not the allocator.
    std::string out;
    out.reserve(3 * piece);
    const Work ours = [&](long times) {
        for (long i = 0; i < times; ++i)
            in_pieces(lines, [&](std::string_view text) {
                out.clear();
                lumo::percent_encode(text, out);
                keep(*out.data());
            });
    };
    const auto copied = std::make_unique<char[]>(lines.size());
    const Work copy = [&](long times) {
        for (long i = 0; i < times; ++i) {
            std::memcpy(copied.get(), lines.data(), lines.size());
            keep(*copied.get());
        }
    };
    const Work curl = [&](long times) {
        CURL* handle = curl_easy_init();
        for (long i = 0; i < times; ++i)
            in_pieces(lines, [&](std::string_view text) {
                char* escaped = curl_easy_escape(handle, text.data(), static_cast<int>(text.size()));
                keep(*escaped);
                curl_free(escaped);
            });
        curl_easy_cleanup(handle);
    };
    // curl_easy_escape refuses 16 MB at once, so both get pieces. "Times faster" is the inverse of all other
    // ratios.
    Figures against_curl = compare(ours, curl, 5);
    against_curl.ratio = 1 / against_curl.ratio;
    table.row("percent-encoding 16 MB", "curl_easy_escape, 64 KB at a time: times faster", against_curl,
              at_least(15, 35));
    table.row("percent-encoding 16 MB", "memcpy of the same 16 MB", compare(ours, copy, 25), at_most(0, 3.5));
});

} // namespace
