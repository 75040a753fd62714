#!/usr/bin/env bash
# Installs what Spinlane needs on Debian 12 (when missing), builds it and runs it, with the
# simulated laboratory unless a console program already runs on the session bus. Without a
# settings file at the default place (/korvo/config/Spinlane.INI) the demo file is put there, so
# the first start only asks to confirm it ("Please locate the 'Spinlane.ini' file.") and later
# starts ask nothing. Arguments go to spinlane, which ignores them.
set -euo pipefail
cd "$(dirname "$0")/.."

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

bash scripts/install-packages.sh build-essential cmake qt6-base-dev dbus fonts-dejavu-core \
  qt6-httpserver-dev qt6-websockets-dev prometheus-cpp-dev libmosquitto-dev pkg-config

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)" --target spinlane spinlane-labsim

settings=/korvo/config/Spinlane.INI
if [ ! -e "$settings" ]; then
  "${as_root[@]}" install -d -o "$(id -u)" -g "$(id -g)" /korvo/config
  install -m 644 build/demo/Spinlane.INI "$settings"
fi

# The laboratory programs: the real ones when a console already runs on the session bus, else
# the simulated laboratory on a private bus of its own.
console_runs() {
  [ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ] && dbus-send --session --print-reply \
    --dest=org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus.NameHasOwner \
    string:org.spinlane.lab.Korvo.Application 2>/dev/null | grep -q 'boolean true'
}
lab=(scripts/with-simulated-lab.sh)
console_runs && lab=()
exec "${lab[@]}" build/app/spinlane "$@"
