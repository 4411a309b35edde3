#!/usr/bin/python3
"""Browser tests of `sorvel gadget`: the real page in Debian's headless Chromium, driven through
chromium-driver, against the standalone sandbox. Every test saves a screenshot. The page is held
to axe-core (tests/gadget/vendor/axe-core, run in the page) in every state it can be in.

Environment (set by CTest): SORVEL_PROGRAM, SORVEL_SANDBOX_PROGRAM, SORVEL_SHOTS (the folder of
the screenshots).
"""

import gzip
import hashlib
import http.client
import json
import math
import os
import re
import select
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest
import urllib.parse
import wave

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

PROGRAM = os.environ.get("SORVEL_PROGRAM", "build/default/bin/sorvel")
SANDBOX = os.environ.get("SORVEL_SANDBOX_PROGRAM", "build/default/bin/sorvel-sandbox")
SHOTS = os.environ.get("SORVEL_SHOTS", "build/browser-shots")
# Every upload is answered this late, so that an upload can be watched and cancelled.
UPLOAD_DELAY_MS = 1200
WAIT = 30
AXE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "vendor", "axe-core", "axe.min.js.gz")
AXE_VERSION = "4.10.3"
# The published axe.min.js of that version, as the package's own record gives its digest.
AXE_SHA256 = "880970c081707360e64f34cea25ff91892f5bc95675b0776925b9709dd8a68bb"
# The rules the page is held to: WCAG 2.0 and 2.1, levels A and AA. The best-practice rules run too
# and are reported.
WCAG_TAGS = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa"]
GRID = '[data-list=":trackList"] [role=grid]'
# With checked_files(): the third file's ISRC is malformed.
CHECKED_ISRCS = ["--isrc", "QZDEM2600201", "--isrc", "qz-dem-26-00202", "--isrc", "QZ-DEM-26"]


def write_tone(path, seconds=1.0, frequency=440.0, amplitude=6000):
    with wave.open(path, "wb") as out:
        out.setnchannels(2)
        out.setsampwidth(2)
        out.setframerate(44100)
        frames = bytearray()
        for i in range(int(44100 * seconds)):
            sample = int(amplitude * math.sin(2 * math.pi * frequency * i / 44100))
            frames += struct.pack("<hh", sample, sample)
        out.writeframes(bytes(frames))


class Sandbox:
    """The standalone emulator of the service, with its addresses and demo login."""

    def __init__(self):
        self.process = subprocess.Popen([SANDBOX, "--port", "0", "--quiet", "--slow-upload", str(UPLOAD_DELAY_MS)],
                                        stdout=subprocess.PIPE, text=True)
        self.fields = {}
        for line in self.process.stdout:
            match = re.match(r"\s+([A-Za-z ]+):\s+(.*)$", line)
            if match:
                self.fields[match.group(1).strip()] = match.group(2).strip()
            if line.startswith("Press Ctrl+C"):
                break
        login = re.match(r"(\S+) / (\S+)", self.fields["Demo login"])
        self.user, self.password = login.group(1), login.group(2)

    def environment(self):
        return {"SORVEL_SERVER_URL": self.fields["API base URL"], "SORVEL_LOGIN_URL": self.fields["Login URL"],
                "SORVEL_PARTNER_ID": self.fields["Partner id"], "SORVEL_PARTNER_KEY": self.fields["Partner key"]}

    def expire_sessions(self):
        """Ends every sign-in handed out so far (the sandbox's SIGUSR1) once the sandbox says so."""
        self.process.send_signal(signal.SIGUSR1)
        deadline = time.monotonic() + WAIT
        while time.monotonic() < deadline:
            ready, _, _ = select.select([self.process.stdout], [], [], deadline - time.monotonic())
            if ready and "Sessions expired." in self.process.stdout.readline():
                return
        raise AssertionError("the sandbox did not expire the sessions")

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(timeout=WAIT)


def home_environment(home):
    """The folders of a user whose home is `home`: configuration, cache and state (the ledger)."""
    return {"HOME": home, "XDG_CONFIG_HOME": os.path.join(home, "config"), "XDG_CACHE_HOME": os.path.join(home, "cache"),
            "XDG_STATE_HOME": os.path.join(home, "state")}


