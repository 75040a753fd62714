#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12 (when missing), builds Spinlane with
# warnings as errors, runs every test and makes and checks the Debian packages (left in build/).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-packages.sh build-essential cmake qt6-base-dev xvfb xauth dbus fonts-dejavu-core \
  dpkg-dev file lintian

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPINLANE_WERROR=ON -DCMAKE_INSTALL_PREFIX=/usr
cmake --build build -j"$(nproc)"
# The tests that need a session bus bring their own.
ctest --test-dir build --output-on-failure
bash scripts/check-packages.sh build
