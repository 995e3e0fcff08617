/// @file
/// The words of a question: the same in the page's address, the API's query and the commands' options.
#pragma once

#include "store/answers.h"

#include <string>
#include <string_view>
#include <vector>

namespace api {

struct Words
{
    store::Query query;
    store::Step step = store::Step::hour;
    bool has_from = false, has_to = false;
    std::string key;                 ///< of a property
    std::vector<std::string> events; ///< the names of a funnel, in order
    std::string format = "jsonl";    ///< of an export
};

/// Reads "from=...&name=..." (percent-encoded). An empty value of a filter is a filter for the empty text.
/// @return one sentence when a word is unknown, given twice, or its value is none; empty when all is well
std::string read_words(std::string_view query, Words& words);
/// Takes one word and its plain value: what read_words does for each.
std::string take_word(std::string_view name, std::string_view value, Words& words);

/// Fills in the period of a question that names none (the last 7 days), and rounds it to full hours: `from` down, `to`
/// up. @param now seconds since 1970 UTC
void round_period(Words& words, store::Seconds now);

} // namespace api
