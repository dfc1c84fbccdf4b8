#!/usr/bin/env bash
# Builds the benchmark programs and runs each in turn; every one prints its own figures.
# Run it on a quiet machine: the figures are medians, but two busy cores still move them.
#   scripts/bench.sh
# Environment: BUILD_DIR (default build).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

build_dir=${BUILD_DIR:-build}
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build_dir" -j2 --target bench_wire bench_server bench_navigate bench_gamewindow \
    bench_dispatch bench_flood bench_routes bench_portmap
export QT_QPA_PLATFORM=offscreen
[ "$(id -u)" = 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1
for bench in bench_wire bench_server bench_navigate bench_gamewindow bench_dispatch bench_routes bench_portmap; do
    printf '\n==== %s\n' "$bench"
    "$build_dir/bin/$bench"
done

# The floods have loopback to themselves in a network namespace of their own, where the system
# lets this user make one; otherwise they keep to addresses that nothing else here uses.
printf '\n==== %s\n' bench_flood
namespace=()
if unshare -n true 2>/dev/null; then
    namespace=(unshare -n)
elif unshare -rn true 2>/dev/null; then
    namespace=(unshare -rn)
fi
"${namespace[@]}" sh -c '[ -z "$1" ] || ip link set lo up; exec "$0"' "$build_dir/bin/bench_flood" "${namespace[*]}"
