// The options' texts: a value is taken exactly when it is one by the table, changes nothing otherwise, and is told as
// it was set.

#include "Options.h"
#include "fuzz.h"

#include <algorithm>

using namespace AnalyticsSDK;

namespace {

bool is_word(const OptionRow& row, std::string_view text)
{
    return std::any_of(row.words.begin(), row.words.end(), [=](const char* word) { return word && word == text; });
}

// Words with one comma between any two of them.
bool are_words(const OptionRow& row, std::string_view text)
{
    const size_t comma = text.find(',');
    return is_word(row, text.substr(0, comma)) && (comma == text.npos || are_words(row, text.substr(comma + 1)));
}

bool is_number(const OptionRow& row, const std::string& text)
{
    if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != text.npos)
        return false;
    const unsigned long long value = std::stoull(text);
    return value >= static_cast<unsigned long long>(row.least) && value <= static_cast<unsigned long long>(row.most);
}

bool is_value(const OptionRow& row, const std::string& text)
{
    if (row.several)
        return text.empty() || are_words(row, text);
    return row.words[0] != nullptr ? is_word(row, text) : is_number(row, text);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    static Options options;
    const auto& table = Options::Table();
    const size_t at = input.ConsumeIntegralInRange<size_t>(0, table.size());
    const std::string key = at < table.size() ? table[at].key : input.ConsumeRandomLengthString(20).c_str();
    const std::string text = input.ConsumeRemainingBytesAsString().c_str();

    const auto option = Options::Find(key.c_str());
    const auto row = std::find_if(table.begin(), table.end(), [&](const OptionRow& r) { return r.key == key; });
    fuzz::require("a key is known as the table has it", option.has_value() == (row != table.end()));
    if (!option)
        return 0;
    const std::string before = options.Text(*option);
    const bool taken = options.Set(*option, text.c_str());
    fuzz::same("whether it is a value", is_value(*row, text), taken);
    const std::string after = options.Text(*option);
    if (!taken)
        fuzz::same("what a refused text leaves", before, after);
    else if (row->words[0] == nullptr)
        fuzz::same("the number", std::stoll(text), options[*option]);
    else if (!row->several)
        fuzz::same("the word", text, after);
    fuzz::require("what is told can be set", options.Set(*option, after.c_str()));
    fuzz::same("what was told and set", after, options.Text(*option));
    return 0;
}
