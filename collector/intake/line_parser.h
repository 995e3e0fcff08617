// Tells whether a line is an event, and takes it apart.
#pragma once

#include "store/upload.h"

#include <memory>

namespace intake {

/// Holds the parser's memory, so one is used for many lines. One thread at a time.
class LineParser
{
public:
    LineParser();
    ~LineParser();

    /// Bytes that must be readable behind every text given to parse().
    static const size_t padding;

    /// Appends an event and its properties to `upload`, with texts that the upload keeps.
    /// @return empty when the line is an event, else why it is none
    std::string parse(std::string_view line, store::Upload& upload);

private:
    struct Json;
    std::unique_ptr<Json> m_spJson;
};

} // namespace intake
