#include "facts.h"

#include <algorithm>
#include <iterator>

namespace intake {

bool is_fact(std::string_view name)
{
    // The keys that analytics_property_add() knows, in order.
    static constexpr std::string_view names[] = {"arch",      "bios", "cpu",   "cpu_clock", "cpu_usage", "hd_free",
                                                 "hd_total",  "mfg",  "model", "os_name",   "os_ver",    "ram_free",
                                                 "ram_total", "tz",   "uuid",  "vm_free",   "vm_total"};
    return std::binary_search(std::begin(names), std::end(names), name);
}

} // namespace intake
