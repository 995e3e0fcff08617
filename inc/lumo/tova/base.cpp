#include "lumo/tova/base.h"

#include <cstdio>
#include <cstdlib>

void tova_assert_failed(const char* file, unsigned line, const char* expression)
{
    fprintf(stderr, "%s:%u: failed assertion `%s'\n", file, line, expression);
    abort();
}
