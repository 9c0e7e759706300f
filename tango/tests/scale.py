#!/usr/bin/python3 -B
"""Cameras behind one device server and its database: frames a second, latency, processor time. A client
reads each image when an event tells it of it.

Run by hand: scale.py [CAMERAS [EXPOSURE [SECONDS [SIDE]]]]. VX_PROGRAMS: the build folder."""

import os
import statistics
import struct
import sys
import threading
import time

import tango

from bench import Camera, wait_end, wait_for, wait_state
from database import Database, Registered


def seconds_of(process):
    """Of processor time, so far."""
    with open("/proc/%d/stat" % process.pid) as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Watcher(threading.Thread):
    """A client of one device."""

    def __init__(self, name, camera):
        super().__init__(daemon=True)
        self.device, self.camera = tango.DeviceProxy(name), camera
        self.told, self.read_at = [], {}
        self.more = threading.Condition()

    def prepare(self, exposure):
        wait_state(self.device, tango.DevState.ON)
        self.device.Exposure, self.device.Frames = exposure, 0
        self.event = self.device.subscribe_event("last_image_ready", tango.EventType.CHANGE_EVENT,
                                                 self.hear)
        self.start()

    def hear(self, event):
        if event.err or event.attr_value.value < 0:
            return
        with self.more:
            self.told.append(event.attr_value.value)
            self.more.notify()

    def run(self):
        tried = 0
        while True:
            with self.more:
                self.more.wait_for(lambda: len(self.told) > tried)
                index = self.told[tried]
            tried += 1
            try:
                data = self.device.readImage(index)[1]
            except tango.DevFailed:
                continue  # the ring holds others by now
            columns, rows = struct.unpack_from("<HH", data, 20)
            assert len(data) == 64 + 2 * columns * rows
            self.read_at.setdefault(index, time.monotonic())

    def latencies(self):
        """From an exposure's end, when the camera begins to send, to the image; s."""
        return [at - self.camera.frames[1, index + 1]["endMonotonic"] / 1e9
                for index, at in list(self.read_at.items()) if (1, index + 1) in self.camera.frames]


def measure(watchers, server, seconds):
    def figures():
        return (time.monotonic(), sum(len(watcher.read_at) for watcher in watchers),
                seconds_of(server.process), time.process_time())
    before = figures()
    time.sleep(seconds)
    span, frames, served, read = (after - first for after, first in zip(figures(), before))
    return frames / span, served / span, read / span


def main():
    given = [float(word) for word in sys.argv[1:]]
    count, exposure, seconds, side = given + [8, 0.25, 10, 1024][len(given):]
    database = Database()
    cameras = [Camera("--same-frame", sensor="%dx%d" % (side, side)) for _ in range(int(count))]
    names = ["lab/camera/%d" % number for number in range(1, len(cameras) + 1)]
    server = Registered({name: {"Target": [camera.target()]} for name, camera in zip(names, cameras)})
    watchers = [Watcher(name, camera) for name, camera in zip(names, cameras)]
    for watcher in watchers:
        watcher.prepare(exposure)
    for watcher in watchers:
        watcher.device.Start()
    for watcher in watchers:
        wait_for(lambda: watcher.read_at, "the first frame of each")
    rate, served, read = measure(watchers, server, seconds)
    late = sorted(latency for watcher in watchers for latency in watcher.latencies())
    mib = side * side * 2 / (1 << 20)
    print("%d cameras, %g MiB, %g s: %.1f frames/s, %.0f MiB/s; exposure's end to the client's image: median "
          "%.0f ms, 95 %% %.0f ms; processor: server %.0f %%, client %.0f %%" %
          (count, mib, exposure, rate, rate * mib, 1000 * statistics.median(late),
           1000 * late[int(0.95 * len(late))], 100 * served, 100 * read), flush=True)
    for watcher in watchers:
        watcher.device.Stop()
        wait_end(watcher.device)
        watcher.device.unsubscribe_event(watcher.event)
    server.end()
    database.end()
    for camera in cameras:
        camera.end()
    os._exit(0)  # a client that has heard events does not always end in order


if __name__ == "__main__":
    main()
