#!/usr/bin/env bash
# Plays the end-to-end game (the real server, two clients, MediaWiki on loopback) on a
# virtual X screen with a window manager, and saves a picture of each window in docs/screenshots/.
#   scripts/screenshots.sh
# Environment: BUILD_DIR (default build); LINKHOP_TEST_ADDRESS (default 127.0.0.1), the loopback
# address the encyclopedia and the server use.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh xvfb openbox pngquant

build_dir=${BUILD_DIR:-build}
[ -f "$build_dir/CMakeCache.txt" ] || cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build_dir" -j2 --target tst_endtoend LinkhopServer

pictures=docs/screenshots
work=$(mktemp -d)
pids=()
finish() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    rm -rf "$work"
}
trap finish EXIT

# Xvfb writes its display number once it accepts clients.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { cat "$work/xvfb.log"; echo "Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(cat "$work/display")"

# Window frames and title bars, as a player's desktop draws them.
openbox --sm-disable >"$work/openbox.log" 2>&1 &
pids+=($!)
sleep 1

mkdir -p "$work/shots"
QT_QPA_PLATFORM=xcb QTWEBENGINE_DISABLE_SANDBOX=1 \
    QTWEBENGINE_CHROMIUM_FLAGS="--disable-gpu --disable-background-networking --disable-component-update" \
    LINKHOP_SCREENSHOTS="$work/shots" "$build_dir/bin/tst_endtoend"

mkdir -p "$pictures"
for shot in "$work"/shots/*.png; do
    # A palette of 256 colours keeps the pictures small and the text sharp.
    pngquant --force --strip --speed 1 --output "$pictures/$(basename "$shot")" -- "$shot"
done
ls -l "$pictures"
