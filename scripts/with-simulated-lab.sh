#!/usr/bin/env bash
# Runs a command in the simulated laboratory: on a private session bus that starts the simulated
# programs when they are asked for, with the simulated console already running. The simulators
# read the settings file given with --settings (or named by SPINLANE_SIM_SETTINGS); without one
# they are the demonstration lab. Exits with the command's status; the simulators end with the
# bus.
#
#   scripts/with-simulated-lab.sh [--settings FILE] COMMAND [ARGUMENT...]
#
# The build folder is build/ beside scripts/, or the one SPINLANE_BUILD_DIR names.
set -euo pipefail

usage() {
  echo "usage: $0 [--settings FILE] COMMAND [ARGUMENT...]" >&2
  exit 2
}

build="${SPINLANE_BUILD_DIR:-$(cd "$(dirname "$0")/.." && pwd)/build}"
config="$build/lab-bus/session.conf"

if [[ -z "${SPINLANE_LAB_BUS:-}" ]]; then
  if [[ "${1:-}" == --settings ]]; then
    [[ $# -ge 2 ]] || usage
    SPINLANE_SIM_SETTINGS="$(realpath "$2")"
    export SPINLANE_SIM_SETTINGS
    shift 2
  fi
  [[ $# -ge 1 ]] || usage
  [[ -f "$config" ]] || { echo "$0: $config is missing: build Spinlane first" >&2; exit 1; }
  if [[ -z "${QT_QPA_PLATFORM:-}${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
    echo "$0: no display: the simulators' windows stay off screen" >&2
    export QT_QPA_PLATFORM=offscreen
  fi
  export SPINLANE_LAB_BUS="$config"
  exec dbus-run-session --config-file="$config" -- "$0" "$@"
fi

# On the private bus: the console runs before the command starts.
dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
  org.freedesktop.DBus.StartServiceByName string:org.spinlane.lab.Korvo.Application uint32:0 \
  >/dev/null
exec "$@"
