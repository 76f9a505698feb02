#!/usr/bin/env bash
# Installs over a running viewer, then removes everything under it: it works on.
#
#   check_upgrade.sh BUILD_DIRECTORY CMAKE
set -euo pipefail
build=$1 cmake=$2

work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-upgrade-XXXXXX")
viewer=
finish() {
  if [ -n "$viewer" ]; then
    kill "$viewer" 2>/dev/null || true
    wait "$viewer" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap finish EXIT

prefix=$work/usr
"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"
libraries=$(dirname "$(find "$prefix" -name 'libkavrel-api.so.0')")
export KAVREL_RUNTIME_DIR=$work/run KAVREL_STATE_DIR=$work/state
mkfifo "$work/ready"
"$prefix/bin/kavrel-viewer" --headless --ready-fd 9 9>"$work/ready" >"$work/viewer.log" &
viewer=$!
read -r _ <"$work/ready"

# An upgrade replaces the files under a running viewer, which works on; so it does when they go.
# Unless told so, CMake leaves files alone that are as old as those of the build.
installed() { stat -c %i "$prefix/bin/kavrel-viewer" "$(readlink -f "$libraries/libkavrel-api.so.0")"; }
before=$(installed)
CMAKE_INSTALL_ALWAYS=1 "$cmake" --install "$build" --prefix "$prefix" >>"$work/install.log"
[ "$before" != "$(installed)" ] || { echo "the second installation replaced nothing" >&2; exit 1; }
"$prefix/bin/kavrelctl" call tune-channel 7 News DVB-T me
cp "$prefix/bin/kavrelctl" "$work/kavrelctl"
cp -r "$libraries" "$work/libraries"
rm -rf "$prefix"
LD_LIBRARY_PATH=$work/libraries "$work/kavrelctl" call get-window-size
kill "$viewer"
wait "$viewer"
viewer=
left=$(find "$work/run" -type s)
[ -z "$left" ] || { echo "the viewer left behind: $left" >&2; exit 1; }
grep -q "News" "$work/viewer.log" || { echo "the viewer saw no tune:" >&2; cat "$work/viewer.log" >&2; exit 1; }
