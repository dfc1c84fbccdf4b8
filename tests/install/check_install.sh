#!/usr/bin/env bash
# Installs the build into a fresh folder (its name has a space) and runs it from there: the
# folder's layout, no build-tree path in the programs, the desktop entry, the server's ready line
# and clean end on SIGTERM, and the client starting headless.
#   check_install.sh <cmake> <build folder> <client built: ON|OFF>
set -euo pipefail
cmake=$1
build=$2
client=$3
address=${LINKHOP_TEST_ADDRESS:-127.0.0.2}

work=$(mktemp -d "${TMPDIR:-/tmp}/linkhop-install.XXXXXX")
folder="$work/Linkhop folder"
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

"$cmake" --install "$build" --prefix "$folder" > "$work/install.log" || { cat "$work/install.log"; fail "install"; }

programs=(LinkhopServer)
files=(articles.txt)
if [ "$client" = ON ]; then
    programs+=(linkhop)
    files+=(linkhop.svg linkhop.png linkhop.desktop)
fi
for name in "${programs[@]}" "${files[@]}"; do
    [ -e "$folder/$name" ] || fail "$name is missing from the installed folder"
done
for program in "${programs[@]}"; do
    ! readelf -d "$folder/$program" | grep -F "$build" || fail "$program keeps a path of the build tree"
    ! ldd "$folder/$program" | grep -F 'not found' || fail "$program misses a library"
done
if [ "$client" = ON ]; then
    grep -qxF "Exec=\"$folder/linkhop\"" "$folder/linkhop.desktop" || fail "the desktop entry does not start $folder/linkhop"
    grep -qxF "Icon=$folder/linkhop.png" "$folder/linkhop.desktop" || fail "the desktop entry's icon is not $folder/linkhop.png"
fi

# The server, bound to the test address; another program may hold its port for a moment.
ready="LinkhopServer ready on $address:7200"
for attempt in 1 2 3 4 5; do
    "$folder/LinkhopServer" --bind "$address" > "$work/server.log" 2>&1 &
    server=$!
    pids+=("$server")
    for _ in $(seq 100); do
        if grep -qxF "$ready" "$work/server.log" || ! kill -0 "$server" 2>/dev/null; then break; fi
        sleep 0.1
    done
    grep -qxF "$ready" "$work/server.log" && break
    kill "$server" 2>/dev/null || true
    wait "$server" || true
    sleep 0.5
done
grep -qxF "$ready" "$work/server.log" || { cat "$work/server.log"; fail "the installed server never said it was ready"; }
kill -TERM "$server"
wait "$server" || { cat "$work/server.log"; fail "the installed server did not end cleanly on SIGTERM"; }

if [ "$client" = ON ]; then
    QT_QPA_PLATFORM=offscreen "$folder/linkhop" > "$work/client.log" 2>&1 &
    client_pid=$!
    pids+=("$client_pid")
    sleep 2
    kill -0 "$client_pid" 2>/dev/null || { cat "$work/client.log"; fail "the installed client did not keep running"; }
fi
echo "installed folder checked: ${programs[*]} ${files[*]}"
