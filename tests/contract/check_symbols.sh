#!/bin/sh
# Compares what the library exports with the checked-in list: nothing may disappear, and nothing
# may slip out.
#   check_symbols.sh LIBRARY LIST           compare
#   check_symbols.sh --write LIBRARY LIST   write the list, after a change that is meant
set -eu

# Demangled, without the version's own entry and without weak copies of inline functions, which
# depend on the compiler.
exported() {
  "${NM:-nm}" --dynamic --demangle --defined-only "$1" |
    sed -E -e '/^[0-9a-f]+ [AWw] /d' -e 's/^[0-9a-f]+ [A-Za-z] //' -e 's/@@.*$//' | LC_ALL=C sort -u
}

if [ "$1" = --write ]; then
  exported "$2" > "$3"
  exit 0
fi

found=$(mktemp)
trap 'rm -f "$found"' EXIT
exported "$1" > "$found"
if ! [ -s "$found" ]; then
  echo "$1 exports nothing: is it the library?" >&2
  exit 1
fi
if ! diff -u --label "expected: $2" --label "exported: $1" "$2" "$found"; then
  echo "If this is meant: $0 --write $1 $2" >&2
  exit 1
fi
