#!/usr/bin/env bash
# WAY SOURCE_DIR BUILD_DIR: installs the library somewhere, moves it elsewhere, and uses it from there in C and in C++17.
# The ways: installed, pkg-config, part, static, headers, deb.
set -euo pipefail
way=$1 source=$2 build=$3
work=$(mktemp -d "${TMPDIR:-/tmp}/analytics-install-XXXXXX")
trap 'rm -rf "$work"' EXIT
consumer=$source/tests/install/consumer
tree=$work/moved

fail() {
    echo "$way: $*" >&2
    exit 1
}

install_and_move() { # BUILD_DIR: what still points at the first place no longer works at the second
    cmake --install "$1" --prefix "$work/first" >"$work/install.log" || fail "$(cat "$work/install.log")"
    mv "$work/first" "$tree"
    ! grep -rIl "$work/first" "$tree" || fail "these files hold the prefix they were installed to"
    ! grep -rIl --include='*.cmake' --include='*.pc' "$source" "$tree" || fail "these files hold the source folder"
}

build_consumer() { # CMAKE_OPTIONS...
    cmake -G Ninja -S "$consumer" -B "$work/consumer" -DCMAKE_BUILD_TYPE=Release "$@" >"$work/log" 2>&1 &&
        cmake --build "$work/consumer" >>"$work/log" 2>&1 || fail "$(cat "$work/log")"
}

run_consumers() { # FOLDER
    local program
    for program in use_c use_cpp; do
        "$1/$program" "$work/$program.log" || fail "$program ended with status $?"
        [ "$(wc -l <"$work/$program.log")" -eq 1 ] || fail "$program logged no event"
    done
}

links_shared() { # PROGRAM
    [[ $(ldd "$1") == *"libanalytics.so.1 "* ]]
}

# The linker takes the archive because the shared library is not there.
keep_only_the_archive() {
    rm "$tree"/lib*/libanalytics.so* "$tree"/lib*/*/libanalytics.so* 2>/dev/null || true
    [ -n "$(find "$tree" -name libanalytics.a)" ] || fail "no archive was installed"
}

with_pkg_config() { # [--static]
    local flags
    PKG_CONFIG_PATH=$(dirname "$(find "$tree" -name analytics.pc)")
    export PKG_CONFIG_PATH
    flags=$(pkg-config "$@" --cflags --libs analytics)
    cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$consumer/use.c" -o "$work/use_c" $flags
    c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror "$consumer/use.cpp" -o "$work/use_cpp" $flags
}

case $way in
installed)
    install_and_move "$build"
    build_consumer -DWAY=installed -DCMAKE_PREFIX_PATH="$tree"
    run_consumers "$work/consumer"
    links_shared "$work/consumer/use_c" || fail "use_c does not load the shared library by its versioned name"
    ;;
pkg-config)
    install_and_move "$build"
    with_pkg_config
    LD_LIBRARY_PATH=$(dirname "$(find "$tree" -name libanalytics.so)")
    export LD_LIBRARY_PATH
    run_consumers "$work"
    [ "$("$tree/bin/analytics" --version)" = "analytics $(pkg-config --modversion analytics)" ] ||
        fail "the command and the package file tell different versions"
    ;;
part)
    build_consumer -DWAY=part -DSOURCE="$source"
    run_consumers "$work/consumer"
    ! cmake --install "$work/consumer" --prefix "$work/first" 2>/dev/null | grep analytics ||
        fail "a project that only uses the library must not install it"
    ;;
static)
    cmake -G Ninja -S "$source" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DANALYTICS_STATIC=ON -DANALYTICS_CLI=OFF -DANALYTICS_COLLECTOR=OFF \
        -DANALYTICS_EXAMPLES=OFF >"$work/log" 2>&1 && cmake --build "$work/build" >>"$work/log" 2>&1 || fail "$(cat "$work/log")"
    install_and_move "$work/build"
    build_consumer -DWAY=static -DCMAKE_PREFIX_PATH="$tree"
    run_consumers "$work/consumer"
    keep_only_the_archive
    rm "$work"/*.log
    with_pkg_config --static
    run_consumers "$work"
    ! links_shared "$work/use_c" || fail "use_c loads the shared library"
    ;;
headers)
    install_and_move "$build"
    stray=$(find "$tree/include" -name '*.cpp' -o -path '*/platform*' -o -path '*/own*')
    [ -z "$stray" ] || fail "these have no business among what is installed: $stray"
    cd "$tree/include"
    find . -name '*.h' -o -name '*.hpp' | while read -r header; do
        echo "#include \"$header\"" | c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -I. -fsyntax-only -x c++ -
    done
    for header in analytics.h lumo/tova/*.h; do
        echo "#include \"$header\"" | cc -std=c99 -Wall -Wextra -Wpedantic -Werror -I. -fsyntax-only -x c -
    done
    ;;
deb)
    (cd "$build" && cpack -G DEB -B "$work/deb" >"$work/log" 2>&1) || fail "$(cat "$work/log")"
    cd "$work/deb"
    runtime=$(ls libanalytics1_*.deb) dev=$(ls libanalytics-dev_*.deb)
    depends=$(dpkg-deb -f "$runtime" Depends)
    for package in libc6 libcurl4 libssl3 libstdc++6 zlib1g; do
        [[ $depends == *"$package"* ]] || fail "the runtime package does not depend on $package: $depends"
    done
    [ "$(dpkg-deb -f "$dev" Depends)" = "libanalytics1 (= $(dpkg-deb -f "$runtime" Version))" ] ||
        fail "the -dev package depends on: $(dpkg-deb -f "$dev" Depends)"
    in_runtime=$(dpkg-deb -c "$runtime") in_dev=$(dpkg-deb -c "$dev")
    [[ $in_runtime == *"libanalytics.so.1 ->"* ]] || fail "no libanalytics.so.1 in the runtime package: $in_runtime"
    ! grep -E '\.h$|libanalytics\.so ->|\.pc$' <<<"$in_runtime" || fail "the runtime package holds what is for development"
    for file in include/analytics.h include/analytics.hpp "libanalytics.so ->" analytics.pc analytics-config.cmake; do
        [[ $in_dev == *"$file"* ]] || fail "no $file in the -dev package: $in_dev"
    done
    [ "$(dpkg-deb -I "$runtime" shlibs)" = "libanalytics 1 libanalytics1 (>= 1.0.0)" ] ||
        fail "what links the library would not depend on its package: $(dpkg-deb -I "$runtime" shlibs)"
    for package in *.deb; do
        dpkg-deb -x "$package" "$work/root"
    done
    cd "$work/root/usr/share/doc/analytics"
    for link in $(grep -oE '\]\([^)#:]+' README.md | cut -c3-); do
        [ -e "$link" ] || fail "README's link to $link leads nowhere in the packages"
    done
    tree=$work/root with_pkg_config
    LD_LIBRARY_PATH=$(dirname "$(find "$work/root" -name libanalytics.so)")
    export LD_LIBRARY_PATH
    run_consumers "$work"
    ;;
*) fail "no such way" ;;
esac
