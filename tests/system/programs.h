// Where the hosts of the system tests and the library itself stand.
#pragma once

#include <string>

inline std::string host_program(const std::string& name)
{
    return TEST_BINARY_DIR "/tests/hosts/" + name;
}

inline std::string library()
{
    return TEST_BINARY_DIR "/libanalytics.so";
}
