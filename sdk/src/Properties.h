// The properties of the machine, by key.
#pragma once

#include <cstdint>

namespace AnalyticsSDK {

/// Writes the property's text into `buffer` of `size` bytes, which must not be null; the empty text when there is none.
///
/// Any thread. "cpu" and "cpu_clock" are asked for once per process. @return an analytics_result; 104 for another key
uint32_t GetProperty(const char* key, char* buffer, unsigned int size);

/// A property as it is added to an event.
struct PropertyValue
{
    bool isNumber;
    uint64_t number;
    char text[200]; ///< longer answers, which no known machine has, come out empty
};

/// Reads the property as what it is, a number or a text. @return as GetProperty()
uint32_t ReadProperty(const char* key, PropertyValue& value);

/// Calls `each` for every property, in the order of their table.
void EachProperty(void (*each)(void* context, const char* key, const char* sentence), void* context);

} // namespace AnalyticsSDK
