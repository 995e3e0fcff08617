#include "intake.h"
#include "line_parser.h"
#include "strict_json.h"

#include <algorithm>

namespace intake {

namespace {

void add_reject(std::string_view line, std::string_view reason, store::Upload& upload)
{
    std::string text = to_utf8(line.substr(0, store::g_reject_bytes));
    // The cut may have left the beginning of a character, which is three bytes once it is replaced.
    while (text.size() > store::g_reject_bytes)
        text.pop_back();
    upload.rejects.push_back({upload.keep(reason), upload.keep(to_utf8(text))});
}

std::string judge(std::string_view line, const Limits& limits, LineParser& parser, store::Upload& upload)
{
    if (limits.line != 0 && line.size() > limits.line)
        return "longer than " + std::to_string(limits.line) + " bytes";
    return parser.parse(line, upload);
}

// Splits the text at line feeds; `text` has the parser's padding behind it.
void split(std::string_view text, store::Upload& upload)
{
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!line.empty())
            upload.lines.push_back({line, 0, false, 0});
    }
}

void chain(std::string_view sender, store::Upload& upload)
{
    store::ChainKey key = store::chain_begin(sender);
    for (store::Line& line : upload.lines)
        line.key = key = store::chain_next(key, line.text);
}

void read_text(std::string&& text, const Limits& limits, store::Upload& upload)
{
    size_t size = text.size();
    text.resize(size + LineParser::padding);
    std::string& held = upload.hold(std::move(text));
    split(std::string_view(held).substr(0, size), upload);
    upload.events.reserve(upload.lines.size());
    thread_local LineParser parser; // its memory takes longer to get than some hundred lines to read
    for (store::Line& line : upload.lines) {
        std::string reason = judge(line.text, limits, parser, upload);
        line.is_event = reason.empty();
        if (!line.is_event)
            add_reject(line.text, reason, upload);
        line.index = static_cast<uint32_t>((line.is_event ? upload.events.size() : upload.rejects.size()) - 1);
    }
}

} // namespace

Refused read_lines(Form&& form, const std::optional<std::string>& application, store::Milliseconds received_at,
                   const Limits& limits, store::Upload& upload)
{
    upload = store::Upload();
    upload.sender = upload.keep(to_utf8(form.sender));
    upload.received_at = received_at;
    upload.batch = form.batch;
    upload.first_line = form.batch ? form.first_line : 0;
    upload.dropped = form.batch ? form.dropped : 0;
    read_text(std::move(form.data), limits, upload);
    upload.count_differs = form.lines && *form.lines != upload.lines.size();
    if (!form.batch)
        chain(upload.sender, upload);
    for (const store::Event& event : upload.events) {
        if (application && event.application != *application)
            return Refusal{403, "The key is not for this application."};
    }
    return std::nullopt;
}

} // namespace intake
