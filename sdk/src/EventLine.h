// The line of one event, under construction: a JSON array and its line feed.
#pragma once

#include <string_view>

#include "lumo/json_writer.h"

namespace AnalyticsSDK {

/// An array writer that keeps the room of its text from event to event, and can start with the finished text of the
/// first elements.
class EventLine : public lumo::json_writer_array
{
public:
    EventLine() : json_writer_array(nullptr, true) {}

    /// Starts over with the text of an unfinished array, which was copied from an EventLine.
    void Restart(std::string_view begun) { _resume(begun); }

    /// Closes the array and the line. @return the whole line, valid until the next change
    std::string_view FinishLine()
    {
        finish();
        text.append("\n");
        return text;
    }
};

} // namespace AnalyticsSDK
