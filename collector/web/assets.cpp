#include "assets.h"

#include <algorithm>

namespace web {

// Written by the build from the files beside this one: embed.cmake.
extern const Asset g_assets[];
extern const unsigned g_asset_count;

const Asset* asset(std::string_view path)
{
    const Asset* const end = g_assets + g_asset_count;
    const Asset* const found = std::find_if(g_assets, end, [&](const Asset& asset) { return asset.path == path; });
    return found == end ? nullptr : found;
}

} // namespace web
