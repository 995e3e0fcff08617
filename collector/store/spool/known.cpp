#include "known.h"

#include "store/clickhouse/row_binary.h"

#include <algorithm>

#include <openssl/sha.h>

namespace store::spool {

using Id = std::array<unsigned char, 16>;
using clickhouse::Piece;
using clickhouse::RowWriter;

namespace {

std::string_view bytes_of(const BatchId& id)
{
    return {reinterpret_cast<const char*>(id.data()), id.size()};
}

// A hash that nobody can steer: whoever finds two equal ones could hide another's lines.
Id hash_of(std::string_view text)
{
    unsigned char hash[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), hash);
    Id id;
    std::copy_n(hash, id.size(), id.begin());
    return id;
}

Id id_of_lines(const Upload& upload, const Piece& piece)
{
    std::string text;
    RowWriter(text)
        .u8(static_cast<uint8_t>(piece.kind))
        .fixed(bytes_of(*upload.batch))
        .text(piece.application)
        .text(piece.installation);
    return hash_of(text);
}

Id id_of_drop(const Piece& piece)
{
    return hash_of(std::string(1, static_cast<char>(Kind::drops)) + piece.place);
}

Id id_of_text(const Upload& upload, size_t lines)
{
    std::string text;
    RowWriter(text).u8(0xff).text(upload.sender).u64(lines).u64(upload.lines[lines - 1].key);
    return hash_of(text);
}

bool is_alike(const Piece& one, const Piece& other)
{
    return one.kind == other.kind && one.installation == other.installation && one.application == other.application;
}

} // namespace

size_t Known::Hash::operator()(const Id& id) const
{
    size_t hash;
    memcpy(&hash, id.data(), sizeof hash);
    return hash;
}

Commit Known::find(const Id& id, uint64_t number) const
{
    const auto found = m_spans.find(id);
    if (found == m_spans.end())
        return 0;
    auto after = std::upper_bound(found->second.begin(), found->second.end(), number,
                                  [](uint64_t wanted, const Span& span) { return wanted < span.first; });
    return after != found->second.begin() && number - (--after)->first < after->count ? after->commit : 0;
}

void Known::add(const Entry& entry, Commit commit)
{
    auto& spans = m_spans[entry.id];
    const auto after = std::upper_bound(spans.begin(), spans.end(), entry.first,
                                        [](uint64_t wanted, const Span& span) { return wanted < span.first; });
    spans.insert(after, {entry.first, entry.count, commit});
}

void Known::remove(std::span<const Entry> entries)
{
    for (const Entry& entry : entries) {
        const auto found = m_spans.find(entry.id);
        if (found == m_spans.end())
            continue;
        std::erase_if(found->second, [&](const Span& span) { return span.first == entry.first; });
        if (found->second.empty())
            m_spans.erase(found);
    }
}

// The longest beginning of a text that was an upload of its own.
size_t Known::known_lines(const Upload& upload, Answer& answer) const
{
    for (size_t lines = m_spans.empty() ? 0 : upload.lines.size(); lines != 0; --lines) {
        if (const Commit commit = find(id_of_text(upload, lines), 0)) {
            answer.latest = std::max(answer.latest, commit);
            return lines;
        }
    }
    return 0;
}

void Known::take_batch(const Upload& upload, std::span<const Piece> pieces, Answer& answer,
                       std::vector<Entry>& found) const
{
    Id id{};
    for (size_t i = 0; i < pieces.size(); ++i) {
        const bool is_drop = pieces[i].kind == Kind::drops;
        if (is_drop || i == 0 || !is_alike(pieces[i], pieces[i - 1]))
            id = is_drop ? id_of_drop(pieces[i]) : id_of_lines(upload, pieces[i]);
        const uint64_t number = is_drop ? 0 : upload.first_line + i;
        const Commit commit = find(id, number);
        answer.is_known[i] = commit != 0;
        answer.latest = std::max(answer.latest, commit);
        if (commit != 0)
            continue;
        const bool goes_on =
            !found.empty() && found.back().id == id && found.back().first + found.back().count == number;
        goes_on ? void(++found.back().count) : found.push_back({id, number, 1});
    }
}

Known::Answer Known::take(const Upload& upload, std::span<const Piece> pieces, Commit commit, std::vector<Entry>& noted)
{
    Answer answer{std::vector<bool>(pieces.size()), 0};
    std::vector<Entry> found;
    if (upload.batch) {
        take_batch(upload, pieces, answer, found);
    } else if (!upload.lines.empty()) {
        const size_t lines = known_lines(upload, answer);
        std::fill_n(answer.is_known.begin(), lines, true);
        if (lines != upload.lines.size())
            found.push_back({id_of_text(upload, upload.lines.size()), 0, 1});
    }
    for (const Entry& entry : found)
        add(entry, commit);
    noted.insert(noted.end(), found.begin(), found.end());
    return answer;
}

} // namespace store::spool
