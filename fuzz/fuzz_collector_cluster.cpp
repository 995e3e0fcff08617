// What goes to a cluster's nodes and what comes back: a literal holds nothing but its text, rows read back as they were
// written, an answer of any bytes is read within its bounds, an address means what its parts say.
#include "store/clickhouse/client.h"
#include "store/clickhouse/row_binary.h"

#include "fuzz.h"

using namespace store::clickhouse;

namespace {

// The engine's reading of a literal, for the escapes that are written.
std::string unquoted(std::string_view literal)
{
    fuzz::require("a literal has two ends", literal.size() >= 2 && literal.front() == '\'' && literal.back() == '\'');
    literal = literal.substr(1, literal.size() - 2);
    std::string text;
    for (size_t i = 0; i < literal.size(); ++i) {
        fuzz::require("a literal ends at its end", literal[i] != '\'');
        if (literal[i] != '\\') {
            text += literal[i];
            continue;
        }
        fuzz::require("an escape is whole", ++i < literal.size());
        text += literal[i] == '0' ? '\0' : literal[i];
    }
    return text;
}

void check_rows(FuzzedDataProvider& data)
{
    const std::string bytes = data.ConsumeRandomLengthString(4096);
    const uint64_t number = data.ConsumeIntegral<uint64_t>(), count = data.ConsumeIntegralInRange(0, 300);
    std::string row;
    RowWriter(row).text(bytes).u64(number).array_size(count).fixed(std::string(count, 'x'));
    RowReader reader(row);
    fuzz::same("a text", bytes, reader.text());
    fuzz::require("a number", reader.u64() == number);
    fuzz::require("a size", reader.array_size() == count);
    reader.fixed(count);
    fuzz::require("all was read", reader.ok() && reader.done());
}

void check_answer(FuzzedDataProvider& data, std::string_view answer)
{
    code_of(answer);
    RowReader reader(answer);
    while (!reader.done() && data.remaining_bytes() != 0) {
        const uint8_t what = data.ConsumeIntegral<uint8_t>() % 4;
        if (what == 0)
            fuzz::require("a text is a slice", reader.text().size() <= answer.size());
        else if (what == 1)
            fuzz::require("no more elements than bytes", reader.array_size() <= answer.size());
        else
            what == 2 ? reader.u8() : reader.u64();
    }
}

void check_address(const std::string& rest)
{
    const auto layout = parse_address("clickhouse://" + rest, {});
    if (!layout)
        return;
    std::string nodes;
    for (const auto& shard : layout->shards) {
        nodes += nodes.empty() ? "" : "+";
        for (const Node& node : shard)
            nodes += (&node == &shard.front() ? "" : ",") + node.name();
    }
    const std::string whole = layout->user + "@" + nodes + "/" + layout->database;
    const auto again = parse_address("clickhouse://" + whole, {});
    fuzz::require("a whole address is one", static_cast<bool>(again));
    fuzz::require("with the same nodes", again->shards.size() == layout->shards.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider data(bytes, size);
    const std::string text = data.ConsumeRandomLengthString(1024);
    fuzz::same("a text in a statement", text, unquoted(store::clickhouse::quoted(text)));
    check_address(text);
    check_rows(data);
    check_answer(data, text);
    return 0;
}
