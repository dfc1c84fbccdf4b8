#!/usr/bin/env bash
# Builds the client and the server, installing what is missing first, then starts the client from
# the program's folder.
#   scripts/run.sh
# Environment: BUILD_DIR (default build).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

build_dir=${BUILD_DIR:-build}
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build_dir" -j2 --target linkhop LinkhopServer linkhop_articles
exec "$build_dir/bin/linkhop"
