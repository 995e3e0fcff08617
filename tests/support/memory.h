// What a step costs in memory.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace support {

/// The most memory that this process held since the last reset.
inline long peak_kilobytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

/// What a step adds to this process's memory at its highest.
template <class Step>
double megabytes_added(Step step)
{
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak starts anew
    const long before = peak_kilobytes();
    step();
    return static_cast<double>(peak_kilobytes() - before) / 1024;
}

} // namespace support
