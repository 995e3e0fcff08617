// A form's bytes, packed or not: never more memory than the limit, and an accepted form keeps to the limits of its
// fields.
#include "intake/intake.h"

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    constexpr size_t limit = 100000;
    size_t charged = 0;
    std::string body(reinterpret_cast<const char*>(data + 1), size - 1);
    auto encoding = data[0] & 1 ? intake::Encoding::gzip : intake::Encoding::identity;
    auto charge = [&](size_t bytes) { return (charged += bytes) < 4 * limit; };
    if (intake::unpack(body, encoding, {0, limit}, charge))
        return 0;
    fuzz::require("body.size() <= limit", body.size() <= limit);
    intake::Form form;
    if (intake::read_form(std::move(body), form))
        return 0;
    fuzz::require("form.sender.size() <= 1024 && form.version.size() <= 1024",
                  form.sender.size() <= 1024 && form.version.size() <= 1024);
    fuzz::require("form.first_line < 0x80000000 && form.dropped < 0x80000000",
                  form.first_line < 0x80000000 && form.dropped < 0x80000000);
    fuzz::require("form.dropped == 0 || form.data.empty()", form.dropped == 0 || form.data.empty());
    return 0;
}
