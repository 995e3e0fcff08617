// Facts that every system of this family tells alike: by environment variables, uname(2) and /etc/localtime.
#pragma once

#include <string_view>

#include "host/host.h"

namespace AnalyticsSDK::host {

/// Looks an environment variable up, as getenv() does; a test hands in those of another machine.
using environment = const char*(const char* name);

/// The variables of this process.
environment own_variable;

/// The variable's value; empty when there is none.
std::string_view variable(environment* look_up, const char* name);

/// Fills a text. One that does not fit has failed: a part of a name is nobody's name.
answer set_text(text& to, std::string_view from);

namespace readers {

/// The language that programs speak, by the order of POSIX (LC_ALL, LC_MESSAGES, LANG), without its character set.
answer locale(environment* look_up, text& value);

/// The zone of local time: TZ (tzset(3)), else what /etc/localtime under `root` points at (localtime(5)); unsupported
/// where that is a file of its own.
answer linked_zone(const char* root, environment* look_up, text& value);

} // namespace readers
} // namespace AnalyticsSDK::host
