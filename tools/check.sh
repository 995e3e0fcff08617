#!/usr/bin/env bash
# BUILD: every check that is not a test, one line each; the words of a check come out only when it fails.
set -uo pipefail
build=$1
logs=build/check
failed=()
mkdir -p "$logs"
sources() { # PATTERN...: the repository's files, new ones too
    git ls-files -co --exclude-standard -- "$@"
}

check() { # NAME COMMAND...: runs it; the last line it says is its result
    local name=$1 log=$logs/$1.log begun=$SECONDS
    shift
    if "$@" >"$log" 2>&1; then
        printf 'ok    %-11s %s\n' "$name" "$(tail -n 1 "$log")"
    else
        printf 'FAIL  %-11s\n' "$name"
        head -n 60 "$log" | sed 's/^/      /'
        failed+=("$name")
    fi
    printf '%4d s %s\n' $((SECONDS - begun)) "$name" >>"$logs/times"
}

formatted() {
    sources '*.h' '*.hpp' '*.c' '*.cpp' | xargs clang-format --dry-run -Werror && echo "every source is as clang-format writes it"
}

shell_scripts() {
    # Words are split on purpose where no name can hold a blank.
    sources '*.sh' '.ci/*' dev | xargs shellcheck -x -S warning -e SC2046,SC2207 || return 1
    echo "$(sources '*.sh' '.ci/*' dev | wc -l) scripts"
}

# Clang alone understands the annotations of lumo::mutex.
locks() {
    local locking
    locking=$(sources 'inc/*.cpp' 'sdk/*.cpp' | grep -v /darwin/ | xargs grep -lE 'mutex|lock')
    xargs -P "$(nproc)" -n 4 clang++ -std=c++20 -fsyntax-only -Iinc -Isdk/src -DCURL_DISABLE_DEPRECATION \
        -Wthread-safety -Wthread-safety-beta -Werror <<<"$locking" && echo "$(wc -l <<<"$locking") sources that lock"
}

# A header must compile alone, in the oldest language that it promises.
headers() {
    local name cxx=0 c=0
    for name in $(sources 'inc/*.h' 'inc/*.hpp' | grep -vE '/(own|platform)/'); do
        g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -Iinc -include "$name" -xc++ /dev/null || return 1
        cxx=$((cxx + 1))
    done
    for name in inc/analytics.h inc/lumo/tova/*.h; do
        gcc -std=c99 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -Iinc -include "$name" -xc /dev/null || return 1
        c=$((c + 1))
    done
    echo "$cxx headers as C++17, $c as C99"
}

documented() {
    ! doxygen docs/Doxyfile 2>&1 | grep -v '^$' || return 1
    echo "every name that a host can see has its comment: build/docs/html/index.html"
}

# What is true on one machine only, and what was left for later, has no place here.
words() {
    local pattern='(^|[^[:alnum:]_.])/(root|work|mnt)/|\b(TODO|FIXME|HACK)\b'
    ! git grep -nIE "$pattern" -- ':!tools/check.sh' ':!tests/sdk/machines' || return 1
    echo "no path of one machine, nothing left for later"
}

# One sentence each, short enough for a list of what failed.
names() {
    ! git grep -nE '^TEST(_F|_P)?\(\w+, \w{61,}\)' -- tests || return 1
    echo "$(git grep -hE '^TEST(_F|_P)?\(' -- tests | wc -l) names of tests have 60 characters at most"
}

# Of the commits that the remote's main branch does not have yet; without a remote there is nothing to compare with.
commits() {
    local main subject count=0 bad=0
    main=$(git for-each-ref --format='%(refname)' 'refs/remotes/*/main' | head -n 1)
    if [ -z "$main" ]; then
        echo "no remote with a main branch, so no commits to look at"
        return 0
    fi
    while IFS= read -r subject; do
        count=$((count + 1))
        if [ "${#subject}" -gt 60 ] || ! [[ $subject =~ ^[a-z][a-z0-9_./-]*:\ [^\ ] ]]; then
            echo "not 'room: what changed' in at most 60 characters: $subject"
            bad=1
        fi
    done < <(git log --no-merges --format=%s "$main..HEAD")
    [ "$bad" -eq 0 ] && echo "$count subjects of commits that $main does not have"
}

# A promise is worth the test that shows it: what the third column of its tables names must be there.
promises() {
    local tests name count=0
    tests=$(git grep -hoE '^TEST(_F|_P)?\(\w+, \w+' tests | sed -E 's/.*\((\w+), /\1./')
    for name in $(awk -F'|' '{print $3}' SECURITY.md | grep -oE '`[^` ]+`' | tr -d '`'); do
        count=$((count + 1))
        if [ ! -e "fuzz/$name.cpp" ] && ! grep -qE "^${name//\*/[^.]*}(\.|\$)" <<<"$tests"; then
            echo "SECURITY.md names $name, which does not exist"
            return 1
        fi
    done
    echo "$count tests and fuzzers that SECURITY.md names exist"
}

: >"$logs/times"
check words words
check commits commits
check forms tools/check_forms.py
check promises promises
check names names
check format formatted
check shell shell_scripts
check layers tools/check_layers.py
check headers headers
check docs documented
check locks locks
check tidy tools/check_tidy.py "$build"
check exports tools/check_exports.py "$build/libanalytics.so"
check abi tools/check_abi.sh "$build/libanalytics.so"
check hardening tools/check_hardening.sh "$build/libanalytics.so"
check lines tools/count_lines.py
if [ ${#failed[@]} -ne 0 ]; then
    echo "failed: ${failed[*]}; the whole output is in $logs"
    exit 1
fi
