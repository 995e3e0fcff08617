// Runs hosts that leave at random moments, in every way, while they log and upload.
#pragma once

#include <string>

struct LifeReport
{
    int hosts = 0;
    int requests = 0;    ///< that reached the server, so uploads there were
    std::string finding; ///< empty: every host ended as it meant to, and left whole lines
};

/// `host` is the program steps_host. Runs `rounds` hosts for each way of leaving, over http and https.
LifeReport leave_again_and_again(const std::string& host, int rounds, unsigned seed);
