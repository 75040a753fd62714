#!/usr/bin/env bash
# Runs a command, the built Spinlane by default, in the simulated laboratory of the build:
# build/sim/spinlane-simulated-lab, the build's copy of the installed launcher (see
# `spinlane-simulated-lab --help`).
#
#   scripts/with-simulated-lab.sh [--settings FILE] [--shared] [COMMAND [ARGUMENT...]]
#   scripts/with-simulated-lab.sh --attach [COMMAND [ARGUMENT...]]
#
# --shared puts the laboratory's private bus at a stable address, the socket SPINLANE_LAB_SOCKET
# names (by default spinlane-lab.bus in $XDG_RUNTIME_DIR, else in /tmp/spinlane-lab-UID), so that
# commands started elsewhere can join it: --attach runs COMMAND on that bus (spinlane-status
# beside the Spinlane that scripts/run.sh started, say), and without a command prints the line
# `export DBUS_SESSION_BUS_ADDRESS=...` for a shell to eval. --attach exits with 3 when no
# laboratory answers there. The build folder is build/ beside scripts/, or the one
# SPINLANE_BUILD_DIR names.
set -euo pipefail

here="$(cd "$(dirname "$0")/.." && pwd)"
build="${SPINLANE_BUILD_DIR:-$here/build}"
launcher="$build/sim/spinlane-simulated-lab"

if [[ -n "${XDG_RUNTIME_DIR:-}" ]]; then
  socket="${SPINLANE_LAB_SOCKET:-$XDG_RUNTIME_DIR/spinlane-lab.bus}"
else
  socket="${SPINLANE_LAB_SOCKET:-/tmp/spinlane-lab-$(id -u)/spinlane-lab.bus}"
fi
address="unix:path=$socket"

answers() {
  [[ -S "$socket" ]] && dbus-send --bus="$address" --print-reply --dest=org.freedesktop.DBus \
    /org/freedesktop/DBus org.freedesktop.DBus.GetId >/dev/null 2>&1
}

if [[ "${1:-}" == --attach ]]; then
  shift
  answers || {
    echo "$0: no simulated laboratory answers at $socket (start one with scripts/run.sh)" >&2
    exit 3
  }
  if [[ $# -eq 0 ]]; then
    printf 'export DBUS_SESSION_BUS_ADDRESS=%q\n' "$address"
    exit 0
  fi
  DBUS_SESSION_BUS_ADDRESS="$address" exec "$@"
fi

[[ -x "$launcher" ]] || { echo "$0: $launcher is missing: build Spinlane first" >&2; exit 1; }

options=()
shared=false
while [[ $# -gt 0 ]]; do
  case "$1" in
    --settings) [[ $# -ge 2 ]] || { echo "$0: --settings needs a FILE" >&2; exit 2; }
      options+=("$1" "$2"); shift 2 ;;
    --shared) shared=true; shift ;;
    *) break ;;
  esac
done
$shared || exec "$launcher" "${options[@]}" "$@"

# The shared laboratory: the launcher's bus configuration with a listening address of its own;
# the launcher, started on that bus, only starts the console and runs the command.
answers && { echo "$0: a simulated laboratory already runs at $socket" >&2; exit 1; }
[[ -d "$(dirname "$socket")" ]] || mkdir -m 700 "$(dirname "$socket")"
rm -f "$socket"
folder="$(mktemp -d)"
trap 'rm -rf "$folder"; rm -f "$socket"' EXIT
sed "s|<listen>.*</listen>|<listen>unix:path=$socket</listen>|" "$build/lab-bus/session.conf" \
  >"$folder/session.conf"
if [[ ${#options[@]} -gt 0 ]]; then
  [[ -f "${options[1]}" ]] || { echo "$0: ${options[1]}: no such file" >&2; exit 1; }
  SPINLANE_SIM_SETTINGS="$(realpath "${options[1]}")"
  export SPINLANE_SIM_SETTINGS
fi
if [[ -z "${QT_QPA_PLATFORM:-}${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
  echo "$0: no display: the simulators' windows stay off screen" >&2
  export QT_QPA_PLATFORM=offscreen
fi
[[ $# -ge 1 ]] || set -- "$build/app/spinlane"
SPINLANE_LAB_BUS="$folder/session.conf" dbus-run-session --config-file="$folder/session.conf" \
  -- "$launcher" "$@"
