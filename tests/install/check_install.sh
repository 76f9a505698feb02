#!/usr/bin/env bash
# Installs a build into a fresh prefix, builds examples/first_client against nothing but that prefix
# in C++17, once with pkg-config and once with CMake, and runs both against the installed viewer.
# Then installs over the running viewer and removes everything under it.
#
#   check_install.sh BUILD_DIRECTORY SOURCE_DIRECTORY CMAKE CXX [SANITIZERS]
set -euo pipefail
build=$1 source=$2 cmake=$3 cxx=$4 sanitize=${5:+-fsanitize=${5//;/,}}

work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-install-XXXXXX")
viewer=
finish() {
  [ -z "$viewer" ] || kill "$viewer" 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT

prefix=$work/usr
"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"
libraries=$(dirname "$(find "$prefix" -name 'libkavrel-api.so.0')")
export PKG_CONFIG_PATH=$libraries/pkgconfig
export KAVREL_RUNTIME_DIR=$work/run KAVREL_STATE_DIR=$work/state

example=$source/examples/first_client
flags=$(pkg-config --cflags --libs kavrel-api)
# shellcheck disable=SC2086 # flags are several words
"$cxx" -std=c++17 -Wall -Wextra -Wpedantic -Werror $sanitize "$example/main.cpp" $flags \
  -Wl,-rpath-link,"$libraries" -o "$work/with-pkg-config"

"$cmake" -S "$example" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_STANDARD=17 -DCMAKE_CXX_FLAGS="$sanitize" >"$work/cmake.log"
"$cmake" --build "$work/cmake" >>"$work/cmake.log"

mkfifo "$work/ready"
"$prefix/bin/kavrel-viewer" --ready-fd 9 9>"$work/ready" >"$work/viewer.log" &
viewer=$!
read -r _ <"$work/ready"

for client in "$work/with-pkg-config" "$work/cmake/first_client"; do
  answer=$(LD_LIBRARY_PATH=$libraries "$client")
  if [ "$answer" != "window size 0" ]; then
    echo "$client answered '$answer', expected 'window size 0'" >&2
    exit 1
  fi
done
"$prefix/bin/kavrelctl" call get-window-size

# An upgrade replaces the files under a running viewer, which works on; so it does when they go.
"$cmake" --install "$build" --prefix "$prefix" >>"$work/install.log"
LD_LIBRARY_PATH=$libraries "$work/with-pkg-config" >/dev/null
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
echo "installed, built twice, ran twice"
