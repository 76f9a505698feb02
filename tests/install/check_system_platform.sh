#!/usr/bin/env bash
# A television brings the platform services itself. Here the bundled ones play that part: built and
# installed by themselves, they are all that the library is then configured with, built and run against.
#
#   check_system_platform.sh SOURCE_DIRECTORY CMAKE CC CXX
set -euo pipefail
source=$1 cmake=$2 cc=$3 cxx=$4

work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-system-XXXXXX")
viewer=
finish() {
  if [ -n "$viewer" ]; then
    kill "$viewer" 2>/dev/null || true
    wait "$viewer" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap finish EXIT

# build NAME OPTION...: configures, builds, and installs into $work/NAME. Quickly rather than well.
build() {
  local name=$1
  shift
  if ! { "$cmake" -S "$source" -B "$work/$name.build" -G Ninja -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS_DEBUG=-O0 \
    -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DKAVREL_BUILD_TESTS=OFF "$@" &&
    "$cmake" --build "$work/$name.build" &&
    "$cmake" --install "$work/$name.build" --prefix "$work/$name"; } >"$work/$name.log" 2>&1; then
    cat "$work/$name.log" >&2
    exit 1
  fi
}

build television -DKAVREL_BUILD_LIBRARY=OFF
if find "$work/television" -name '*kavrel*' | grep .; then
  echo "the platform services bring parts of the library" >&2
  exit 1
fi
PKG_CONFIG_PATH=$(dirname "$(find "$work/television" -name rpc-port.pc)")
export PKG_CONFIG_PATH
services=$(dirname "$PKG_CONFIG_PATH")

build library -DKAVREL_PLATFORM=system -DKAVREL_BUILD_APPS=OFF
if find "$work/library" -regextype egrep -regex '.*/(lib)?(dlog|lwipc|pepper-efl|rpc-port|vconf)\.(so.*|h|pc)' | grep .; then
  echo "the library brings platform services of its own" >&2
  exit 1
fi
libraries=$(dirname "$(find "$work/library" -name 'libkavrel-api.so.0')")
export PKG_CONFIG_PATH=$PKG_CONFIG_PATH:$libraries/pkgconfig
export LD_LIBRARY_PATH=$libraries:$services

for example in viewer_skeleton first_client; do
  # shellcheck disable=SC2046 # flags are several words
  "$cxx" -std=c++17 "$source/examples/$example/main.cpp" \
    $(pkg-config --cflags --libs kavrel-api glib-2.0) -Wl,-rpath-link,"$services" -o "$work/$example"
done
if ldd "$work/first_client" | grep -E 'lib(dlog|rpc-port|vconf)\.so' | grep -vF "$services/"; then
  echo "the program has platform services from elsewhere" >&2
  exit 1
fi

export KAVREL_RUNTIME_DIR=$work/run KAVREL_STATE_DIR=$work/state
mkfifo "$work/words"
"$work/viewer_skeleton" >"$work/words" &
viewer=$!
exec 3<"$work/words"
read -r word <&3
[ "$word" = serving ] || { echo "the viewer says '$word', not 'serving'" >&2; exit 1; }
answer=$("$work/first_client")
[ "$answer" = "window size 0" ] || { echo "the client says '$answer', not 'window size 0'" >&2; exit 1; }
read -r word <&3
[ "$word" = "first_client tunes to 7 News" ] || { echo "the viewer says '$word'" >&2; exit 1; }
echo "built against services that were there, and ran with them"
