# shellcheck shell=bash
# Host and plug-in find each other on a bus of the demo's own, in either order, and miss each other.

# start_bus: a message bus that stands in for the system bus.
start_bus() {
  cat >"$stage/bus.conf" <<CONFIGURATION
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$stage/bus</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
CONFIGURATION
  mkfifo "$stage/bus.ready"
  dbus-daemon --config-file="$stage/bus.conf" --nofork --nopidfile --nosyslog --print-address=3 \
    3>"$stage/bus.ready" 2>"$stage/bus.log" &
  started+=("$!")
  await_ready "$stage/bus.ready" "the bus" "$stage/bus.log"
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$stage/bus
}

# start_monitor: follows the bus; what it prints is shown at the end.
start_monitor() {
  mkfifo "$stage/monitor.ready"
  kavrelctl bus --ready-fd 3 3>"$stage/monitor.ready" >"$stage/monitor.out" 2>"$stage/monitor.log" &
  monitor=$!
  started+=("$monitor")
  await_ready "$stage/monitor.ready" "kavrelctl bus" "$stage/monitor.log"
}

# start_end NAME ROLE PLUGIN: one end; told with "tell", heard with "hear".
start_end() {
  local name=$1 role=$2 plugin=$3 fd
  rm -f "$stage/$name.in" "$stage/$name.out"
  mkfifo "$stage/$name.in" "$stage/$name.out"
  kavrel-channel-end "$role" kavrel "$plugin" <"$stage/$name.in" >"$stage/$name.out" \
    2>"$stage/$name.log" &
  end_process[$name]=$!
  started+=("$!")
  exec {fd}<>"$stage/$name.in"
  end_input[$name]=$fd
  exec {fd}<>"$stage/$name.out"
  end_output[$name]=$fd
  printf '%s$ kavrel-channel-end %s kavrel %s%s\n' "$bold" "$role" "$plugin" "$plain"
  hear "$name" "started as"
}

declare -A end_process end_input end_output

tell() {
  printf '%10s < %s\n' "$1" "$2"
  printf '%s\n' "$2" >&"${end_input[$1]}"
}

# hear NAME TEXT: shows what an end says until it says TEXT.
hear() {
  local line
  while read -r -t 30 -u "${end_output[$1]}" line; do
    printf '%10s > %s\n' "$1" "$line"
    case $line in *"$2"*) return ;; esac
  done
  fail "$1 never said \"$2\"" "$stage/$1.log"
}

stop_end() {
  exec {end_input[$1]}>&-
  exec {end_output[$1]}<&-
  kill -9 "${end_process[$1]}" 2>/dev/null || true
  wait "${end_process[$1]}" 2>/dev/null || true
}

heading "A bus, and somebody who watches it"
start_bus
start_monitor
say "a private message bus stands in for the system bus; kavrelctl bus writes down what passes"

heading "Host first, then the plug-in"
start_end host host hello
start_end plugin plugin hello
hear host ready
hear plugin ready

heading "Messages, notifications, events"
tell plugin "send show=hello"
hear host "show=hello"
hear plugin answered
tell host "post key=KEY_VOLUMEUP type=pressed"
hear plugin KEY_VOLUMEUP
tell host "notify state=RESUME"
hear plugin RESUME
tell plugin "announce 5 true"
hear host "heard that hello"

heading "The plug-in is killed, and comes back"
stop_end plugin
hear host "partner lost"
start_end plugin plugin hello
hear host ready
hear plugin ready
tell host "send welcome=back"
hear plugin "welcome=back"
hear host answered

heading "The host is killed, and comes back"
stop_end host
hear plugin "partner lost"
start_end host host hello
hear host ready
hear plugin ready
stop_end host
stop_end plugin

heading "The plug-in first, then its host"
start_end plugin plugin teletext
start_end host host teletext
hear plugin ready
hear host ready
stop_end plugin
stop_end host

heading "What passed on the bus, as \"kavrelctl bus\" saw it"
kill "$monitor"
wait "$monitor" || fail "kavrelctl bus ended with $?" "$stage/monitor.log"
cat "$stage/monitor.out"
