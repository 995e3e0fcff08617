#include "lumo/proxy.h"

#include "lumo/tova/tova-web.h"

namespace lumo {

bool proxy::get_for_url(const char* url, std::string& proxies, std::string& bypass)
{
    tova_proxy settings = {};
    // Without any settings both texts stay as they were.
    if (!tova_proxy_get_for_url(url, &settings))
        return false;
    proxies = settings.proxies;
    bypass = settings.bypass;
    return true;
}

} // namespace lumo
