#!/usr/bin/env bash
# Installs the Debian packages Linkhop needs to build, run and test, and nothing that is already
# installed. Uses sudo when not run as root.
#   scripts/setup.sh [--fuzz] [package...]
#   --fuzz   also clang, libFuzzer's runtime (libclang-rt-dev, on Debian 12 libclang-rt-14-dev,
#            which holds libclang_rt.fuzzer) and llvm (llvm-symbolizer for readable crash stacks)
# The tests play on a real encyclopedia engine: Debian's MediaWiki, run by PHP's own web server,
# which draws thumbnails of its pictures with PHP's GD (php-gd).
# The package brings a web server along (Apache, or PHP's FastCGI server); it is installed without
# starting any service, and left disabled. They host behind a real home router too: Debian's
# miniupnpd (its nftables build, which has no service of its own) in network namespaces, with
# nftables, and upnpc to look at it.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-webengine-dev libgl-dev
    libminiupnpc-dev libnatpmp-dev
    fonts-liberation
)
for arg in "$@"; do
    case $arg in
        --fuzz) packages+=(clang libclang-rt-dev llvm) ;;
        *) packages+=("$arg") ;;
    esac
done

# Packages that bring services along, which must not start.
quiet_packages=(mediawiki php-cli php-sqlite3 php-gd miniupnpd-nftables miniupnpc nftables iproute2)

missing_of() {
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
            echo "$package"
        fi
    done
}
mapfile -t missing < <(missing_of "${packages[@]}")
mapfile -t missing_quiet < <(missing_of "${quiet_packages[@]}")
[ ${#missing[@]} -eq 0 ] && [ ${#missing_quiet[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -ne 0 ] && sudo=(sudo)
echo "Installing: ${missing[*]} ${missing_quiet[*]}"
"${sudo[@]}" apt-get update -q
if [ ${#missing[@]} -gt 0 ]; then
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q "${missing[@]}"
fi
if [ ${#missing_quiet[@]} -gt 0 ]; then
    # A policy that refuses every service start, for the time of this installation only.
    policy=/usr/sbin/policy-rc.d
    own_policy=false
    if [ ! -e "$policy" ]; then
        own_policy=true
        printf '#!/bin/sh\nexit 101\n' | "${sudo[@]}" tee "$policy" >/dev/null
        "${sudo[@]}" chmod 755 "$policy"
        trap '"${sudo[@]}" rm -f "$policy"' EXIT
    fi
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing_quiet[@]}"
    # The web servers PHP comes with: Apache, or PHP's FastCGI server.
    for unit in /lib/systemd/system/apache2.service /lib/systemd/system/apache-htcacheclean.service \
        /lib/systemd/system/php*-fpm.service; do
        [ -e "$unit" ] || continue
        service=$(basename "$unit" .service)
        "${sudo[@]}" systemctl disable "$service" >/dev/null 2>&1 || true
        "${sudo[@]}" update-rc.d "$service" disable >/dev/null 2>&1 || true
    done
    if $own_policy; then
        "${sudo[@]}" rm -f "$policy"
        trap - EXIT
    fi
fi
