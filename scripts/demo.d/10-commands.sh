# shellcheck shell=bash
# Commands that the viewer carries out, and questions that it answers.

heading "Tune, change the source"
run kavrelctl call tune-channel 7 News DVB-T demo
run kavrelctl call tune-channel-pip 12 demo
run kavrelctl call change-source HDMI 2 Player demo
run kavrelctl call tune-channel-major 5 1 demo

heading "Banners and pop-ups"
run kavrelctl call show-channel-banner 1
run kavrelctl call show-source-banner 1 HDMI Player 4K
run kavrelctl call show-mts-banner 1 stereo
run kavrelctl call show-rating-banner 1 18 violence
run kavrelctl call show-sleep-timer-popup 1
run kavrelctl call show-game-mode-banner 1 on
run kavrelctl call disable-banner caption demo
run kavrelctl call show-caption 1 'Good evening.'
run kavrelctl call send-hide-banner source demo
run kavrelctl call send-mbr-key 1 2 0 KEY_PLAY --list fast --list quiet

heading "Ask: the eight methods that answer"
run kavrelctl call get-window-size
run kavrelctl call set-window-size 2
run kavrelctl call get-window-size --json
run kavrelctl call get-selection-window-info
run kavrelctl call change-selection-window-zoom-level 3
run kavrelctl call get-selection-window-move-range
run kavrelctl call move-selection-window-to 1400 800
run kavrelctl call store-selection-window-info 100 50
run kavrelctl call get-selection-window-info
run kavrelctl call check-state-for-vistane

heading "Ask for what cannot be"
refused kavrelctl call move-selection-window-to 1900 0
refused kavrelctl call get-window-size --app-id org.zarnet.nobody
