#include "lines.h"

#include "sinks.h"

namespace bench {

std::string event_text()
{
    ClassSink sink;
    write_event(sink);
    sink.root.EndObject();
    return sink.root.ToString();
}

std::string event_lines(std::size_t size)
{
    const std::string event = event_text();
    std::string lines;
    // Whole lines only, so the last may reach beyond `size`. Numbered, for no two lines of a log are the same.
    lines.reserve(size + 2 * event.size());
    for (long number = 0; lines.size() < size; ++number)
        lines +=
            "[ 3, \"2026-01-02 03:04:05\", \"com.example.bench\", \"4.2.1\", \"0F5A9C1E-6B2D-4C8F-9E37-1A2B3C4D5E6F\", "
            "\"bench " +
            std::to_string(number) + "\", " + event + " ]\n";
    return lines;
}

} // namespace bench
