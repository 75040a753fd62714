#!/usr/bin/env bash
# Tries the facility page on one machine, from a built checkout: a mosquitto of its own on
# 127.0.0.1:1884 with the shipped access list, two simulated instruments (nmr400 and nmr600), each
# in a folder of its own (settings file, ledger, spinlane-web configuration) running the
# demo queue in real time with the demo laboratory's short experiments (20 to 45 seconds) and
# publishing through its spinlane-web, and the facility page at http://127.0.0.1:8480/. The lab's
# default times for the demo's experiments are in each settings file's [Forecast] section, so the
# expected times, progress bars and ends are true from the start. Every item run lands in the
# facility's ledger too (its path is printed, for spinlane-ledger). Ctrl-C (or SIGTERM) ends
# everything it started and removes its folder.
#
#   scripts/try-facility.sh [FACILITY-PORT]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${SPINLANE_BUILD_DIR:-$PWD/build}"
port="${1:-8480}"
for program in web/spinlane-web tests/run_queue_on_lab sim/spinlane-simulated-lab; do
  [[ -x "$build/$program" ]] || { echo "$0: $build/$program is missing: run scripts/run.sh first" >&2; exit 1; }
done
if ! command -v mosquitto >/dev/null || ! command -v mosquitto_passwd >/dev/null; then
  echo "$0: needs Debian's mosquitto (sudo apt install mosquitto)" >&2
  exit 1
fi

F="$(mktemp -d /tmp/spinlane-facility.XXXXXX)"
# Each part runs in a process group of its own (setsid), so that the end reaches everything it
# started: the simulated laboratories' buses and simulators too.
pids=()
start() {
  setsid "$@" &
  pids+=($!)
}
cleanup() {
  trap - EXIT INT TERM
  for pid in "${pids[@]}"; do kill -TERM -- "-$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$F"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mosquitto_passwd -c -b "$F/passwd" nmr400 pw400
mosquitto_passwd -b "$F/passwd" nmr600 pw600
mosquitto_passwd -b "$F/passwd" facility pwfac
printf 'listener 1884 127.0.0.1\nallow_anonymous false\npassword_file %s\nacl_file %s\n' \
  "$F/passwd" "$PWD/examples/mosquitto/spinlane.acl" >"$F/mosquitto.conf"
[[ "$(id -u)" -ne 0 ]] || printf 'user %s\n' "$(id -un)" >>"$F/mosquitto.conf"
start mosquitto -c "$F/mosquitto.conf" 2>"$F/mosquitto.log"

for name in nmr400 nmr600; do
  mkdir "$F/$name"
  printf '[web]\nInstrument=%s\nListen=127.0.0.1:0\n[broker]\nHost=127.0.0.1\nPort=1884\nUser=%s\nPassword=pw%s\n[ledger]\nFile=%s\n' \
    "$name" "$name" "${name#nmr}" "$F/$name/Spinlane.ledger" >"$F/$name/web.conf"
  chmod 600 "$F/$name/web.conf"
  # The demo queue, with the demo laboratory's experiment times as the lab's defaults.
  { cat "$build/demo/Spinlane.INI"; printf '[Forecast]\r\nPROTON=20\r\nCARBON=45\r\nCOSY=40\r\n'; } \
    >"$F/$name/Spinlane.INI"
  # Each instrument on a simulated laboratory of its own; its Spinlane keeps real time.
  start "$build/sim/spinlane-simulated-lab" sh -c "
    '$build/tests/run_queue_on_lab' --publish --real-time '$F/$name/Spinlane.INI' >'$F/$name/run.log' &
    exec '$build/web/spinlane-web' --config '$F/$name/web.conf'" 2>"$F/$name/lab.log"
done

printf '[web]\nMode=facility\nListen=127.0.0.1:%s\nManagers=%s\n[broker]\nHost=127.0.0.1\nPort=1884\nUser=facility\nPassword=pwfac\n[ledger]\nDatabase=%s\n' \
  "$port" "$F/managers" "$F/facility.ledger" >"$F/facility.conf"
chmod 600 "$F/facility.conf"
# A manager for the usage page.
echo "try-facility" | "$build/web/spinlane-web" --config "$F/facility.conf" --set-manager manager 2>/dev/null
start "$build/web/spinlane-web" --config "$F/facility.conf"
echo "try-facility: the facility page is http://127.0.0.1:$port/ (Ctrl-C ends the try-out)" >&2
echo "try-facility: the usage page is http://127.0.0.1:$port/usage (user manager, password try-facility)" >&2
echo "try-facility: what ran: $build/tools/spinlane-ledger/spinlane-ledger report --database $F/facility.ledger --from $(date +%F) --to $(date +%F) --by instrument" >&2
wait "${pids[@]}"
