# The Debian packages that the chores need, and the one place that installs them. Sourced by ./dev.
# shellcheck shell=bash disable=SC2034

packages_build="build-essential file cmake ninja-build pkg-config libcurl4-openssl-dev libssl-dev zlib1g-dev libcpp-httplib-dev
    nlohmann-json3-dev libcli11-dev"
packages_collector="libboost-dev libsqlite3-dev libsimdjson-dev libsodium-dev zlib1g-dev libssl-dev libcli11-dev"
packages_test="locales libgtest-dev libgmock-dev squid tinyproxy openssl curl fiu-utils libfiu-dev procps util-linux iproute2 python3 tzdata"
packages_browser="chromium chromium-driver python3-selenium"
packages_bench="libbenchmark-dev rapidjson-dev libspdlog-dev libsqlite3-dev"
# Of the cluster's tests and of ./dev cluster alone: ZooKeeper, the nodes, what stands before and beside the collectors.
packages_cluster="clickhouse-server clickhouse-client zookeeper libslf4j-java haproxy nginx-light prometheus faketime util-linux e2fsprogs python3"
packages_fuzz="clang libclang-rt-14-dev"
packages_check="clang clang-format clang-tidy doxygen shellcheck abigail-tools xz-utils binutils python3 git"
packages_darwin="npm nodejs python3"

missing_packages() { # PACKAGE...: those that dpkg does not hold installed
    local package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' || echo "$package"
    done
}

services="squid tinyproxy clickhouse-server haproxy nginx prometheus" # that come with packages above

has_service() { # NAME: whether the machine has such a service
    [ -e "/lib/systemd/system/$1.service" ] || [ -e "/etc/init.d/$1" ]
}

# A package's service starts with its installation, and at every start of the machine from then on; the chores want the
# program only. A policy, and a service, that the machine has already stays as it is; our policy goes, also after a failure.
install_without_services() ( # PACKAGE...: as root; a subshell, whose end cleans up
    policy=/usr/sbin/policy-rc.d status=0 new=""
    if [ ! -e "$policy" ] && [ ! -L "$policy" ]; then
        trap 'rm -f "$policy"' EXIT
        trap 'exit 130' HUP INT TERM
        printf '#!/bin/sh\nexit 101\n' >"$policy" && chmod 755 "$policy" || exit 1
    fi
    for service in $services; do
        has_service "$service" || new="$new $service"
    done
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$@" || status=$?
    for service in $new; do
        has_service "$service" || continue
        [ ! -e "/etc/init.d/$service" ] || update-rc.d "$service" disable || status=$?
        rm -f "/etc/systemd/system/multi-user.target.wants/$service.service" # all that "systemctl disable" does to these
    done
    exit "$status"
)

need_packages() { # GROUP...: installs what the groups lack; says which command to run where that is not allowed
    local group wanted="" missing runner=()
    for group in "$@"; do
        if [ "$group" = all ]; then
            wanted="$packages_build $packages_collector $packages_test $packages_browser $packages_bench $packages_cluster $packages_fuzz $packages_check"
        elif [ "$group" = darwin ]; then
            { command -v npm && command -v python3; } >/dev/null || wanted="$wanted $packages_darwin"
        else
            local name=packages_$group
            wanted="$wanted ${!name}"
        fi
    done
    if ! command -v dpkg-query >/dev/null; then
        echo "This is no Debian system: these packages, or their like, must be there: $wanted" >&2
        return 0
    fi
    missing=$(missing_packages $wanted | sort -u | tr '\n' ' ')
    [ -n "$missing" ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            echo "Some Debian packages are missing. Please run, as root:" >&2
            echo "    apt-get update && apt-get install -y --no-install-recommends $missing" >&2
            exit 1
        fi
        runner=(sudo)
    fi
    echo "installing: $missing"
    mkdir -p build
    if ! { "${runner[@]}" apt-get update &&
        "${runner[@]}" bash -c "services='$services'
            $(declare -f has_service install_without_services); install_without_services $missing"; } \
        >build/apt.log 2>&1; then
        tail -n 20 build/apt.log >&2
        echo "apt-get could not install them; the whole output is in build/apt.log" >&2
        exit 1
    fi
}
