"""What the tests of the device server stand on: a simulated camera that tells the truth about its
frames, a server, and waiting for conditions."""

import collections
import json
import os
import random
import signal
import socket
import struct
import subprocess
import threading
import time
import zlib

import tango

PROGRAMS = os.environ["VX_PROGRAMS"]  # the build folder
DEADLINE = 20


def wait_for(condition, what, seconds=DEADLINE):
    """The first true value of the condition."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError("waited %g s for %s" % (seconds, what))
        time.sleep(0.01)


def free_port():
    """One of those that the system gives to nobody by itself."""
    while True:
        port = random.randint(12000, 19999)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue


class Program:
    """A program of the tests' own, with what it prints."""

    def __init__(self, arguments, environment=None, folder=None):
        self.lines = []
        self.log = []
        self.process = subprocess.Popen(
            arguments, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd=folder,
            env=dict(os.environ, DBGD_DISABLE="1", **(environment or {})))
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            text = line.decode(errors="replace").rstrip("\n")
            self.log.append(text)
            self.hear(text)

    def hear(self, text):
        self.lines.append(text)

    def end(self, how=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            self.process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        self.reader.join(DEADLINE)
        self.process.stdout.close()


class Camera(Program):
    """The simulated camera; `frames` by readout and frame, each as it said."""

    def __init__(self, *options, sensor="64x48", port=0, scale=1):
        self.frames = {}
        self.events = collections.defaultdict(list)
        self.port = None
        super().__init__([os.path.join(PROGRAMS, "sim", "vxcamsim"), "--json", "--sensor", sensor,
                          "--heartbeat", "0.2", "--port", str(port), "--time-scale", str(scale),
                          *options])
        wait_for(lambda: self.port or self.process.poll() is not None, "the camera's port")
        if self.port is None:
            raise AssertionError("\n".join(self.log))

    def hear(self, text):
        try:
            event = json.loads(text)
        except ValueError:
            return
        event["heard"] = time.monotonic()
        self.events[event["event"]].append(event)
        if event["event"] == "listening":
            self.port = event["port"]
        if event["event"] == "frame":
            self.frames[event["readout"], event["frame"]] = event

    def target(self):
        return "127.0.0.1:%d" % self.port

    def truth(self, readout, frame):
        return wait_for(lambda: self.frames.get((readout, frame)), "the camera's frame")


class Server(Program):
    """A device server without a database."""

    NAME = "lab/camera/%d"

    def __init__(self, *targets, devices=None):
        self.port = free_port()
        self.count = devices or len(targets)
        names = ",".join(self.NAME % i for i in range(1, self.count + 1))
        super().__init__([os.path.join(PROGRAMS, "tango", "VxCamera"), "test", "-nodb", "-dlist",
                          names, "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % self.port],
                         {"VXCAM_TARGETS": " ".join(targets)})
        wait_for(lambda: "Ready to accept request" in self.lines or
                 self.process.poll() is not None, "the server")

    def device(self, number=1):
        return tango.DeviceProxy("tango://127.0.0.1:%d/%s#dbase=no" %
                                 (self.port, self.NAME % number))


def wait_state(device, *states, seconds=DEADLINE):
    wait_for(lambda: device.state() in states, "state %s" % (states,), seconds)


def wait_end(device, seconds=DEADLINE):
    """Waits until no acquisition runs; the state then."""
    wait_for(lambda: device.state() != tango.DevState.RUNNING, "the end", seconds)
    return device.state()


def decoded(encoded):
    """Header and pixels of an encoded image: (version, columns, rows, bits), bytes."""
    name, data = encoded
    assert name == "DATA_ARRAY", name
    magic, version, length, category, kind = struct.unpack_from("<IHHII", data)
    endian, dimensions, columns, rows = struct.unpack_from("<HHHH", data, 16)
    assert (magic, length, category, endian, dimensions) == (0x44544159, 64, 2, 0, 2)
    return (version, columns, rows, {0: 8, 1: 16, 2: 32}[kind]), bytes(data[length:])


def check_value(pixels):
    return zlib.crc32(pixels)


def without_repeats(items):
    return [item for i, item in enumerate(items) if items[i - 1:i] != [item]]


def reason(failure):
    return failure.args[0].reason
