#!/usr/bin/env bash
# Installs what Spinlane needs on Debian 12 (when missing), builds it and runs it. Without a
# settings file at the default place (/korvo/config/Spinlane.INI) the demo file is put there, so
# the first start only asks to confirm it ("Please locate the 'Spinlane.ini' file.") and later
# starts ask nothing. Arguments go to spinlane, which ignores them.
set -euo pipefail
cd "$(dirname "$0")/.."

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

packages=(build-essential cmake qt6-base-dev dbus fonts-dejavu-core)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' \
    || missing+=("$package")
done
if ((${#missing[@]})); then
  "${as_root[@]}" apt-get update
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y "${missing[@]}"
fi

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)" --target spinlane

settings=/korvo/config/Spinlane.INI
if [ ! -e "$settings" ]; then
  "${as_root[@]}" install -d -o "$(id -u)" -g "$(id -g)" /korvo/config
  install -m 644 build/demo/Spinlane.INI "$settings"
fi

# SIMULATED LAB: the launcher of the simulated laboratory programs wraps the command here, for
# example lab=(build/sim/<launcher> --). Without it no laboratory program runs, and Spinlane
# ends at start-up with "Start Korvo application first.".
lab=()
exec "${lab[@]}" build/app/spinlane "$@"
