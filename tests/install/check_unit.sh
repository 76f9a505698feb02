#!/usr/bin/env bash
# The viewer's unit for the user's service manager: every line is one that the manager knows.
#
#   check_unit.sh UNIT VIEWER
set -euo pipefail
unit=$1 viewer=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-unit-XXXXXX")
trap 'rm -rf "$work"' EXIT
export XDG_RUNTIME_DIR=$work HOME=$work

# The manager looks for the viewer in the system's directories, where it is not.
sed "s|^ExecStart=kavrel-viewer |ExecStart=$viewer |" "$unit" >"$work/$(basename "$unit")"
grep -qF "$viewer" "$work/$(basename "$unit")" || { echo "$unit does not start kavrel-viewer" >&2; exit 1; }
complaints=$(systemd-analyze --user verify --man=no "$work/$(basename "$unit")" 2>&1) || true
if [ -n "$complaints" ]; then
  echo "$complaints" >&2
  exit 1
fi
