#!/usr/bin/env python3
"""spinlane-web's page in a real browser (headless Chromium driven by chromedriver), during a run
of the simulated laboratory: a row goes from "In progress" to "Done" without a reload, a sample
name holding markup stays text, the "my samples" filter and its memory, the connection-lost
notice when the server stops and the recovery when it returns.

    web_browser.py SIMULATED-LAB SPINLANE-WEB RUN-QUEUE-ON-LAB [SCREENSHOT-FOLDER]

It starts itself again inside the simulated laboratory (SIMULATED-LAB, the launcher of the build).
"""

import os
import re
import subprocess
import sys
import tempfile
import time

SECRET = "pa55-w0rd-never-served"
HOSTILE = "<script>window.pwned=1</script><img src=x onerror=\"window.pwned=2\">"

# Loads and ejects of a fraction of a second, experiments of three seconds: long enough for the
# browser to see each item in progress.
LAB = "\r\n".join(["[Changer]", "LoadSeconds=0.3", "EjectSeconds=0.3", "SpinRamp=100",
                   "ReadySeconds=0", "[Experiment 1]", "Title=PROTON", "Duration=3", ""])


def spinlane_ini(path, version):
    items = [("ann", HOSTILE), ("bob", "Caffeine"), ("ann", "Menthol")]
    lines = ["[General]", "Version Number=" + version, "AlwaysOnTop=False", "ExpQueueOnly=False",
             "Password=" + SECRET, "Sample Control=2", "Queue Layout=1", "Current Queue Num=0",
             "Total Queue Items=%d" % len(items)]
    for n, (user, sample) in enumerate(items, 1):
        lines += ["[Item %d]" % n, "Item S/N=SN%d" % n, "Sample Num=%d" % n,
                  "Sample Name=" + sample, "Sample Des=", "Solvent=CDCl3", "Exp Title Index=0",
                  "User ID=" + user, "Organization=Chem", "Output File Path=/data/%d.kvd" % n,
                  "Status=Idle"]
    with open(path, "w", newline="") as f:
        f.write("\r\n".join(lines) + "\r\n")


class Web:
    """spinlane-web as a program of its own."""

    def __init__(self, program, folder, listen="127.0.0.1:0"):
        self.errors = open(os.path.join(folder, "web.err"), "a+")
        config = os.path.join(folder, "web.conf")
        with open(config, "w") as f:
            f.write("[web]\nInstrument=nmr400\n")
        self.process = subprocess.Popen([program, "--config", config, "--listen", listen],
                                        stderr=subprocess.PIPE, text=True)
        line = self.process.stderr.readline()
        match = re.search(r"at http://127\.0\.0\.1:(\d+)/", line)
        if not match:
            raise RuntimeError("spinlane-web did not start: " + line)
        self.port = int(match.group(1))

    def stop(self):
        self.process.terminate()
        self.process.wait(10)


def until(what, condition, timeout=30):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        try:
            value = condition()
            if value:
                return value
        except Exception:  # the page is between two renderings
            pass
        time.sleep(0.05)
    raise AssertionError("timed out waiting for " + what)


def expect(what, actual, expected):
    if actual != expected:
        raise AssertionError("%s: expected %r, got %r" % (what, expected, actual))


