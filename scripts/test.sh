#!/usr/bin/env bash
# Builds Linkhop and runs every test, installing what is missing first.
#   scripts/test.sh             the build and all its tests
#   scripts/test.sh --full      then the sanitizer build's tests and a short run of every fuzz
#                               target, as CI does (CI=true implies --full)
#   scripts/test.sh --sanitize  the build's tests, then the sanitizer build's only
#   scripts/test.sh --fuzz      the build's tests, then the fuzz run only
# Environment: BUILD_DIR (default build; the sanitizer and fuzz builds go to BUILD_DIR-sanitize
# and BUILD_DIR-fuzz), FUZZ_SECONDS (default 60, for each fuzz target; they run side by side),
# CI=true also turns warnings into errors.
set -euo pipefail
cd "$(dirname "$0")/.."

sanitize=false
fuzz=false
[ "${CI:-}" = true ] && sanitize=true && fuzz=true
for arg in "$@"; do
    case $arg in
        --full) sanitize=true; fuzz=true ;;
        --sanitize) sanitize=true ;;
        --fuzz) fuzz=true ;;
        *) echo "usage: scripts/test.sh [--full | --sanitize | --fuzz]" >&2; exit 2 ;;
    esac
done

setup=()
$fuzz && setup+=(--fuzz)
scripts/setup.sh "${setup[@]}"

build_dir=${BUILD_DIR:-build}
werror=OFF
[ "${CI:-}" = true ] && werror=ON
export QT_QPA_PLATFORM=offscreen
stage() { printf '\n==== %s (at %d s)\n' "$1" "$SECONDS"; }

stage "build and tests"
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLINKHOP_WERROR=$werror
cmake --build "$build_dir" -j2
ctest --test-dir "$build_dir" --output-on-failure -j2

if $sanitize; then
    stage "AddressSanitizer and UndefinedBehaviorSanitizer build and tests"
    # Tests labelled "browser" create a Qt WebEngine view, whose Chromium trips the sanitizers in
    # its own code; every other test runs.
    cmake -S . -B "$build_dir-sanitize" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DLINKHOP_SANITIZE=ON \
        -DLINKHOP_BUILD_BENCH=OFF -DLINKHOP_WERROR=$werror
    cmake --build "$build_dir-sanitize" -j2
    ctest --test-dir "$build_dir-sanitize" --output-on-failure -j2 -LE browser
fi

if $fuzz; then
    stage "fuzz targets (clang, libFuzzer)"
    cmake -S . -B "$build_dir-fuzz" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DLINKHOP_FUZZ=ON -DLINKHOP_BUILD_TESTS=OFF -DLINKHOP_BUILD_BENCH=OFF -DLINKHOP_WERROR=$werror
    cmake --build "$build_dir-fuzz" -j2 --target fuzz_wire fuzz_server fuzz_dispatcher
    scripts/fuzz.sh "$build_dir-fuzz" "${FUZZ_SECONDS:-60}"
fi
stage "done"
