/// @file
/// The page's files, compiled into the program.
#pragma once

#include <string_view>

namespace web {

struct Asset
{
    std::string_view path; ///< as in the address, "/page.css"
    std::string_view type; ///< Content-Type
    std::string_view body;
};

/// The file at this address; null when there is none. "/" is the page itself, "/login" its login form.
const Asset* asset(std::string_view path);

} // namespace web
