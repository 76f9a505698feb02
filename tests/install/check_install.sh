#!/usr/bin/env bash
# Installs a build into a fresh prefix, moves it, builds all examples against nothing but what is there,
# as C++17, once with pkg-config and once with CMake, and runs both with the installed viewer.
#
#   check_install.sh BUILD_DIRECTORY SOURCE_DIRECTORY CMAKE CC CXX EXAMPLES_TEST [SANITIZERS]
set -euo pipefail
build=$1 source=$2 cmake=$3 cc=$4 cxx=$5 examples_test=$6 sanitize=${7:+-fsanitize=${7//;/,}}

work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-install-XXXXXX")
trap 'rm -rf "$work"' EXIT

# Moved: nothing that is installed may rely on where it was meant to be.
"$cmake" --install "$build" --prefix "$work/first" >"$work/install.log"
prefix=$work/usr
mv "$work/first" "$prefix"
libraries=$(dirname "$(find "$prefix" -name 'libkavrel-api.so.0')")
[ -s "$prefix/share/dbus-1/system.d/org.zarnet.kavrel.conf" ] || { echo "no policy for the bus" >&2; exit 1; }
if grep -rlF "$work/first" "$prefix"; then
  echo "these name the prefix that they were installed with" >&2
  exit 1
fi

export PKG_CONFIG_PATH=$libraries/pkgconfig
warnings="-Wall -Wextra -Wpedantic -Werror"

# with_pkg_config NAME LANGUAGE SOURCE PACKAGE...: warnings are wanted of our headers, not of others.
with_pkg_config() {
  local name=$1 compiler=$cxx standard=-std=c++17 file=$source/examples/$1/$3 package flags=
  if [ "$2" = c ]; then compiler=$cc standard=-std=gnu11; fi
  shift 3
  for package in "$@"; do
    case $package in
      kavrel*) flags+=" $(pkg-config --cflags "$package")" ;;
      *) flags+=" $(pkg-config --cflags "$package" | sed 's/-I/-isystem /g')" ;;
    esac
  done
  # shellcheck disable=SC2046,SC2086 # flags are several words
  "$compiler" $standard $warnings $sanitize $flags "$file" $(pkg-config --libs "$@") \
    -Wl,-rpath-link,"$libraries" -o "$work/pkg-config/$name"
}
mkdir "$work/pkg-config"
with_pkg_config first_client c++ main.cpp kavrel-api
with_pkg_config watcher c main.c kavrel-api glib-2.0
with_pkg_config first_plugin c++ main.cpp kavrel-api elementary
with_pkg_config key_listener c++ main.cpp kavrel-api glib-2.0
with_pkg_config viewer_skeleton c++ main.cpp kavrel-api glib-2.0
with_pkg_config client_test c++ client_test.cpp kavrel-testing kavrel-api gtest_main

mkdir "$work/cmake"
for example in "$source"/examples/*/CMakeLists.txt; do
  example=${example%CMakeLists.txt}
  name=$(basename "$example")
  if ! { "$cmake" -S "$example" -B "$work/$name" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_STANDARD=17 \
    -DCMAKE_C_FLAGS="$sanitize" -DCMAKE_CXX_FLAGS="$sanitize" \
    -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$work/cmake" &&
    "$cmake" --build "$work/$name"; } >"$work/$name.log" 2>&1; then
    cat "$work/$name.log" >&2
    exit 1
  fi
  if [ ! -x "$work/cmake/$name" ] || [ ! -x "$work/pkg-config/$name" ]; then
    echo "$name was not built in both ways" >&2
    exit 1
  fi
done

for way in pkg-config cmake; do
  PATH=$work/$way:$prefix/bin:$PATH LD_LIBRARY_PATH=$libraries "$examples_test"
done
echo "installed, moved, built twice, ran twice"
