"""One camera through all doors at once: who controls it, and that frames are the same everywhere."""

import collections
import http.client
import io
import json
import os
import struct
import threading
import time
import unittest
import urllib.parse
import zlib

import numpy
from astropy.io import fits

from browser_support import Browser
from server_support import PATIENCE, Server, Simulator, WebSocket, reap, until

CAMERA = "/api/v1/cameras/0"
DEVICE = "/api/v1/camera/0/"
SECONDS = float(os.environ.get("VX_DOORS_SECONDS", 5))
SCRIPT, PROGRAM = "script", "Alpaca client 7 at 127.0.0.1"
INVALID_OPERATION = 0x40B

Got = collections.namedtuple("Got", "door readout number crc sum")


def tearDownModule():
    reap()


class Client(threading.Thread):
    """Asks through one connection until it is told to end; what goes wrong is told by finish()."""

    def __init__(self, doors):
        super().__init__(daemon=True)
        self.doors, self.got, self.trouble = doors, [], None
        self.connection = http.client.HTTPConnection("127.0.0.1", doors.server.port,
                                                     timeout=PATIENCE)

    def run(self):
        try:
            self.work()
        except Exception as failure:  # told by finish()
            self.trouble = failure
            self.doors.ends.set()

    def is_on(self):
        return not self.doors.ends.is_set()

    def ask(self, method, path, body=None, **headers):
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        if isinstance(body, dict):
            body = json.dumps(body)
            headers["Content-Type"] = "application/json"
        self.connection.request(method, path, body, headers)
        response = self.connection.getresponse()
        return response.status, response.read(), response.headers

    def json(self, *question, **more):
        return json.loads(self.ask(*question, **more)[1])

    def finish(self):
        self.join(2 * PATIENCE)
        self.connection.close()
        if self.trouble:
            raise self.trouble
        assert not self.is_alive(), self


class Script(Client):
    """Takes the lease, takes some pictures of all kinds through REST, and gives it back."""

    plans = ({"exposure": 0.001}, {"exposure": 0.002, "frames": 3}, {"exposure": 0.001, "bits": 8},
             {"exposure": 0.001, "binning": [2, 3]},
             {"exposure": 0.001, "area": {"column": 3, "row": 5, "columns": 40, "rows": 30}})

    def __init__(self, doors):
        super().__init__(doors)
        self.exposures, self.refused = [], 0

    def work(self):
        while self.is_on():
            status, body, _ = self.ask("POST", CAMERA + "/lease", {"holder": SCRIPT})
            if status == 423:
                self.refused += 1
                time.sleep(0.005)
                continue
            assert status == 200, body
            key = json.loads(body)["key"]
            for plan in self.plans:
                self.expose(plan, key)
            assert self.ask("DELETE", CAMERA + "/lease", X_Lease=key)[0] == 200
            time.sleep(0.02)

    def expose(self, plan, key):
        status, body, _ = self.ask("POST", CAMERA + "/exposures", plan, X_Lease=key)
        assert status == 202, body
        path = CAMERA + "/exposures/%d" % json.loads(body)["id"]
        answer = self.json("GET", path + "?wait=15", X_Lease=key)
        assert answer["state"] == "complete", answer
        self.exposures.append(answer["id"])
        for frame in answer["frames"]:
            place = path + "/frames/%d." % frame["number"]
            facts = self.json("GET", place + "json")
            _, pixels, headers = self.ask("GET", place + "raw")
            self.take("raw", facts, pixels, int(headers["X-Frame-Sum"]))
            if facts["number"] != 1:
                continue
            with fits.open(io.BytesIO(self.ask("GET", place + "fits")[1])) as file:
                kind = {8: "u1", 16: "<u2", 32: "<u4"}[facts["bits"]]
                self.take("fits", facts, file[0].data.astype(kind).tobytes(), facts["sum"])

    def take(self, door, facts, pixels, sum_):
        self.got.append(Got(door, facts["readout"], facts["number"], zlib.crc32(pixels), sum_))


