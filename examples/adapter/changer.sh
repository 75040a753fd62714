#!/bin/sh
# The example laboratory's sample changer: a carousel of $SPINLANE_LAB_POSITIONS (default 24)
# positions; a load takes $SPINLANE_LAB_LOAD_SECONDS (default 5) seconds, an eject as long. A
# motion under way is in $state/motion ("load 5 END-TIME"), the sample in the magnet in
# $state/magnet.
#
#   changer.sh load POSITION | eject | moving load|eject | load-failed | spin-rate ON RATE
set -eu
. "$(dirname "$0")/lab-state.sh"
positions=${SPINLANE_LAB_POSITIONS:-24}
seconds=${SPINLANE_LAB_LOAD_SECONDS:-5}

# Ends a motion whose time is up.
settle() {
    [ -f "$state/motion" ] || return 0
    read -r what position end <"$state/motion"
    [ "$end" -le "$(now)" ] || return 0
    rm "$state/motion"
    if [ "$what" = eject ]; then
        rm -f "$state/magnet"
    elif [ "$position" -ge 1 ] && [ "$position" -le "$positions" ]; then
        echo "$position" >"$state/magnet"
        echo false >"$state/load-failed"
    else
        echo true >"$state/load-failed"
    fi
}

start() {
    settle
    if [ -f "$state/motion" ]; then echo "the changer is busy" >&2; exit 1; fi
    echo "$1 $2 $(($(now) + seconds))" >"$state/motion"
}

case $1 in
load) start load "$2" ;;
eject) start eject "$(cat "$state/magnet" 2>/dev/null || echo 0)" ;;
moving)
    settle
    if [ -f "$state/motion" ] && [ "$(cut -d' ' -f1 "$state/motion")" = "$2" ]; then
        echo true
    else
        echo false
    fi
    ;;
load-failed) settle; cat "$state/load-failed" 2>/dev/null || echo false ;;
# The rate as measured: this changer reaches the rate set at once.
spin-rate) if [ "$2" = true ]; then echo "$3"; else echo 0; fi ;;
*) echo "usage: changer.sh load|eject|moving|load-failed|spin-rate" >&2; exit 2 ;;
esac
