#!/usr/bin/env bash
# Makes the Debian packages of a build and looks at them.
#
#   pack_and_check.sh BUILD_DIRECTORY SOURCE_DIRECTORY CPACK
set -euo pipefail
build=$1 source=$2 cpack=$3
work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-pack-XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
"$cpack" --config "$build/CPackConfig.cmake" -B "$work" -D CPACK_INSTALL_PREFIX=/usr >cpack.log 2>&1 ||
  { cat cpack.log; exit 1; }
"$source/tests/install/check_packages.sh" "$build" "$source" "$work"/*.deb
