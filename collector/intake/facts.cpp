#include "facts.h"

#include <algorithm>
#include <vector>

#include "analytics.h"

namespace intake {

bool is_fact(std::string_view name)
{
    static const std::vector<std::string_view> names = [] {
        std::vector<std::string_view> all;
        analytics_property_each([](void* to, const char* key,
                                   const char*) { static_cast<std::vector<std::string_view>*>(to)->emplace_back(key); },
                                &all);
        std::sort(all.begin(), all.end());
        return all;
    }();
    return std::binary_search(names.begin(), names.end(), name);
}

} // namespace intake
