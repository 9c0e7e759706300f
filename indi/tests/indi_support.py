"""indiserver, simulated cameras, and a client that speaks INDI's XML, for the tests of the driver."""
import base64
import contextlib
import io
import json
import os
import queue
import socket
import subprocess
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree as ElementTree
import zlib

DRIVER = os.environ.get("VX_INDI_DRIVER", "")
SIMULATOR = os.environ.get("VX_SIMULATOR", "")
DEVICE = "VX CCD"
PATIENCE = 20  # s, for what has to happen


def page(name):
    """A page of the documentation."""
    folder = os.path.dirname(os.path.abspath(__file__))
    return os.path.join(folder, "..", "..", "docs", name)


def free_port():
    """One that the system gives to nobody by itself."""
    for port in range(12000 + os.getpid() % 7000, 20000):
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise RuntimeError("no free port")


class Lines:
    """What a process prints, line by line, in the background."""

    def __init__(self, stream):
        self.queue = queue.Queue()
        self.all = []
        threading.Thread(target=self._read, args=(stream,), daemon=True).start()

    def _read(self, stream):
        for line in stream:
            self.all.append(line)
            self.queue.put(line)
        self.queue.put(None)


class Camera:
    """A simulated camera in a process of its own, and what it knows about its frames."""

    def __init__(self, *options, port=0, sensor="128x96", heartbeat=0.1):
        command = [SIMULATOR, "--json", "--port", str(port), "--sensor", sensor,
                   "--heartbeat", str(heartbeat), *options]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        text=True, env=dict(os.environ, DBGD_DISABLE="1"))
        self.lines = Lines(self.process.stdout)
        self.events = []
        self.port = self.wait("listening")["port"]

    def wait(self, event, seconds=PATIENCE, where=lambda told: True):
        """The next of its events of that name, counted from the last one waited for."""
        deadline = time.monotonic() + seconds
        while True:
            line = self.lines.queue.get(timeout=max(deadline - time.monotonic(), 0.001))
            if line is None:
                raise AssertionError("the camera has ended")
            if not line.startswith("{"):
                continue
            told = json.loads(line)
            self.events.append(told)
            if told["event"] == event and where(told):
                return told

    def frames(self):
        """All that it sent so far."""
        told = [json.loads(line) for line in list(self.lines.all) if line.startswith("{")]
        return [event for event in told if event["event"] == "frame"]

    def sent(self, total, name="sum"):
        """The frame that had this sum; it is told about when the client may have it already."""
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            for frame in reversed(self.frames()):
                if frame[name] == total:
                    return frame
            time.sleep(0.01)
        sums = [frame[name] for frame in self.frames()]
        raise AssertionError(f"no frame of {sums} has the {name} {total}")

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


class Server:
    """indiserver with drivers."""

    def __init__(self, *drivers, home, environment=None):
        self.port = free_port()
        self.log = open(os.path.join(home, f"indiserver{self.port}.log"), "w+")
        env = dict(os.environ, HOME=home, **(environment or {}))
        # Its socket for local clients stands where several servers do not meet.
        command = ["indiserver", "-v", "-p", str(self.port), "-r", "0", "-m", "1000",
                   "-u", os.path.join(home, f"socket{self.port}"), *drivers]
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=self.log, env=env, cwd=home)

    def text(self):
        self.log.flush()
        with open(self.log.name) as file:
            return file.read()

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()


class Vector:
    """A property of a device, as it was told last."""

    def __init__(self, element):
        self.kind = element.tag[3:-6]  # defNumberVector
        self.label, self.group = element.get("label"), element.get("group")
        self.perm, self.rule = element.get("perm"), element.get("rule")
        self.values, self.elements = {}, {}
        self.state = None
        self.updates = 0
        self.messages, self.history = [], []  # states and values, since it was defined
        for one in element:
            self.elements[one.get("name")] = dict(one.attrib)
        self.update(element)

    def update(self, element):
        self.state = element.get("state", self.state)
        self.updates += 1
        if element.get("message"):
            self.messages.append(element.get("message"))
        for one in element:
            text = (one.text or "").strip()
            value = float(text) if self.kind == "Number" else text
            if self.kind == "Switch":
                value = text == "On"
            if self.kind != "BLOB":
                self.values[one.get("name")] = value
        self.history.append((self.state, dict(self.values)))


class Blob:
    def __init__(self, element):
        one = element[0]
        self.format, self.size = one.get("format"), int(one.get("size"))
        self.data = base64.b64decode(one.text or "")
        self.state = element.get("state")
        self.time = time.monotonic()

    def fits(self):
        from astropy.io import fits
        with fits.open(io.BytesIO(self.data)) as file:
            image = file[1] if self.format == ".fits.fz" else file[0]
            return image.data.copy(), image.header.copy()

    def truth(self):
        """Sum and check value of the pixels, and the header."""
        pixels, header = self.fits()
        plain = pixels.astype(f"<u{max(abs(header['BITPIX']) // 8, 1)}")
        return int(plain.sum(dtype="u8")), zlib.crc32(plain.tobytes()), header


