"""A server and the simulated cameras that it serves, for tests."""

import base64
import http.client
import json
import os
import queue
import re
import select
import signal
import socket
import struct
import subprocess
import threading
import time

SERVER = os.environ["VXCAMD"]
SIMULATOR = os.environ["VXCAMSIM"]
PATIENCE = 20  # seconds until something that must happen counts as missing


def until(condition, what, patience=PATIENCE):
    """Waits until the condition holds, and returns what it returned."""
    deadline = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError("never happened: " + what)
        time.sleep(0.01)


retired = []  # programs that were told to end


def reap():
    """Waits for programs that were told to end: each must do so in order."""
    while retired:
        process = retired.pop()
        code = process.end()
        assert code == 0, (process.process.args, code, process.errors)


class Process:
    """A program whose lines on standard output are read as they come."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        text=True, env=self.environment())
        self.lines, self.errors = [], []
        self.is_told = False  # to end
        self.threads = [threading.Thread(target=self._read, args=pair, daemon=True)
                        for pair in ((self.process.stdout, self.lines),
                                     (self.process.stderr, self.errors))]
        for thread in self.threads:
            thread.start()

    @staticmethod
    def environment():
        return dict(os.environ, DBGD_DISABLE="1")

    @staticmethod
    def _read(stream, lines):
        for line in stream:
            lines.append(line.rstrip("\n"))

    def line(self, pattern):
        def find():
            for line in list(self.lines):
                match = re.search(pattern, line)
                if match:
                    return match
            if self.process.poll() is not None:
                self.end()
                raise AssertionError(self.errors)
            return None
        return until(find, pattern)

    def halt(self):
        """Stops it until SIGCONT: each of its threads, by now."""
        self.process.send_signal(signal.SIGSTOP)
        tasks = "/proc/%d/task/" % self.process.pid

        def is_still(task):
            with open(tasks + task + "/stat", encoding="ascii") as file:
                return file.read().rpartition(")")[2].split()[0] == "T"
        until(lambda: all(map(is_still, os.listdir(tasks))), "it stands still")

    def retire(self):
        """Tells it to end; reap() waits for that."""
        self._tell(signal.SIGTERM)
        retired.append(self)

    def _tell(self, how):
        self.is_told = True
        if self.process.poll() is None:
            self.process.send_signal(how)

    def end(self, how=signal.SIGTERM):
        """Tells it to end, unless it was told before (a second signal is not the first), and waits."""
        if not self.is_told:
            self._tell(how)
        try:
            code = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        for thread in self.threads:
            thread.join()
        self.process.stdout.close()
        self.process.stderr.close()
        return code


class Simulator(Process):
    """The simulated camera as a program, which tells the truth about its frames."""

    def __init__(self, *options, sensor="128x96", port=0):
        super().__init__(SIMULATOR, "--json", "--sensor", sensor, "--port", str(port), *options)
        self.port = json.loads(self.line('"listening"').string)["port"]
        self.target = "127.0.0.1:%d" % self.port

    def frames(self):
        events = [json.loads(line) for line in list(self.lines)]
        return [event for event in events if event["event"] == "frame"]

    def frame(self, readout, number=1):
        def find():
            for frame in self.frames():
                if (frame["readout"], frame["frame"]) == (readout, number):
                    return frame
            return None
        return until(find, "frame %d.%d" % (readout, number))


class Answer:
    def __init__(self, response, body):
        self.status, self.body = response.status, body
        self.headers = {name.lower(): value for name, value in response.getheaders()}

    @property
    def json(self):
        assert self.headers["content-type"].startswith("application/json"), self.body
        return json.loads(self.body)

    @property
    def kind(self):
        return self.json["error"]["kind"]


class Server(Process):
    def __init__(self, *targets_and_options):
        options = list(targets_and_options)
        if "--listen" not in options:
            options += ["--listen", "127.0.0.1:0"]
        if "--connections" not in options:
            options += ["--connections", "40"]
        super().__init__(SERVER, *options)
        self.port = int(self.line(r"serving .*:(\d+)/").group(1))
        self.key = None
        self.source = None  # another address of this host, from which it is asked

    def connection(self, timeout=PATIENCE):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout,
                                          source_address=self.source and (self.source, 0))

    def ask(self, method, path, body=None, headers=None, timeout=PATIENCE):
        headers = dict(headers or {})
        if isinstance(body, (dict, list)):
            body = json.dumps(body)
            headers.setdefault("Content-Type", "application/json")
        connection = self.connection(timeout)
        try:
            connection.request(method, path, body, headers)
            response = connection.getresponse()
            return Answer(response, response.read())
        finally:
            connection.close()

    def get(self, path, **more):
        return self.ask("GET", path, **more)

    def open(self, camera=0):
        """Waits until the camera is open."""
        path = "/api/v1/cameras/%d" % camera
        return until(lambda: (lambda c: c if c["open"] else None)(self.get(path).json), "open")

    def expose(self, camera=0, **plan):
        """Starts an exposure and waits until it is over."""
        started = self.ask("POST", "/api/v1/cameras/%d/exposures" % camera, plan)
        assert started.status == 202, started.body
        return self.over(started.json["id"], camera)

    def over(self, exposure, camera=0):
        path = "/api/v1/cameras/%d/exposures/%d" % (camera, exposure)
        answer = self.get(path + "?wait=15").json
        assert answer["over"], answer
        return answer

    def metric(self, line):
        for each in self.get("/metrics").body.decode().splitlines():
            if each.startswith(line + " "):
                return float(each.rsplit(" ", 1)[1])
        raise AssertionError("no figure " + line)


class WebSocket:
    """A client, as simple as the protocol allows."""

    def __init__(self, port, path, headers=None, receive=None, context=None):
        self.socket = socket.socket()
        if receive:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(("127.0.0.1", port))
        if context:
            self.socket = context.wrap_socket(self.socket, server_hostname="127.0.0.1")
        lines = ["GET %s HTTP/1.1" % path, "Host: 127.0.0.1:%d" % port, "Upgrade: websocket",
                 "Connection: Upgrade", "Sec-WebSocket-Version: 13",
                 "Sec-WebSocket-Key: " + base64.b64encode(os.urandom(16)).decode()]
        lines += ["%s: %s" % pair for pair in (headers or {}).items()]
        self.socket.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())
        self.file = self.socket.makefile("rb")
        self.status = int(self.file.readline().split()[1])
        self.headers = {}
        for line in iter(self.file.readline, b"\r\n"):
            name, _, value = line.decode().partition(":")
            self.headers[name.lower()] = value.strip()

    def send(self, text):
        self.send_piece(0x81, text.encode())

    def send_piece(self, head, data=b""):
        """A frame of the protocol, with the first byte of its head."""
        mask = os.urandom(4)
        masked = bytes(byte ^ mask[i % 4] for i, byte in enumerate(data))
        length = bytes([0x80 | len(data)]) if len(data) < 126 else struct.pack(">BH", 0xFE, len(data))
        self.socket.sendall(bytes([head]) + length + mask + masked)

    def close_code(self):
        """What the server closes with, behind all that it sends before, and nothing follows."""
        deadline = time.monotonic() + PATIENCE
        while self.message() is not None:
            assert time.monotonic() < deadline, "the server does not close it"
        assert self.file.read() == b"", "something comes behind the end"
        return struct.unpack(">H", self.closed)[0] if self.closed else None

    def settle(self):
        """Waits until the server has taken all that was sent; what it sends meanwhile is lost."""
        self.socket.sendall(b"\x89\x80" + bytes(4))
        while self.message() != "pong":
            pass

    def message(self):
        """The next text as JSON, bytes, or "pong"; nothing when the server closes."""
        first, second = self.file.read(2)
        length = second & 0x7F
        if length == 126:
            length, = struct.unpack(">H", self.file.read(2))
        elif length == 127:
            length, = struct.unpack(">Q", self.file.read(8))
        data = self.file.read(length)
        assert len(data) == length, "the connection ended within a message"
        opcode = first & 0x0F
        if opcode == 1:
            return json.loads(data)
        if opcode == 2:
            return data
        if opcode == 8:
            self.closed = data
            return None
        if opcode == 10:
            return "pong"
        return self.message()

    def frame(self):
        """The next frame: what it knows, and its pixels."""
        while True:
            message = self.message()
            assert message is not None, "the server closed the connection"
            if isinstance(message, dict) and message["message"] == "frame":
                return message, self.message()

    def close(self):
        self.file.close()
        self.socket.close()


def raw_exchange(port, data, timeout=PATIENCE):
    """Sends bytes as they are; what comes back until the server closes, or nothing comes."""
    with socket.create_connection(("127.0.0.1", port), timeout) as connection:
        connection.sendall(data)
        received = b""
        while True:
            if not select.select([connection], [], [], timeout)[0]:
                return received
            piece = connection.recv(65536)
            if not piece:
                return received
            received += piece