class GadgetHost:
    """`sorvel gadget` with a private home, configured for the sandbox."""

    def __init__(self, sandbox, files=(), arguments=(), home=None):
        # A home of its own, or one a test keeps across gadgets (its publish ledger stays).
        self.owns_home = home is None
        self.home = home or tempfile.TemporaryDirectory(prefix="sorvel-gadget-")
        environment = {key: value for key, value in os.environ.items() if not key.startswith("SORVEL_")}
        environment.update(sandbox.environment())
        environment.update(home_environment(self.home.name))
        # No keyring: the gadget starts signed out, as on a first run.
        environment.pop("DBUS_SESSION_BUS_ADDRESS", None)
        self.process = subprocess.Popen([PROGRAM, "gadget", "--no-browser", *arguments, *files], stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, env=environment)
        line = self.process.stdout.readline()
        match = re.match(r"Sorvel gadget: (http://127\.0\.0\.1:(\d+)/([0-9a-f]+)/)$", line.strip())
        if not match:
            self.process.kill()
            raise AssertionError(f"no address from sorvel gadget: {line!r} {self.process.stderr.read()}")
        self.address, self.port, self.secret = match.group(1), int(match.group(2)), match.group(3)

    def stop(self):
        """Interrupts the host as Ctrl+C does; its exit code."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        code = self.process.wait(timeout=WAIT)
        # What the host left in its cache: rendered and dropped files go when it ends.
        cache = os.path.join(self.home.name, "cache", "sorvel")
        self.leftovers = [os.path.join(folder, name) for folder, _, names in os.walk(cache) for name in names]
        self.process.stdout.close()
        self.process.stderr.close()
        if self.owns_home:
            self.home.cleanup()
        return code


class GadgetPageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        os.makedirs(SHOTS, exist_ok=True)
        cls.sandbox = Sandbox()
        cls.media = tempfile.TemporaryDirectory(prefix="sorvel-media-")
        cls.files = []
        for name, frequency in (("Morning Song", 440.0), ("Evening Tune", 330.0)):
            path = os.path.join(cls.media.name, f"{name}.wav")
            write_tone(path, 1.0, frequency)
            cls.files.append(path)
        # A full-scale tone: the pre-flight report warns of its clipping and loudness.
        cls.hot = os.path.join(cls.media.name, "Too Hot.wav")
        write_tone(cls.hot, 3.0, 997.0, 32767)
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--window-size=1280,800", "--force-device-scale-factor=1"):
            options.add_argument(flag)
        cls.profile = tempfile.TemporaryDirectory(prefix="sorvel-chromium-")
        options.add_argument(f"--user-data-dir={cls.profile.name}")
        cls.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.driver.set_script_timeout(WAIT)

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()
        cls.sandbox.stop()
        cls.media.cleanup()
        cls.profile.cleanup()

    def setUp(self):
        self.host = None

    def tearDown(self):
        self.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        for handle in self.driver.window_handles[1:]:
            self.driver.switch_to.window(handle)
            self.driver.close()
        self.driver.switch_to.window(self.driver.window_handles[0])
        self.driver.get("about:blank")
        if self.host:
            self.assertEqual(self.host.stop(), 0, "the host ends with 0 after Ctrl+C")
            self.assertEqual(self.host.leftovers, [], "nothing is left in the cache")

    # --- helpers --------------------------------------------------------------------------

    def open_gadget(self, files=(), arguments=(), home=None):
        self.host = GadgetHost(self.sandbox, files, arguments, home)
        self.driver.get(self.host.address)
        self.wait_until(lambda: self.driver.execute_script("return document.body.dataset.ready === 'true'"))
        return self.host

    def wait_until(self, condition, message="condition"):
        try:
            WebDriverWait(self.driver, WAIT, poll_frequency=0.05).until(lambda _: condition())
        except TimeoutException:
            self.shot(f"timeout-{self.id().split('.')[-1]}")
            raise AssertionError(f"timed out waiting for {message}")

    def shot(self, name):
        self.driver.save_screenshot(os.path.join(SHOTS, f"{name}.png"))

    def state(self):
        return self.driver.execute_script("return window.sorvelGadget.state")

    def idle(self):
        self.driver.execute_async_script("window.sorvelGadget.idle().then(arguments[0])")

    def value(self, key):
        return self.state()["values"].get(key, {}).get("v")

    def prop(self, key):
        return self.state()["props"].get(key)

    def css(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def form_shown(self, name):
        return self.css(f'[data-form="{name}"]').is_displayed()

    def files_listed(self):
        """The file names of the rows (the file column shows the end of each path)."""
        return [os.path.basename(row[2]) for row in self.rows()]

    def grid(self):
        """The track table as a screen reader reads it: its column headers, and per row its cells'
        words and whether it is selected."""
        return self.driver.execute_script("""
            const grid = document.querySelector(arguments[0]);
            const words = (cell) => cell.textContent;
            const lines = [...grid.querySelectorAll('[role=row]')];
            return {
              headers: [...lines[0].querySelectorAll('[role=columnheader]')].map(words),
              rows: lines.slice(1).map((line) => [...line.querySelectorAll('[role=gridcell]')].map(words)),
              selected: lines.slice(1).map((line) => line.getAttribute('aria-selected') === 'true'),
              rowIndexes: lines.map((line) => Number(line.getAttribute('aria-rowindex'))),
              rowCount: Number(grid.getAttribute('aria-rowcount')),
            };""", GRID)

    def rows(self):
        """The track table's rows as the grid reads them: [remove, track, file, state] (without the
        pre-flight verdict that comes first while rows have one)."""
        grid = self.grid()
        skip = 1 if grid["headers"][:1] == ["Check"] else 0
        return [row[skip:] for row in grid["rows"]]

    def selection(self):
        return self.state()["lists"][":trackList"]["selection"]

    def active(self):
        """What has the focus: its binding key, role and words."""
        return self.driver.execute_script("""
            const element = document.activeElement;
            return {key: element.dataset.p || '', role: element.getAttribute('role') || element.tagName.toLowerCase(),
                    text: element.textContent.trim(), row: element.closest('[role=row]') ?
                      Number(element.closest('[role=row]').dataset.row) : null};""")

    def keys(self, *keys, held=None):
        """Types `keys` into whatever has the focus, holding the modifier `held` down."""
        actions = ActionChains(self.driver)
        if held:
            actions.key_down(held)
        actions.send_keys(*keys)
        if held:
            actions.key_up(held)
        actions.perform()

    def tab_to(self, script, what, limit=40):
        """Presses Tab until the focused element satisfies `script` (JavaScript on `element`)."""
        for _ in range(limit):
            if self.driver.execute_script(f"const element = document.activeElement; return !!({script});"):
                return
            self.keys(Keys.TAB)
            # Wherever the focus stops, it is seen.
            ring = self.driver.execute_script("""
                const element = document.activeElement, style = getComputedStyle(element);
                return element === document.body || (style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2) ||
                       style.boxShadow !== 'none';""")
            self.assertTrue(ring, f"no focus ring on {self.active()}")
        raise AssertionError(f"Tab did not reach {what}; the focus is on {self.active()}")

    def announcements(self):
        return self.driver.execute_script(
            "return [...document.getElementById('announcer').children].map((line) => line.textContent)")

    def axe(self, name):
        """Runs axe-core on the page as it is; fails on any violation of the WCAG 2.0 and 2.1 A and
        AA rules, and on any of the best-practice rules; prints the count of each."""
        if not self.driver.execute_script("return !!window.axe"):
            with gzip.open(AXE, "rb") as source:
                script = source.read()
            self.assertEqual(hashlib.sha256(script).hexdigest(), AXE_SHA256, "the vendored axe-core is as published")
            self.driver.execute_script(script.decode("utf-8"))
            self.assertEqual(self.driver.execute_script("return axe.version"), AXE_VERSION)
        found = self.driver.execute_async_script("""
            const done = arguments[arguments.length - 1];
            axe.run(document, {runOnly: {type: 'tag', values: arguments[0]}, resultTypes: ['violations']})
              .then((result) => done(result.violations.map((violation) => ({
                rule: violation.id, tags: violation.tags,
                nodes: violation.nodes.map((node) => `${node.target.join(' ')}: ${node.failureSummary}`)}))))
              .catch((error) => done([{rule: 'axe failed', tags: [], nodes: [String(error)]}]));""",
            WCAG_TAGS + ["best-practice"])
        wcag = [violation for violation in found if set(violation["tags"]) & set(WCAG_TAGS) or not violation["tags"]]
        practice = [violation for violation in found if violation not in wcag]
        count = lambda violations: sum(len(violation["nodes"]) for violation in violations)
        print(f"axe-core {AXE_VERSION}, {name}: {count(wcag)} WCAG A/AA violations, {count(practice)} best-practice",
              flush=True)
        self.shot(f"axe-{re.sub(r'[^a-z0-9]+', '-', name.lower()).strip('-')}")
        self.assertEqual(wcag, [], f"WCAG violations, {name}")
        self.assertEqual(practice, [], f"best-practice findings, {name}")

    def type_into(self, key, text, enter=True):
        field = self.css(f'[data-p="{key}"]')
        field.clear()
        field.send_keys(text)
        if enter:
            field.send_keys(Keys.TAB)
        self.idle()

    def sign_in(self, password=None):
        self.type_into("Credentials:username", self.sandbox.user)
        self.type_into("Credentials:password", password or self.sandbox.password)
        self.css('[data-p=":signIn"]').click()
        self.idle()

    def signed_in(self, files=()):
        self.open_gadget(files)
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")

    def cell_point(self, row, column):
        """Offsets from the canvas's centre (as Selenium moves) to the middle of a cell."""
        table = self.state()["lists"][":trackList"]
        canvas = self.css('[data-list=":trackList"] canvas')
        left = sum(table["columns"][:column]) + table["columns"][column] / 2
        top = table["header"] + row * table["rowHeight"] + table["rowHeight"] / 2
        return canvas, *self.canvas_offset(canvas, left, top)

    def canvas_offset(self, canvas, x, y):
        """Offsets from where Selenium moves to on the canvas (the centre of its part inside the
        window, which the table may run past) to the point (x, y) of the canvas."""
        left, top, centre_x, centre_y = self.driver.execute_script("""
            const box = arguments[0].getBoundingClientRect();
            const left = Math.max(box.left, 0), right = Math.min(box.right, window.innerWidth);
            const top = Math.max(box.top, 0), bottom = Math.min(box.bottom, window.innerHeight);
            return [box.left, box.top, (left + right) / 2, (top + bottom) / 2];""", canvas)
        return left + x - centre_x, top + y - centre_y

    def click_cell(self, row, column=1, modifier=None):
        canvas, x, y = self.cell_point(row, column)
        actions = ActionChains(self.driver).move_to_element_with_offset(canvas, x, y)
        if modifier:
            actions.key_down(modifier).click().key_up(modifier)
        else:
            actions.click()
        actions.perform()
        self.idle()

    def drop(self, script_items, row):
        """Drops a DataTransfer built by `script_items` (JavaScript filling `transfer`) on `row`."""
        table = self.state()["lists"][":trackList"]
        y = table["header"] + row * table["rowHeight"] + table["rowHeight"] / 2
        self.driver.execute_script(f"""
            const list = document.querySelector('[data-list=":trackList"]');
            const canvas = list.querySelector('canvas');
            const box = canvas.getBoundingClientRect();
            const transfer = new DataTransfer();
            {script_items}
            const at = {{clientX: box.left + 100, clientY: box.top + {y}, dataTransfer: transfer, bubbles: true}};
            canvas.dispatchEvent(new DragEvent('dragover', at));
            canvas.dispatchEvent(new DragEvent('drop', at));
        """)
        self.idle()

    def checked_files(self):
        """Three files whose pre-flight verdicts differ: ok, warning (the hot one), error (with
        CHECKED_ISRCS)."""
        return [self.files[0], self.hot, self.files[1]]

    def replace_host(self, files=(), arguments=()):
        """Ends the host under test, as the user would, and opens the page of a new one."""
        self.assertEqual(self.host.stop(), 0)
        self.assertEqual(self.host.leftovers, [])
        self.host = None
        return self.open_gadget(files, arguments)

    def choose_menu_entry(self, index):
        """Chooses entry `index` (negative: from the end) of the shown product list, as the
        keyboard does on a closed select box, once the account's products have arrived."""
        self.wait_until(lambda: self.driver.execute_script("""
            const select = [...document.querySelectorAll('[data-p=":titlesList"]')].find(s => s.offsetParent);
            const needed = arguments[0] >= 0 ? arguments[0] + 1 : 2;
            return !!select && select.options.length >= Math.max(needed, 2);""", index), "the account's products")
        self.driver.execute_script("""
            const select = [...document.querySelectorAll('[data-p=":titlesList"]')].find(s => s.offsetParent);
            select.selectedIndex = arguments[0] < 0 ? select.options.length + arguments[0] : arguments[0];
            select.dispatchEvent(new Event('change'));""", index)
        self.idle()

    def assert_grid_is_the_model(self):
        """The grid holds the list model's rows in their order, each cell with the words the model
        painted into it, where it painted them, and the model's selection."""
        self.idle()
        table, grid = self.driver.execute_script("""
            const table = window.sorvelGadget.state.lists[':trackList'];
            const grid = document.querySelector(arguments[0]);
            const lines = [...grid.querySelectorAll('[role=row]')];
            return [table, {
              headers: [...lines[0].querySelectorAll('[role=columnheader]')].map((cell) => cell.textContent),
              rows: lines.slice(1).map((line) => [...line.querySelectorAll('[role=gridcell]')].map((cell) => cell.textContent)),
              selected: lines.slice(1).map((line) => line.getAttribute('aria-selected') === 'true'),
              indexes: lines.map((line) => Number(line.getAttribute('aria-rowindex'))),
              count: Number(grid.getAttribute('aria-rowcount'))}];""", GRID)
        rows = table["rows"]
        checked = len(table["checks"]) > 0
        self.assertEqual(grid["headers"], (["Check"] if checked else []) + ["Remove", "Track", "File", "State"])
        self.assertEqual(len(grid["rows"]), rows)
        self.assertEqual((grid["count"], grid["indexes"]), (rows + 1, list(range(1, rows + 2))))
        self.assertEqual([row[1 if checked else 0:] for row in grid["rows"]], table["cells"])
        self.assertEqual(grid["selected"], [row in table["selection"] for row in range(rows)])
        # The texts painted inside each cell's rectangle are the cell's words.
        painted = [["" for _ in table["columns"]] for _ in range(rows)]
        for operation in table["drawing"]:
            if operation[0] != "t" or not operation[5] or operation[2] < table["header"]:
                continue
            row = (operation[2] - table["header"]) // table["rowHeight"]
            column = next(index for index in range(len(table["columns"])) if operation[1] < sum(table["columns"][:index + 1]))
            painted[row][column] = (painted[row][column] + " " + operation[5]).strip()
        self.assertEqual(painted, table["cells"])
        if checked:
            verdicts = {row: {"ok": "OK", "warning": "Warning", "error": "Error"}[report["check"]]
                        for row, report in table["checks"]}
            self.assertEqual([row[0] for row in grid["rows"]], [verdicts.get(row, "") for row in range(rows)])
        return grid

    def alert_text(self):
        box = self.css("#alert")
        return box.find_element(By.TAG_NAME, "p").text if box.is_displayed() else None

    # --- tests ----------------------------------------------------------------------------

    def test_sign_in_refused_then_accepted_switches_the_phase_views(self):
        self.open_gadget()
        self.assertTrue(self.form_shown("LoginView"))
        self.assertTrue(self.form_shown("ActivityInfoLoginView"), "the dashboard panel invites to sign in")
        self.sign_in(password="not-the-password")
        self.wait_until(lambda: self.alert_text(), "the refusal's alert")
        self.shot("sign-in-refused")
        self.assertTrue(self.alert_text())
        self.wait_until(lambda: self.prop(":loginPhase") == 0, "back to the login view")
        self.css("#alert button").click()
        self.assertIsNone(self.alert_text())
        self.assertTrue(self.form_shown("LoginView"))
        # The typed password is never sent back to the page.
        self.assertNotIn("v", self.state()["values"]["Credentials:password"])
        self.assertNotIn("not-the-password", self.driver.execute_script("return JSON.stringify(window.sorvelGadget.state)"))

        self.sign_in()
        self.wait_until(lambda: self.form_shown("ManagerView"), "the manager view")
        self.assertFalse(self.form_shown("LoginView"))
        self.wait_until(lambda: self.form_shown("ActivityInfoView"), "the dashboard's figures")
        self.wait_until(lambda: self.css('[data-p="ActivityInfo:userName"]').text, "the account name")
        self.assertEqual(self.css('[data-form="SorvelClient.AccountInfo"] [data-p="Credentials:username"]').text,
                         self.sandbox.user)
        self.assertNotIn(self.sandbox.password, self.driver.execute_script("return JSON.stringify(window.sorvelGadget.state)"))
        self.shot("signed-in")

    def test_choosing_a_product_shows_its_tracks_and_refresh_reloads_the_list(self):
        self.signed_in()
        select = self.css('[data-p=":titlesList"]')
        options = [option.text for option in select.find_elements(By.TAG_NAME, "option")]
        self.assertEqual(options[-1], "Refresh", "the controller's menu entry ends the list")
        products = self.state()["values"][":titlesList"]["e"]
        self.assertGreaterEqual(len(products), 2)
        self.assertEqual(options[:len(products)], products)
        chosen = products[0]
        # A click on the select box opens a native menu; the keyboard chooses as a user would.
        ActionChains(self.driver).click(select).perform()
        select.send_keys(Keys.HOME)
        select.send_keys(Keys.ENTER)
        self.idle()
        self.wait_until(lambda: self.value(":replaceMode") == 1, "the product's variant")
        self.wait_until(lambda: self.rows(), "the product's tracks")
        self.assertTrue(all(row[3] == "Uploaded" for row in self.rows()), self.rows())
        visible = [element for element in self.driver.find_elements(By.CSS_SELECTOR, '[data-p=":titlesList"]')
                   if element.is_displayed()]
        self.assertEqual(len(visible), 1, "one select box in the product's variant")
        self.assertFalse(self.css('[data-p=":newProductName"]').is_displayed())
        self.shot("product-chosen")

        self.driver.execute_script("""
            const select = [...document.querySelectorAll('[data-p=":titlesList"]')].find(s => s.offsetParent);
            select.selectedIndex = select.options.length - 1;
            select.dispatchEvent(new Event('change'));""")
        self.idle()
        self.wait_until(lambda: not self.prop("Client:isBusy"), "the refresh to end")
        self.assertEqual(self.state()["values"][":titlesList"]["e"][self.value(":titlesList")], chosen)

    def test_a_new_product_is_named_in_the_edit_box_and_the_upload_completes_every_row(self):
        self.signed_in(self.files)
        self.assertEqual(self.value(":replaceMode"), 0)
        self.assertTrue(self.css('[data-p=":newProductName"]').is_displayed())
        self.type_into(":newProductName", "Night Drive")
        # The emptied field and the typed name reach the host as two changes; on a slow host the
        # state of the first may still be on its way when the page is idle.
        self.wait_until(lambda: self.value(":newProductName") == "Night Drive", "the typed name in the gadget")
        self.assertEqual(self.files_listed(), ["Morning Song.wav", "Evening Tune.wav"])
        self.driver.execute_script("""
            window.seenStates = [];
            window.sorvelGadget.watch(state => {
              const list = document.querySelectorAll('[data-list=":trackList"] [role=row]');
              window.seenStates.push([...list].map(row => row.lastElementChild ? row.lastElementChild.textContent : ''));
            });""")
        self.css('[data-p=":upload"]').click()
        self.idle()
        self.wait_until(lambda: self.prop(":isUploading") == 1, "the upload to start")
        self.assertTrue(self.css('[data-p=":cancel"]').is_displayed(), "Cancel replaces Upload")
        self.assertFalse(self.css('[data-p=":signOut"]').is_enabled(), "no signing out while uploading")
        self.wait_until(lambda: any("%" in text for row in self.driver.execute_script("return window.seenStates")
                                    for text in row), "progress in a row")
        self.shot("uploading")
        self.wait_until(lambda: self.prop(":isUploading") == 0, "the upload to end")
        seen = self.driver.execute_script("return window.seenStates")
        for row in (1, 2):  # after the header
            self.assertTrue(any(len(states) > row and "Upload Complete" in states[row] for states in seen),
                            f"row {row} never showed its upload complete: {seen[-5:]}")
        self.wait_until(lambda: "Night Drive" in self.state()["values"][":titlesList"]["e"], "the new product listed")
        self.shot("upload-complete")

    def test_two_selected_new_rows_take_a_genre_typed_once(self):
        # The files handed over at start had the gadget ask to be shown: the page opens with its
        # window's first field in focus.
        self.open_gadget(self.files)
        self.wait_until(lambda: self.driver.execute_script(
            "return document.activeElement.dataset.p === 'Credentials:username'"), "the window brought forward")
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")
        self.assertFalse(self.css('[data-form="TrackInfoView"]').is_displayed(), "no track selected")
        self.click_cell(0)
        self.click_cell(1, modifier=Keys.CONTROL)
        self.wait_until(lambda: self.state()["lists"][":trackList"]["selection"] == [0, 1], "two rows selected")
        self.assertTrue(self.form_shown("TrackInfoView"))
        self.type_into("TrackInfo:genre", "Ambient")
        self.shot("two-rows-genre")
        for row in (0, 1):
            self.click_cell(row)
            self.wait_until(lambda: self.state()["lists"][":trackList"]["selection"] == [row], f"row {row} alone")
            self.wait_until(lambda: self.css('[data-p="TrackInfo:genre"]').get_attribute("value") == "Ambient",
                            f"the genre of row {row}")
        # Shift extends from the last row clicked; a second ctrl-click takes a row out again.
        self.click_cell(0)
        self.click_cell(1, modifier=Keys.SHIFT)
        self.wait_until(lambda: self.state()["lists"][":trackList"]["selection"] == [0, 1], "a range")
        self.click_cell(0, modifier=Keys.CONTROL)
        self.wait_until(lambda: self.state()["lists"][":trackList"]["selection"] == [1], "row 0 taken out")
        # The keyboard goes on from the cell clicked last.
        self.assertEqual(self.active()["row"], 0)
        self.keys(Keys.ARROW_DOWN)
        self.idle()
        self.wait_until(lambda: self.state()["lists"][":trackList"]["selection"] == [1], "the row below, by key")
        self.keys(Keys.ARROW_UP)
        self.idle()
        self.wait_until(lambda: self.state()["lists"][":trackList"]["selection"] == [0], "the row above, by key")

    def test_the_preflight_report_marks_every_row_and_shows_the_selected_rows_figures(self):
        # The third file's ISRC is malformed; the second file clips and is far too loud.
        self.open_gadget(self.checked_files(), CHECKED_ISRCS)
        self.sign_in()
        self.wait_until(lambda: len(self.rows()) == 3, "three rows")
        badges = lambda: self.driver.execute_script(
            "return [...document.querySelectorAll('[data-list=\":trackList\"] .badge')]"
            ".map(badge => [Number(badge.dataset.row), badge.className, badge.textContent])")
        self.wait_until(lambda: len(badges()) == 3, "a badge per row")
        self.assertEqual(badges(), [[0, "badge ok", "ok"], [1, "badge warning", "warning"], [2, "badge error", "error"]])
        self.assertFalse(self.css("#preflight").is_displayed(), "no row selected, no figures")

        self.click_cell(1)
        self.wait_until(lambda: self.css("#preflight").is_displayed()
                        and self.css("#preflight").get_attribute("data-row") == "1", "the second row's figures")
        self.wait_until(lambda: self.form_shown("TrackInfoView"), "the inspector shows the same row")
        self.shot("preflight-warning")
        figure = lambda key: self.css(f'#preflight [data-figure="{key}"]').text
        self.assertEqual(figure("sample_peak_dbfs"), "0.0 dBFS")
        self.assertTrue(figure("true_peak_dbtp").endswith(" dBTP"), figure("true_peak_dbtp"))
        self.assertGreater(int(figure("clipped_samples")), 0)
        self.assertGreater(float(figure("integrated_loudness_lufs").split()[0]), -9.0)
        findings = self.css("#preflight ul").text
        self.assertIn("at full scale (clipped)", findings)
        self.assertIn("streaming services will turn it down", findings)

        self.click_cell(2)
        self.wait_until(lambda: self.css("#preflight").get_attribute("data-row") == "2", "the third row's figures")
        self.assertIn('ISRC "QZ-DEM-26" has 7 characters', self.css("#preflight ul").text)
        self.click_cell(0)
        self.wait_until(lambda: self.css("#preflight").get_attribute("data-row") == "0", "the first row's figures")
        self.assertEqual(self.css("#preflight ul").text, "note: the two channels are identical: a mono mix in a stereo file",
                         "a file without fault has only the note that its tone is the same on both channels")
        self.shot("preflight-ok")

    def test_rows_are_dragged_within_the_table_and_removed_with_the_x(self):
        self.signed_in(self.files)
        self.assertEqual(self.files_listed(), ["Morning Song.wav", "Evening Tune.wav"])
        # Dragged below the last row, the first row moves to the end.
        self.driver.execute_script("""
            const canvas = document.querySelector('[data-list=":trackList"] canvas');
            const box = canvas.getBoundingClientRect();
            const table = window.sorvelGadget.state.lists[':trackList'];
            const transfer = new DataTransfer();
            const at = row => ({clientX: box.left + 100, clientY: box.top + table.header + row * table.rowHeight + 5,
                                dataTransfer: transfer, bubbles: true});
            canvas.dispatchEvent(new DragEvent('dragstart', at(0)));
            canvas.dispatchEvent(new DragEvent('dragover', at(2)));
            canvas.dispatchEvent(new DragEvent('drop', at(2)));""")
        self.idle()
        self.wait_until(lambda: self.files_listed() == ["Evening Tune.wav", "Morning Song.wav"],
                        "the rows swapped")
        self.shot("row-dragged")
        # The file cell's tooltip is the whole path.
        canvas, x, y = self.cell_point(0, 2)
        ActionChains(self.driver).move_to_element_with_offset(canvas, x, y).perform()
        self.wait_until(lambda: canvas.get_attribute("title").endswith("/Evening Tune.wav"), "the file's tooltip")
        self.assertTrue(os.path.isabs(canvas.get_attribute("title")))
        # The header's border of a sizable column is dragged; the remove column keeps its width.
        table = self.state()["lists"][":trackList"]
        widths = table["columns"]
        self.assertEqual(table["sizable"], [0, 1, 1, 0])
        border = widths[0] + widths[1]
        canvas = self.css('[data-list=":trackList"] canvas')
        ActionChains(self.driver).move_to_element_with_offset(canvas, *self.canvas_offset(canvas, border, 10)) \
            .click_and_hold().move_by_offset(60, 0).release().perform()
        self.idle()
        self.wait_until(lambda: self.state()["lists"][":trackList"]["columns"] == [widths[0], widths[1] + 60, *widths[2:]],
                        "the track column 60 pixels wider")
        ActionChains(self.driver).move_to_element_with_offset(canvas, *self.canvas_offset(canvas, widths[0], 10)) \
            .click_and_hold().move_by_offset(80, 0).release().perform()
        self.idle()
        self.assertEqual(self.state()["lists"][":trackList"]["columns"][0], widths[0])
        self.shot("column-sized")
        self.click_cell(0, column=0)
        self.wait_until(lambda: self.files_listed() == ["Morning Song.wav"], "the row removed by its X")
        # The keyboard: the selected row goes with Delete.
        self.click_cell(0)
        self.keys(Keys.DELETE)
        self.idle()
        self.wait_until(lambda: self.rows() == [], "the row removed by the Delete key")

    def test_files_dropped_from_the_desktop_become_rows_and_other_files_are_refused(self):
        self.signed_in(self.files[:1])
        dropped = os.path.join(self.media.name, "Dropped Take.wav")
        write_tone(dropped, 0.5, 550.0)
        text = os.path.join(self.media.name, "notes.txt")
        with open(text, "w") as out:
            out.write("not audio\n")
        self.driver.execute_script("""
            const input = document.createElement('input');
            input.type = 'file'; input.multiple = true; input.id = 'desktop'; document.body.append(input);""")
        picker = self.css("#desktop")
        picker.send_keys(dropped)
        self.drop("transfer.items.add(document.getElementById('desktop').files[0]);", 1)
        self.wait_until(lambda: len(self.rows()) == 2, "the dropped file's row")
        self.assertEqual(self.files_listed()[1], "Dropped Take.wav")
        self.shot("file-dropped")
        # The same without a drag: the button's file chooser adds after the last row.
        self.css('[data-list=":trackList"] ~ .list-actions input[type=file]').send_keys(self.files[1])
        self.idle()
        self.wait_until(lambda: self.files_listed() == ["Morning Song.wav", "Dropped Take.wav", "Evening Tune.wav"],
                        "the chosen file's row")

        self.driver.execute_script("document.getElementById('desktop').remove()")
        self.driver.execute_script("""
            const input = document.createElement('input');
            input.type = 'file'; input.id = 'desktop'; document.body.append(input);""")
        self.css("#desktop").send_keys(text)
        self.drop("transfer.items.add(document.getElementById('desktop').files[0]);", 2)
        self.wait_until(lambda: self.alert_text(), "the refusal")
        self.assertIn("audio", self.alert_text())
        self.assertEqual(len(self.rows()), 3)
        cache = os.path.join(self.host.home.name, "cache", "sorvel", "dropped")
        stored = [name for _, _, names in os.walk(cache) for name in names]
        self.assertEqual(sorted(stored), ["Dropped Take.wav", "Evening Tune.wav"], "a refused file is not kept")

    def test_an_upload_is_cancelled_with_the_cancel_button(self):
        self.signed_in(self.files)
        self.type_into(":newProductName", "Cancelled Session")
        self.css('[data-p=":upload"]').click()
        self.idle()
        self.wait_until(lambda: self.prop(":isUploading") == 1, "the upload to start")
        cancel = self.css('[data-p=":cancel"]')
        self.wait_until(lambda: cancel.is_displayed() and cancel.is_enabled(), "the cancel button")
        cancel.click()
        self.idle()
        self.wait_until(lambda: self.prop(":isUploading") == 0, "the upload to stop")
        self.assertTrue(self.css('[data-p=":upload"]').is_displayed(), "Upload is back")
        self.assertLess(sum(row[3] == "Upload Complete" for row in self.rows()), 2, self.rows())
        self.shot("upload-cancelled")
        # Ended with Ctrl+C during an upload, the host cancels it before its files go.
        self.css('[data-p=":upload"]').click()
        self.idle()
        self.wait_until(lambda: self.prop(":isUploading") == 1, "the second upload to start")

    def test_sign_out_and_the_dashboard_link(self):
        self.signed_in()
        self.css('[data-p=":openDashboard"]').click()
        self.idle()
        self.wait_until(lambda: len(self.driver.window_handles) == 2, "the dashboard opened in a new tab")
        self.css('[data-p=":signOut"]').click()
        self.idle()
        self.wait_until(lambda: self.form_shown("LoginView"), "the login view")
        self.assertFalse(self.form_shown("ManagerView"))
        self.wait_until(lambda: self.form_shown("ActivityInfoLoginView"), "the dashboard's invitation")
        self.shot("signed-out")
        # The dashboard's invitation brings the gadget's window forward, ready for the user name.
        self.css('[data-p="ActivityInfo:onCreateAccount"]').click()
        self.wait_until(lambda: self.driver.execute_script(
            "return document.activeElement.dataset.p === 'Credentials:username'"), "the window brought forward")

    # --- accessibility ----------------------------------------------------------------------

    def test_every_state_of_the_page_is_clean_under_axe(self):
        # Uploading and finished are held to axe-core by the keyboard's upload below.
        self.open_gadget(self.checked_files(), CHECKED_ISRCS)
        self.axe("signed out")
        self.sign_in(password="not-the-password")
        self.wait_until(lambda: self.alert_text(), "the refusal's alert")
        self.assertEqual(self.active()["role"], "button", "the alert takes the focus")
        self.assertEqual(self.driver.execute_script("return document.activeElement.closest('[role=alertdialog]').id"), "alert")
        self.assertTrue(self.driver.execute_script("return document.querySelector('main').inert"),
                        "nothing behind the alert can be reached")
        self.wait_until(lambda: self.prop(":loginPhase") == 0 and self.css('[data-p=":signIn"]').is_enabled(),
                        "back to the login view, Sign in enabled again")
        self.axe("failed sign-in alert")
        self.keys(Keys.ESCAPE)
        self.wait_until(lambda: self.alert_text() is None, "the alert closed by Escape")
        self.assertEqual(self.active()["key"], ":signIn", "the focus is back on the button that was pressed")

        self.sign_in()
        self.wait_until(lambda: self.form_shown("ActivityInfoView") and self.css('[data-p="ActivityInfo:userName"]').text
                        and not self.prop("Client:isBusy"), "the dashboard's figures")
        self.assertIn(self.active()["key"], (":signOut", ":openDashboard"), "the focus went on into the manager's view")
        self.wait_until(lambda: len(self.rows()) == 3 and self.grid()["headers"][0] == "Check", "the files with verdicts")
        self.axe("signed in: the dashboard, the files listed")
        self.click_cell(1)
        self.wait_until(lambda: self.form_shown("TrackInfoView") and self.css("#preflight").get_attribute("data-row") == "1",
                        "the row in the inspector, its report beside")
        self.axe("one row in the inspector, its pre-flight warnings")
        self.click_cell(2)
        self.wait_until(lambda: self.css("#preflight").get_attribute("data-row") == "2", "the third row's report")
        self.assertIn("error", self.css("#preflight ul").text)
        self.axe("pre-flight findings with an error")
        self.click_cell(0)
        self.click_cell(1, modifier=Keys.CONTROL)
        self.wait_until(lambda: self.css('[data-p="TrackInfo:name"]').get_attribute("value") == "Multiple Tracks Selected",
                        "two rows in the inspector")
        self.axe("several rows selected")

        self.sandbox.expire_sessions()
        self.choose_menu_entry(-1)  # "Refresh": the products asked for with the expired sign-in
        self.wait_until(lambda: self.alert_text() == "Session expired. Please login again.", "the expiry's alert")
        self.wait_until(lambda: self.form_shown("LoginView"), "signed out")
        self.axe("session expired")
        self.keys(Keys.ESCAPE)
        self.wait_until(lambda: self.alert_text() is None, "the alert closed")
        self.assertEqual(self.active()["key"], "Credentials:username",
                         "what had the focus has gone; the window's first field takes it")

    def test_a_keyboard_alone_signs_in_chooses_the_product_edits_two_rows_and_uploads(self):
        self.open_gadget(self.files)
        self.driver.execute_script("""
            window.mouseEvents = [];
            for (const type of ['mousedown', 'mouseup', 'mousemove', 'pointerdown', 'pointerup', 'wheel', 'dragstart'])
              document.addEventListener(type, (event) => window.mouseEvents.push(type), true);""")
        # The files handed over brought the window forward, its first field in focus.
        self.wait_until(lambda: self.active()["key"] == "Credentials:username", "the user name field in focus")
        self.keys(self.sandbox.user, Keys.TAB, self.sandbox.password)
        self.tab_to("element.dataset.p === ':signIn'", "Sign in")
        self.keys(Keys.ENTER)
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")
        self.wait_until(lambda: self.active()["key"] == ":signOut", "the focus on the manager's first control")

        # The product: its list in the new-product variant, the first entry by the Home key.
        self.tab_to("element.tagName === 'SELECT'", "the product list")
        product = self.state()["values"][":titlesList"]["e"][0]
        self.keys(Keys.HOME)
        self.wait_until(lambda: self.value(":replaceMode") == 1 and len(self.rows()) == 4, "the product's tracks and the files")
        self.assertEqual(self.state()["values"][":titlesList"]["e"][self.value(":titlesList")], product)
        self.assertEqual(self.active()["key"], ":titlesList", "the focus follows into the wide product list")
        self.assertEqual([row[3] for row in self.rows()], ["Uploaded", "Uploaded", "Add", "Add"])

        # The grid: Tab reaches one cell of it; the arrows go to the first file, Shift takes the next.
        self.tab_to("element.getAttribute('role') === 'gridcell'", "the track table")
        self.keys(Keys.ARROW_DOWN, Keys.ARROW_DOWN)
        self.keys(Keys.ARROW_DOWN, held=Keys.SHIFT)
        self.wait_until(lambda: self.selection() == [2, 3], "the two files selected")
        self.assertEqual(self.grid()["selected"], [False, False, True, True])
        # Along the row: the verdict, the remove column, the title.
        self.assertEqual(self.active()["text"], "OK")
        self.keys(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        self.assertEqual(self.active()["text"], "Evening Tune")
        self.css('[data-list=":trackList"]').screenshot(os.path.join(SHOTS, "grid-focus.png"))
        # Enter opens them in the inspector; the title is shared by two, so the genre comes first.
        self.keys(Keys.ENTER)
        self.wait_until(lambda: self.active()["key"] == "TrackInfo:genre", "the inspector's first field that can be edited")
        self.assertEqual(self.css('[data-p="TrackInfo:name"]').get_attribute("value"), "Multiple Tracks Selected")
        self.keys("Ambient", Keys.TAB)
        self.wait_until(lambda: self.value("TrackInfo:genre") == "Ambient; Ambient", "the genre of both rows")

        self.tab_to("element.dataset.p === ':upload'", "Upload")
        self.keys(Keys.ENTER)
        self.wait_until(lambda: any("%" in row[3] for row in self.rows()), "a row uploading")
        self.assertEqual(self.active()["key"], ":cancel", "the focus goes on to Cancel, which took Upload's place")
        self.axe("uploading")
        self.wait_until(lambda: self.prop(":isUploading") == 0, "the upload to end")
        self.wait_until(lambda: [row[3] for row in self.rows()] == ["Uploaded"] * 4, "every row on the service")
        self.axe("finished")
        self.assertEqual([row[1] for row in self.rows()], ["Headlights", "Tunnel", "Morning Song", "Evening Tune"])
        self.shot("keyboard-uploaded")
        self.assertEqual(self.driver.execute_script("return window.mouseEvents"), [], "not one mouse event")

        # What was said: each row's progress at most once a quarter, its end once, the batch's start and end once.
        said = self.announcements()
        self.assertEqual((said.count("Upload started."), said.count("Upload ended.")), (1, 1), said)
        for name in ("Morning Song", "Evening Tune"):
            self.assertEqual(said.count(f"{name}: Add - Upload Complete"), 1, said)
            quarters = [int(float(re.search(r"([\d.]+)%", line).group(1)) // 25) for line in said
                        if line.startswith(f"{name}: ") and "%" in line]
            self.assertTrue(quarters, f"the progress of {name} was said: {said}")
            self.assertEqual(quarters, sorted(set(quarters)), f"once a quarter at most: {said}")

    def test_the_grid_reads_as_the_list_model_and_the_selection_goes_both_ways(self):
        self.open_gadget(self.checked_files(), CHECKED_ISRCS)
        self.sign_in()
        self.wait_until(lambda: len(self.rows()) == 3 and len(self.state()["lists"][":trackList"]["checks"]) == 3,
                        "three rows with their verdicts")
        grid = self.assert_grid_is_the_model()
        self.assertEqual([row[0] for row in grid["rows"]], ["OK", "Warning", "Error"])
        self.assertEqual([row[2] for row in grid["rows"]], ["Morning Song", "Too Hot", "Evening Tune"])
        self.assertEqual([os.path.basename(row[3]) for row in grid["rows"]], ["Morning Song.wav", "Too Hot.wav", "Evening Tune.wav"])
        self.assertEqual([row[4] for row in grid["rows"]], ["Add"] * 3)

        # The mouse selects in the painting; the grid follows.
        self.click_cell(1)
        self.wait_until(lambda: self.grid()["selected"] == [False, True, False], "row 1 selected in the grid")
        self.click_cell(2, modifier=Keys.CONTROL)
        self.wait_until(lambda: self.grid()["selected"] == [False, True, True], "rows 1 and 2 selected in the grid")
        self.assert_grid_is_the_model()
        # The keyboard selects in the grid; the list and the inspector follow.
        steps = (((Keys.ARROW_UP,), None, [1]),            # the row above alone
                 ((Keys.ARROW_DOWN,), Keys.CONTROL, [1]),  # Control moves without selecting
                 ((Keys.SPACE,), Keys.CONTROL, [1, 2]),    # Control and Space add the row
                 ((Keys.ARROW_UP, Keys.ARROW_UP), Keys.CONTROL, [1, 2]),
                 ((Keys.SPACE,), Keys.SHIFT, [0, 1, 2]),   # Shift and Space: from the row chosen last
                 ((Keys.SPACE,), None, [0]))               # Space: this row alone
        for keys, held, selection in steps:
            self.keys(*keys, held=held)
            self.idle()
            self.wait_until(lambda: self.selection() == selection, f"{selection} selected by {keys} with {held}")
            self.assert_grid_is_the_model()
        self.wait_until(lambda: self.css('[data-p="TrackInfo:name"]').get_attribute("value") == "Morning Song",
                        "the inspector shows the row")

        # Delete removes the file of the row in focus; the focus stays in the grid.
        self.keys(Keys.DELETE)
        self.wait_until(lambda: [row[1] for row in self.rows()] == ["Too Hot", "Evening Tune"], "the first row removed")
        self.wait_until(lambda: "Removed." in self.announcements(), "the removal said")
        self.assertEqual(self.active()["role"], "gridcell")
        self.assert_grid_is_the_model()

        # With a product chosen, a file is put on one of its tracks without a drag: Control and X
        # on the file, Control and V on the track.
        self.choose_menu_entry(self.state()["values"][":titlesList"]["e"].index("Field Recordings"))
        self.wait_until(lambda: [row[1] for row in self.rows()] == ["Rain on Tin", "Too Hot", "Evening Tune"],
                        "the product's track above the files")
        self.tab_to("element.getAttribute('role') === 'gridcell'", "the track table")
        self.keys(Keys.END, held=Keys.CONTROL)
        self.wait_until(lambda: self.selection() == [2], "the last row")
        self.keys("x", held=Keys.CONTROL)
        self.wait_until(lambda: any("picked up" in line for line in self.announcements()), "the pick-up said")
        self.keys(Keys.ARROW_UP, Keys.ARROW_UP, held=Keys.CONTROL)
        self.keys("v", held=Keys.CONTROL)
        self.wait_until(lambda: [row[3] for row in self.rows()] == ["Replace", "Add"], "the track replaced by the file")
        self.assertEqual(os.path.basename(self.rows()[0][2]), "Evening Tune.wav")
        self.wait_until(lambda: any(line.startswith("Dropped.") and "Replace" in line for line in self.announcements()),
                        "the drop said")
        self.assert_grid_is_the_model()
        # Control, Shift and V drop after the last row: the file leaves the track again.
        self.assertEqual(self.active()["row"], 0)
        self.keys("x", held=Keys.CONTROL)
        self.keys("V", held=Keys.CONTROL)  # with Shift: the capital
        self.wait_until(lambda: [row[1] for row in self.rows()] == ["Rain on Tin", "Too Hot", "Evening Tune"]
                        and self.rows()[0][3] == "Uploaded", "the file on a row of its own at the end")
        # The keys act on the selection as the host has it, also before the page has heard of it;
        # Escape puts back what was picked up.
        self.keys(Keys.HOME, held=Keys.CONTROL)
        self.wait_until(lambda: self.selection() == [0], "the first row")
        ActionChains(self.driver).key_down(Keys.SHIFT).send_keys(Keys.ARROW_DOWN).key_up(Keys.SHIFT) \
            .key_down(Keys.CONTROL).send_keys("x").key_up(Keys.CONTROL).perform()
        self.wait_until(lambda: any(line.startswith("2 rows picked up.") for line in self.announcements()),
                        "both rows picked up")
        self.keys(Keys.ESCAPE)
        self.wait_until(lambda: "Nothing was moved." in self.announcements(), "the pick-up undone")
        # A track of the service cannot be removed.
        self.keys(Keys.ARROW_UP)
        self.wait_until(lambda: self.selection() == [0], "the product's track alone")
        self.keys(Keys.DELETE)
        self.wait_until(lambda: "the rows cannot be removed now" in self.announcements(), "the refusal said")
        self.assertEqual(len(self.rows()), 3)
        self.assert_grid_is_the_model()

    def test_nothing_is_cut_off_at_1280_by_800_at_200_percent_and_at_320_pixels_wide(self):
        self.open_gadget(self.checked_files(), CHECKED_ISRCS)
        self.sign_in()
        self.wait_until(lambda: len(self.rows()) == 3 and self.grid()["headers"][0] == "Check", "the files with verdicts")
        self.assertEqual(self.cut_off_texts(), [], "a new product")
        self.choose_menu_entry(1)
        self.wait_until(lambda: self.value(":replaceMode") == 1 and len(self.rows()) == 4, "a product with a track")
        self.click_cell(1)
        self.wait_until(lambda: self.form_shown("TrackInfoView") and self.css("#preflight").is_displayed(),
                        "the inspector and the report")
        for name, width, height, scale in (("1280x800", 1280, 800, 1), ("zoom-200", 640, 400, 2), ("reflow-320", 320, 640, 1)):
            self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                        {"width": width, "height": height, "deviceScaleFactor": scale, "mobile": False})
            self.driver.execute_async_script(
                "const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(() => done()))")
            self.assertEqual(self.cut_off_texts(), [], name)
            self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                        {"width": width, "height": self.driver.execute_script(
                                            "return document.documentElement.scrollHeight"),
                                         "deviceScaleFactor": scale, "mobile": False})
            self.shot(f"layout-{name}")
            if name == "1280x800":
                # The whole table is in view, the State column's words too.
                self.assertTrue(self.driver.execute_script("""
                    const list = document.querySelector('[data-list=":trackList"]').getBoundingClientRect();
                    const state = [...document.querySelectorAll(arguments[0] + ' [role=columnheader]')].pop().getBoundingClientRect();
                    return state.right <= list.right && state.left >= list.left;""", GRID))

    def cut_off_texts(self):
        """Texts of the page that are cut off, or that only sideways scrolling of the page would show."""
        return self.driver.execute_script("""
            const problems = [];
            const width = document.documentElement.clientWidth;
            if (document.documentElement.scrollWidth > width + 1)
              problems.push(`the page scrolls sideways: ${document.documentElement.scrollWidth} > ${width} pixels`);
            const shown = (element) => element.getClientRects().length > 0;
            const name = (element) => `${element.tagName.toLowerCase()}.${String(element.className).replace(/ /g, '.')}` +
              ` "${element.textContent.trim().slice(0, 40)}"`;
            for (const element of document.querySelectorAll('main *')) {
              if (!shown(element) || element.closest('.list, .visually-hidden')) continue;
              for (const node of element.childNodes) {
                if (node.nodeType !== Node.TEXT_NODE || !node.textContent.trim()) continue;
                const range = document.createRange();
                range.selectNodeContents(node);
                for (const box of range.getClientRects()) {
                  if (box.width === 0) continue;
                  if (box.left < -0.5 || box.right > width + 0.5) problems.push(`${name(element)} runs out of the window`);
                  for (let outer = element.parentElement; outer; outer = outer.parentElement) {
                    const style = getComputedStyle(outer);
                    if (style.overflowX === 'visible' && style.overflowY === 'visible') continue;
                    const limit = outer.getBoundingClientRect();
                    if (box.left < limit.left - 0.5 || box.right > limit.right + 0.5 || box.top < limit.top - 0.5 ||
                        box.bottom > limit.bottom + 0.5) problems.push(`${name(element)} is cut off by ${name(outer)}`);
                  }
                }
              }
            }
            // A select box shows its chosen entry whole (the arrow takes 16 pixels of it).
            const context = document.createElement('canvas').getContext('2d');
            for (const select of document.querySelectorAll('main select')) {
              if (!shown(select) || select.selectedIndex < 0) continue;
              const style = getComputedStyle(select);
              context.font = `${style.fontSize} ${style.fontFamily}`;
              const text = select.options[select.selectedIndex].text;
              const needed = context.measureText(text).width + parseFloat(style.paddingLeft) + parseFloat(style.paddingRight) + 16;
              if (needed > select.clientWidth + 0.5) problems.push(`"${text}" needs ${needed} pixels, its box has ${select.clientWidth}`);
            }
            return problems;""")

    def test_the_page_uses_loopback_only_and_tells_when_the_host_has_ended(self):
        self.signed_in()
        origin = f"http://127.0.0.1:{self.host.port}/"
        loaded = self.driver.execute_script(
            "return performance.getEntriesByType('resource').map(entry => entry.name)")
        self.assertTrue(loaded, "images, styles and the script were loaded")
        self.assertTrue(all(name.startswith(origin) for name in loaded), loaded)
        self.assertEqual(self.host.stop(), 0)
        self.host = None
        self.wait_until(lambda: self.css("#offline").is_displayed(), "the page's notice")
        with self.assertRaises(OSError):
            socket.create_connection(("127.0.0.1", int(origin.split(":")[2].rstrip("/"))), timeout=2)
        self.shot("host-ended")