class Client:
    """Keeps what a server tells; reads only while somebody waits."""

    def __init__(self, port, device=DEVICE):
        self.device = device
        self.vectors, self.deleted, self.blobs, self.messages = {}, [], [], []
        self.log = []  # (time, device, name, state, message)
        self.socket = self.open(port)
        self.parser = ElementTree.XMLPullParser(["start", "end"])
        self.parser.feed("<stream>")
        self.depth, self.root = 0, None
        self.send("<getProperties version='1.7'/>")

    def open(self, port):
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                return socket.create_connection(("127.0.0.1", port), timeout=PATIENCE)
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)

    def close(self):
        self.socket.close()

    def send(self, text):
        self.socket.sendall(text.encode())

    def pump(self, seconds):
        """Takes in what came, waiting at most so long for more."""
        self.socket.settimeout(max(seconds, 0.001))
        try:
            data = self.socket.recv(1 << 20)
        except (TimeoutError, socket.timeout):
            return
        if not data:
            raise AssertionError("the server has closed the connection")
        self.parser.feed(data)
        for event, element in self.parser.read_events():
            self.depth += 1 if event == "start" else -1
            if event == "start" and self.depth == 1:
                self.root = element
            elif event == "end" and self.depth == 1:
                self.take(element)
                self.root.clear()

    def take(self, element):
        device, name = element.get("device"), element.get("name")
        self.log.append((time.monotonic(), device, name, element.get("state"),
                         element.get("message")))
        key = (device, name)
        if element.get("message"):
            self.messages.append(element.get("message"))
        if element.tag.startswith("def") and key in self.vectors:
            self.vectors[key].update(element)  # told again, to whoever asked
        elif element.tag.startswith("def"):
            self.vectors[key] = Vector(element)
        elif element.tag == "setBLOBVector":
            # Who wants the BLOBs of one device gets those of all that it knows.
            if device == self.device:
                self.blobs.append(Blob(element))
        elif element.tag.startswith("set") and key in self.vectors:
            self.vectors[key].update(element)
        elif element.tag == "delProperty":
            self.deleted.append(name)
            for gone in [k for k in self.vectors if k == key or (name is None and k[0] == device)]:
                del self.vectors[gone]

    def wait(self, condition, what="", seconds=PATIENCE):
        """Until it is true; what it returned."""
        deadline = time.monotonic() + seconds
        while True:
            result = condition()
            if result:
                return result
            if time.monotonic() > deadline:
                raise AssertionError(f"not within {seconds} s: {what}; told last: {self.log[-8:]}")
            self.pump(min(deadline - time.monotonic(), 0.5))

    def has(self, name):
        return (self.device, name) in self.vectors

    def vector(self, name, seconds=PATIENCE):
        self.wait(lambda: self.has(name), f"{name} is defined", seconds)
        return self.vectors[self.device, name]

    def value(self, name, element):
        return self.vector(name).values[element]

    def set(self, name, values, kind=None):
        """Sends it, whatever the driver will say; elements in a dictionary."""
        kind = kind or self.vector(name).kind
        ones = "".join(f"<one{kind} name='{key}'>{text_of(value)}</one{kind}>"
                       for key, value in values.items())
        self.send(f"<new{kind}Vector device='{self.device}' name='{name}'>{ones}</new{kind}Vector>")

    def change(self, name, values, state=("Ok",), seconds=PATIENCE):
        """Sends it, and waits until the driver says one of these states."""
        vector = self.vector(name)
        before = vector.updates
        self.set(name, values)
        states = (state,) if isinstance(state, str) else state
        self.wait(lambda: vector.updates > before and vector.state in states,
                  f"{name} {values} is {states}", seconds)
        return vector

    def connect(self, port=None, address="127.0.0.1"):
        if port is not None:
            self.change("DEVICE_ADDRESS", {"ADDRESS": address, "PORT": str(port)})
        self.change("CONNECTION", {"CONNECT": True}, seconds=PATIENCE)
        self.vector("CCD_EXPOSURE")
        self.send(f"<enableBLOB device='{self.device}'>Also</enableBLOB>")

    def expose(self, seconds=0.01, most=PATIENCE):
        """Takes a frame and returns its BLOB."""
        count = len(self.blobs)
        vector = self.vector("CCD_EXPOSURE")
        self.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": seconds})
        self.wait(lambda: vector.state == "Busy" or len(self.blobs) > count, "exposing", most)
        self.wait(lambda: vector.state != "Busy" and (len(self.blobs) > count or vector.state != "Ok"),
                  "the exposure ends", most)
        if vector.state != "Ok":
            raise AssertionError(f"{vector.state}: {vector.messages}")
        return self.blobs[-1]


def text_of(value):
    if isinstance(value, bool):
        return "On" if value else "Off"
    return str(value).replace("&", "&amp;").replace("<", "&lt;")


class DriverTest(unittest.TestCase):
    """A test with a camera, a server with the driver, and a client."""

    camera_options = ()
    sensor = "128x96"

    def setUp(self):
        os.environ["DBGD_DISABLE"] = "1"
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.home = self.stack.enter_context(tempfile.TemporaryDirectory(prefix="vxindi"))

    def camera(self, *options, **named):
        camera = Camera(*options, **dict({"sensor": self.sensor}, **named))
        self.stack.callback(camera.close)
        return camera

    def server(self, *drivers, **environment):
        server = Server(*(drivers or (DRIVER,)), home=self.home, environment=environment)
        self.last_server = server
        self.stack.callback(server.close)
        return server

    def client(self, server, device=DEVICE):
        client = Client(server.port, device)
        self.stack.callback(client.close)
        return client

    def connected(self, *options, **named):
        """A camera, and a client whose device is connected to it."""
        camera = self.camera(*options, **named)
        client = self.client(self.server())
        client.connect(camera.port)
        return camera, client

    def assert_true_frame(self, blob, camera, exposure=None):
        """The pixels are those that the camera sent last."""
        total, check, header = blob.truth()
        sent = camera.sent(check, "crc")
        self.assertEqual(sent["sum"], total)
        self.assertEqual(header["PIXSUM"], total)
        self.assertIs(header["COMPLETE"], True)
        if exposure is not None:
            self.assertAlmostEqual(header["EXPTIME"], exposure, 6)
        return sent, header
