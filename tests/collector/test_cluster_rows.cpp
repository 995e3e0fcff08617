// What a collector says to a cluster, without one: its address, its literals, its rows.
#include "store/clickhouse/client.h"
#include "store/clickhouse/row_binary.h"
#include "store/clickhouse/rows.h"
#include "stores.h"

#include <set>

using namespace store::clickhouse;

namespace {

std::string shown(const Layout& layout)
{
    std::string text = layout.user + "@";
    for (const auto& shard : layout.shards) {
        for (const Node& node : shard)
            text += node.name() + " ";
        text += "+ ";
    }
    return text + layout.database;
}

} // namespace

TEST(ClusterAddress, IsReadWholeOrRefused)
{
    const struct
    {
        const char *address, *layout;
    } rows[] = {
        {"clickhouse://a", "default@a:8123 + analytics"},
        {"clickhouse://me@a:1,b:2+c:3,d/events", "me@a:1 b:2 + c:3 d:8123 + events"},
        {"clickhouse://[::1]:1+[::1]", "default@[::1]:1 + [::1]:8123 + analytics"},
        {"clickhouse://", nullptr},
        {"clickhouse://a,", nullptr},
        {"clickhouse://a+/x", nullptr},
        {"clickhouse://a:0", nullptr},
        {"clickhouse://a:65536", nullptr},
        {"clickhouse://a:1x", nullptr},
        {"clickhouse://a:/x", nullptr},
        {"clickhouse://a/x;DROP", nullptr},
        {"clickhouse://me:secret@a", nullptr},
        {"clickhouse://a/", nullptr},
    };
    for (const auto& row : rows) {
        auto layout = parse_address(row.address, {});
        EXPECT_EQ(layout ? shown(*layout) : "refused", row.layout != nullptr ? row.layout : "refused") << row.address;
    }
}

TEST(ClusterAnswers, FaultsAreKnownByTheirNumber)
{
    const struct
    {
        const char* text;
        int code;
    } rows[] = {{"Code: 242, e.displayText() = DB::Exception: x", 242},
                {"Code: 60. DB::Exception: x", 60},
                {"code: 60", 0},
                {" Code: 60", 0},
                {"Code: ", 0},
                {"", 0}};
    for (const auto& row : rows)
        EXPECT_EQ(code_of(row.text), row.code) << row.text;
}

TEST(ClusterAnswers, AnAnswerCutShortReadsAsNone)
{
    std::string rows;
    RowWriter(rows).text(std::string(200, 'x')).i64(-1).array_size(1).u8(7);
    for (size_t length = 0; length <= rows.size(); ++length) {
        RowReader read(std::string_view(rows).substr(0, length));
        bool is_whole = read.text().size() == 200 && read.i64() == -1 && read.array_size() == 1 && read.u8() == 7;
        EXPECT_EQ(is_whole && read.ok() && read.done(), length == rows.size()) << length;
    }
    RowReader endless(std::string_view("\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff", 11));
    EXPECT_EQ(endless.array_size(), 0u);
    EXPECT_FALSE(endless.ok());
}

TEST(ClusterRows, KeysComeFromWhatWasSentAlone)
{
    const struct
    {
        const char* what;
        store::Upload first, second;
        size_t places; ///< of both together
    } rows[] = {
        {"a repetition later", test::upload(test::event_line("a"), 'b', 3),
         test::upload(test::event_line("a"), 'b', 3, 0, "i", 99), 1},
        {"another sender of the batch", test::upload(test::event_line("a"), 'b'),
         test::upload(test::event_line("a"), 'b', 0, 0, "j"), 1},
        {"another line", test::upload(test::event_line("a"), 'b', 3), test::upload(test::event_line("a"), 'b', 4), 2},
        {"a file that grew", test::upload(test::event_line("a")),
         test::upload(test::event_line("a") + "\n" + test::event_line("b")), 2},
        {"a null name and an empty one",
         test::upload("[ 3, \"1970-01-01 00:00:00\", \"app\", \"1\", \"i\", null, { } ]", 'b'),
         test::upload(test::event_line(""), 'b'), 2},
        {"a reject and a told drop", test::upload("x", 'b'), test::upload("", 'b', 0, 5), 2},
    };
    for (const auto& row : rows) {
        std::vector<Piece> pieces;
        encode(row.first, 4, pieces);
        encode(row.second, 4, pieces);
        std::set<Key> keys;
        for (const Piece& piece : pieces)
            keys.insert(piece.key);
        EXPECT_EQ(keys.size(), row.places) << row.what;
    }
}

TEST(ClusterRows, OddTimesStayInTheirHoursAndWeeks)
{
    const struct
    {
        store::Seconds at;
        int32_t hour;
        Day day;
        uint16_t week;
    } rows[] = {{0, 0, 0, week_of(946684800)},         {-1, -1, -1, 1565},
                {946684800, 262968, 10957, 1565},      {1792972800, 498048, 20752, 2965},
                {1792886400 - 1, 498023, 20750, 2964}, {253402300799, 70389527, 2932896, 6783}};
    for (const auto& row : rows) {
        EXPECT_EQ(hour_of(row.at), row.hour) << row.at;
        EXPECT_EQ(day_of(row.at), row.day) << row.at;
        EXPECT_EQ(week_of(row.at), row.week) << row.at;
    }
}
