#!/usr/bin/env bash
# Installs a build under three umasks: what is installed is for its owner alone to change, and with
# the usual umask for everybody to use.
#
#   check_modes.sh BUILD_DIRECTORY CMAKE
set -euo pipefail
build=$1 cmake=$2

work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-modes-XXXXXX")
trap 'rm -rf "$work"' EXIT

for mask in 000 022 077; do
  prefix=$work/$mask
  (umask "$mask" && "$cmake" --install "$build" --prefix "$prefix" >"$work/install.log")
  also=0755
  [ "$mask" != 077 ] || also=0700  # whoever sets that wants directories of one's own
  wrong=$(find "$prefix" -mindepth 1 \
    \( -type d ! -perm 0755 ! -perm $also -o -type f ! -perm 0755 ! -perm 0644 \) -printf '%m %P\n')
  if [ -n "$wrong" ]; then
    echo "with umask $mask these have other modes than 0755, $also and 0644:" >&2
    echo "$wrong" >&2
    exit 1
  fi
  [ -x "$prefix/bin/kavrelctl" ] || { echo "nothing was installed" >&2; exit 1; }
done
echo "nothing that others may change, under three umasks"
