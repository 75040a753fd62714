#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12 (when missing), builds Spinlane with
# warnings as errors and runs every test; makes and checks the Debian packages (left in build/);
# then builds it again with Clang, AddressSanitizer and UndefinedBehaviorSanitizer in build-asan
# and runs every test there, with a few seconds of each fuzzer.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-packages.sh build-essential cmake qt6-base-dev xvfb xauth dbus \
  fonts-dejavu-core dpkg-dev file lintian clang libclang-rt-14-dev llvm ccache python3

jobs="$(nproc)"
common=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPINLANE_WERROR=ON -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

cmake -S . -B build "${common[@]}" -DCMAKE_INSTALL_PREFIX=/usr
cmake --build build -j"$jobs"
# The tests that need a session bus bring their own.
ctest --test-dir build --output-on-failure
bash scripts/check-packages.sh build

cmake -S . -B build-asan "${common[@]}" -DCMAKE_CXX_COMPILER=clang++ \
  -DSPINLANE_SANITIZERS=address,undefined -DSPINLANE_FUZZ=ON
cmake --build build-asan -j"$jobs"
ctest --test-dir build-asan --output-on-failure
