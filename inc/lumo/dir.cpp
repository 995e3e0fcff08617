#include "lumo/dir.h"

#include "lumo/tova/directory.h"

namespace lumo {

std::string dir::process()
{
    // Zeroed: where the system gives no path the text stays empty.
    char text[1024] = {};
    tova_directory_get(2, text, sizeof text);
    return text;
}

} // namespace lumo