class GadgetServerRefusalTest(unittest.TestCase):
    """Requests that do not come from the opened page are refused (no browser needed)."""

    @classmethod
    def setUpClass(cls):
        cls.sandbox = Sandbox()
        cls.host = GadgetHost(cls.sandbox)

    @classmethod
    def tearDownClass(cls):
        cls.host.stop()
        cls.sandbox.stop()

    def request(self, method, path, headers=None, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.host.port, timeout=WAIT)
        sent = {"Host": f"127.0.0.1:{self.host.port}"}
        sent.update(headers or {})
        connection.putrequest(method, path, skip_host=True, skip_accept_encoding=True)
        for name, value in sent.items():
            if value is not None:
                connection.putheader(name, value)
        data = body.encode() if body else b""
        if method == "POST":
            connection.putheader("Content-Type", "application/x-www-form-urlencoded")
            connection.putheader("Content-Length", str(len(data)))
        connection.endheaders(data)
        response = connection.getresponse()
        result = response.status, response.read().decode(errors="replace")
        connection.close()
        return result

    def test_requests_without_the_secret_or_from_other_sites_are_refused(self):
        base = f"/{self.host.secret}/"
        origin = f"http://127.0.0.1:{self.host.port}"
        self.assertEqual(self.request("GET", base)[0], 200)
        self.assertEqual(self.request("GET", base, {"Host": f"localhost:{self.host.port}"})[0], 200)
        status, state = self.request("GET", base + "state")
        self.assertEqual(status, 200)
        self.assertIn("Credentials:username", json.loads(state)["values"])

        # Without the secret, or with a wrong one of the same length, nothing is found.
        for path in ("/", "/state", "/page.js", "/" + "0" * len(self.host.secret) + "/state",
                     "/" + self.host.secret[:-1] + "/state", "/" + self.host.secret + "x/state"):
            self.assertEqual(self.request("GET", path)[0], 404, path)
        # Another name for this address (DNS rebinding) or no name at all.
        for host in ("evil.example:%d" % self.host.port, "127.0.0.1", "127.0.0.1:1", None):
            self.assertEqual(self.request("GET", base + "state", {"Host": host})[0], 403, host)
        # Requests from other sites, and changes without an Origin.
        self.assertEqual(self.request("GET", base + "state", {"Origin": "http://evil.example"})[0], 403)
        self.assertEqual(self.request("GET", base + "state", {"Sec-Fetch-Site": "cross-site"})[0], 403)
        change = urllib.parse.urlencode({"key": "Credentials:username", "value": "intruder", "notify": "1"})
        for headers in ({"Origin": "http://evil.example"}, {"Origin": "null"}, {"Origin": None},
                        {"Origin": f"http://127.0.0.1:{self.host.port + 1}"}):
            self.assertEqual(self.request("POST", base + "value", headers, change)[0], 403, headers)
        status, state = self.request("GET", base + "state")
        self.assertNotIn("intruder", state)
        # The page itself may.
        self.assertEqual(self.request("POST", base + "value", {"Origin": origin}, change)[0], 200)
        self.assertEqual(json.loads(self.request("GET", base + "state")[1])["values"]["Credentials:username"]["v"],
                         "intruder")
        # Input that names nothing is answered, not acted on.
        status, reason = self.request("POST", base + "press", {"Origin": origin}, "key=Nowhere:thing")
        self.assertEqual(status, 409)
        self.assertIn("no such", reason)
        self.assertEqual(self.request("POST", base + "list/drop", {"Origin": origin}, "key=:trackList&files=99")[0], 400)
        status, reason = self.request("POST", base + "list/column", {"Origin": origin}, "key=:trackList&column=0&width=90")
        self.assertEqual((status, reason.strip()), (409, "the column cannot be sized"))

    def test_files_that_cannot_be_read_end_the_command_before_it_serves(self):
        for arguments, message in ((["/nonexistent.wav"], "not exist"), ([__file__], "gadget_test.py")):
            run = subprocess.run([PROGRAM, "gadget", "--no-browser", *arguments], capture_output=True, text=True,
                                 timeout=WAIT, env={**os.environ, **self.sandbox.environment()})
            self.assertEqual(run.returncode, 2, run.stderr)
            self.assertIn(message, run.stderr)
            self.assertNotIn("Sorvel gadget:", run.stdout)

    def test_the_page_forbids_scripts_and_frames_from_elsewhere(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.host.port, timeout=WAIT)
        connection.request("GET", f"/{self.host.secret}/")
        response = connection.getresponse()
        policy = response.getheader("Content-Security-Policy")
        page = response.read().decode()
        connection.close()
        self.assertIn("default-src 'none'", policy)
        self.assertIn("script-src 'self'", policy)
        self.assertIn("frame-ancestors 'none'", policy)
        self.assertEqual(response.getheader("Referrer-Policy"), "no-referrer")
        self.assertNotRegex(page, r"src=\"(https?:)?//", "no script or image of the page comes from elsewhere")
        self.assertNotRegex(page, r"<link[^>]*href=\"(https?:)?//", "no style sheet comes from elsewhere")


if __name__ == "__main__":
    unittest.main(verbosity=2)
