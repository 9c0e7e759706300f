"""Measures the live view beside its aims: VXCAMD=... VXCAMSIM=... python3 measure.py

On a quiet machine; some 7 minutes. Ends with 1 where an aim is missed.
"""

import contextlib
import multiprocessing
import operator
import os
import socket
import statistics
import sys
import threading
import time

from browser_support import Browser
from server_support import Server, Simulator, WebSocket, reap, until

CAMERA = "/api/v1/cameras/0"
SIDE = 2048
FRAME = SIDE * SIDE * 2
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
    """Seconds that each thread has run."""
    folder, used = "/proc/%d/task/" % process, {}
    for thread in os.listdir(folder):
        with open(folder + thread + "/schedstat", encoding="ascii") as file:
            used[thread] = int(file.read().split()[0]) / 1e9
    return used


def seen(live, seconds):
    """CPU seconds of each thread, and frames, of some seconds."""
    begun, cpu, frames = time.monotonic(), cpu_of_threads(live.server.process.pid), live.frames()
    time.sleep(seconds)
    after = cpu_of_threads(live.server.process.pid)
    took = time.monotonic() - begun
    return {thread: used - cpu.get(thread, 0) for thread, used in after.items()}, \
        (live.frames() - frames) / took, took


class Drain:
    """Takes all that comes to sockets, and counts it."""

    def __init__(self, sockets):
        self.sockets, self.bytes = sockets, [0] * len(sockets)
        self.threads = [threading.Thread(target=self._take, args=(n,)) for n in range(len(sockets))]
        for thread in self.threads:
            thread.start()

    def _take(self, number):
        space, taken = bytearray(1 << 20), 1
        while taken:
            taken = self.sockets[number].recv_into(space)
            self.bytes[number] += taken

    def end(self):
        for each, thread in zip(self.sockets, self.threads):
            each.shutdown(socket.SHUT_RDWR)
            thread.join()


@contextlib.contextmanager
def nobody(*_):
    yield Drain([])


@contextlib.contextmanager
def watching(live, watchers, rate):
    clients = [live.watch() for _ in range(watchers)]
    for client in clients:
        client.send('{"rate": %g}' % rate)
    drain = Drain([client.socket for client in clients])
    yield drain
    drain.end()
    for client in clients:
        client.close()
    until(lambda: live.server.metric("vxcamd_watchers") == 0, "no watcher")


def send_frames(listener, watchers, rate):
    """A program of its own, which has nothing to do with the camera."""
    frame = os.urandom(FRAME)

    def send(client):
        with contextlib.suppress(OSError):
            due = time.monotonic()
            while True:
                client.sendall(frame)
                due += 1 / rate
                time.sleep(max(0, due - time.monotonic()))

    threads = [threading.Thread(target=send, args=(listener.accept()[0],)) for _ in range(watchers)]
    for thread in threads:
        thread.start()


@contextlib.contextmanager
def elsewhere(_, watchers, rate):
    """The same traffic between two other programs."""
    with socket.create_server(("127.0.0.1", 0), backlog=watchers) as listener:
        sender = multiprocessing.get_context("spawn").Process(target=send_frames,
                                                              args=(listener, watchers, rate))
        sender.start()
        clients = [socket.create_connection(listener.getsockname()) for _ in range(watchers)]
    drain = Drain(clients)
    yield drain
    drain.end()
    for client in clients:
        client.close()
    sender.join()


def cost_of_watchers(watchers=20, seconds=4, turns=20):
    """Of each turn: CPU seconds for a GB received while nobody watches, while watchers do, and while
    as much goes through the machine elsewhere; then frames a second, in the same order."""
    with Live(rate=12) as live:
        live.start()
        cpu, _, _ = seen(live, seconds)
        receiving = {thread for thread, used in cpu.items() if used > 0.01}
        figures = []
        for _ in range(turns):
            costs, rates, rate = [], [], 1
            for who in (nobody, watching, elsewhere):
                with who(live, watchers, rate) as drain:
                    time.sleep(1)  # until the first rush is over
                    before = sum(drain.bytes)
                    cpu, frames, took = seen(live, seconds)
                    got = (sum(drain.bytes) - before) / took
                used = sum(used for thread, used in cpu.items() if thread in receiving)
                costs.append(used / (frames * took * FRAME / 1e9))
                rates.append(frames)
                if who is watching:
                    rate = got / watchers / FRAME
            figures.append((costs, rates))
        return figures


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
    figures = cost_of_watchers()
    alone, watched, other = ([costs[i] for costs, _ in figures] for i in range(3))
    rates = statistics.median(rates[1] / rates[0] for _, rates in figures)
    more = 100 * (statistics.median(map(operator.truediv, watched, alone)) - 1)
    tell("receiving 12 frames/s, nobody watching", statistics.median(alone), "CPU s/GB", "none", True)
    tell("more of it with 20 watchers at 1 frame/s each", more, "%", "5 at most", more <= 5)
    more = 100 * (statistics.median(map(operator.truediv, other, alone)) - 1)
    tell("more of it with that traffic between other programs", more, "%", "none", True)
    tell("frames received with 20 watchers, of those without", 100 * rates, "%", "at least 95",
         rates >= 0.95)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
