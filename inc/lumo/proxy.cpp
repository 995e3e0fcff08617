#include "lumo/proxy.h"

#include "lumo/tova/tova-web.h"

namespace lumo {

bool proxy::get_for_url(const char* url, std::string& proxies, std::string& bypass)
{
    tova_proxy settings = {};
    // Copied only when there are any: both texts stay as they were otherwise.
    if (!tova_proxy_get_for_url(url, &settings))
        return false;
    proxies = settings.proxies;
    bypass = settings.bypass;
    return true;
}

} // namespace lumo
