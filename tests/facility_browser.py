#!/usr/bin/env python3
"""The facility page in a real browser (headless Chromium): two instruments publishing through a
real mosquitto with the shipped access list, spinlane-web in facility mode. The cards, one
instrument's queue on a click, "my samples" across both instruments soonest first, and an
instrument killed with SIGKILL shown offline through its last will, never as running.

    facility_browser.py SPINLANE-WEB FACILITY-PUBLISHER ACL-FILE [SCREENSHOT-FOLDER]
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

from web_browser import browser, until


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def state(name, run_state, start_minute, users):
    """A schema-1 state: item 1 done, item 2 in progress while running, a minute each."""
    queue = []
    for n, user in enumerate(users, 1):
        status = "Done" if n == 1 else ("In progress" if n == 2 and run_state == "running"
                                        else "Queued")
        minute = start_minute + n
        queue.append({"number": n, "position": n, "sample": "%s-S%d" % (name, n),
                      "experiment": "PROTON", "user": user, "status": status,
                      "expectedStart": "" if n == 1 else "2030-01-01T10:%02d:00Z" % minute,
                      "expectedEnd": "" if n == 1 else "2030-01-01T10:%02d:30Z" % minute,
                      "expectedSeconds": 30, "basis": "history", "runs": 3})
    current = queue[1] if run_state == "running" else None
    return {"schema": 1, "instrument": name, "spinlane": True,
            "updated": "2030-01-01T10:00:00Z", "runState": run_state, "ifStartedNow": False,
            "queueEnd": "2030-01-01T11:00:00Z", "current": current, "queue": queue}


def write_private(path, text):
    with open(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w") as f:
        f.write(text)


def main():
    if len(sys.argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    web_program, publisher, acl = sys.argv[1:4]
    screenshots = sys.argv[4] if len(sys.argv) > 4 else ""
    folder = tempfile.mkdtemp(prefix="spinlane-facility-browser-")
    port = free_port()
    users = {"nmr400": "pw400", "nmr600": "pw600", "facility": "pwfac"}
    passwd = os.path.join(folder, "passwd")
    for n, (user, password) in enumerate(users.items()):
        subprocess.run(["mosquitto_passwd"] + (["-c"] if n == 0 else []) +
                       ["-b", passwd, user, password], check=True)
    import pwd
    write_private(os.path.join(folder, "mosquitto.conf"),
                  "listener %d 127.0.0.1\nallow_anonymous false\nuser %s\npassword_file %s\n"
                  "acl_file %s\n" % (port, pwd.getpwuid(os.getuid()).pw_name, passwd, acl))
    processes = []

    def start(arguments, **kwargs):
        process = subprocess.Popen(arguments, **kwargs)
        processes.append(process)
        return process

    broker = start(["mosquitto", "-c", os.path.join(folder, "mosquitto.conf")],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    until("the broker", lambda: socket.create_connection(("127.0.0.1", port), 1).close() or True,
          10)

    def config(name, extra=""):
        path = os.path.join(folder, name + ".conf")
        write_private(path, "[web]\n%s[broker]\nHost=127.0.0.1\nPort=%d\nUser=%s\nPassword=%s\n"
                      "Heartbeat=1\nOfflineAfter=30\n" % (extra, port, name, users[name]))
        return path

    publishers = {}
    for name, run_state, start_minute, queue_users in [
            ("nmr400", "running", 0, ["ann", "bob", "cy", "bob"]),
            ("nmr600", "idle", 0, ["bob", "ann", "bob"])]:
        path = os.path.join(folder, name + ".json")
        with open(path, "w") as f:
            json.dump(state(name, run_state, start_minute, queue_users), f)
        publishers[name] = start([publisher, config(name), name], stdin=subprocess.PIPE,
                                 stdout=subprocess.DEVNULL, text=True)
        publishers[name].stdin.write(path + "\n")
        publishers[name].stdin.flush()

    facility = config("facility", "Mode=facility\n")
    with open(facility, "a") as f:
        f.write("[ledger]\nDatabase=%s\n" % os.path.join(folder, "facility.ledger"))
    web = start([web_program, "--config", facility, "--listen", "127.0.0.1:0"],
                stderr=subprocess.PIPE, text=True)
    said = ""
    match = None
    while not match and web.poll() is None and said.count("\n") < 10:
        said += web.stderr.readline()
        match = re.search(r"at http://127\.0\.0\.1:(\d+)/", said)
    if not match:
        for process in processes:
            process.kill()
        raise RuntimeError("spinlane-web did not start: " + said)
    driver = browser(folder)
    try:
        from selenium.webdriver.common.by import By
        driver.get("http://127.0.0.1:%s/" % match.group(1))
        card = lambda name: driver.find_element(By.CSS_SELECTOR,
                                                'article.card[data-instrument="%s"]' % name)
        card_state = lambda name: card(name).find_element(By.CSS_SELECTOR, ".state") \
            .get_attribute("textContent")
        until("both cards", lambda: [c.get_attribute("data-instrument") for c in
                                     driver.find_elements(By.CSS_SELECTOR, "article.card")]
              == ["nmr400", "nmr600"])
        until("nmr400 running", lambda: card_state("nmr400") == "running")
        # The cards are drawn anew with every message: each read is retried until it holds.
        text = lambda name, part: card(name).find_element(By.CSS_SELECTOR, part) \
            .get_attribute("textContent")
        until("nmr600 idle", lambda: card_state("nmr600") == "idle")
        until("nmr400's current item",
              lambda: text("nmr400", ".current") == "002 nmr400-S2 PROTON · bob")
        until("nmr600's queue length",
              lambda: text("nmr600", ".length") == "2 waiting of 3 in the queue")
        # The item being run is not waiting any more.
        until("nmr400's queue length",
              lambda: text("nmr400", ".length") == "2 waiting of 4 in the queue")

        # One instrument's whole queue on a click.
        until("a click on nmr600", lambda: card("nmr600").click() or True)
        samples_in = lambda table: [r.find_element(By.CSS_SELECTOR, ".sample")
                                    .get_attribute("textContent")
                                    for r in driver.find_elements(By.CSS_SELECTOR,
                                                                  "#%s tbody tr" % table)]
        until("nmr600's queue", lambda: samples_in("queue") == ["nmr600-S1", "nmr600-S2",
                                                               "nmr600-S3"])

        # My samples, opened by a link: bob's items not done on both instruments, soonest
        # expected start first.
        driver.get("http://127.0.0.1:%s/?user=bob" % match.group(1))
        until("bob's samples", lambda: samples_in("samples") ==
              ["nmr400-S2", "nmr600-S3", "nmr400-S4"])

        if screenshots:
            os.makedirs(screenshots, exist_ok=True)
            driver.save_screenshot(os.path.join(screenshots, "facility.png"))

        # nmr400's workstation vanishes: its will says offline at once.
        publishers["nmr400"].send_signal(signal.SIGKILL)
        until("nmr400 offline", lambda: card_state("nmr400") == "offline", 10)
        until("nmr400 shown offline", lambda: card("nmr400").get_attribute("class") == "card offline"
              and text("nmr400", ".heard").startswith("Left the broker · last heard ")
              and not card("nmr400").find_elements(By.CSS_SELECTOR, ".current"))
        until("nmr600 still idle", lambda: card_state("nmr600") == "idle")
        until("bob's samples marked", lambda: driver.find_element(
            By.CSS_SELECTOR, "#samples tbody tr .instrument").get_attribute("textContent")
            == "nmr400 (offline)")
        if screenshots:
            driver.save_screenshot(os.path.join(screenshots, "facility-offline.png"))
        print("facility_browser: passed")
    finally:
        driver.quit()
        for process in reversed(processes):
            if process.poll() is None:
                process.terminate()
                process.wait(10)
        del broker
    return 0


if __name__ == "__main__":
    sys.exit(main())
