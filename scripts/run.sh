#!/usr/bin/env bash
# Builds the client (and the server, once the tree has one), installing what is missing first,
# then starts the client from the program's folder.
#   scripts/run.sh
# Environment: BUILD_DIR (default build).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

build_dir=${BUILD_DIR:-build}
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
targets=(linkhop)
if cmake --build "$build_dir" --target help | grep -q '^LinkhopServer:'; then
    targets+=(LinkhopServer)
fi
cmake --build "$build_dir" -j2 --target "${targets[@]}"
exec "$build_dir/bin/linkhop"
