#!/usr/bin/env bash
# LIBRARY: what the linker and the compiler must have put into the shared library to make an attack on it hard.
set -euo pipefail
library=$1
headers=$(readelf -lW "$library")
dynamic=$(readelf -dW "$library")
imports=$(readelf --dyn-syms -W "$library")
failed=0

must() { # TEXT PATTERN WHAT: the pattern stands in the text
    grep -qE "$2" <<<"$1" || { echo "$library lacks $3" && failed=1; }
}
must_not() {
    ! grep -qE "$2" <<<"$1" || { echo "$library has $3" && failed=1; }
}

must "$headers" 'GNU_RELRO' 'relocations that are read-only afterwards (RELRO)'
must "$dynamic" '\(FLAGS(_1)?\).*NOW' 'immediate binding (BIND_NOW)'
must "$headers" 'GNU_STACK .* RW +0x' 'a stack that cannot be executed'
must_not "$headers" 'LOAD .* RWE ' 'a segment that can be both written and executed'
must_not "$dynamic" '\(TEXTREL\)' 'relocations in its code'
must_not "$dynamic" '\((RPATH|RUNPATH)\)' 'a search path of its own for libraries'
must "$imports" 'UND __stack_chk_fail' 'the stack protector'
must "$imports" 'UND __[a-z_0-9]+_chk' 'the checked forms of the C library (FORTIFY)'
[ "$failed" -ne 0 ] || echo "RELRO, BIND_NOW, no executable stack, stack protector, FORTIFY"
exit "$failed"
