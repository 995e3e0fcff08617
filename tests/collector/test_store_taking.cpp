// What a store takes of what it is sent, however often.
#include "stores.h"

namespace {

// A line for each letter: an event of that name; "!" is no event, "~" cuts the line before it in half.
std::string lines(std::string_view letters)
{
    std::string text;
    for (char letter : letters) {
        if (letter == '~')
            text.resize(text.size() - 20);
        else
            text += (letter == '!' ? "no event" : test::event_line(std::string(1, letter))) + "\n";
    }
    return text;
}

struct Sent
{
    const char* letters;
    char batch = '\0';
    uint32_t first = 0, dropped = 0;
    const char* sender = "i";
    /// Events, rejects, known and dropped lines of the receipt; none: not looked at.
    std::optional<std::array<uint32_t, 4>> expected = std::nullopt;
};

struct Case
{
    const char* what;
    std::vector<Sent> sent;
    std::array<uint64_t, 3> events_rejects_dropped; ///< in all, at the end
    /// The same of a store that knows lines by their keys alone, where that differs.
    std::optional<std::array<uint64_t, 3>> by_keys = std::nullopt;
};

constexpr char none = '\0';

const Case cases[] = {
    {"the same text again",
     {{"ab", none, 0, 0, "i", {{2, 0, 0, 0}}}, {"ab", none, 0, 0, "i", {{0, 0, 2, 0}}}},
     {2, 0, 0}},
    {"a text that has grown",
     {{"ab", none, 0, 0, "i", {{2, 0, 0, 0}}},
      {"ab!c", none, 0, 0, "i", {{1, 1, 2, 0}}},
      {"ab!c", none, 0, 0, "i", {{0, 0, 4, 0}}}},
     {3, 1, 0}},
    {"a text that ended inside a line",
     {{"ab~", none, 0, 0, "i", {{1, 1, 0, 0}}}, {"abc", none, 0, 0, "i", {{2, 0, 1, 0}}}},
     {3, 1, 0}},
    {"one line that ended inside",
     {{"a~", none, 0, 0, "i", {{0, 1, 0, 0}}}, {"a", none, 0, 0, "i", {{1, 0, 0, 0}}}},
     {1, 1, 0}},
    {"equal lines, equal beginnings",
     {{"aab", none, 0, 0, "i", {{3, 0, 0, 0}}},
      {"aac", none, 0, 0, "i", {{3, 0, 0, 0}}},
      {"ac", none, 0, 0, "i", {{2, 0, 0, 0}}}},
     {8, 0, 0},
     {{5, 0, 0}}},
    {"an earlier, shorter text", {{"ab"}, {"abc"}, {"ab", none, 0, 0, "i", {{0, 0, 2, 0}}}}, {3, 0, 0}},
    {"the same text of another sender",
     {{"ab", none, 0, 0, "i", {{2, 0, 0, 0}}}, {"ab", none, 0, 0, "j", {{2, 0, 0, 0}}}},
     {4, 0, 0}},
    {"the eighth text before",
     {{"a"}, {"b"}, {"c"}, {"d"}, {"e"}, {"f"}, {"g"}, {"h"}, {"a", none, 0, 0, "i", {{0, 0, 1, 0}}}},
     {8, 0, 0}},
    {"the ninth text before",
     {{"a"}, {"b"}, {"c"}, {"d"}, {"e"}, {"f"}, {"g"}, {"h"}, {"k"}, {"a", none, 0, 0, "i", {{1, 0, 0, 0}}}},
     {10, 0, 0},
     {{9, 0, 0}}},
    {"an empty text",
     {{"", none, 0, 0, "i", {}}, {"", none, 0, 0, "i", {}}, {"a", none, 0, 0, "i", {{1, 0, 0, 0}}}},
     {1, 0, 0}},
    {"a batch in overlapping parts",
     {{"abc", 'B', 0, 0, "i", {{3, 0, 0, 0}}},
      {"bcd", 'B', 1, 0, "j", {{1, 0, 2, 0}}},
      {"f", 'B', 5, 0, "i", {{1, 0, 0, 0}}},
      {"de", 'B', 3, 0, "i", {{1, 0, 1, 0}}}},
     {6, 0, 0}},
    {"the same lines of two batches",
     {{"ab", 'B', 0, 0, "i", {{2, 0, 0, 0}}},
      {"ab", 'C', 0, 0, "i", {{2, 0, 0, 0}}},
      {"ab", none, 0, 0, "i", {{2, 0, 0, 0}}}},
     {6, 0, 0}},
    {"a reject is a line that is stored",
     {{"a!", 'B', 0, 0, "i", {{1, 1, 0, 0}}}, {"a!b", 'B', 0, 0, "i", {{1, 0, 2, 0}}}, {"", 'B', 1, 2, "i", {}}},
     {2, 1, 0}},
    {"dropped lines told twice",
     {{"", 'B', 2, 3, "i", {{0, 0, 0, 3}}}, {"", 'B', 0, 5, "i", {{0, 0, 0, 2}}}, {"", 'B', 0, 5, "i", {{0, 0, 0, 0}}}},
     {0, 0, 5}},
    {"a dropped line that came before",
     {{"a", 'B', 1, 0, "i", {{1, 0, 0, 0}}}, {"", 'B', 0, 3, "i", {{0, 0, 0, 2}}}},
     {1, 0, 2}},
    {"dropped lines that come later",
     {{"", 'B', 0, 5, "i", {{0, 0, 0, 5}}},
      {"b!", 'B', 1, 0, "i", {{1, 1, 0, 0}}},
      {"", 'B', 0, 6, "i", {{0, 0, 0, 1}}},
      {"a", 'B', 0, 0, "i", {{1, 0, 0, 0}}}},
     {2, 1, 3}},
    {"the last lines that can be",
     {{"", 'B', 0x7fffffff, 0x7fffffff, "i", {{0, 0, 0, 0x7fffffff}}}, {"ab", 'B', 0x7ffffffe, 0, "i", {{2, 0, 0, 0}}}},
     {2, 0, 0x7ffffffe}},
};

std::array<uint32_t, 4> parts(const store::Receipt& receipt)
{
    return {receipt.events, receipt.rejects, receipt.known, receipt.dropped};
}

} // namespace

