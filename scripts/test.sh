#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12 (when missing), builds Spinlane with
# warnings as errors and runs every test; makes and checks the Debian packages (left in build/);
# then builds it again with Clang, AddressSanitizer and UndefinedBehaviorSanitizer in build-asan
# and runs every test there, with a few seconds of each fuzzer. A failed step does not stop the
# steps that do not need it; the summary names every failed step, and the exit status is 1 then.
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-packages.sh build-essential cmake qt6-base-dev xvfb xauth dbus \
  fonts-dejavu-core dpkg-dev file lintian clang libclang-rt-14-dev llvm ccache python3 \
  qt6-websockets-dev prometheus-cpp-dev chromium chromium-driver \
  python3-selenium curl mosquitto libmosquitto-dev libssl-dev pkg-config libqt6sql6-sqlite \
  libqt6sql6-psql postgresql libjs-chart.js openssl iproute2 || exit 1

jobs="$(nproc)"
# Paths relative to the checkout, and no folder in the hash, so that another clone of the project
# reuses the compiler cache.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
common=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPINLANE_WERROR=ON -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
passed=()
failed=()

# step NAME COMMAND...: runs one step and records how it went; its status is the command's.
step() {
  local name="$1"
  shift
  echo "== test.sh: $name"
  if "$@"; then
    passed+=("$name")
  else
    echo "== test.sh: FAILED: $name"
    failed+=("$name")
    return 1
  fi
}

build() { cmake -S . -B "$1" "${@:2}" && cmake --build "$1" -j"$jobs"; }

if step "build" build build "${common[@]}" -DCMAKE_INSTALL_PREFIX=/usr; then
  # The tests that need a session bus bring their own.
  step "tests" ctest --test-dir build --output-on-failure
  step "packages" bash scripts/check-packages.sh build
fi

if step "sanitizer build" build build-asan "${common[@]}" -DCMAKE_CXX_COMPILER=clang++ \
  -DSPINLANE_SANITIZERS=address,undefined -DSPINLANE_FUZZ=ON; then
  step "sanitizer tests and fuzzers" ctest --test-dir build-asan --output-on-failure
fi

echo
for name in "${failed[@]}"; do
  echo "test.sh: failed step: $name"
done
echo "steps: ${#passed[@]} passed, ${#failed[@]} failed"
((${#failed[@]} == 0))
