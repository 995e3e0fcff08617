// The processor: a code for the generation that has codes, the kernel's name for it on every later machine.
#include <mach/machine.h>

#include "host/darwin/sysctl.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

// From the kernel's numbers to those that the table of families knows.
constexpr struct
{
    cpu_subtype_t subtype;
    std::int32_t code;
} codes[] = {
    {CPU_SUBTYPE_POWERPC_601, 0x101},   {CPU_SUBTYPE_POWERPC_603, 0x103},  {CPU_SUBTYPE_POWERPC_603e, 0x106},
    {CPU_SUBTYPE_POWERPC_603ev, 0x107}, {CPU_SUBTYPE_POWERPC_604, 0x104},  {CPU_SUBTYPE_POWERPC_604e, 0x109},
    {CPU_SUBTYPE_POWERPC_750, 0x108},   {CPU_SUBTYPE_POWERPC_7400, 0x10C}, {CPU_SUBTYPE_POWERPC_7450, 0x110},
    {CPU_SUBTYPE_POWERPC_970, 0x139},
};

// A processor that the table does not know has a code that no family has, so that its text is empty and no failure.
answer powerpc_code(std::int32_t& code)
{
    cpu_subtype_t subtype = 0;
    if (const answer given = sysctls::number("hw.cpusubtype", subtype); given != answer::found)
        return given;
    for (const auto& known : codes)
        if (known.subtype == subtype) {
            code = known.code;
            return answer::found;
        }
    code = -1;
    return answer::found;
}

} // namespace

answer sources::processor(processor_identity& identity)
{
    cpu_type_t type = 0;
    if (const answer given = sysctls::number("hw.cputype", type); given != answer::found)
        return given;
    // Later processors have no such code; the kernel gives their name as text.
    identity.named = type != CPU_TYPE_POWERPC;
    return identity.named ? sysctls::string("machdep.cpu.brand_string", identity.name) : powerpc_code(identity.code);
}

} // namespace AnalyticsSDK::host
