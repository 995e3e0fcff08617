// The properties of the machine, by key.
#ifndef ANALYTICSSDK_PROPERTIES_H
#define ANALYTICSSDK_PROPERTIES_H

#include <cstdint>

namespace AnalyticsSDK {

/// Writes the property's text into `buffer` of `size` bytes, which must not be null; the empty text when there is none.
///
/// Any thread. "cpu" and "cpu_clock" are asked for once per process. @return an analytics_result; 104 for another key
uint32_t GetProperty(const char* key, char* buffer, unsigned int size);

} // namespace AnalyticsSDK

#endif
