# shellcheck shell=bash
# A viewer without a display and the plug-ins in it: windows on their layers, keys, states, a death.
# Each step leaves a picture of the viewer's window.

# start_program NAME COMMAND...: what it says is heard with "hear".
start_program() {
  local name=$1 fd
  shift
  mkfifo "$stage/$name.out"
  "$@" >"$stage/$name.out" 2>"$stage/$name.log" &
  end_process[$name]=$!
  started+=("$!")
  exec {fd}<>"$stage/$name.out"
  end_output[$name]=$fd
  printf '%s$ %s &%s\n' "$bold" "$(show_words "$@")" "$plain"
}

# start_plugin SIZE NAME COMMAND...: and waits until its window is shown and its keys are known.
start_plugin() {
  local size=$1
  shift
  start_program "$@"
  hear_both screen "plug-in $1: shown" "plug-in $1: window on layer"
  # The viewer gives it a size; until it has drawn that, its first picture is stretched.
  hear "$1" "size $size"
  hear "$1" drawn
}

# hear_both NAME ONE OTHER: shows what a program says until it has said both, in either order.
hear_both() {
  local line one='' other=''
  while [ -z "$one" ] || [ -z "$other" ]; do
    read -r -t 30 -u "${end_output[$1]}" line || fail "$1 never said \"$2\" and \"$3\"" "$stage/$1.log"
    printf '%10s > %s\n' "$1" "$line"
    case $line in *"$2"*) one=heard ;; *"$3"*) other=heard ;; esac
  done
}

# press KEY PLUGIN: a key, and its way to the plug-in that is to get it. The release is what counts: a
# press that takes more than a second, on a busy machine, is dropped.
press() {
  run kavrelctl keys send "$1"
  run kavrelctl keys send "$1" --release
  hear "$2" "released $1"
}

# picture NAME TEXT: what the viewer shows now, as a file that is kept.
picture() {
  run kavrelctl screenshot "$pictures/$1.png"
  pictures_taken+=("$pictures/$1.png: $2")
  say "    $2"
}

pictures_taken=()
mkdir -p "$pictures"
rm -f "$pictures"/*.png

# A viewer of its own, beside the one that was started without a bus.
first_runtime=$KAVREL_RUNTIME_DIR
export KAVREL_RUNTIME_DIR=$stage/screen-run XDG_RUNTIME_DIR=$stage/xdg HOME=$stage
export EINA_LOG_BACKTRACE=0
unset DISPLAY WAYLAND_DISPLAY
mkdir -m 700 "$XDG_RUNTIME_DIR"

heading "A viewer that shows a picture, and hosts plug-ins"
mkfifo "$stage/screen.ready"
exec {ready}<>"$stage/screen.ready" # both ways: neither end waits for the other to open
start_program screen kavrel-viewer --headless --remote --ready-fd 3 3>&"$ready"
read -r -t 30 -u "$ready" || fail "the viewer did not start" "$stage/screen.log"
exec {ready}<&-
run kavrelctl call tune-channel 7 News DVB-T demo
run kavrelctl call show-channel-banner 1
picture 1-banner "channel 7 News, with its banner"
run kavrelctl call change-source HDMI 1 Player demo
run kavrelctl call send-hide-banner all demo
run kavrelctl call show-source-banner 1 'HDMI 1' Player '1080p 60 Hz'
run kavrelctl call show-sleep-timer-popup 1
picture 2-popup "another source, with its banner and a pop-up"
run kavrelctl call send-hide-banner all demo
run kavrelctl call tune-channel 7 News DVB-T demo

heading "Plug-ins open windows in it: two of type 5 on layers 7 and 4, one of type 6 on 101"
start_plugin 384x240 notes kavrel-plugin-panel --name notes --type 6 --colour 602080
start_plugin 640x360 hbbtv kavrel-plugin-panel --name hbbtv --type 5 --colour 207040 \
  --key XF86Red --key XF86Back --key XF86Menu --exclusive XF86Blue
start_plugin 640x360 weather kavrel-plugin-panel --name weather --type 5 --colour 804020 \
  --key XF86Green --exclusive XF86Blue
start_program listener kavrel-plugin-listener --name listener --key XF86Green --key XF86Yellow
hear screen "listening=listener"
run kavrelctl plugins
picture 3-layers "hbbtv (green) above weather (brown), notes (violet) above hbbtv"

heading "A key goes to the plug-in that wants it, else to the viewer"
press XF86Red hbbtv
hear hbbtv drawn
press XF86Yellow listener
say "weather (type 5) and listener (type 4) both want XF86Green: the lower type comes first"
press XF86Green listener
run kavrelctl keys send XF86ChannelUp
run kavrelctl keys send XF86ChannelUp --release
picture 4-keys "hbbtv has got XF86Red; XF86ChannelUp was the viewer's: channel 11 Sport"

heading "An exclusive key: to the latest requester, and back when it lets go"
press XF86Blue weather
kill "${end_process[weather]}"
hear weather "left"
wait "${end_process[weather]}" || fail "weather ended with $?" "$stage/weather.log"
hear screen "weather: window gone"
run kavrelctl keys send XF86ChannelDown
run kavrelctl call send-hide-banner all demo
press XF86Blue hbbtv
hear hbbtv drawn
picture 5-plugins "weather has gone; hbbtv, below notes, has got XF86Blue back"
run kavrelctl plugins

heading "The viewer's state reaches every plug-in"
run kavrelctl call show-nosignal-banner 1 'Check the cable.'
for plugin in hbbtv notes listener; do hear "$plugin" "state PAUSE"; done
for plugin in hbbtv notes; do hear "$plugin" drawn; done
picture 6-state "no signal: hbbtv and notes show PAUSE"
run kavrelctl call show-nosignal-banner 0 ''
for plugin in hbbtv notes listener; do hear "$plugin" "state RESUME_FOCUS"; done

heading "A plug-in hides its window, and shows it again"
press XF86Back hbbtv
hear screen "hbbtv: hidden"
picture 7-hidden "hbbtv is hidden"
press XF86Menu hbbtv
hear screen "hbbtv: shown"

heading "A plug-in is killed, and the viewer goes on"
kill -9 "${end_process[hbbtv]}"
wait "${end_process[hbbtv]}" 2>/dev/null || true
hear screen "hbbtv: window gone"
press XF86Yellow listener
run kavrelctl call show-sleep-timer-popup 1
picture 8-killed "hbbtv is gone; the viewer shows a pop-up, notes lies above it"

kill "${end_process[screen]}"
wait "${end_process[screen]}" || fail "the viewer ended with $?" "$stage/screen.log"
export KAVREL_RUNTIME_DIR=$first_runtime

heading "The pictures"
for taken in "${pictures_taken[@]}"; do say "$taken"; done
