#!/usr/bin/env bash
# Unpacks Debian packages and looks at everything in them.
#
#   check_packages.sh [--final] BUILD_DIRECTORY SOURCE_DIRECTORY PACKAGE...
#
# --final: made as they are given away, so that they also look for libraries where Debian has them.
set -euo pipefail
final=
if [ "$1" = --final ]; then
  final=yes
  shift
fi
build=$1 source=$2
shift 2

work=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-packages-XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "$*" >&2
  failures=$((failures + 1))
}

declare -A root
for package in "$@"; do
  name=$(dpkg-deb -f "$package" Package)
  root[$name]=$work/$name
  dpkg-deb -R "$package" "$work/$name"
done

# Patterns of what may be in a package. A library package without a pattern for a file that a rule
# installs by mistake is what this is about.
lib='usr/lib(/[a-z0-9_]+-linux-[a-z0-9]+)?'
declare -A allowed=(
  [libkavrel-api0]="$lib/libkavrel-api\.so\.0(\.[0-9.]+)?"
  [libkavrel-dev]="usr/include/kavrel/.*\.h|$lib/libkavrel-api\.so|$lib/pkgconfig/kavrel-api\.pc|$lib/cmake/KavrelApi/KavrelApi[A-Za-z-]*\.cmake"
  [libkavrel-platform0]="$lib/lib(dlog|lwipc|pepper-efl|rpc-port|vconf)\.so\.0(\.[0-9.]+)?"
  [libkavrel-platform-dev]="usr/include/[a-z-]+\.h|$lib/lib(dlog|lwipc|pepper-efl|rpc-port|vconf)\.so|$lib/pkgconfig/[a-z-]+\.pc"
  [libkavrel-testing-dev]="usr/include/kavrel/testing\.h|$lib/libkavrel-testing\.a|$lib/pkgconfig/kavrel-testing\.pc|$lib/cmake/KavrelTesting/KavrelTesting[A-Za-z-]*\.cmake"
  [kavrel-common]='usr/share/dbus-1/system\.d/org\.zarnet\.kavrel\.conf'
  [kavrel-tools]='usr/bin/kavrel(ctl|-viewer|-plugin-panel|-plugin-listener)|usr/share/man/man1/kavrel[a-z-]*\.1\.gz|usr/lib/systemd/user/kavrel-viewer\.service|usr/share/(bash-completion/completions/kavrelctl|zsh/site-functions/_kavrelctl|fish/vendor_completions\.d/kavrelctl\.fish)'
)
documents='usr/share/doc/[a-z0-9-]+/(changelog\.gz|copyright)|usr/share/lintian/overrides/[a-z0-9-]+'

check_files() {
  local name=$1 surplus
  surplus=$(cd "${root[$name]}" && find . -not -type d -not -path './DEBIAN/*' -printf '%P\n' |
    grep -Evx "${allowed[$name]}|$documents" || true)
  [ -z "$surplus" ] || fail "$name holds more than it should:"$'\n'"$surplus"
  local file
  for file in changelog.gz copyright; do
    [ -s "${root[$name]}/usr/share/doc/$name/$file" ] || fail "$name has no $file"
  done
}

# Every header is there, and no other.
check_headers() {
  local name=$1 installed=$2
  shift 2
  local wanted
  wanted=$(for directory in "$@"; do (cd "$directory" && find . -name '*.h'); done | sort)
  diff <(cd "${root[$name]}/$installed" && find . -name '*.h' | sort) - <<<"$wanted" ||
    fail "$name has other headers than it should (<: in the package, >: in the source)"
}

check_build_paths() {
  local name=$1 file
  while IFS= read -r file; do
    ! grep -qaF -e "$build" -e "$source" <(zcat -f "$file") || fail "$name: $file names a directory of the build"
  done < <(find "${root[$name]}" -type f)
}