class Program(Client):
    """Connects, takes a picture and disconnects, as an astronomy program does."""

    def __init__(self, doors):
        super().__init__(doors)
        self.refused = 0

    def member(self, method, name, **parameters):
        parameters["ClientID"] = 7
        form = urllib.parse.urlencode(parameters)
        path = DEVICE + name + ("?" + form if method == "GET" else "")
        answer = self.json(method, path, None if method == "GET" else form)
        number = answer["ErrorNumber"]
        assert number in (0, INVALID_OPERATION), answer
        return answer.get("Value") if number == 0 else number

    def work(self):
        while self.is_on():
            self.member("PUT", "connected", Connected="true")
            if self.member("PUT", "startexposure", Duration="0.001", Light="true"):
                self.refused += 1
                time.sleep(0.005)
                continue
            until(lambda: self.member("GET", "imageready") is True, "the image")
            facts = json.loads(self.member("PUT", "action", Action="FrameFacts", Parameters=""))
            image = self.ask("GET", DEVICE + "imagearray", Accept="application/imagebytes")[1]
            columns, rows = struct.unpack_from("<2i", image, 32)
            pixels = numpy.frombuffer(image, "<u2", offset=44).reshape(columns, rows).T
            self.got.append(Got("alpaca", facts["readout"], facts["number"],
                                zlib.crc32(pixels.tobytes()), facts["sum"]))
            self.member("PUT", "connected", Connected="false")
            time.sleep(0.02)


class Intruder(Client):
    """Changes what it can: nothing, as long as it does not find the camera free."""

    def __init__(self, doors):
        super().__init__(doors)
        self.refused = 0

    def work(self):
        wrong = "0" * 32
        while self.is_on():
            held = self.json("GET", CAMERA + "/lease")
            assert "key" not in held, held
            for question in (("DELETE", CAMERA + "/lease"), ("DELETE", CAMERA + "/exposures/1")):
                status, body, _ = self.ask(*question, X_Lease=wrong)
                assert status in (200, 404, 423), body  # the first when nobody held it
                self.refused += status == 423


class Watcher(Client):
    """Reads frames through a WebSocket."""

    def __init__(self, doors, rate=0):
        super().__init__(doors)
        self.missed = 0
        self.socket = WebSocket(doors.server.port, CAMERA + "/live",
                                {"Origin": "http://127.0.0.1:%d" % doors.server.port})
        if rate:
            self.socket.send('{"rate": %d}' % rate)
        self.socket.settle()

    def work(self):
        while True:
            try:
                facts, pixels = self.socket.frame()
            except (AssertionError, OSError, ValueError):
                if self.is_on():
                    raise
                return
            assert facts["complete"], facts
            self.missed += facts["missed"]
            self.got.append(Got("live", facts["readout"], facts["number"], zlib.crc32(pixels),
                                facts["sum"]))

    def finish(self):
        self.socket.socket.shutdown(2)
        super().finish()
        self.socket.close()


class Page:
    """A browser in which the page's own code receives frames, which are noted instead of drawn."""

    script = """import('/server.js').then(({watch}) => {
      const table = Uint32Array.from({length: 256}, (_, byte) => {
        for (let bit = 0; bit < 8; ++bit) byte = byte & 1 ? byte >>> 1 ^ 0xEDB88320 : byte >>> 1;
        return byte;
      });
      const crc = bytes => ~bytes.reduce((sum, byte) => sum >>> 8 ^ table[(sum ^ byte) & 255], -1) >>> 0;
      window.seen = [];
      window.cuts = 0;
      watch({onLink(isThere) { cuts += !isThere; window.isThere = isThere; }, onEvent() {}, onFrame(facts, buffer) {
        seen.push([facts.readout, facts.number, crc(new Uint8Array(buffer)), facts.sum, facts.missed]);
      }});
    })"""

    def __init__(self, port):
        self.browser = Browser()
        self.browser.open("http://127.0.0.1:%d/healthz" % port)
        self.browser.run(self.script)
        self.browser.until("window.isThere === true")

    def finish(self, test, count):
        told = "seen.length + seen.reduce((sum, each) => sum + each[4], 0)"
        self.browser.until("cuts > 0 || %s >= %d" % (told, count))
        test.assertEqual(self.browser.run("cuts"), 0)
        test.assertEqual(self.browser.run(told), count)
        test.assertEqual(self.browser.complaints, [])
        return [Got("page", *each[:4]) for each in self.browser.run("seen")]


class Listener(Client):
    """Follows the events."""

    def __init__(self, doors):
        super().__init__(doors)
        self.events = []
        self.connection.request("GET", CAMERA + "/events?since=0")
        self.stream = self.connection.getresponse()

    def work(self):
        while True:
            line = self.stream.readline()
            if not line:
                return
            if line.startswith(b"data: "):
                self.events.append(json.loads(line[6:]))

    def finish(self):
        self.doors.server.process.terminate()  # ends the stream
        super().finish()


