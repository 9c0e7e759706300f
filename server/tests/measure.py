"""Measures the live view beside its aims: VXCAMD=... VXCAMSIM=... python3 measure.py

On a quiet machine; some 90 s. Ends with 1 where an aim is missed.
"""

import os
import statistics
import sys
import threading
import time

from browser_support import Browser
from server_support import Server, Simulator, WebSocket, reap, until

CAMERA = "/api/v1/cameras/0"
SIDE = 2048
FRAME = SIDE * SIDE * 2
TICKS = os.sysconf("SC_CLK_TCK")
LIVE = {"exposure": 0.001, "frames": 0}


class Live:
    """A camera of 2048 x 2048 pixels that is read without an end, so many frames a second."""

    def __init__(self, rate=0):
        self.camera = Simulator("--same-frame", "--line-rate", str(rate * SIDE),
                                sensor="%dx%d" % (SIDE, SIDE))
        self.server = Server(self.camera.target)
        self.server.open()

    def start(self):
        assert self.server.ask("POST", CAMERA + "/exposures", LIVE).status == 202
        until(lambda: self.frames() > 3, "frames")

    def frames(self):
        return self.server.metric('vxcamd_received_bytes_total{camera="0"}') / FRAME

    def watch(self):
        return WebSocket(self.server.port, CAMERA + "/live")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.retire()
        self.camera.retire()
        reap()


def into_browser(camera_rate, seconds=8):
    """Frames a second that a page draws."""
    with Live(camera_rate) as live:
        browser = Browser()
        try:
            browser.open("http://127.0.0.1:%d/" % live.server.port)
            browser.until("document.getElementById('link').textContent === 'connected'")
            live.start()
            browser.until("document.getElementById('image').dataset.frame !== undefined")
            browser.run("""window.drawn = 0;
                new MutationObserver(() => drawn++).observe(document.getElementById('image'),
                                                            {attributeFilter: ['data-frame']})""")
            time.sleep(1)
            begun, before = time.monotonic(), browser.run("drawn")
            time.sleep(seconds)
            return (browser.run("drawn") - before) / (time.monotonic() - begun)
        finally:
            browser.close()


def delays(count=100):
    """Seconds from a frame's last packet until all of its pixels have come to a watcher."""
    with Live(rate=10) as live:
        watcher = live.watch()
        live.start()
        found = []
        while len(found) < count:
            message = watcher.message()
            if not isinstance(message, dict) or message["message"] != "frame":
                continue
            told = time.monotonic()
            watcher.message()
            found.append(message["age"] + time.monotonic() - told)
        watcher.close()
        return sorted(found[5:])


def cpu_of_threads(process):
    """Seconds that each thread has used."""
    folder, used = "/proc/%d/task/" % process, {}
    for thread in os.listdir(folder):
        with open(folder + thread + "/stat", encoding="ascii") as file:
            fields = file.read().rpartition(")")[2].split()
        used[thread] = (int(fields[11]) + int(fields[12])) / TICKS
    return used


def seen(live, seconds):
    """CPU seconds of each thread, and frames, of some seconds."""
    begun, cpu, frames = time.monotonic(), cpu_of_threads(live.server.process.pid), live.frames()
    time.sleep(seconds)
    after = cpu_of_threads(live.server.process.pid)
    took = time.monotonic() - begun
    return {thread: used - cpu.get(thread, 0) for thread, used in after.items()}, \
        (live.frames() - frames) / took, took


def cost_of_watchers(watchers=20, rate=1, seconds=4, turns=5):
    """CPU seconds for a GB received, and frames a second, without and with watchers."""
    with Live(rate=12) as live:
        live.start()
        cpu, _, _ = seen(live, seconds)
        receiving = {thread for thread, used in cpu.items() if used > 0.01}
        figures = {0: [], watchers: []}
        for _ in range(turns):
            for count, list_ in figures.items():
                clients = [live.watch() for _ in range(count)]
                threads = []
                for client in clients:
                    client.send('{"rate": %d}' % rate)
                    threads.append(threading.Thread(target=drain, args=(client,)))
                    threads[-1].start()
                cpu, frames, took = seen(live, seconds)
                used = sum(used for thread, used in cpu.items() if thread in receiving)
                list_.append((used / (frames * took * FRAME / 1e9), frames))
                for client, thread in zip(clients, threads):
                    client.socket.shutdown(2)
                    thread.join()
                    client.close()
                until(lambda: live.server.metric("vxcamd_watchers") == 0, "no watcher")
        return {count: [statistics.median(column) for column in zip(*list_)]
                for count, list_ in figures.items()}


def drain(client):
    space = bytearray(1 << 20)
    while client.socket.recv_into(space):
        pass


def main():
    good = True

    def tell(text, figure, unit, aim, is_good):
        nonlocal good
        good = good and is_good
        print("%-58s %8.2f %-8s aim: %s%s" % (text, figure, unit, aim, "" if is_good else "  MISSED"),
              flush=True)

    rate = into_browser(30)
    tell("drawn by Chromium of 30 frames/s, 2048 x 2048, 16 bits", rate, "1/s", "at least 15", rate >= 15)
    tell("the same of as many as the simulated camera can", into_browser(0), "1/s", "none", True)
    found = delays()
    middle = statistics.median(found) * 1e3
    tell("last packet until all pixels are at a watcher, median", middle, "ms", "below 30", middle < 30)
    late = found[len(found) * 95 // 100] * 1e3
    tell("the same, of 95 in a hundred", late, "ms", "none", True)
    costs = cost_of_watchers()
    (alone, alone_rate), (watched, watched_rate) = costs[0], costs[20]
    tell("receiving 12 frames/s, nobody watching", alone, "CPU s/GB", "none", True)
    tell("the same with 20 watchers at 1 frame/s each", watched, "CPU s/GB", "5 % more at most",
         watched <= 1.05 * alone)
    tell("frames received then, of those without watchers", 100 * watched_rate / alone_rate, "%",
         "at least 95", watched_rate >= 0.95 * alone_rate)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
