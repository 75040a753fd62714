#!/usr/bin/env bash
# Runs a command, the built Spinlane by default, in the simulated laboratory of the build:
# build/sim/spinlane-simulated-lab, the build's copy of the installed launcher (see
# `spinlane-simulated-lab --help`).
#
#   scripts/with-simulated-lab.sh [--settings FILE] [COMMAND [ARGUMENT...]]
#
# The build folder is build/ beside scripts/, or the one SPINLANE_BUILD_DIR names.
set -euo pipefail

build="${SPINLANE_BUILD_DIR:-$(cd "$(dirname "$0")/.." && pwd)/build}"
launcher="$build/sim/spinlane-simulated-lab"
[[ -x "$launcher" ]] || { echo "$0: $launcher is missing: build Spinlane first" >&2; exit 1; }
exec "$launcher" "$@"
