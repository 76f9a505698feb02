#!/usr/bin/env bash
# Where the policy for the system bus is installed, and for which group it speaks.
#
#   check_bus_policy.sh CMAKE
set -euo pipefail
cmake=$1 here=$(dirname "$0")
work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-policy-XXXXXX")
trap 'rm -rf "$work"' EXIT

# expect NAME PLACE GROUP CONFIGURATION...: that the policy, and nothing else, is installed in PLACE.
expect() {
  local root=$work/$1 place=$2 group=$3 found
  shift 3
  "$cmake" -S "$here/bus_policy" -B "$root.build" "$@" >"$root.log" || { cat "$root.log"; return 1; }
  DESTDIR=$root "$cmake" --install "$root.build" >>"$root.log"
  found=$(cd "$root" && find . -type f)
  if [ "$found" != ".$place/org.zarnet.kavrel.conf" ]; then
    echo "with $*: installed '$found', expected '.$place/org.zarnet.kavrel.conf'" >&2
    return 1
  fi
  if ! grep -q "<policy group=\"$group\">" "$root/$found"; then
    echo "with $*: no policy for the group $group in $found:" >&2
    cat "$root/$found" >&2
    return 1
  fi
}

expect usr /usr/share/dbus-1/system.d kavrel -DCMAKE_INSTALL_PREFIX=/usr
expect opt /opt/kavrel/share/dbus-1/system.d kavrel -DCMAKE_INSTALL_PREFIX=/opt/kavrel
expect etc /etc/dbus-1/system.d tv \
  -DCMAKE_INSTALL_PREFIX=/usr/local -DKAVREL_DBUS_POLICY_DIR=/etc/dbus-1/system.d -DKAVREL_DBUS_GROUP=tv

# The bus of this machine reads the two places that it should: names in its file are relative to it.
bus=/usr/share/dbus-1/system.conf
for place in system.d /etc/dbus-1/system.d; do
  grep -q "<includedir>$place</includedir>" "$bus" || { echo "$bus does not read $place" >&2; exit 1; }
done
echo "installed where the bus looks, for the group that was asked for"
