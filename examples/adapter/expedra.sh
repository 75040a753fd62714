#!/bin/sh
# The example laboratory's experiment set-up program. An experiment "runs" for
# $SPINLANE_LAB_EXPERIMENT_SECONDS (default 20) seconds; each run is listed in
# $state/experiments.log.
#
#   expedra.sh details|lock-required|spin-on|spin-rate EXPERIMENT-INDEX
#   expedra.sh run EXPERIMENT-INDEX OUTPUT-FILE SAMPLE
#   expedra.sh running|abort|failed
set -eu
. "$(dirname "$0")/lab-state.sh"
seconds=${SPINLANE_LAB_EXPERIMENT_SECONDS:-20}

# Field $2 of experiment $1: title, lock required, spin, spin rate in hertz.
experiment() {
    case $1 in
    0) set -- "$2" PROTON true true 20 ;;
    1) set -- "$2" CARBON true true 20 ;;
    2) set -- "$2" COSY false false 0 ;;
    *) echo "there is no experiment $1" >&2; exit 1 ;;
    esac
    shift "$1"
    echo "$1"
}

running() { [ -f "$state/running" ] && [ "$(cat "$state/running")" -gt "$(now)" ]; }

case $1 in
details) echo "$(experiment "$2" 1), $(experiment "$2" 4) Hz" ;;
lock-required) experiment "$2" 2 ;;
spin-on) experiment "$2" 3 ;;
spin-rate) experiment "$2" 4 ;;
run)
    if running; then echo "an experiment is already running" >&2; exit 1; fi
    title=$(experiment "$2" 1)
    echo $(($(now) + seconds)) >"$state/running"
    rm -f "$state/failed"
    printf '%s\t%s\t%s\n' "$title" "$3" "$(printf '%s' "$4" | tr '\r\n' '  ')" \
        >>"$state/experiments.log"
    ;;
running) if running; then echo true; else echo false; fi ;;
abort) if running; then rm "$state/running" && touch "$state/failed"; fi ;;
failed) if [ -f "$state/failed" ]; then echo true; else echo false; fi ;;
*) echo "usage: expedra.sh details|lock-required|spin-on|spin-rate|run|running|abort|failed" >&2
   exit 2 ;;
esac
