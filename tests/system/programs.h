// Where the hosts of the system tests and the library itself stand, and the command line of steps_host.
#pragma once

#include "support/child.h"
#include "support/scratch.h"

#include <string>
#include <vector>

inline std::string host_program(const std::string& name)
{
    return TEST_BINARY_DIR "/tests/hosts/" + name;
}

inline std::string library()
{
    return TEST_BINARY_DIR "/libanalytics.so";
}

/// The command line of a host that keeps its files in a folder and takes these steps.
inline std::vector<std::string> host_steps(const support::ScratchFolder& folder, const std::string& url,
                                           const std::vector<std::string>& steps)
{
    std::vector<std::string> command{host_program("steps_host"), "url=" + url, "log=" + folder.file("log")};
    command.insert(command.end(), steps.begin(), steps.end());
    return command;
}
