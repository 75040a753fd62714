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
for name in spinlane spinlane-ini spinlane-ledger spinlane-adapter spinlane-web spinlane-simulated-lab; do
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
# Every item of the run is in the ledger beside the settings file, as the packaged report reads it.
expect "items done in the ledger's report" 4 \
  "$("$bin/spinlane-ledger" report --database "${demo%/*}/Spinlane.ledger" --from 2000-01-01 \
     --to 2999-12-31 --format csv | sed -n 's/^Total,[0-9]*,\([0-9]*\),.*/\1/p')"

# spinlane-web from the package beside a published run of the demo queue: the page, the API that
# follows the run to its end, and the metrics.
grep -qx "ExecStart=$prefix/bin/spinlane-web" "$root$prefix/lib/systemd/user/spinlane-web.service" \
  || fail "the web server's systemd user unit is missing or starts another program"
cat >"$root/web-check.sh" <<'EOF'
set -euo pipefail
bin=$1 runner=$2 demo=$3 out=$4
"$bin/spinlane-web" --config "$out/none.conf" --listen 127.0.0.1:0 2>"$out/web.err" &
web=$!
QT_QPA_PLATFORM=offscreen "$runner" --publish "$demo" >/dev/null &
run=$!
trap 'kill $run $web 2>/dev/null; wait; cat "$out/web.err" >&2' EXIT
port=
for _ in $(seq 100); do
  port=$(sed -n 's|.*at http://127\.0\.0\.1:\([0-9]*\)/.*|\1|p' "$out/web.err")
  [[ -n $port ]] && break
  sleep 0.1
done
[[ -n $port ]] || { cat "$out/web.err" >&2; exit 1; }
for _ in $(seq 600); do
  curl -sf "http://127.0.0.1:$port/api/v1/instrument" >"$out/api.json" \
    && grep -q '"runState":"finished"' "$out/api.json" && break
  sleep 0.2
done
curl -sf "http://127.0.0.1:$port/" >"$out/page.html"
curl -sf "http://127.0.0.1:$port/metrics" >"$out/metrics.txt"
EOF
QT_QPA_PLATFORM=offscreen timeout 120 "$bin/spinlane-simulated-lab" --settings "$root/lab.ini" \
  bash "$root/web-check.sh" "$bin" "$build/tests/run_queue_on_lab" "$demo" "$root" \
  || fail "spinlane-web did not serve the demo run"
grep -q '<script src="page.js"' "$root/page.html" || fail "spinlane-web's page is missing"
grep -q '"runState":"finished"' "$root/api.json" && grep -q '"schema":1' "$root/api.json" \
  && grep -q '"spinlane":true' "$root/api.json" \
  || fail "spinlane-web's API did not follow the run: $(cat "$root/api.json")"
expect "items done in spinlane-web's API" 4 \
  "$(grep -oE '"runs":[0-9]+,"sample":"[^"]*","status":"Done"' "$root/api.json" | wc -l)"
grep -q '^spinlane_queue_items{instrument="[^"]*",status="Done"} 4$' "$root/metrics.txt" \
  || fail "spinlane-web's metrics: $(cat "$root/metrics.txt")"

lintian --fail-on error "${packages[@]}"
echo "check-packages: ${packages[*]##*/} checked"
