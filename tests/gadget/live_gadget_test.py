#!/usr/bin/python3
"""Browser tests of the live gadget: `sorvel gadget --watch FOLDER` takes each export of the folder
while the page is open, and `sorvel add` hands files to the gadget this user has open. The real
page in Debian's headless Chromium, against the standalone sandbox, with the helpers of
gadget_test.py.

Environment (set by CTest): SORVEL_PROGRAM, SORVEL_SANDBOX_PROGRAM, SORVEL_SHOTS.
"""

import json
import os
import queue
import shutil
import stat
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import unittest.mock

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gadget_test as base  # noqa: E402

WAIT = base.WAIT


class AddedGadget(base.GadgetHost):
    """A gadget that `sorvel add` opened because none was open: the page's host, started as
    `sorvel add --no-browser FILE...` instead of `sorvel gadget --no-browser FILE...`."""

    def __init__(self, sandbox, files):
        start = subprocess.Popen

        def as_add(command, **options):
            return start([command[0], "add", *command[2:]], **options)

        with unittest.mock.patch.object(subprocess, "Popen", as_add):
            super().__init__(sandbox, files)


class LiveGadgetTest(base.GadgetPageTest):
    """The helpers and the browser of the page's tests; only the tests below run (load_tests)."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # The hand-over socket of every gadget started here lives in a folder of this run.
        cls.runtime = tempfile.TemporaryDirectory(prefix="sorvel-runtime-")
        os.chmod(cls.runtime.name, 0o700)
        os.environ["XDG_RUNTIME_DIR"] = cls.runtime.name

    @classmethod
    def tearDownClass(cls):
        super().tearDownClass()
        cls.runtime.cleanup()

    def setUp(self):
        super().setUp()
        self.exports = tempfile.mkdtemp(prefix="sorvel-exports-")
        self.output = ""
        self.lines = None

    def tearDown(self):
        super().tearDown()
        shutil.rmtree(self.exports, ignore_errors=True)

    # --- helpers --------------------------------------------------------------------------

    def export(self, name, seconds=1.0, frequency=440.0, temporary=None):
        """Writes an export into the watched folder: in place, or under `temporary` and renamed."""
        final = os.path.join(self.exports, name)
        path = os.path.join(self.exports, temporary) if temporary else final
        base.write_tone(path, seconds, frequency)
        if temporary:
            os.rename(path, final)
        return final

    def host_output(self, until, message):
        """Reads what the host printed until `until` is in it; all of it so far."""
        if self.lines is None:
            # A thread reads the lines: the first one was read through the stream's buffer, which
            # may hold more already, so waiting on the pipe itself could miss them.
            self.lines = queue.Queue()
            stream = self.host.process.stdout
            threading.Thread(target=lambda: [self.lines.put(line) for line in iter(stream.readline, "")],
                             daemon=True).start()
        deadline = time.monotonic() + WAIT
        while until not in self.output:
            try:
                self.output += self.lines.get(timeout=max(deadline - time.monotonic(), 0.01))
            except queue.Empty:
                self.shot(f"timeout-{self.id().split('.')[-1]}")
                raise AssertionError(f"timed out waiting for {message}: {self.output!r}")
        return self.output

    def rendered_paths(self):
        """The rendered file of each row, whole, from the table's tooltips."""
        table = self.state()["lists"][":trackList"]
        return {tip[0]: tip[2] for tip in table["tooltips"] if tip[1] == 2}

    def environment(self):
        environment = {key: value for key, value in os.environ.items() if not key.startswith("SORVEL_")}
        environment.update(self.sandbox.environment())
        if self.host:
            environment["HOME"] = self.host.home.name
        return environment

    def sorvel_add(self, *arguments):
        done = subprocess.run([base.PROGRAM, "add", *arguments], capture_output=True, text=True, timeout=WAIT,
                              env=self.environment())
        return done.returncode, done.stdout, done.stderr

    # --- tests ----------------------------------------------------------------------------

    def test_each_export_into_the_watched_folder_becomes_a_row_and_a_new_export_replaces_it(self):
        self.open_gadget(arguments=["--watch", self.exports])
        self.host_output(f"Watching {self.exports}", "the folder watched")
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")
        self.export("Mix One.wav", temporary=".Mix One.wav.part")
        self.wait_until(lambda: self.files_listed() == ["Mix One.wav"], "the first export's row")
        self.export("Mix Two.wav", frequency=330.0)
        self.wait_until(lambda: self.files_listed() == ["Mix One.wav", "Mix Two.wav"], "the second export's row")
        self.shot("watched-two-exports")

        # What the user typed for a row stays when another export comes.
        self.click_cell(1)
        self.wait_until(lambda: self.form_shown("TrackInfoView"), "the inspector")
        self.type_into("TrackInfo:genre", "Ambient")
        before = self.rendered_paths()
        self.export("Mix One.wav", frequency=550.0)
        self.host_output("Listed", "a hand-over")
        self.wait_until(lambda: self.rendered_paths().get(0) not in (None, before[0]), "Mix One rendered again")
        self.assertEqual(self.files_listed(), ["Mix One.wav", "Mix Two.wav"], "one row per export, in place")
        self.assertEqual(self.rendered_paths()[1], before[1], "the other row keeps its file")
        self.assertFalse(os.path.exists(before[0]), "the replaced rendering is removed")
        self.click_cell(1)
        self.wait_until(lambda: self.css('[data-p="TrackInfo:genre"]').get_attribute("value") == "Ambient",
                        "the typed genre kept")

        # A row removed with its X stays removed; a file that is not audio is only named.
        self.click_cell(0, column=0)
        self.wait_until(lambda: self.files_listed() == ["Mix Two.wav"], "the row removed")
        with open(os.path.join(self.exports, "notes.txt"), "w") as out:
            out.write("mix notes\n")
        self.host_output("notes.txt: not an audio file", "the skipped file's line")
        self.export("Mix Three.wav", frequency=660.0)
        self.wait_until(lambda: self.files_listed() == ["Mix Two.wav", "Mix Three.wav"], "the third export")
        self.shot("watched-replaced")

        # However many hand-overs there are, the rendered file of every row stays while it is listed.
        for number in range(4, 10):
            self.export(f"Mix {number}.wav", seconds=0.3, frequency=200.0 + 50 * number)
            self.wait_until(lambda: f"Mix {number}.wav" in self.files_listed(), f"export {number}")
        self.assertEqual(len(self.rows()), 8)
        missing = [path for path in self.rendered_paths().values() if not os.path.exists(path)]
        self.assertEqual(missing, [], "rendered files removed while their rows list them")

    def test_an_export_during_an_upload_is_listed_when_the_batch_has_ended(self):
        self.open_gadget(self.files[:1], ["--watch", self.exports])
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")
        self.type_into(":newProductName", "Live Session")
        self.css('[data-p=":upload"]').click()
        self.idle()
        self.wait_until(lambda: self.prop(":isUploading") == 1, "the upload to start")
        self.export("Late Mix.wav", temporary="Late Mix.tmp")
        self.host_output("Waiting for the upload to end", "the export kept for later")
        self.assertNotIn("Late Mix.wav", self.files_listed(), "nothing handed over during the upload")
        self.wait_until(lambda: self.prop(":isUploading") == 0, "the upload to end")
        self.wait_until(lambda: "Late Mix.wav" in self.files_listed(), "the kept export listed after the batch")
        rows = self.rows()
        self.assertTrue(any(row[1] == "Morning Song" and row[3] == "Uploaded" for row in rows), rows)
        self.assertTrue(any(row[1] == "Late Mix" and row[3] == "Add" for row in rows), rows)
        self.assertEqual(self.state()["values"][":titlesList"]["e"][self.value(":titlesList")], "Live Session",
                         "the kept export goes to the product the page shows")
        self.shot("listed-after-upload")

    def test_a_watched_folder_that_goes_away_ends_the_gadget(self):
        self.open_gadget(arguments=["--watch", self.exports])
        self.host_output("Watching", "the folder watched")
        shutil.rmtree(self.exports)
        self.assertEqual(self.host.process.wait(timeout=WAIT), 2)
        self.assertIn("was removed", self.host.process.stderr.read())
        self.host.stop()
        self.host = None

    def test_sorvel_add_hands_files_to_the_open_gadget_and_opens_one_when_none_is(self):
        self.open_gadget(self.files[:1])
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")
        code, out, err = self.sorvel_add(self.files[1])
        self.assertEqual(code, 0, err)
        self.assertEqual(out.strip(), f"Handed 1 file to the open gadget: {self.host.address}")
        self.wait_until(lambda: self.files_listed() == ["Morning Song.wav", "Evening Tune.wav"], "the added row")
        self.shot("added-to-open-gadget")
        # Only the user's own folder and socket.
        folder = os.path.join(os.environ["XDG_RUNTIME_DIR"], "sorvel")
        self.assertEqual(stat.S_IMODE(os.stat(folder).st_mode), 0o700)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.join(folder, "gadget.socket")).st_mode), 0o600)
        # Something that is not audio: nothing is taken, and the adder says why.
        notes = os.path.join(self.exports, "notes.txt")
        with open(notes, "w") as out:
            out.write("not audio\n")
        code, out, err = self.sorvel_add(notes, self.files[0])
        self.assertEqual(code, 2)
        self.assertIn("notes.txt: not an audio file", err)
        self.assertEqual(len(self.rows()), 2)

        # The gadget dies without removing its socket: the next `sorvel add` notices and opens one.
        self.host.process.kill()
        self.host.process.wait(timeout=WAIT)
        self.host.stop()
        self.host = AddedGadget(self.sandbox, [self.files[1]])
        self.driver.get(self.host.address)
        self.wait_until(lambda: self.driver.execute_script("return document.body.dataset.ready === 'true'"), "the page")
        self.wait_until(lambda: self.files_listed() == ["Evening Tune.wav"], "the files of the opening add")
        code, out, err = self.sorvel_add(self.files[0])
        self.assertEqual(code, 0, err)
        self.assertIn(self.host.address, out)
        self.wait_until(lambda: self.files_listed() == ["Evening Tune.wav", "Morning Song.wav"], "a second add")

    def history(self, home, product):
        """What the ledger in `home` holds of `product`: the number of confirmed uploads per track."""
        environment = {key: value for key, value in os.environ.items() if not key.startswith("SORVEL_")}
        environment.update(base.home_environment(home))
        done = subprocess.run([base.PROGRAM, "history", "--json", "--product", product], capture_output=True, text=True,
                              timeout=WAIT, env=environment)
        self.assertEqual(done.returncode, 0, done.stderr)
        counts = {}
        for upload in json.loads(done.stdout)["uploads"]:
            counts[upload["track_name"]] = counts.get(upload["track_name"], 0) + 1
        return counts

    def upload_all(self):
        self.css('[data-p=":upload"]').click()
        self.idle()
        self.wait_until(lambda: self.prop(":isUploading") == 1, "the upload to start")
        self.wait_until(lambda: self.prop(":isUploading") == 0, "the upload to end")

    def show_product(self, product):
        """Makes the page show the account's product `product`, once the account's products arrived."""
        self.wait_until(lambda: product in self.state()["values"][":titlesList"]["e"], f"{product} listed")
        entries = self.state()["values"][":titlesList"]["e"]
        if self.value(":replaceMode") != 1 or entries[self.value(":titlesList")] != product:
            self.choose_menu_entry(entries.index(product))

    def test_a_file_unchanged_since_its_upload_is_left_out_and_its_track_row_says_so(self):
        home = tempfile.TemporaryDirectory(prefix="sorvel-ledger-home-")
        self.addCleanup(home.cleanup)
        product = "Ledger Session"

        # A first gadget publishes both files to a new product; the ledger records each upload.
        self.open_gadget(self.files, home=home)
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2 and not self.prop("Client:isBusy"), "signed in")
        self.type_into(":newProductName", product)
        self.wait_until(lambda: self.value(":newProductName") == product, "the typed name in the gadget")
        self.upload_all()
        self.wait_until(lambda: product in self.state()["values"][":titlesList"]["e"], "the new product listed")
        self.assertEqual(self.host.stop(), 0)
        self.host = None
        self.assertEqual(self.history(home.name, product), {"Morning Song": 1, "Evening Tune": 1})

        # The next day: the same first file, the second mixed again. The unchanged file is left out
        # and its track's row says so; the changed one replaces its track.
        remix = os.path.join(self.exports, "Evening Tune.wav")
        base.write_tone(remix, 1.0, 550.0)
        self.open_gadget([self.files[0], remix], ["--product", product], home=home)
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2, "signed in")
        self.show_product(product)
        self.host_output(f"Unchanged since its last upload, not sent: {self.files[0]}", "the unchanged file left out")

        def unchanged_row():
            grid = self.grid()
            if grid["headers"][:1] != ["Check"]:
                return None
            return next((row for row in grid["rows"] if row[2] == "Morning Song"), None)
        self.wait_until(lambda: (unchanged_row() or [""])[0] == "Unchanged", "the track's row saying unchanged")
        self.assertEqual(unchanged_row()[3], "", "no file left in the unchanged track's row")
        self.assertEqual(self.files_listed().count("Evening Tune.wav"), 1, self.rows())
        remixed = next(row for row in self.rows() if row[2].endswith("Evening Tune.wav"))
        self.assertEqual(remixed[3], "Replace", self.rows())
        badge = self.css(".badges .badge.unchanged")
        self.assertEqual(badge.get_attribute("textContent"), "unchanged")
        self.shot("unchanged-track")
        self.axe("a file left out as unchanged")

        # Choosing a new product hands the file back; the product again leaves it out.
        self.choose_menu_entry(len(self.state()["values"][":titlesList"]["e"]) - 1)  # the list's last: a new product
        self.wait_until(lambda: "Morning Song.wav" in self.files_listed(), "the file handed back for a new product")
        self.idle()
        self.assertEqual(self.value(":replaceMode"), 0, "the user's choice of a new product stays")
        self.assertNotEqual(self.value(":newProductName"), product, "the listed product's name left for a new one")
        self.show_product(product)
        self.wait_until(lambda: (unchanged_row() or [""])[0] == "Unchanged", "left out again on the product")

        # The upload sends the changed file alone.
        self.upload_all()
        self.wait_until(lambda: self.history(home.name, product) == {"Morning Song": 1, "Evening Tune": 2},
                        "the remix recorded, nothing else sent")
        self.assertEqual(self.host.stop(), 0)
        self.host = None

        # --force keeps the unchanged file in the table, to be sent all the same.
        self.open_gadget([self.files[0]], ["--product", product, "--force"], home=home)
        self.sign_in()
        self.wait_until(lambda: self.prop(":loginPhase") == 2, "signed in")
        self.show_product(product)
        self.wait_until(lambda: any(row[2].endswith("Morning Song.wav") and row[3] == "Replace" for row in self.rows()),
                        "the file beside its track")
        self.idle()
        self.assertNotIn("Unchanged", [row[0] for row in self.grid()["rows"]])


def load_tests(loader, tests, pattern):
    """Only this file's tests, not those of the page's tests it borrows its helpers from."""
    return unittest.TestSuite(LiveGadgetTest(name) for name in sorted(vars(LiveGadgetTest)) if name.startswith("test_"))


if __name__ == "__main__":
    unittest.main()
