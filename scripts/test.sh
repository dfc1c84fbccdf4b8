#!/usr/bin/env bash
# Builds Linkhop and runs every test, installing what is missing first.
#   scripts/test.sh            the whole suite
# Environment: BUILD_DIR (default build), CI=true turns warnings into errors.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

build_dir=${BUILD_DIR:-build}
werror=OFF
[ "${CI:-}" = true ] && werror=ON
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLINKHOP_WERROR=$werror
cmake --build "$build_dir" -j2
export QT_QPA_PLATFORM=offscreen
ctest --test-dir "$build_dir" --output-on-failure -j2
