#include "lumo/dir.h"

#include "lumo/tova/directory.h"

namespace lumo {

std::string dir::process()
{
    // Zeroed, so that a system that does not tell leaves an empty text. 2 is the kind that means the running program.
    char text[1024] = {};
    tova_directory_get(2, text, sizeof text);
    return text;
}

} // namespace lumo
