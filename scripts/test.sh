#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12 (when missing), builds Spinlane with
# warnings as errors and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-packages.sh build-essential cmake qt6-base-dev xvfb xauth dbus fonts-dejavu-core

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPINLANE_WERROR=ON
cmake --build build -j"$(nproc)"
# The tests that need a session bus bring their own.
ctest --test-dir build --output-on-failure
