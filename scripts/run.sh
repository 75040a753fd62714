#!/usr/bin/env bash
# Installs what Spinlane needs on Debian 12 (when missing), builds Spinlane and every command the
# README names, and runs Spinlane with spinlane-web beside it, in the simulated laboratory unless
# a console program already runs on the session bus. Without a settings file at the default place
# (/korvo/config/Spinlane.INI) the demo file is put there, so the first start only asks to confirm
# it ("Please locate the 'Spinlane.ini' file.") and later starts ask nothing.
#
#   bash scripts/run.sh [--no-build] [ARGUMENT...]
#
# --no-build starts what was built before. The simulated laboratory's bus is shared (see
# scripts/with-simulated-lab.sh --shared), so `scripts/with-simulated-lab.sh --attach COMMAND`
# runs COMMAND beside this Spinlane. The page is served at SPINLANE_WEB_LISTEN (127.0.0.1:8470 by
# default). SPINLANE_RUN_PROGRAM names another program to start in Spinlane's place (the tests'
# window-less stand-in); the arguments go to it, and Spinlane ignores them.
set -euo pipefail
cd "$(dirname "$0")/.."

# On the laboratory's bus: spinlane-web in the background for as long as Spinlane runs.
if [[ "${SPINLANE_RUN_INSIDE:-}" == 1 ]]; then
  listen="${SPINLANE_WEB_LISTEN:-127.0.0.1:8470}"
  printf '[web]\nListen=%s\n' "$listen" >"$SPINLANE_RUN_FOLDER/web.conf"
  build/web/spinlane-web --config "$SPINLANE_RUN_FOLDER/web.conf" &
  web=$!
  trap 'kill "$web" 2>/dev/null; wait "$web" 2>/dev/null || true' EXIT
  # Spinlane's status from a terminal: the line run.sh prints, once the page answers.
  cat >&2 <<EOF
run.sh: the queue in a browser: http://${listen/0.0.0.0/127.0.0.1}/
run.sh: from another terminal: ${SPINLANE_RUN_ATTACH}build/tools/spinlane-status/spinlane-status --queue
EOF
  # shellcheck disable=SC2086 # the program may carry its own arguments
  ${SPINLANE_RUN_PROGRAM:-build/app/spinlane} "$@"
  exit
fi

build=true
[[ "${1:-}" == --no-build ]] && { build=false; shift; }

if $build; then
  bash scripts/install-packages.sh build-essential cmake qt6-base-dev dbus fonts-dejavu-core \
    qt6-websockets-dev prometheus-cpp-dev libmosquitto-dev libssl-dev pkg-config libqt6sql6-sqlite \
    libjs-chart.js
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
  cmake --build build -j"$(nproc)" --target spinlane spinlane-labsim spinlane-status spinlane-web \
    spinlane-ini spinlane-ledger spinlane-adapter spinlane-screenshots run_queue_on_lab
fi

if [[ -z "${SPINLANE_RUN_PROGRAM:-}" ]]; then
  settings=/korvo/config/Spinlane.INI
  if [ ! -e "$settings" ]; then
    as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" install -d -o "$(id -u)" -g "$(id -g)" /korvo/config
    install -m 644 build/demo/Spinlane.INI "$settings"
  fi
fi

# The laboratory programs: the real ones when a console already runs on the session bus, else
# the simulated laboratory on a private bus of its own, at the stable address.
console_runs() {
  [ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ] && dbus-send --session --print-reply \
    --dest=org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus.NameHasOwner \
    string:org.spinlane.lab.Korvo.Application 2>/dev/null | grep -q 'boolean true'
}
SPINLANE_RUN_FOLDER="$(mktemp -d)"
trap 'rm -rf "$SPINLANE_RUN_FOLDER"' EXIT
export SPINLANE_RUN_FOLDER SPINLANE_RUN_INSIDE=1
if console_runs; then
  SPINLANE_RUN_ATTACH='' bash scripts/run.sh "$@"
else
  SPINLANE_RUN_ATTACH='scripts/with-simulated-lab.sh --attach ' \
    scripts/with-simulated-lab.sh --shared bash scripts/run.sh "$@"
fi
