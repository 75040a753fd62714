#!/usr/bin/env python3
"""The facility page in a real browser (headless Chromium): two instruments publishing through a
real mosquitto with the shipped access list, spinlane-web in facility mode. The cards, one
instrument's queue on a click, "my samples" across both instruments soonest first, and an
instrument killed with SIGKILL shown offline through its last will, never as running. Then the
usage page: nothing without a login, a wrong password refused, and the manager's month as a
chart, a table and a downloaded CSV.

    facility_browser.py SPINLANE-WEB FACILITY-PUBLISHER ACL-FILE [SCREENSHOT-FOLDER]
"""

import csv
import datetime
import json
import os
import re
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time

from web_browser import browser, no_sideways_scroll, until


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


MANAGER_PASSWORD = "a long enough secret"


def add_ledger_records(ledger):
    """Four items that ended a minute ago, of two organizations on three instruments (one with a
    long name), written into the facility's ledger beside the running spinlane-web."""
    now = datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(minutes=1)
    stamp = lambda t: t.strftime("%Y-%m-%dT%H:%M:%S.000Z")
    rows = []
    for n, (instrument, organization, minutes) in enumerate(
            [("nmr400", "Chemistry", 90), ("nmr600", "Chemistry", 30),
             ("nmr400", 'Acme, "Ltd" Ünï', 60), ("nmr800-cryoprobe-west", "Chemistry", 15)], 1):
        rows.append((instrument, "L1", n, "SN%d" % n, n, "ann", organization, "S%d" % n, n,
                     "CDCl3", "PROTON", "/data/%d.kvd" % n,
                     stamp(now - datetime.timedelta(minutes=minutes)), stamp(now), "Done",
                     "Changer", 1, 1, 20, 5, 20, minutes * 60 - 60))
    with sqlite3.connect(ledger, timeout=10) as db:
        db.executemany("INSERT INTO ledger (instrument, ledger, record, item_serial, "
                       "queue_number, user_id, organization, sample_name, sample_position, "
                       "solvent, title, data_file, taken_up, ended, outcome, mode, loaded, "
                       "ejected, load_seconds, spin_seconds, eject_seconds, experiment_seconds) "
                       "VALUES (%s)" % ",".join("?" * 22), rows)
    return now.astimezone().strftime("%Y-%m")


def usage_page(driver, base, ledger, folder, screenshots):
    from selenium.webdriver.common.by import By
    month = add_ledger_records(ledger)
    downloads = os.path.join(folder, "downloads")
    os.makedirs(downloads)
    driver.execute_cdp_cmd("Browser.setDownloadBehavior",
                           {"behavior": "allow", "downloadPath": downloads})
    driver.set_window_size(1280, 1000)
    status_of = lambda path: driver.execute_async_script(
        "fetch(arguments[0]).then(r => arguments[1](r.status))", path)
    shown = lambda element_id: driver.find_element(By.ID, element_id).is_displayed()
    table = lambda: [[c.get_attribute("textContent") for c in row.find_elements(By.CSS_SELECTOR, "td, th")]
                     for row in driver.find_elements(By.CSS_SELECTOR, "#usageTable tr")]

    # Without a login: the form, no figures, and the API says 401.
    driver.get(base + "/usage")
    until("the login form", lambda: shown("login") and not shown("usage"))
    assert table() == [[], []], table()
    assert status_of("/api/v1/facility/usage/" + month) == 401

    def log_in(password):
        driver.find_element(By.ID, "user").clear()
        driver.find_element(By.ID, "user").send_keys("boss")
        driver.find_element(By.ID, "password").send_keys(password)
        driver.find_element(By.ID, "logIn").click()

    log_in("not the password")
    problem = lambda: driver.find_element(By.ID, "loginProblem").get_attribute("textContent")
    until("the refusal", lambda: problem() == "Wrong user name or password.\n")
    assert not shown("usage")

    # The failure holds the next attempt back for a second: until then the page says so.
    def logged_in():
        if shown("usage"):
            return True
        log_in(MANAGER_PASSWORD)
        until("an answer", lambda: shown("usage") or problem().startswith("Too many"), 5)
        return shown("usage")
    until("logged in", logged_in, 10)
    until("the month's table", lambda: table() == [
        ["Organization", "nmr400", "nmr600", "nmr800-cryoprobe-west", "Total"],
        ["Chemistry", "1.50", "0.50", "0.25", "2.25"],
        ['Acme, "Ltd" Ünï', "1.00", "", "", "1.00"],
        ["Total", "2.50", "0.50", "0.25", "3.25"]])
    assert driver.find_element(By.ID, "totals").text == "4 items, 3.25 instrument hours"
    chart = driver.execute_script(
        "const chart = Chart.getChart('chart');"
        "const canvas = document.getElementById('chart');"
        "const pixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;"
        "let painted = 0; for (let i = 3; i < pixels.length; i += 4) painted += pixels[i] > 0;"
        "return {labels: chart.data.labels, stacks: chart.data.datasets.map(d => [d.label, d.data]),"
        "        painted: painted, stacked: chart.options.scales.x.stacked};")
    assert chart["labels"] == ["Chemistry", 'Acme, "Ltd" Ünï'], chart
    assert chart["stacks"] == [["nmr400", [1.5, 1]], ["nmr600", [0.5, 0]],
                               ["nmr800-cryoprobe-west", [0.25, 0]]], chart
    assert chart["stacked"] and chart["painted"] > 1000, chart
    if screenshots:
        driver.save_screenshot(os.path.join(screenshots, "facility-usage.png"))
    # On a phone the table scrolls within itself, never the page.
    driver.set_window_size(390, 844)
    until("no sideways scrolling at 390 px", lambda: no_sideways_scroll(driver))
    if screenshots:
        driver.save_screenshot(os.path.join(screenshots, "facility-usage-phone.png"))

    driver.find_element(By.ID, "download").click()
    csv_file = os.path.join(downloads, "spinlane-usage-%s.csv" % month)
    until("the download", lambda: os.path.exists(csv_file), 15)
    with open(csv_file, encoding="utf-8-sig", newline="") as f:
        rows = list(csv.reader(f))
    assert rows == [["organization", "instrument", "items", "instrument_hours"],
                    ['Acme, "Ltd" Ünï', "nmr400", "1", "1.00"],
                    ["Chemistry", "nmr400", "1", "1.50"],
                    ["Chemistry", "nmr600", "1", "0.50"],
                    ["Chemistry", "nmr800-cryoprobe-west", "1", "0.25"]], rows

    # Logged out: the form again, and no figures from the API.
    driver.find_element(By.ID, "logOut").click()
    until("logged out", lambda: shown("login") and not shown("usage"))
    assert status_of("/api/v1/facility/usage/" + month) == 401


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

    managers = os.path.join(folder, "managers")
    facility = config("facility", "Mode=facility\nManagers=%s\n" % managers)
    subprocess.run([web_program, "--config", facility, "--set-manager", "boss"],
                   input=MANAGER_PASSWORD + "\n", text=True, check=True,
                   stderr=subprocess.DEVNULL)
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

        usage_page(driver, "http://127.0.0.1:%s" % match.group(1),
                   os.path.join(folder, "facility.ledger"), folder, screenshots)
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
