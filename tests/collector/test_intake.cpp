#include "intake/intake.h"

#include "intake/line_parser.h"

#include <gtest/gtest.h>
#include <zlib.h>

using namespace std::string_literals;

namespace {

using intake::Refused;

constexpr size_t g_body_limit = 100000;

int status_of(const Refused& refused)
{
    return refused ? refused->status : 200;
}

std::string gzip(const std::string& text)
{
    std::string packed(text.size() + 1000, '\0');
    z_stream stream = {};
    deflateInit2(&stream, 9, Z_DEFLATED, 16 + MAX_WBITS, 9, Z_DEFAULT_STRATEGY);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

// A line with the given name and members; the commas between the seven stay as the library writes them.
std::string line(const std::string& name, const std::string& members, const std::string& time = "2026-11-21 09:05:03")
{
    return "[ 3, \"" + time + "\", \"app\", \"1.0\", \"id\", " + name + ", " + members + " ]";
}

store::Upload read(std::string data, int expected = 200, std::optional<std::string> application = std::nullopt)
{
    store::Upload upload;
    intake::Form form;
    form.data = std::move(data);
    form.sender = "id";
    EXPECT_EQ(status_of(intake::read_lines(std::move(form), application, 5, {}, upload)), expected);
    return upload;
}

} // namespace

TEST(IntakeHeaders, TakeFormsPlainOrPacked)
{
    const struct
    {
        const char *type, *encoding;
        int status;
    } rows[] = {{"application/x-www-form-urlencoded", "", 200},
                {"Application/X-WWW-Form-URLencoded ; charset=utf-8", "GZIP", 200},
                {"application/x-www-form-urlencoded", "identity", 200},
                {"application/x-www-form-urlencoded", "br", 415},
                {"application/x-www-form-urlencoded", "gzip, gzip", 415},
                {"text/plain", "", 400},
                {"", "", 400}};
    for (const auto& row : rows) {
        intake::Encoding encoding;
        EXPECT_EQ(status_of(intake::check_headers(row.type, row.encoding, encoding)), row.status) << row.type;
    }
}

TEST(IntakeUnpack, RefusesWhatIsBrokenOrTooLarge)
{
    const std::string text(g_body_limit, 'x'), packed = gzip(text);
    const struct
    {
        const char* what;
        std::string body;
        int status;
    } rows[] = {{"at the limit", packed, 200},
                {"a byte past it", gzip(text + "x"), 413},
                {"a bomb", gzip(std::string(64 << 20, '\0')), 413},
                {"two members", gzip("a") + gzip("b"), 200},
                {"cut", packed.substr(0, packed.size() - 1), 400},
                {"something behind it", packed + "x", 400},
                {"no gzip", text, 400},
                {"nothing", "", 400}};
    for (auto row : rows)
        EXPECT_EQ(status_of(intake::unpack(row.body, intake::Encoding::gzip, {0, g_body_limit})), row.status)
            << row.what;

    std::string body = packed;
    intake::unpack(body, intake::Encoding::gzip, {0, g_body_limit});
    EXPECT_EQ(body, text);
    EXPECT_EQ(status_of(intake::unpack(body, intake::Encoding::identity, {0, g_body_limit - 1})), 413);
    body = packed;
    EXPECT_EQ(status_of(intake::unpack(body, intake::Encoding::gzip, {}, [](size_t) { return false; })), 503);
}

TEST(IntakeForm, TakesEveryFieldByItsRule)
{
    const std::string rest = "&g=i&t=x&v=1", digits32 = "0123456789abcdef0123456789abcdef";
    const struct
    {
        std::string body;
        int status;
    } rows[] = {{"data=" + rest, 200},
                {"v=1&unknown=%31&t=&g=&data=", 200},
                {"data=%5B+%5d%00&b=&d=0" + rest, 200},
                {"data=&b=" + digits32 + "&o=2147483647&n=0&d=7&s=1" + rest, 200},
                {"data=&g=i&t=x", 400},
                {"data&g&t&v&", 200},
                {"", 400},
                {"data=%5" + rest, 400},
                {"data=%5g" + rest, 400},
                {"data=%" + rest, 400},
                {"unknown=%" + rest + "&data=", 400},
                {"data=" + rest + "&g=i", 400},
                {"data=&b=" + digits32 + "0" + rest, 400},
                {"data=&b=0123456789ABCDEF0123456789abcdef" + rest, 400},
                {"data=&o=2147483648" + rest, 400},
                {"data=&n=-1" + rest, 400},
                {"data=&d=" + rest, 400},
                {"data=x&d=1" + rest, 400},
                {"data=&t=x&v=1&g=" + std::string(1024, 'g'), 200},
                {"data=&t=x&v=1&g=" + std::string(1025, 'g'), 400},
                {"data=&t=x&g=i&v=" + std::string(1025, 'v'), 400}};
    for (auto row : rows) {
        intake::Form form;
        std::string body = row.body;
        EXPECT_EQ(status_of(intake::read_form(std::move(body), form)), row.status) << row.body;
    }
    intake::Form form;
    intake::read_form("data=%5B+%5d%00%0a&b=" + digits32 + "&o=5&n=6&d=0" + rest, form);
    EXPECT_EQ(form.data, "[ ]\0\n"s);
    EXPECT_EQ((*form.batch)[15], 0xef);
    EXPECT_EQ(form.first_line, 5u);
    EXPECT_EQ(form.lines, 6u);
}

TEST(IntakeToken, BelongsToItsSender)
{
    const std::string token = "000102030405060743a1075728d0b8589c7045b1724057fcea3e8776"
                              "f4607b05587c75e15bd5c54bf112fd3ea8cfdcffae8e5225f9a3993e";
    EXPECT_EQ(status_of(intake::check_token("id", token)), 200);
    EXPECT_EQ(status_of(intake::check_token("ie", token)), 403);
    EXPECT_EQ(status_of(intake::check_token("id", std::string(112, '0'))), 403);
    EXPECT_EQ(status_of(intake::check_token("id", std::string(112, 'G'))), 403);
}

TEST(IntakeLines, AreEventsOrRejectsWithAReason)
{
    const std::string deep(499, '['), deep_end(499, ']');
    const struct
    {
        std::string text, members; ///< members: what is stored; empty for a reject
    } rows[] = {
        {line("\"n\"", "{ \"a\": 1, \"b\": [ true ] }"), R"({"a":1,"b":[true]})"},
        {line("\"n\"", "{ }") + "\r", "{}"},
        {"[3,\"2024-02-29 23:59:59\",\"a\",\"\",\"\",7,{}]", "{}"},
        {line("\"n\"", "{ \"a\": nan, \"b\": [ -inf ], \"nan\": \"nan\" }"), R"({"a":null,"b":[null],"nan":"nan"})"},
        {line("\"n\"", "{ \"a\": \"\x01\t\xff\xc3\" }"), "{\"a\":\"\\u0001\\u0009\xEF\xBF\xBD\xEF\xBF\xBD\"}"},
        {line("\"n\"", "{ \"a\": 100000000000000000000 }"), R"({"a":100000000000000000000.0})"},
        {line("\"n\"", "{ \"a\": 18446744073709551615, \"b\": -0.5 }"), R"({"a":18446744073709551615,"b":-0.5})"},
        {line("\"n\"", "{ \"a\": " + deep + deep_end + " }"), "{\"a\":" + deep + deep_end + "}"},
        {line("\"n\"", "{ \"a\": [" + deep + deep_end + "] }"), ""},
        {line("\"n\"", "{ \"a\": " + std::string(60000, '[') + " }"), ""},
        {line("\"n\"", "{ \"a\": \"" + std::string(65536, 'x') + "\" }"), ""},
        {line("\"n\"", "{ \"a\": \"\0\" }"s), ""},
        {line("\"n\"", "[ ]"), ""},
        {line("1.5", "{ }"), ""},
        {line("\"n\"", "{ }", "2026-02-29 00:00:00"), ""},
        {line("\"n\"", "{ }", "2026-01-01 24:00:00"), ""},
        {line("\"n\"", "{ }", "2026-01-01T00:00:00"), ""},
        {line("\"n\"", "{ }", "2026-01-01 0x:00:00"), ""},
        {"[ 4" + line("\"n\"", "{ }").substr(3), ""},
        {"[ 3, \"2026-01-01 00:00:00\", null, \"1\", \"i\", \"n\", { } ]", ""},
        {"[ 3, \"2026-01-01 00:00:00\", \"a\", \"1\", \"i\", \"n\", { }, 8 ]", ""},
        {"{}", ""},
        {line("\"n\"", "{ \"a\": 1 "), ""},
        {"\xff\xfe", ""}};
    for (const auto& row : rows) {
        store::Upload upload = read(row.text);
        EXPECT_EQ(upload.rejects.size(), row.members.empty() ? 1u : 0u) << row.text.substr(0, 200);
        EXPECT_EQ(upload.events.empty() ? "" : upload.events[0].members, row.members) << row.text.substr(0, 200);
        EXPECT_EQ(upload.rejects.empty() ? false : upload.rejects[0].reason.empty(), false);
    }
}

TEST(IntakeLines, KeepPropertiesAsTheParserReadsThem)
{
    std::string many =
        "{ \"s\": \"x\", \"s\": 2, \"i\": 3.0, \"e\": 1e2, \"o\": { }, \"t\": true, \"z\": null, \"os_ver\": nan";
    for (int i = 0; i < 60; ++i)
        many += ", \"k" + std::to_string(i) + "\": 0";
    store::Upload upload = read("\n" + line("7", many + " }") + "\n\n" + line("null", "{ \"s\": \"\" }"));
    std::string seen;
    for (size_t i = 0; i < 6; ++i) {
        const store::Property& property = upload.properties[i];
        seen += std::string(property.key) + "=" + std::string(property.value.text) + (property.is_fact ? "! " : " ");
    }
    EXPECT_EQ(seen, "s=x i=3 e=100 t=true z=null os_ver=null! ");
    EXPECT_EQ(upload.events[0].properties, store::g_event_properties);
    EXPECT_EQ(upload.events[0].other_properties, 2u);
    EXPECT_EQ(upload.properties.back().value.type, store::ValueType::text);
    EXPECT_EQ(upload.events[0].name, "7");
    EXPECT_EQ(upload.events[1].name, std::nullopt);
    EXPECT_EQ(upload.lines.size(), 2u);
    EXPECT_EQ(upload.events[0].logged_at, 1795251903);
}

TEST(IntakeLines, OfAnotherApplicationRefuseTheUpload)
{
    read(line("1", "{ }") + "\nno event", 200, "app");
    read(line("1", "{ }"), 403, "other");
}

// Stores and other collectors know lines by these numbers: they never change.
TEST(IntakeLines, HaveKeysThatNeverChange)
{
    store::Upload upload = read("a\n\nlonger than eight bytes");
    EXPECT_EQ(store::chain_begin("id"), 0xb0d09cc783d6a0ecu);
    EXPECT_EQ(upload.lines[0].key, 0x5c5f6b0c545b1ec8u);
    EXPECT_EQ(upload.lines[1].key, 0x58d0aa3f8f326bf5u);
}
