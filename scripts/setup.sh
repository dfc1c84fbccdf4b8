#!/usr/bin/env bash
# Installs the Debian packages Linkhop needs to build, run and test, and nothing that is already
# installed. Uses sudo when not run as root.
#   scripts/setup.sh [--fuzz] [package...]
#   --fuzz   also clang, libFuzzer's runtime (libclang-rt-dev, on Debian 12 libclang-rt-14-dev,
#            which holds libclang_rt.fuzzer) and llvm (llvm-symbolizer for readable crash stacks)
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-webengine-dev libgl-dev
    fonts-liberation
)
for arg in "$@"; do
    case $arg in
        --fuzz) packages+=(clang libclang-rt-dev llvm) ;;
        *) packages+=("$arg") ;;
    esac
done

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -ne 0 ] && sudo=(sudo)
echo "Installing: ${missing[*]}"
"${sudo[@]}" apt-get update -q
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q "${missing[@]}"