check_manual_pages() {
  local program page
  for program in "${root[kavrel-tools]}"/usr/bin/*; do
    page=${root[kavrel-tools]}/usr/share/man/man1/$(basename "$program").1.gz
    zgrep -q '^\.SH NAME' "$page" || fail "$program has no manual page"
  done
}

# All programs and libraries: stripped, position independent, nothing writable and executable, no
# symbol bound late.
check_binary() {
  local file=$1 headers dynamic
  headers=$(LC_ALL=C readelf --wide --headers "$file")
  dynamic=$(LC_ALL=C readelf --wide --dynamic "$file")
  grep -q 'Type: *DYN' <<<"$headers" || fail "$file is not position independent"
  grep -q 'GNU_RELRO' <<<"$headers" || fail "$file leaves its tables writable"
  grep -Eq 'BIND_NOW|FLAGS_1.*NOW' <<<"$dynamic" || fail "$file binds symbols late"
  grep -Eq 'GNU_STACK.* RW +0x' <<<"$headers" || fail "$file wants an executable stack"
  ! grep -Eq '\.(symtab|debug_info) ' <<<"$headers" || fail "$file is not stripped"
  if [ -n "$final" ] && grep -Eq 'R(UN)?PATH' <<<"$dynamic"; then
    fail "$file looks for libraries in places of its own"
  fi
}

# Guards that the compiler adds where there is something to guard, so not in every file.
check_guards() {
  local name=$1 guard symbols
  symbols=$(find "${root[$name]}/usr" -type f \( -path '*/bin/*' -o -name '*.so.*' \) -exec nm --dynamic {} +)
  for guard in __stack_chk_fail '__[a-z]+_chk(@|$)'; do
    grep -Eq " U $guard" <<<"$symbols" || fail "$name: compiled without $guard"
  done
}

check_control() {
  local name=$1 version
  version=$(sed -n 's/^project(kavrel VERSION \([0-9.]*\) .*/\1/p' "$source/CMakeLists.txt")
  grep -qx "Version: $version" "${root[$name]}/DEBIAN/control" || fail "$name is not of version $version"
  case $name in
    libkavrel-testing-dev) grep -Eq "^Depends:.*kavrel-tools \(= $version\)" "${root[$name]}/DEBIAN/control" ||
      fail "$name does not need the viewer in the same version" ;;
    *-dev) grep -Eq "^Depends:.* ?${name%-dev}(-api)?0 \(= $version\)" "${root[$name]}/DEBIAN/control" ||
      fail "$name does not need its library in the same version" ;;
    lib*)
      grep -qx 'activate-noawait ldconfig' "${root[$name]}/DEBIAN/triggers" || fail "$name has no trigger for ldconfig"
      grep -q "^lib.* 0 $name (>= $version)$" "${root[$name]}/DEBIAN/shlibs" || fail "$name names no library for dependencies"
      ;;
  esac
}

for name in "${!allowed[@]}"; do
  if [ -z "${root[$name]:-}" ]; then
    fail "there is no package $name"
    continue
  fi
  check_files "$name"
  check_build_paths "$name"
  check_control "$name"
done
[ "${#root[@]}" -eq "${#allowed[@]}" ] || fail "there are ${#root[@]} packages, expected ${#allowed[@]}"
[ "$failures" -eq 0 ] || exit 1

check_headers libkavrel-dev usr/include/kavrel "$source/include/kavrel"
check_headers libkavrel-platform-dev usr/include "$source"/platform/*/include
check_headers libkavrel-testing-dev usr/include "$source/testing/include"
check_manual_pages
while IFS= read -r file; do
  check_binary "$file"
done < <(find "$work" -type f \( -path '*/bin/*' -o -name '*.so.*' \))
for name in libkavrel-api0 libkavrel-platform0 kavrel-tools; do check_guards "$name"; done
library=$(find "$work/libkavrel-api0" -type f -name 'libkavrel-api.so.0.*')
"$source/tests/contract/check_symbols.sh" "$library" "$source/tests/contract/symbols.txt" ||
  fail "the packed library exports other symbols than it should"
[ "$failures" -eq 0 ] || exit 1
echo "${#root[@]} packages hold what they should"