def browser(folder):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                 "--no-first-run", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
                 "--user-data-dir=" + os.path.join(folder, "profile"), "--lang=en-US",
                 "--window-size=1280,900"]:
        options.add_argument(flag)
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def inside_lab(web_program, runner, screenshots):
    from selenium.webdriver.common.by import By

    folder = tempfile.mkdtemp(prefix="spinlane-web-browser-")
    ini = os.path.join(folder, "Spinlane.INI")
    version = subprocess.run([web_program, "--version"], capture_output=True, text=True,
                             check=True).stdout.split()[-1]
    spinlane_ini(ini, version)
    web = Web(web_program, folder)
    url = "http://127.0.0.1:%d/" % web.port
    driver = browser(folder)
    spinlane = None
    try:
        driver.get(url)
        run_state = lambda: driver.find_element(By.ID, "runState").get_attribute("textContent")
        until("the page to say Spinlane is not running",
              lambda: run_state() == "Spinlane is not running")
        driver.execute_script("window.notReloaded = true;")

        spinlane = subprocess.Popen([runner, "--publish", ini], stdout=subprocess.DEVNULL,
                                    env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
        status = lambda n: driver.find_element(
            By.CSS_SELECTOR, 'tr[data-number="%d"] .status' % n).get_attribute("textContent")
        until("item 1 in progress", lambda: status(1) == "In progress")
        expect("the run state", run_state().lower(), "running")
        until("item 1 done", lambda: status(1) == "Done")
        expect("the page kept its state (no reload)",
               driver.execute_script("return window.notReloaded === true"), True)

        # Markup a user typed stays text.
        expect("the sample name as shown",
               driver.find_element(By.CSS_SELECTOR, 'tr[data-number="1"] .sample')
               .get_attribute("textContent"), HOSTILE)
        expect("scripts on the page",
               driver.execute_script("return [...document.scripts].map(s => s.getAttribute('src'))"),
               ["common.js", "page.js"])
        expect("images on the page", len(driver.find_elements(By.TAG_NAME, "img")), 0)
        expect("the markup's script ran", driver.execute_script("return window.pwned"), None)

        # My samples: only bob's row, also after a reload.
        mine = driver.find_element(By.ID, "mine")
        mine.send_keys("bob")
        rows = lambda: [r.get_attribute("data-number")
                        for r in driver.find_elements(By.CSS_SELECTOR, "#queue tbody tr")]
        until("only bob's item", lambda: rows() == ["2"])
        driver.refresh()
        until("the filter remembered", lambda: driver.find_element(By.ID, "mine")
              .get_attribute("value") == "bob" and rows() == ["2"])
        driver.find_element(By.ID, "mine").clear()
        driver.execute_script("document.getElementById('mine').dispatchEvent(new Event('input'))")
        until("every item again", lambda: rows() == ["1", "2", "3"])

        until("the run's end", lambda: run_state().lower() == "finished", 60)
        expect("statuses at the end", [status(n) for n in (1, 2, 3)], ["Done"] * 3)
        if SECRET in driver.page_source:
            raise AssertionError("the password reached the page")

        if screenshots:
            os.makedirs(screenshots, exist_ok=True)
            for name, width, height in [("phone", 390, 844), ("wall", 1920, 1080)]:
                driver.set_window_size(width, height)
                time.sleep(0.3)
                driver.save_screenshot(os.path.join(screenshots, "web-%s.png" % name))

        # The server stops: the notice; it returns on the same port: the page recovers.
        notice = lambda: driver.find_element(By.ID, "connection").is_displayed()
        expect("the notice while connected", notice(), False)
        web.stop()
        until("the connection-lost notice", notice)
        web = Web(web_program, folder, "127.0.0.1:%d" % web.port)
        until("the notice gone", lambda: not notice(), 30)
        until("the state again", lambda: run_state().lower() == "finished")
        print("web_browser: passed")
    finally:
        driver.quit()
        if spinlane:
            spinlane.terminate()
            spinlane.wait(10)
        web.stop()


def main():
    if len(sys.argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    lab, web_program, runner = sys.argv[1:4]
    screenshots = sys.argv[4] if len(sys.argv) > 4 else ""
    if os.environ.get("SPINLANE_WEB_BROWSER_INSIDE") != "1":
        folder = tempfile.mkdtemp(prefix="spinlane-web-lab-")
        settings = os.path.join(folder, "lab.ini")
        with open(settings, "w", newline="") as f:
            f.write(LAB)
        env = dict(os.environ, SPINLANE_WEB_BROWSER_INSIDE="1")
        return subprocess.call([lab, "--settings", settings, sys.executable] + sys.argv,
                               env=env)
    inside_lab(web_program, runner, screenshots)
    return 0


if __name__ == "__main__":
    sys.exit(main())
