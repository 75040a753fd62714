#!/usr/bin/env python3
"""scripts/run.sh's start sequence, as a newcomer follows the README: it starts spinlane-web
beside Spinlane in the shared simulated laboratory; the page's API and spinlane-status (through
`scripts/with-simulated-lab.sh --attach`, and through the environment line it prints) answer about
the same Spinlane; a second run.sh is found again by both. Spinlane is the tests' window-less
stand-in (run_queue_on_lab --publish), the build is the one given.

    run_script.py SOURCE-FOLDER BUILD-FOLDER
"""

import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.request

SAMPLES = ["Quinine", "Menthol", "Caffeine"]


def spinlane_ini(path, version, start):
    samples = ["%s-%d" % (sample, start) for sample in SAMPLES]
    lines = ["[General]", "Version Number=" + version, "AlwaysOnTop=False", "ExpQueueOnly=False",
             "Password=demo", "Sample Control=2", "Queue Layout=1", "Current Queue Num=0",
             "Total Queue Items=%d" % len(SAMPLES)]
    for n, sample in enumerate(samples, 1):
        lines += ["[Item %d]" % n, "Item S/N=SN%d" % n, "Sample Num=%d" % n,
                  "Sample Name=" + sample, "Sample Des=", "Solvent=CDCl3", "Exp Title Index=0",
                  "User ID=ann", "Organization=Chem", "Output File Path=/data/%d.kvd" % n,
                  "Status=Idle"]
    with open(path, "w", newline="") as f:
        f.write("\r\n".join(lines) + "\r\n")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def until(what, condition, timeout=60):
    deadline = time.monotonic() + timeout
    last = None
    while time.monotonic() < deadline:
        try:
            last = condition()
            if last:
                return last
        except Exception as error:  # noqa: BLE001 (not up yet)
            last = error
        time.sleep(0.1)
    raise AssertionError("timed out waiting for %s (last: %r)" % (what, last))


def api(port):
    with urllib.request.urlopen("http://127.0.0.1:%d/api/v1/instrument" % port, timeout=5) as r:
        return json.load(r)


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    source, build = sys.argv[1:3]
    folder = tempfile.mkdtemp(prefix="spinlane-run-script-")
    ini = os.path.join(folder, "Spinlane.INI")
    version = subprocess.run([os.path.join(build, "web", "spinlane-web"), "--version"],
                             capture_output=True, text=True, check=True).stdout.split()[-1]
    port = free_port()
    env = {k: v for k, v in os.environ.items() if k != "DBUS_SESSION_BUS_ADDRESS"}
    env.update(SPINLANE_BUILD_DIR=build, SPINLANE_LAB_SOCKET=os.path.join(folder, "lab.bus"),
               SPINLANE_WEB_LISTEN="127.0.0.1:%d" % port, QT_QPA_PLATFORM="offscreen",
               SPINLANE_RUN_PROGRAM="%s --publish %s" % (
                   os.path.join(build, "tests", "run_queue_on_lab"), ini))
    run_sh = os.path.join(source, "scripts", "run.sh")
    attach = [os.path.join(source, "scripts", "with-simulated-lab.sh"), "--attach"]
    status_tool = os.path.join(build, "tools", "spinlane-status", "spinlane-status")

    # Nothing runs yet: --attach says so.
    nothing = subprocess.run(attach + [status_tool], env=env, capture_output=True, text=True,
                             timeout=30)
    if nothing.returncode != 3 or "no simulated laboratory" not in nothing.stderr:
        raise AssertionError("--attach without a laboratory: %r" % (nothing,))

    for start in (1, 2):
        # Each start's own sample names: the answers are about this Spinlane, not the last one.
        spinlane_ini(ini, version, start)
        samples = ["%s-%d" % (sample, start) for sample in SAMPLES]
        log = open(os.path.join(folder, "run-%d.log" % start), "w+")
        run = subprocess.Popen(["bash", run_sh, "--no-build"], env=env, stdout=log, stderr=log,
                               start_new_session=True)
        try:
            # The page's address as run.sh prints it, and the page about a Spinlane that ran.
            until("run.sh's page address", lambda: "http://127.0.0.1:%d/" % port in
                  open(log.name).read(), 60)
            state = until("the page about this Spinlane", lambda: (lambda d: d if d["spinlane"]
                          and d["queue"] else None)(api(port)), 90)
            page = [item["sample"] for item in state["queue"]]
            if page != samples:
                raise AssertionError("the page's queue: %r" % page)

            # spinlane-status reaches the same Spinlane, as run.sh says, and through the line.
            text = open(log.name).read()
            said = re.search(r"from another terminal: (.*)", text)
            if not said or "--attach" not in said.group(1):
                raise AssertionError("run.sh names no way to spinlane-status:\n" + text)
            queue = subprocess.run(attach + [status_tool, "--queue"], env=env,
                                   capture_output=True, text=True, timeout=30)
            rows = [line.split() for line in queue.stdout.splitlines()[1:]
                    if line[:1].isdigit()]
            terminal = [row[3] if len(row) > 3 else "" for row in rows]
            if queue.returncode != 0 or terminal != samples:
                raise AssertionError("spinlane-status --queue: %r" % (queue,))
            line = subprocess.run(attach, env=env, capture_output=True, text=True, timeout=30)
            shell = subprocess.run(["bash", "-c", line.stdout + status_tool], env=env,
                                   capture_output=True, text=True, timeout=30)
            if shell.returncode != 0 or not re.search(r"Run state: +(idle|running|finished)",
                                                      shell.stdout):
                raise AssertionError("spinlane-status after the environment line: %r" % (shell,))
        finally:
            os.killpg(run.pid, signal.SIGTERM)
            try:
                run.wait(30)
            except subprocess.TimeoutExpired:
                os.killpg(run.pid, signal.SIGKILL)
                run.wait(10)
        # Once it has ended, nothing answers at the address any more.
        gone = subprocess.run(attach + [status_tool], env=env, capture_output=True, text=True,
                              timeout=30)
        if gone.returncode != 3:
            raise AssertionError("after run.sh ended: %r" % (gone,))
    print("run_script: passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
