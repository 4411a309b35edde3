#!/usr/bin/env python3
"""What the live gadget costs: `sorvel gadget --no-browser --watch FOLDER` against the embedded
sandbox, the page's event stream read as the browser reads it.

1. From a file's close to its row in the page: FILES exports, one after another (1 s of 48 kHz
   stereo, so that the render resamples), each timed from the writer's close to the first state
   the page is sent that lists it. Its render time is what the host prints ("Rendered NAME (X s)");
   the target is the render time + 250 ms at the 99th percentile.
2. A soak: EXPORTS exports, in bursts of the same 10 names exported again and again (a long
   session's re-exports), each burst waited for in the page; the host's resident memory, open
   descriptors and inotify watches counted after the first 10 bursts and at the end.

    bench/watch/watch-bench.py [FILES] [EXPORTS]      (default 50 1000)
"""

import http.client
import json
import math
import os
import queue
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import wave

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PROGRAM = os.path.join(ROOT, "build", "default", "bin", "sorvel")
WAIT = 60
BURST = 10


def write_tone(path, frequency, seconds=1.0, rate=48000):
    frames = bytearray()
    for i in range(int(rate * seconds)):
        sample = int(6000 * math.sin(2 * math.pi * frequency * i / rate))
        frames += struct.pack("<hh", sample, sample)
    with wave.open(path, "wb") as out:
        out.setnchannels(2)
        out.setsampwidth(2)
        out.setframerate(rate)
        out.writeframes(bytes(frames))
    return time.monotonic()  # the close


class Gadget:
    def __init__(self, work, exports):
        environment = {key: value for key, value in os.environ.items() if not key.startswith("SORVEL_")}
        runtime = os.path.join(work, "runtime")
        os.makedirs(runtime, mode=0o700)
        environment.update({"HOME": work, "XDG_CONFIG_HOME": os.path.join(work, "config"),
                            "XDG_CACHE_HOME": os.path.join(work, "cache"), "XDG_RUNTIME_DIR": runtime})
        environment.pop("DBUS_SESSION_BUS_ADDRESS", None)
        self.process = subprocess.Popen([PROGRAM, "gadget", "--no-browser", "--watch", exports],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
        line = self.process.stdout.readline()
        match = re.match(r"Sorvel gadget: (http://\S+)$", line.strip())
        if not match:
            raise RuntimeError(f"no address: {line!r} {self.process.stderr.read()}")
        address = urllib.parse.urlsplit(match.group(1))
        self.renders = {}  # file name -> seconds of its last render
        self.states = queue.Queue()  # (arrival, {rendered file name: path})
        threading.Thread(target=self.read_renders, daemon=True).start()
        connection = http.client.HTTPConnection(address.hostname, address.port)
        connection.request("GET", address.path + "events", headers={"Accept": "text/event-stream"})
        self.stream = connection.getresponse()
        threading.Thread(target=self.read_events, daemon=True).start()

    def read_renders(self):
        for line in self.process.stderr:
            match = re.match(r"Rendered (.+) \(([\d.]+) s\)$", line.strip())
            if match:
                self.renders[match.group(1)] = float(match.group(2))

    def read_events(self):
        data = ""
        for raw in self.stream:
            line = raw.decode().rstrip("\n")
            if line.startswith("data: "):
                data += line[6:]
            elif not line and data:
                arrival = time.monotonic()
                try:
                    lists = json.loads(data).get("lists", {})
                except ValueError:
                    lists = {}
                data = ""
                if ":trackList" in lists:
                    tips = lists[":trackList"]["tooltips"]
                    self.states.put((arrival, {os.path.basename(tip[2]): tip[2] for tip in tips if tip[1] == 2}))

    def wait_for(self, condition):
        """The arrival of the first state after now whose files satisfy `condition`."""
        deadline = time.monotonic() + WAIT
        while True:
            arrival, files = self.states.get(timeout=max(deadline - time.monotonic(), 0.01))
            if condition(files):
                return arrival, files

    def counts(self):
        pid = self.process.pid
        with open(f"/proc/{pid}/status") as status:
            resident = int(re.search(r"VmRSS:\s+(\d+) kB", status.read()).group(1))
        descriptors = os.listdir(f"/proc/{pid}/fd")
        watches = 0
        for fd in descriptors:
            try:
                with open(f"/proc/{pid}/fdinfo/{fd}") as info:
                    watches += sum(line.startswith("inotify wd:") for line in info)
            except OSError:
                pass
        return resident, len(descriptors), watches

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        return self.process.wait(timeout=WAIT)


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, math.ceil(share * len(ordered)) - 1)]


def main():
    files = int(sys.argv[1]) if len(sys.argv) > 1 else 50
    exports = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    work = tempfile.mkdtemp(prefix="sorvel-watch-bench-")
    folder = os.path.join(work, "exports")
    os.makedirs(folder)
    gadget = Gadget(work, folder)
    try:
        latencies, overheads = [], []
        for i in range(files):
            name = f"Take {i:03}.wav"
            closed = write_tone(os.path.join(folder, name), 220 + i)
            arrival, _ = gadget.wait_for(lambda listed: name in listed)
            render = gadget.renders.get(name, 0.0)
            latencies.append(1000 * (arrival - closed))
            overheads.append(1000 * (arrival - closed - render))
        print(f"close to row: p50 {percentile(latencies, 0.5):.0f} ms, p99 {percentile(latencies, 0.99):.0f} ms; "
              f"over its render: p99 {percentile(overheads, 0.99):.0f} ms ({files} files)")

        # The rows of the first part go, as after an upload; the soak re-exports 10 names.
        for name in os.listdir(folder):
            os.remove(os.path.join(folder, name))
        names = [f"Mix {i}.wav" for i in range(BURST)]
        listed = {}
        before = None
        bursts = exports // BURST
        for burst in range(bursts):
            if burst == min(10, bursts - 1):
                before = gadget.counts()
            for index, name in enumerate(names):
                write_tone(os.path.join(folder, name), 300 + 10 * index + burst % 7, seconds=0.2)
            previous = dict(listed)
            _, listed = gadget.wait_for(lambda now: all(name in now and now[name] != previous.get(name)
                                                        for name in names))
        after = gadget.counts()
        rendered = sum(len(names) for _, _, names in os.walk(os.path.join(work, "cache", "sorvel", "render")))
        print(f"soak: {bursts * BURST} exports, resident memory {before[0]} -> {after[0]} KiB "
              f"(growth {after[0] - before[0]} KiB), descriptors {before[1]} -> {after[1]}, "
              f"inotify watches {before[2]} -> {after[2]}, rendered files kept {rendered} for {len(listed)} rows")
    finally:
        code = gadget.stop()
        shutil.rmtree(work, ignore_errors=True)
    return 0 if code == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
