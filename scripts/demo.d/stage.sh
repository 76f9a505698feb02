# shellcheck shell=bash
# What the parts of the demo stand on: a private directory that goes away at the end with every
# process that was started, and how commands and their answers are shown.

stage=$(mktemp -d "${TMPDIR:-/tmp}/kavrel-demo-XXXXXX")
started=()

clear_stage() {
  local process
  for process in "${started[@]}"; do
    kill "$process" 2>/dev/null || continue
    wait "$process" 2>/dev/null || true
  done
  rm -rf "$stage"
}
trap clear_stage EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

export KAVREL_RUNTIME_DIR=$stage/run KAVREL_STATE_DIR=$stage/state
# Settings of the person who looks must not change what is shown.
unset KAVREL_APP_ID KAVREL_RPC_TIMEOUT_MS
# What is shown stays until it is hidden.
export KAVREL_BANNER_SECONDS=0

bold='' plain=''
if [ -t 1 ]; then bold=$'\e[1m' plain=$'\e[0m'; fi

heading() { printf '\n%s== %s ==%s\n\n' "$bold" "$1" "$plain"; }
say() { printf '%s\n' "$*"; }

# fail MESSAGE [FILE]: ends the demo, with the end of a file that tells more.
fail() {
  printf 'demo: %s\n' "$1" >&2
  if [ -n "${2:-}" ]; then tail -n 30 "$2" >&2; fi
  exit 1
}

# run COMMAND...: shows a command, then what it prints.
run() {
  printf '%s$ %s%s\n' "$bold" "$(show_words "$@")" "$plain"
  "$@" || fail "\"$(show_words "$@")\" ended with $?"
}

# refused COMMAND...: shows a command that is to be refused.
refused() {
  local result=0
  printf '%s$ %s%s\n' "$bold" "$(show_words "$@")" "$plain"
  "$@" 2>&1 || result=$?
  [ "$result" = 1 ] || fail "\"$(show_words "$@")\" was to end with 1, not $result"
}

# The words of a command as one would type them.
show_words() {
  local word line=
  for word in "$@"; do
    case $word in
      '' | *[!A-Za-z0-9_./:=-]*) line+="'$word' " ;;
      *) line+="$word " ;;
    esac
  done
  printf '%s' "${line% }"
}

# await_ready FIFO NAME LOG: waits until a program that was given the other end of FIFO as its
# --ready-fd is ready. Its end without a word ends the wait.
await_ready() {
  local line
  read -r line <"$1" || fail "$2 did not start" "$3"
}

build_programs() {
  cmake --preset release -B build/demo >"$stage/configure.log" ||
    fail "configuring failed" "$stage/configure.log"
  cmake --build build/demo --target kavrel-viewer kavrelctl kavrel-channel-end \
    kavrel-plugin-panel kavrel-plugin-listener >"$stage/build.log" ||
    fail "building failed" "$stage/build.log"
  say "built into build/demo/bin"
}

start_viewer() {
  mkfifo "$stage/viewer.ready"
  kavrel-viewer --ready-fd 3 3>"$stage/viewer.ready" >"$stage/viewer.out" 2>"$stage/viewer.log" &
  viewer=$!
  started+=("$viewer")
  await_ready "$stage/viewer.ready" "the viewer" "$stage/viewer.log"
  cat "$stage/viewer.log"
}

stop_viewer() {
  kill "$viewer"
  wait "$viewer" || fail "the viewer ended with $?" "$stage/viewer.log"
}

# start_watch PROPERTY...: watches in the background; next_change shows what it prints.
start_watch() {
  mkfifo "$stage/watch.ready" "$stage/watch.out"
  kavrelctl watch "$@" --ready-fd 3 3>"$stage/watch.ready" >"$stage/watch.out" 2>"$stage/watch.log" &
  watch=$!
  started+=("$watch")
  exec {changes}<>"$stage/watch.out" # both ways: neither end waits for the other to open
  await_ready "$stage/watch.ready" "kavrelctl watch" "$stage/watch.log"
  printf '%s$ %s%s     (in another terminal)\n' "$bold" "$(show_words kavrelctl watch "$@")" "$plain"
}

# next_change: shows the next change that is watched, as soon as it is there.
next_change() {
  local line
  read -r -t 30 -u "$changes" line || fail "no change came" "$stage/watch.log"
  printf '    | %s\n' "$line"
}

stop_watch() {
  kill "$watch"
  wait "$watch" || fail "kavrelctl watch ended with $?" "$stage/watch.log"
  exec {changes}<&-
}
