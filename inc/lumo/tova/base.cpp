// The slow path of tova_assert, out of line and cold: what a caller pays for a check is a compare and a branch.
#include "lumo/tova/base.h"

#include <cstdio>
#include <cstdlib>

void tova_assert_failed(const char* file, unsigned number, const char* expression)
{
    fprintf(stderr, "%s:%u: failed assertion `%s'\n", file, number, expression);
    abort();
}
