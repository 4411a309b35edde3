#!/usr/bin/env python3
"""What the hot folder costs: `sorvel publish --watch FOLDER --settle 0` against the embedded
sandbox. FILES exports, one after another (1 s of 48 kHz stereo, so that the render resamples),
each timed from the writer's close to the batch starting ("Publishing 1 file: NAME") and to its
upload starting ("Uploading 1 file to ..."); the latter less the render time (what the host
prints, "Rendered NAME (X s)") is what the hot folder adds, and the target for it is 250 ms at the
99th percentile. Each batch is waited for to end ("1 of 1 tracks uploaded") before the next export.

    bench/watch/hot-folder-bench.py [FILES]      (default 50)
"""

import importlib.util
import os
import queue
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PROGRAM = os.path.join(ROOT, "build", "default", "bin", "sorvel")
WAIT = 60

# The live gadget's bench writes the tones and takes the percentiles the same way.
_spec = importlib.util.spec_from_file_location("watch_bench", os.path.join(os.path.dirname(__file__), "watch-bench.py"))
watch_bench = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(watch_bench)
write_tone, percentile = watch_bench.write_tone, watch_bench.percentile


class HotFolder:
    def __init__(self, work):
        self.folder = exports = os.path.join(work, "exports")
        os.makedirs(exports)
        environment = {key: value for key, value in os.environ.items() if not key.startswith("SORVEL_")}
        environment.update({"HOME": work, "XDG_CONFIG_HOME": os.path.join(work, "config"),
                            "XDG_CACHE_HOME": os.path.join(work, "cache"),
                            "XDG_STATE_HOME": os.path.join(work, "state")})
        environment.pop("DBUS_SESSION_BUS_ADDRESS", None)
        self.process = subprocess.Popen([PROGRAM, "publish", "--watch", exports, "--settle", "0",
                                         "--product", "Bench"],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
        self.lines = queue.Queue()  # (arrival, stream, line)
        for stream in (self.process.stdout, self.process.stderr):
            threading.Thread(target=self.read, args=(stream,), daemon=True).start()
        self.wait_for(lambda stream, line: line.startswith("Each finished export is published"))

    def read(self, stream):
        name = "out" if stream is self.process.stdout else "err"
        for line in stream:
            self.lines.put((time.monotonic(), name, line.rstrip("\n")))

    def wait_for(self, condition, seen=None):
        """The arrival of the first line after now that satisfies `condition`; every line read
        meanwhile is handed to `seen`."""
        deadline = time.monotonic() + WAIT
        while True:
            arrival, stream, line = self.lines.get(timeout=max(deadline - time.monotonic(), 0.01))
            if seen:
                seen(stream, line)
            if condition(stream, line):
                return arrival

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(timeout=WAIT)


def main():
    files = int(sys.argv[1]) if len(sys.argv) > 1 else 50
    work = tempfile.mkdtemp(prefix="sorvel-hot-folder-bench-")
    hot = HotFolder(work)
    latencies, overheads = [], []
    try:
        for i in range(files):
            name = f"Take {i:03}"
            renders = {}

            def seen(stream, line):
                match = re.match(r"Rendered (.+) \(([\d.]+) s\)$", line)
                if match:
                    renders[match.group(1)] = float(match.group(2))

            closed = write_tone(os.path.join(hot.folder, name + ".wav"), 220 + i)
            started = hot.wait_for(lambda stream, line: line.startswith("Publishing 1 file: " + name), seen)
            uploading = hot.wait_for(lambda stream, line: line.startswith("Uploading 1 file to "), seen)
            hot.wait_for(lambda stream, line: "tracks uploaded" in line, seen)
            render = renders.get(name + ".wav", 0.0)
            latencies.append(1000 * (started - closed))
            overheads.append(1000 * (uploading - closed - render))
        print(f"close to batch start: p50 {percentile(latencies, 0.5):.0f} ms, p99 {percentile(latencies, 0.99):.0f} ms; "
              f"to its upload's start beyond its render: p99 {percentile(overheads, 0.99):.0f} ms ({files} files)")
    finally:
        code = hot.stop()
        shutil.rmtree(work, ignore_errors=True)
    return 0 if code == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
