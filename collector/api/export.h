/// @file
/// All events that match, in order of receipt, in pieces: for a file, or for an answer without a known length.
#pragma once

#include "api.h"
#include "words.h"

#include <memory>

namespace api {

/// Reads a store from its first event on. One thread at a time.
class Export
{
public:
    /// @param words its limit does not count: an export is whole
    Export(std::unique_ptr<store::Reading> reading, Words words);
    /// The next lines, in the format of the words; empty at the end.
    store::Result<std::string> next();

private:
    std::unique_ptr<store::Reading> m_reading;
    Words m_words;
    store::Cursor m_at;
    bool m_begun = false, m_ended = false;
};

/// The export as an answer of the API.
Answer export_of(store::Store& store, const Words& words);

} // namespace api