namespace test {

class StoreTaking : public StoreContract
{
protected:
    // Sends a case's uploads in one group, or in groups of one between which the store is opened anew.
    void run(const Case& row, bool at_once)
    {
        std::vector<store::Upload> uploads;
        for (const Sent& sent : row.sent)
            uploads.push_back(upload(lines(sent.letters), sent.batch, sent.first, sent.dropped, sent.sender));
        std::vector<store::Receipt> receipts;
        std::vector<const store::Upload*> group;
        for (const store::Upload& one : uploads) {
            if (!at_once) {
                reopen();
                receipts.push_back(write(one));
            }
            group.push_back(&one);
        }
        if (at_once) {
            receipts = value(m_spWriting->write(group, {100, 100000, 1 << 23, std::chrono::seconds(10)}));
            settle(receipts.size());
        }
        for (size_t i = 0; GetParam().is_file && i < receipts.size() && i < row.sent.size(); ++i) {
            auto expected = row.sent[i].expected.value_or(parts(receipts[i]));
            EXPECT_EQ(parts(receipts[i]), expected) << row.what << ", upload " << i;
        }
        store::Health health = value(m_spReading->health({}));
        std::array<uint64_t, 3> sums = {health.events, health.rejects, health.dropped};
        const bool by_keys = row.by_keys && !GetParam().is_file;
        EXPECT_EQ(sums, by_keys ? *row.by_keys : row.events_rejects_dropped) << row.what;
    }
};

TEST_P(StoreTaking, CountsEveryLineOnceWithinAGroup)
{
    for (const Case& row : cases) {
        begin_anew();
        run(row, true);
    }
}

TEST_P(StoreTaking, CountsEveryLineOnceAcrossRestarts)
{
    for (const Case& row : cases) {
        begin_anew();
        run(row, false);
    }
}

TEST_P(StoreTaking, TakesALongTextInParts)
{
    store::Upload whole = upload(lines("abcde"));
    std::optional<store::TextEnd> latest;
    for (uint32_t first : {0u, 2u, 4u}) {
        store::Upload part = upload(lines(std::string_view("abcde").substr(first, 2)));
        part.first_line = first;
        for (size_t i = 0; i < part.lines.size(); ++i)
            part.lines[i].key = whole.lines[first + i].key;
        const store::Line& last = part.lines.back();
        size_t before = first + part.lines.size() - 2;
        store::TextEnd end{first + static_cast<uint32_t>(part.lines.size()), static_cast<uint32_t>(last.text.size()),
                           whole.lines[before].key, last.key};
        part.part = {end, latest, first != 0};
        EXPECT_EQ(write(part).events, part.lines.size());
        latest = end;
    }
    const uint32_t known = write(whole).known;
    if (GetParam().is_file) {
        EXPECT_EQ(known, 5u);
    }
    EXPECT_EQ(value(m_spReading->health({})).events, 5u);
    EXPECT_LE(value(m_spWriting->ends("i")).size(), 1u);
    write(upload(lines("f")));
    whole.part = {*latest, latest, true};
    const store::Upload* late = &whole;
    if (!value(m_spWriting->ends("i")).empty()) {
        EXPECT_EQ(m_spWriting->write({&late, 1}, {}).fault().kind, store::FaultKind::changed);
    }
}

TEST_P(StoreTaking, EndsAGroupByEachOfItsLimits)
{
    std::vector<store::Upload> uploads;
    std::vector<const store::Upload*> group;
    for (int i = 0; i < 5; ++i)
        uploads.push_back(upload(lines("abcd") + std::to_string(i)));
    for (const store::Upload& one : uploads)
        group.push_back(&one);
    auto forever = std::chrono::hours(1);
    const struct
    {
        store::GroupLimit limit;
        size_t taken;
    } rows[] = {
        {{100, 1000, 1, forever}, GetParam().is_file ? 1u : 5u}, // the others are known then, and change no rollup
        {{3, 1000, 1 << 20, forever}, 3},
        {{100, 11, 1 << 20, forever}, 2},
        {{100, 1, 1 << 20, forever}, 1},
        {{100, 1000, 1 << 20, std::chrono::milliseconds(0)}, 1},
        {{100, 1000, 1 << 20, forever}, 5}};
    for (const auto& row : rows)
        EXPECT_EQ(value(m_spWriting->write(group, row.limit)).size(), row.taken);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreTaking, testing::ValuesIn(backends),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace test
