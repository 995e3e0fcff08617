#include "remembered.h"

#include <algorithm>

namespace store::sqlite {

Batches::Batches(Database& database, Rollups& rollups)
    : m_rollups(rollups),
      m_find(database, "SELECT stored, told FROM batches WHERE batch=?"),
      m_put(database, "REPLACE INTO batches(batch, seen, stored, told) VALUES(?, ?, ?, ?)")
{}

Batches::State& Batches::state_of(const BatchId& batch, Milliseconds received_at)
{
    auto [state, is_new] = m_states.try_emplace(batch);
    if (is_new && m_find.with(std::span<const unsigned char>(batch)).step()) {
        state->second.stored = Ranges(m_find.text(0));
        state->second.told = unpack_told(m_find.text(1));
    }
    state->second.seen = day_of(received_at / 1000);
    return state->second;
}

bool Batches::add(const BatchId& batch, uint32_t line, Milliseconds received_at)
{
    State& state = state_of(batch, received_at);
    if (!state.stored.add(line))
        return false;
    state.is_changed = true;
    if (!state.told.empty())
        untell(state, line);
    return true;
}

void Batches::untell(State& state, uint32_t line)
{
    auto piece = std::find_if(state.told.begin(), state.told.end(),
                              [&](const Told& told) { return line >= told.first && line - told.first < told.count; });
    if (piece == state.told.end())
        return;
    m_rollups.add_loss(piece->hour, piece->installation, 0, -1);
    Told behind = *piece;
    behind.first = line + 1;
    behind.count = piece->first + piece->count - behind.first;
    piece->count = line - piece->first;
    if (behind.count != 0)
        piece = std::prev(state.told.insert(piece + 1, behind));
    if (piece->count == 0)
        state.told.erase(piece);
}

uint32_t Batches::tell(const BatchId& batch, uint32_t first, uint32_t count, Milliseconds received_at,
                       int64_t installation)
{
    State& state = state_of(batch, received_at);
    uint32_t told = 0;
    // Pieces that were told before are in order and apart, so what is missing from them is found one gap at a time.
    std::vector<Told> before = state.told;
    for (Ranges::Range gap : state.stored.missing({first, first + count})) {
        auto note = [&](uint32_t end) {
            if (gap.first >= end)
                return;
            state.told.push_back({gap.first, end - gap.first, hour_of(received_at / 1000), installation});
            told += end - gap.first;
        };
        for (const Told& piece : before) {
            note(std::min(piece.first, gap.end));
            gap.first = std::max(gap.first, std::min(piece.first + piece.count, gap.end));
        }
        note(gap.end);
    }
    if (told != 0) {
        std::sort(state.told.begin(), state.told.end(), [](const Told& a, const Told& b) { return a.first < b.first; });
        m_rollups.add_loss(hour_of(received_at / 1000), installation, 0, told);
        state.is_changed = true;
    }
    return told;
}

void Batches::flush()
{
    for (const auto& [batch, state] : m_states) {
        std::string stored = state.stored.packed(), told = pack_told(state.told);
        if (state.is_changed)
            m_put.with(std::span<const unsigned char>(batch), state.seen, blob(stored), blob(told)).run();
    }
    m_states.clear();
}

namespace {

// The place of a text's last line when the upload's text begins with that text; else the number of its lines.
size_t last_line_of(const TextEnd& end, const Upload& upload)
{
    size_t last = end.lines - 1;
    if (end.lines > upload.lines.size())
        return upload.lines.size();
    ChainKey before = last == 0 ? chain_begin(upload.sender) : upload.lines[last - 1].key;
    return begins_with(end, before, upload.lines[last].text) ? last : upload.lines.size();
}

TextEnd end_of(const Upload& upload)
{
    const std::vector<Line>& lines = upload.lines;
    TextEnd end{};
    end.lines = static_cast<uint32_t>(lines.size());
    end.size = static_cast<uint32_t>(lines.back().text.size());
    end.before = lines.size() == 1 ? chain_begin(upload.sender) : lines[lines.size() - 2].key;
    end.key = lines.back().key;
    return end;
}

} // namespace

Ends::Ends(Database& database)
    : m_find(database, "SELECT list FROM ends WHERE installation=?"),
      m_put(database, "REPLACE INTO ends(installation, seen, list) VALUES(?, ?, ?)")
{}

Ends::List& Ends::list_of(int64_t installation)
{
    auto [list, is_new] = m_lists.try_emplace(installation);
    if (is_new && m_find.with(installation).step())
        list->second.ends = unpack_ends(m_find.text(0));
    return list->second;
}

size_t Ends::add(const Upload& upload, int64_t installation)
{
    if (upload.lines.empty())
        return 0;
    List& list = list_of(installation);
    size_t known = 0;
    for (const TextEnd& end : list.ends) {
        size_t last = last_line_of(end, upload);
        if (last != upload.lines.size()) {
            bool is_whole = upload.lines[last].text.size() == end.size;
            known = std::max(known, is_whole ? last + 1 : last);
        }
    }

    note(list, end_of(upload), upload.received_at);
    return known;
}

bool Ends::add_part(const Upload& upload, int64_t installation)
{
    List& list = list_of(installation);
    std::optional<TextEnd> latest = list.ends.empty() ? std::nullopt : std::optional(list.ends.back());
    if (latest != upload.part->latest)
        return false;
    if (upload.part->goes_on)
        list.ends.pop_back();
    note(list, upload.part->end, upload.received_at);
    return true;
}

void Ends::note(List& list, const TextEnd& end, Milliseconds received_at)
{
    std::erase_if(list.ends, [&](const TextEnd& other) { return other.lines == end.lines && other.key == end.key; });
    list.ends.push_back(end);
    if (list.ends.size() > g_ends)
        list.ends.erase(list.ends.begin());
    list.seen = day_of(received_at / 1000);
    list.is_changed = true;
}

void Ends::flush()
{
    for (const auto& [installation, list] : m_lists) {
        std::string ends = pack_ends(list.ends);
        if (list.is_changed)
            m_put.with(installation, list.seen, blob(ends)).run();
    }
    m_lists.clear();
}

} // namespace store::sqlite
