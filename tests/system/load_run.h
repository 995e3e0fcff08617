// Load: sessions that log and upload throughout against a server that fails a third of the time; every event is
// accounted for.
#pragma once

#include <string>

struct LoadReport
{
    long events = 0;       ///< logged
    long received = 0;     ///< that the server accepted, each counted once
    long waiting = 0;      ///< still in the files
    long in_window = 0;    ///< deleted with a file into which they came between its read and its deletion
    long window_bytes = 0; ///< what those events measure, by size deleted less size read
    int uploads = 0;
    int accepted = 0;
    long kilobytes[4] = {}; ///< held at rest after each quarter
    long descriptors[4] = {};
    std::string finding; ///< empty: nothing is unaccounted for
};

/// `host` is the program load_host, `folder` an empty folder.
LoadReport load(const std::string& host, const std::string& folder, int sessions, long events_each);
