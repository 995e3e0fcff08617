// Kills a logging host at random moments, again and again, and judges what it leaves behind.
#pragma once

#include <string>

struct CrashReport
{
    int kills = 0;
    long events = 0;     ///< whole lines found
    int tails = 0;       ///< kills that left an unfinished line
    int closed = 0;      ///< such lines that the next host closed off
    std::string finding; ///< empty: everything was as promised
};

/// `host` is the program steps_host, `folder` an empty folder. Every choice of a moment follows from `seed`.
CrashReport kill_again_and_again(const std::string& host, const std::string& folder, int kills, unsigned seed);
