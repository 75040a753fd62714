#!/usr/bin/env bash
# Makes the Debian packages of a build folder and checks them as a lab would install them: unpacks
# them into a throwaway folder (no root needed) and runs the commands from there, so that a file
# missing from a package fails; then lintian, which must report no errors. The packages stay in
# the build folder.
#
#   scripts/check-packages.sh [BUILD-FOLDER]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(realpath "${1:-build}")"

cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
version="$(cached CMAKE_PROJECT_VERSION)"
prefix="$(cached CMAKE_INSTALL_PREFIX)"

rm -f "$build"/spinlane*.deb
(cd "$build" && cpack -G DEB >"$build/cpack.log") || { cat "$build/cpack.log"; exit 1; }
packages=("$build"/spinlane_*.deb "$build"/spinlane-labsim_*.deb)

root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
for package in "${packages[@]}"; do
  dpkg-deb -x "$package" "$root"
done
bin="$root$prefix/bin"
demo="$root$prefix/share/spinlane/demo/Spinlane.INI"

fail() {
  echo "check-packages: $1" >&2
  exit 1
}
expect() { # WHAT EXPECTED ACTUAL
  [[ "$3" == "$2" ]] || fail "$1: expected '$2', got '$3'"
}

for command in "$bin"/*; do
  name="${command##*/}"
  [[ -f "$root$prefix/share/man/man1/$name.1.gz" ]] || fail "$name has no manual page"
  # Without a display too: --version answers before any window could open.
  expect "$name --version" "$name $version" \
    "$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$command" --version)"
done
for name in spinlane spinlane-ini spinlane-adapter spinlane-simulated-lab; do
  [[ -x "$bin/$name" ]] || fail "$name is not in the packages"
done
# The adapter's user unit starts the installed adapter; its example laboratory passes its check.
grep -qx "ExecStart=$prefix/bin/spinlane-adapter --config %h/.config/spinlane/adapter.ini" \
  "$root$prefix/lib/systemd/user/spinlane-adapter.service" \
  || fail "the adapter's systemd user unit is missing or starts another program"
"$bin/spinlane-adapter" --check --config "$root$prefix/share/spinlane/examples/adapter/adapter.ini" \
  >"$root/check.txt" 2>&1 || { cat "$root/check.txt"; fail "the example laboratory is refused"; }
expect "spinlane-ini get" 4 \
  "$("$bin/spinlane-ini" get "$demo" General 'Total Queue Items')"

# The demo queue on the unpacked simulated laboratory, with short durations, without a display.
printf '%s\r\n' '[Changer]' LoadSeconds=0.5 EjectSeconds=0.5 SpinRamp=100 ReadySeconds=0 \
  '[Experiment 1]' Title=PROTON Duration=1 '[Experiment 2]' Title=CARBON Duration=1 \
  '[Experiment 3]' Title=COSY Spin=False Duration=1 >"$root/lab.ini"
QT_QPA_PLATFORM=offscreen timeout 120 "$bin/spinlane-simulated-lab" --settings "$root/lab.ini" \
  "$build/tests/run_queue_on_lab" "$demo" >"$root/run.log" \
  || { cat "$root/run.log"; fail "the demo queue did not run to its end in the simulated lab"; }
expect "items done in the demo run" 4 "$(grep -c $'\tDone\t' "$root/run.log")"

lintian --fail-on error "${packages[@]}"
echo "check-packages: ${packages[*]##*/} checked"
