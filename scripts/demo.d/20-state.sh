# shellcheck shell=bash
# The viewer's state, followed while it is commanded.

heading "Watch the state while commands are given"
start_watch visible_banners rating_locked pip_focus
run kavrelctl call tune-channel-main 7 demo
next_change
next_change
run kavrelctl call show-nosignal-banner 1 'Check the cable.'
next_change
run kavrelctl call send-command pip-focus pip
next_change
run kavrelctl set pip_focus 0
next_change
stop_watch

heading "The whole state"
run kavrelctl get --all
