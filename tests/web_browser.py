#!/usr/bin/env python3
"""spinlane-web's page in a real browser (headless Chromium driven by chromedriver), during a run
of the simulated laboratory: a phone opening /?user=ann sees ann's items first with their
expected end and how long until it, without sideways scrolling, and when a finished item ended;
a row goes from "In progress" to "Done" without a reload, a sample name holding markup stays text,
the "my samples" filter and its memory, the connection-lost notice when the server stops and the
recovery when it returns, and the last queue kept, greyed, when Spinlane ends. Screenshots at
390 and 1920 px.

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

# A default for the title, so that the items have expected times before PROTON has a history.
FORECAST = ["[Forecast]", "PROTON=600"]


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
    lines += FORECAST
    with open(path, "w", newline="") as f:
        f.write("\r\n".join(lines) + "\r\n")


class Web:
    """spinlane-web as a program of its own."""

    def __init__(self, program, folder, listen="127.0.0.1:0", settings="", name="web"):
        self.errors = open(os.path.join(folder, name + ".err"), "a+")
        config = os.path.join(folder, name + ".conf")
        with open(config, "w") as f:
            f.write("[web]\nInstrument=nmr400\n" + settings)
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


def until(what, condition, timeout=30, shown=None):
    """Waits for `condition`; on timeout the error says what `shown` returns at the end."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        try:
            value = condition()
            if value:
                return value
        except Exception:  # the page is between two renderings
            pass
        time.sleep(0.05)
    seen = ""
    if shown:
        try:
            seen = ": last seen %r" % shown()
        except Exception as error:  # noqa: BLE001 (only for the message)
            seen = ": %s" % error
    raise AssertionError("timed out waiting for " + what + seen)


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
                 "--window-size=390,844"]:
        options.add_argument(flag)
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


# A time as the page shows it in en-US: "9:59 PM", or "Thu, Nov 26 12:29 AM" on another day.
CLOCK = r"(?:\w{3}, \w{3} \d{1,2} )?\d{1,2}:\d\d(?: [AP]M)?"


