// Runs of hosts that the system tests make short and the soak long. Each gives what it found; `seed` decides its
// moments.
#pragma once

#include <string>

struct CrashReport
{
    int kills = 0;
    long events = 0;     ///< whole lines found
    int tails = 0;       ///< kills that left an unfinished line
    std::string finding; ///< empty: everything was as promised; here and below
};

/// Kills a logging host at random moments, and judges what it leaves in the (at first empty) folder.
CrashReport kill_again_and_again(const std::string& folder, int kills, unsigned seed);

struct BatchReport
{
    int kills = 0;
    long events = 0;  ///< whose analytics_event_end had returned
    int requests = 0; ///< that reached the server whole
    int cuts = 0;     ///< connections that it broke off or left without an answer
    int repeated = 0; ///< requests that brought nothing new
    int torn = 0;     ///< lines that a kill cut, each kept as it was
    std::string finding;
};

/// Kills hosts that deliver in batches at random moments, four at once with two threads each, on one log in the (at
/// first empty) folder, while their server fails as well; then lets the outbox drain, and compares.
/// @param user that the hosts run as; 0: as this program
BatchReport deliver_while_killing(const std::string& folder, int kills, unsigned seed, int user);

struct BusyReport
{
    long events = 0;
    int seals = 0;          ///< while the writers were busy
    double unsealed_ms = 0; ///< the longest from one to the next, with the scan of the folder between them
    double longest_ms = 0;  ///< that an event took; here too what else the processors did counts
    std::string finding;
};

/// Four hosts of two threads that log without a pause on one log in the (at first empty) folder, while another one has
/// the log sealed again and again.
BusyReport seal_while_busy(const std::string& folder, int run_ms);

struct LifeReport
{
    int hosts = 0;
    int requests = 0; ///< that reached the server, so uploads there were
    std::string finding;
};

/// Runs so many hosts for each way of leaving, over http and https, that leave at random moments while they log and
/// upload.
LifeReport leave_again_and_again(int rounds, unsigned seed);

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
    std::string finding;
};

/// Sessions that log and upload throughout, into an empty folder, against a server that fails a third of the time.
LoadReport load(const std::string& folder, int sessions, long events_each);
