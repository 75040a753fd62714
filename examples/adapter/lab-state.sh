# Sourced by the example laboratory's scripts: the folder that keeps their state, and the time.
state=${SPINLANE_LAB_STATE:-${XDG_STATE_HOME:-$HOME/.local/state}/spinlane-lab}
mkdir -p "$state"
now() { date +%s; }