def no_sideways_scroll(driver):
    return driver.execute_script(
        "return document.documentElement.scrollWidth <= window.innerWidth")


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
    shots = screenshots or folder
    os.makedirs(shots, exist_ok=True)
    try:
        # A phone opens the link an alert mailed to ann.
        driver.set_window_size(390, 844)
        driver.get(url + "?user=ann")
        run_state = lambda: driver.find_element(By.ID, "runState").get_attribute("textContent")
        until("the page to say Spinlane is not running",
              lambda: run_state() == "Spinlane is not running")
        expect("the linked user in the field",
               driver.find_element(By.ID, "mine").get_attribute("value"), "ann")
        expect("'the queue is empty' while nothing is known",
               driver.find_element(By.ID, "empty").is_displayed(), False)
        driver.execute_script("window.notReloaded = true;")

        spinlane = subprocess.Popen([runner, "--publish", ini], stdout=subprocess.DEVNULL,
                                    env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
        status = lambda n: driver.find_element(
            By.CSS_SELECTOR, '#queue tr[data-number="%d"] .status' % n).get_attribute("textContent")
        card = lambda n: driver.find_element(
            By.CSS_SELECTOR, '#mineCards [data-number="%d"] .answer' % n).get_attribute("textContent")
        until("item 1 in progress", lambda: status(1) == "In progress")
        expect("the run state", run_state().lower(), "running")
        # ann's items first, as cards: item 3 waits behind 1 and 2 and says when it ends, as a
        # clock time and how long until then, with nothing beyond the phone's width.
        until("ann's waiting item with its expected end",
              lambda: re.fullmatch(r"Your PROTON on position 3: expected %s, (in|about) "
                                   r"(\d+ h ?)?(\d+ min)?; 2 items before it" % CLOCK, card(3)),
              shown=lambda: card(3))
        expect("ann's cards", [c.get_attribute("data-number") for c in
                               driver.find_elements(By.CSS_SELECTOR, "#mineCards article")],
               ["1", "3"])
        expect("no sideways scrolling at 390 px", no_sideways_scroll(driver), True)
        for cell in driver.find_elements(By.CSS_SELECTOR, "#queue td.end, #mineCards .answer"):
            right = driver.execute_script("return arguments[0].getBoundingClientRect().right", cell)
            if right > 390:
                raise AssertionError("an expected end beyond the phone's edge: %r" % cell.text)
        driver.save_screenshot(os.path.join(shots, "web-phone.png"))

        # A waiting item's expected end: the likely time on the phone, the range it falls in four
        # times in five where the window has room.
        end_part = lambda part: driver.find_element(
            By.CSS_SELECTOR, '#queue tr[data-number="3"] td.end .' + part)
        expect("the likely end on the phone",
               (end_part("likely").is_displayed(), end_part("range").is_displayed()), (True, False))
        driver.set_window_size(1280, 900)
        until("the range at 1280 px", lambda: end_part("range").is_displayed()
              and not end_part("likely").is_displayed())
        if not re.fullmatch("%s-%s" % (CLOCK, CLOCK), end_part("range").get_attribute("textContent")):
            raise AssertionError("the range: %r" % end_part("range").get_attribute("textContent"))
        driver.save_screenshot(os.path.join(shots, "web-wide-running.png"))
        driver.set_window_size(390, 844)

        until("item 1 done", lambda: status(1) == "Done")
        expect("the page kept its state (no reload)",
               driver.execute_script("return window.notReloaded === true"), True)
        # A finished item says when it ended, in its card and its row.
        until("item 1's end in its card",
              lambda: re.fullmatch(r"Your PROTON on position 1: done %s" % CLOCK, card(1)),
              shown=lambda: card(1))
        until("item 1's end in its row", lambda: re.fullmatch(
            "done " + CLOCK, driver.find_element(By.CSS_SELECTOR, '#queue tr[data-number="1"] td.end')
            .get_attribute("textContent")))

        # Markup a user typed stays text.
        expect("the sample name as shown",
               driver.find_element(By.CSS_SELECTOR, '#queue tr[data-number="1"] .sample')
               .get_attribute("textContent"), HOSTILE)
        expect("scripts on the page",
               driver.execute_script("return [...document.scripts].map(s => s.getAttribute('src'))"),
               ["common.js", "page.js"])
        expect("images on the page", len(driver.find_elements(By.TAG_NAME, "img")), 0)
        expect("the markup's script ran", driver.execute_script("return window.pwned"), None)

        # My samples typed: only bob's row, also after a reload (remembered, and in the address).
        mine = driver.find_element(By.ID, "mine")
        mine.clear()
        mine.send_keys("bob")
        rows = lambda: [r.get_attribute("data-number")
                        for r in driver.find_elements(By.CSS_SELECTOR, "#queue tbody tr")]
        until("only bob's item", lambda: rows() == ["2"])
        expect("the address names the user", driver.current_url, url + "?user=bob")
        driver.get(url)
        until("the filter remembered", lambda: driver.find_element(By.ID, "mine")
              .get_attribute("value") == "bob" and rows() == ["2"])
        driver.find_element(By.ID, "mine").clear()
        driver.execute_script("document.getElementById('mine').dispatchEvent(new Event('input'))")
        until("every item again", lambda: rows() == ["1", "2", "3"])

        until("the run's end", lambda: run_state().lower() == "finished", 60)
        expect("statuses at the end", [status(n) for n in (1, 2, 3)], ["Done"] * 3)
        if SECRET in driver.page_source:
            raise AssertionError("the password reached the page")
        driver.set_window_size(1920, 1080)
        time.sleep(0.3)  # only for the picture: the layout settles after the resize
        driver.save_screenshot(os.path.join(shots, "web-wall.png"))

        # The server stops: the notice; it returns on the same port: the page recovers.
        notice = lambda: driver.find_element(By.ID, "connection").is_displayed()
        expect("the notice while connected", notice(), False)
        web.stop()
        until("the connection-lost notice", notice)
        web = Web(web_program, folder, "127.0.0.1:%d" % web.port)
        until("the notice gone", lambda: not notice(), 30)
        until("the state again", lambda: run_state().lower() == "finished")

        # Where names and users are private: no such columns, and a user's link still finds
        # exactly that user's items.
        private = Web(web_program, folder, settings="HideSampleNames=true\nHideUsers=true\n",
                      name="private")
        try:
            driver.get("http://127.0.0.1:%d/?user=ANN" % private.port)
            until("ann's cards without user IDs", lambda: [
                c.get_attribute("data-number") for c in
                driver.find_elements(By.CSS_SELECTOR, "#mineCards article")] == ["1", "3"])
            expect("the columns", [th.get_attribute("textContent") for th in
                                   driver.find_elements(By.CSS_SELECTOR, "#queue th")],
                   ["No.", "Pos.", "Experiment", "Status", "Expected start", "Expected end"])
            expect("ann's rows", rows(), ["1", "3"])
            for hidden in ("Caffeine", "Menthol", "bob"):
                if hidden in driver.page_source:
                    raise AssertionError(hidden + " reached the private page")
        finally:
            private.stop()
        driver.get(url)
        until("every item again", lambda: rows() == ["1", "2", "3"])

        # Spinlane ends: the page says so and keeps the last queue, greyed, as of when it was
        # last heard, never "the queue is empty".
        spinlane.terminate()
        spinlane.wait(10)
        spinlane = None
        until("Spinlane's end", lambda: run_state() == "Spinlane is not running")
        as_of = driver.find_element(By.ID, "asOf")
        until("the last queue's time", lambda: as_of.is_displayed() and re.fullmatch(
            "As of %s; Spinlane is not running" % CLOCK, as_of.get_attribute("textContent")))
        expect("the last queue kept", rows(), ["1", "2", "3"])
        expect("the last queue greyed", driver.execute_script(
            "return getComputedStyle(document.querySelector('#queue')).opacity < 1"), True)
        expect("'the queue is empty'", driver.find_element(By.ID, "empty").is_displayed(), False)
        driver.set_window_size(390, 844)
        time.sleep(0.3)  # only for the picture
        driver.save_screenshot(os.path.join(shots, "web-phone-not-running.png"))
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
