#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12 (when missing), builds Spinlane with
# warnings as errors and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(build-essential cmake qt6-base-dev xvfb xauth dbus fonts-dejavu-core)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' \
    || missing+=("$package")
done
if ((${#missing[@]})); then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y "${missing[@]}"
fi

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPINLANE_WERROR=ON
cmake --build build -j"$(nproc)"
# The tests that need a session bus bring their own.
ctest --test-dir build --output-on-failure