class Operator(Client):
    """Reads the metrics: what is counted never becomes less."""

    def work(self):
        before = {}
        while self.is_on():
            status, body, _ = self.ask("GET", "/metrics")
            assert status == 200, body
            lines = [line for line in body.decode().splitlines() if line[0] != "#"]
            figures = {name: float(value) for name, value in (line.rsplit(" ", 1) for line in lines)}
            for name, value in figures.items():
                if "_total" in name or "_bucket" in name:
                    assert value >= before.get(name, 0), (name, before[name], value)
            before = figures
            time.sleep(0.02)
        self.figures = before


class AllDoors(unittest.TestCase):
    def setUp(self):
        self.camera = Simulator("--heartbeat", "0.1", sensor="120x96")
        self.addCleanup(self.camera.retire)
        self.server = Server(self.camera.target, "--alpaca", "--discovery-port", "0")
        self.addCleanup(self.server.retire)
        self.server.open()
        self.ends = threading.Event()

    def test_every_client_gets_what_was_sent_and_one_controls_at_a_time(self):
        script, program, intruder = Script(self), Program(self), Intruder(self)
        operator, listener = Operator(self), Listener(self)
        watchers = [Watcher(self), Watcher(self), Watcher(self, rate=20)]
        page = None
        if os.environ.get("VX_DOORS_PAGE"):
            page = Page(self.server.port)
            self.addCleanup(page.browser.close)
        clients = [script, program, intruder, operator, *watchers]
        for client in [*clients, listener]:
            client.start()
        self.ends.wait(SECONDS)
        had = lambda: len(script.exposures) >= len(script.plans) and len(program.got) > 1
        refused = lambda: script.refused and program.refused and intruder.refused
        until(lambda: (had() and refused()) or any(client.trouble for client in clients),
              "everybody's turn")
        self.ends.set()
        for client in clients[:4]:
            client.finish()
        total = self.server.metric('vxcamd_frames_total{camera="0",end="complete"}')
        until(lambda: len(self.camera.frames()) >= total, "what the camera says that it sent")
        sent = {(frame["readout"], frame["frame"]): frame for frame in self.camera.frames()}
        self.everybody_was_there(script, program, intruder)
        self.watchers_saw_all(watchers, len(sent))
        self.metrics_agree(len(sent))
        got = page.finish(self, len(sent)) if page else []
        for client in [*watchers, listener]:
            client.finish()
            got += client.got
        for client in (script, program):
            got += client.got
        self.frames_are_those_sent(got, sent)
        self.exposures_were_of_the_holder(listener.events, set(script.exposures), len(program.got))

    def everybody_was_there(self, script, program, intruder):
        self.assertGreaterEqual(len(script.exposures), len(script.plans))
        self.assertGreater(len(program.got), 1)
        for client in (script, program, intruder):
            self.assertGreater(client.refused, 0, type(client).__name__)

    def watchers_saw_all(self, watchers, count):
        """What a watcher did not get, it was told to have missed."""
        for watcher in watchers:
            until(lambda: len(watcher.got) + watcher.missed >= count, "all frames at a watcher")
            self.assertEqual(len(watcher.got) + watcher.missed, count)

    def metrics_agree(self, count):
        self.assertEqual(self.server.metric('vxcamd_frames_total{camera="0",end="complete"}'),
                         count)
        for end in ("incomplete", "failed", "aborted"):
            metric = 'vxcamd_frames_total{camera="0",end="%s"}' % end
            self.assertEqual(self.server.metric(metric), 0)

    def frames_are_those_sent(self, got, sent):
        self.assertGreaterEqual({each.door for each in got}, {"raw", "fits", "alpaca", "live"})
        for each in got:
            frame = sent[each.readout, each.number]
            self.assertEqual((each.crc, each.sum), (frame["crc"], frame["sum"]), each)

    def exposures_were_of_the_holder(self, events, of_script, of_program):
        holder, counts = None, collections.Counter()
        for event in events:
            if event["event"] == "lease":
                holder = event["holder"]
            if event["event"] == "exposure" and event["state"] == "running":
                wanted = SCRIPT if event["exposure"] in of_script else PROGRAM
                self.assertEqual(holder, wanted, event)
                counts[holder] += 1
        self.assertEqual(counts, {SCRIPT: len(of_script), PROGRAM: of_program})


if __name__ == "__main__":
    unittest.main()
