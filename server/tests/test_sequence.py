"""Plans and sequences through REST, against the simulated camera's own account."""

import glob
import http.client
import json
import os
import signal
import tempfile
import unittest
import zlib

from astropy.io import fits

from server_support import PATIENCE, Server, Simulator, WebSocket, reap, until

CAMERA = "/api/v1/cameras/0"
SEQUENCE = CAMERA + "/sequence"
PLANS = "/api/v1/plans"
LONG = "steps: [{bias: {count: 2}}, {lights: {count: 1, exposure: 1h}}]\n"
SHORT = "steps: [{bias: {count: 2}}]\n"


def tearDownModule():
    reap()


class WithPlans(unittest.TestCase):
    options = ()
    camera_options = ()
    sensor = "128x96"

    def setUp(self):
        self.made = tempfile.TemporaryDirectory()
        self.addCleanup(self.made.cleanup)
        self.folder = self.made.name
        self.camera = Simulator(*self.camera_options, sensor=self.sensor)
        self.addCleanup(self.retire, self.camera)
        self.server = self.start(self.camera.target)

    @staticmethod
    def retire(process):
        if process.process.poll() == -signal.SIGKILL:
            return
        process.retire()
        reap()  # before the folder goes

    def start(self, *words):
        server = Server(*words, "--plans", self.folder, *self.options)
        self.addCleanup(self.retire, server)
        server.open()
        return server

    def assertRefused(self, answer, status, kind):
        self.assertEqual((answer.status, answer.kind), (status, kind), answer.body)
        self.assertTrue(answer.json["error"]["text"])

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def put(self, name, text, query="", **more):
        return self.server.ask("PUT", PLANS + "/" + name + query, text, **more)

    def begin(self, plan=LONG, name="night.yaml", headers=None, **more):
        """Stores a plan and begins it."""
        self.assertIn(self.put(name, plan).status, (200, 201))
        return self.again(name, headers, **more)

    def again(self, name="night.yaml", headers=None, **more):
        return self.server.ask("POST", SEQUENCE, dict(plan=name, **more), headers)

    def state(self, query=""):
        return self.server.get(SEQUENCE + query).json

    def over(self):
        state = self.state("?wait=30")
        self.assertTrue(state["over"], state)
        return state

    def until_doing(self, what):
        return until(lambda: (lambda s: s if s["doing"].startswith(what) else None)(self.state()),
                     what)

    def stop(self, query="", headers=None):
        return self.server.ask("DELETE", SEQUENCE + query, headers=headers)

    def events(self):
        """All that were told."""
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE)
        self.addCleanup(connection.close)
        last = self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "0,0"})
        self.assertEqual(last.status, 200)  # an event behind all others
        connection.request("GET", CAMERA + "/events?since=0")
        events = []
        for line in connection.getresponse():
            if not line.startswith(b"data: "):
                continue
            events.append(json.loads(line[6:]))
            if events[-1].get("name") == "test-pattern":
                return events
        raise AssertionError("the events ended")


class LargePlans(WithPlans):
    sensor = "4096x4096"

    def test_more_than_the_disk_holds_is_refused_and_nothing_has_begun(self):
        plan = "sensor: [4096, 4096]\nsteps:\n- bias: {count: 999999}\n"
        self.assertGreater(self.put("many.yaml", plan).json["needs_bytes"], 999999 << 25)
        answer = self.again("many.yaml")
        self.assertRefused(answer, 500, "file")
        self.assertIn("the disk has", answer.json["error"]["text"])
        self.assertEqual(self.state()["state"], "none")
        self.assertEqual(self.begin().status, 202)


class Plans(WithPlans):
    def test_a_plan_is_stored_as_it_was_sent(self):
        text = "# M 31\nsensor: [128, 96]\nsteps:\n- lights: {count: 3, exposure: 2s}  # ä\n"
        answer = self.put("m31.yaml", text.encode())
        self.assertEqual(answer.status, 201, answer.body)
        facts = answer.json
        self.assertEqual((facts["frames"], facts["hooks"], facts["exposure"]), (3, 0, 6))
        self.assertEqual((facts["folder"], facts["sensor"]), ("m31", [128, 96]))
        self.assertGreater(facts["needs_bytes"], 3 * 128 * 96 * 2)
        self.assertIsNone(facts["journal"])
        self.assertEqual(self.server.get(PLANS).json, {"hooks": False, "plans": [facts]})
        answer = self.server.get(PLANS + "/m31.yaml")
        self.assertEqual((answer.status, answer.body), (200, text.encode()))
        self.assertEqual(answer.headers["content-type"], "application/yaml")
        with open(self.path("m31.yaml"), "rb") as file:
            self.assertEqual(file.read(), text.encode())

    def test_a_plan_is_replaced_and_removed(self):
        self.put("b.yaml", SHORT)
        self.put("a.yaml", SHORT)
        self.assertEqual(self.put("b.yaml", LONG).status, 200)
        plans = self.server.get(PLANS).json["plans"]
        self.assertEqual([(plan["name"], plan["frames"]) for plan in plans],
                         [("a.yaml", 2), ("b.yaml", 3)])
        self.assertEqual(self.server.ask("DELETE", PLANS + "/a.yaml").status, 200)
        for method in ("GET", "DELETE"):
            self.assertRefused(self.server.ask(method, PLANS + "/a.yaml"), 404, "unknown-plan")
        self.assertEqual(os.listdir(self.folder), ["b.yaml"])

    def test_a_plan_with_mistakes_is_refused_with_their_lines(self):
        text = "steps:\n- lights: {count: 0, exposure: 1s}\n- lights: {count: 1}\n"
        for query in ("", "?check=yes"):
            answer = self.put("night.yaml", text, query)
            self.assertRefused(answer, 400, "usage")
            error = answer.json["error"]
            self.assertEqual([mistake["line"] for mistake in error["mistakes"]], [2, 3])
            self.assertIn("night.yaml:2: ", error["text"])
            self.assertNotIn(self.folder, error["text"])
        for text in ("", "steps: ]", "[" * 60000, "- a", "a: &a [*a, *a]"):
            self.assertRefused(self.put("night.yaml", text), 400, "usage")
        self.assertEqual(os.listdir(self.folder), [])
        self.assertEqual(self.put("night.yaml", SHORT, "?check=yes").status, 200)
        self.assertEqual(os.listdir(self.folder), [])
        self.assertRefused(self.put("night.yaml", SHORT, "?check=perhaps"), 400, "usage")
        self.assertRefused(self.put("night.yaml", "#" * 65537), 413, "too-long")

    def test_what_is_wrong_with_a_plan_of_the_folder_is_listed(self):
        self.write("bad.yaml", "steps: [{bias: {count: 0}}]\n")
        self.write("huge.yaml", "#" * (2 << 20))
        self.write("notes.txt", "no plan")
        os.mkdir(self.path("folder.yaml"))
        os.mkfifo(self.path("pipe.yaml"))
        plans = self.server.get(PLANS).json["plans"]
        self.assertEqual([(plan["name"], plan["good"]) for plan in plans],
                         [("bad.yaml", False), ("huge.yaml", False)])
        self.assertEqual(plans[0]["error"]["mistakes"][0]["line"], 1)
        self.assertRefused(self.again("bad.yaml"), 400, "usage")
        self.assertRefused(self.again("pipe.yaml"), 404, "unknown-plan")
        self.assertRefused(self.again("none.yaml"), 404, "unknown-plan")

    def test_names_are_plain(self):
        for name in ("a.txt", ".yaml", ".a.yaml", "a", "a%2Fb.yaml", "..%2Fa.yaml", "a%00.yaml",
                     "%C3%A4.yaml", "a%20b.yaml", "a" * 60 + ".yaml", "a%5Cb.yaml", "~.yaml"):
            with self.subTest(name):
                self.assertRefused(self.put(name, SHORT), 400, "usage")
                self.assertRefused(self.server.ask("DELETE", PLANS + "/" + name), 400, "usage")
        for name in ("../a.yaml", "a/b.yaml"):
            self.assertIn(self.put(name, SHORT).status, (400, 404))
        self.assertEqual(os.listdir(self.folder), [])
        self.assertEqual(self.put("a" * 59 + ".yaml", SHORT).status, 201)

    def test_frames_go_below_the_folder_of_the_plans(self):
        for folder in ("..", "../x", "/tmp/x", "a/../../x", "a/../..", '"a\\u0001b"', '"a\\0/../.."'):
            with self.subTest(folder):
                answer = self.put("night.yaml", "folder: %s\n%s" % (folder, SHORT))
                self.assertRefused(answer, 400, "usage")
                self.assertEqual(len(answer.json["error"]["mistakes"]), 1)
        self.assertEqual(self.put("night.yaml", "folder: a/../b/c\n" + SHORT).json["folder"], "b/c")
        for folder in ("..", "/tmp/x", "b/../../x", "a\0/../.."):
            self.assertRefused(self.again(folder=folder), 400, "usage")
        self.assertEqual(os.listdir(self.folder), ["night.yaml"])

    def test_there_is_an_end_to_plans(self):
        for number in range(1000):
            self.write("%d.yaml" % number, SHORT)
        self.assertRefused(self.put("more.yaml", SHORT), 409, "too-many")
        self.assertEqual(self.put("7.yaml", SHORT).status, 200)

    def test_commands_are_refused(self):
        text = "steps:\n- bias: {count: 1}\n- %s\n"
        for step in ("run: touch x", "repeat: {times: 1, steps: [{run: touch x}]}",
                     "bias: {count: 1, dither: {command: touch x}}"):
            with self.subTest(step):
                answer = self.put("night.yaml", text % step)
                self.assertRefused(answer, 403, "plan-hooks")
                self.assertEqual(answer.json["error"]["mistakes"][0]["line"], 3)
                self.assertEqual(os.listdir(self.folder), [])
        self.write("old.yaml", text % "run: touch x")
        plan = self.server.get(PLANS).json["plans"][0]
        self.assertEqual((plan["good"], plan["error"]["kind"]), (False, "plan-hooks"))
        self.assertRefused(self.again("old.yaml"), 403, "plan-hooks")
        self.assertEqual(os.listdir(self.folder), ["old.yaml"])

    def test_plans_of_pages_elsewhere_are_refused(self):
        answer = self.put("night.yaml", SHORT, headers={"Origin": "http://evil.example"})
        self.assertRefused(answer, 403, "wrong-origin")
        self.assertEqual(os.listdir(self.folder), [])


class WithHooks(WithPlans):
    options = ("--plan-hooks",)

    def test_commands_are_run_where_that_is_wanted(self):
        answer = self.begin("steps: [{run: 'touch $VXCAM_FOLDER/x'}, {run: 'exit 3'}]\n")
        self.assertEqual(answer.status, 202, answer.body)
        state = self.over()
        self.assertEqual(state["state"], "failed")
        self.assertIn("ended with code 3", state["error"]["text"])
        self.assertTrue(os.path.exists(self.path("night", "x")))
        self.assertTrue(self.server.get(PLANS).json["hooks"])

    def test_a_command_is_killed_when_it_is_stopped(self):
        self.begin("steps: [{run: 'sleep 3600 & echo $! >$VXCAM_FOLDER/pid; wait'}]\n")
        process = until(self.started, "it runs")
        self.assertEqual(self.stop().json["state"], "stopped")
        until(lambda: self.is_gone(process), "the command is gone")

    def started(self):
        try:
            with open(self.path("night", "pid"), encoding="ascii") as file:
                return int(file.read())
        except (FileNotFoundError, ValueError):
            return None

    @staticmethod
    def is_gone(process):
        try:
            with open("/proc/%d/stat" % process, encoding="ascii") as file:
                return file.read().split()[2] == "Z"
        except FileNotFoundError:
            return True


class WithoutPlans(WithPlans):
    def start(self, *words):
        server = Server(*words)
        self.addCleanup(self.retire, server)
        server.open()
        return server

    def test_it_says_so(self):
        self.assertEqual(self.state(), {"state": "none", "over": True, "available": False})
        for method, path in (("GET", PLANS), ("PUT", PLANS + "/a.yaml"), ("POST", SEQUENCE),
                             ("GET", PLANS + "/a.yaml/report"), ("GET", SEQUENCE + "/report")):
            answer = self.server.ask(method, path)
            self.assertRefused(answer, 404, "no-plans")
            self.assertIn("--plans", answer.json["error"]["text"])


class Sequences(WithPlans):
    def test_all_frames_of_a_plan_come_into_files(self):
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        self.addCleanup(watcher.close)
        watcher.settle()
        answer = self.begin("steps:\n- set: {gain: 3}\n- bias: {count: 2}\n"
                            "- lights: {count: 1, exposure: 5ms}\n")
        self.assertEqual(answer.status, 202, answer.body)
        self.assertEqual((answer.json["plan"], answer.json["folder"]), ("night.yaml", "night"))
        state = self.over()
        self.assertEqual((state["state"], state["taken"], state["frames"], state["before"]),
                         ("complete", 3, 3, 0))
        self.assertEqual((state["done"], state["left"], state["file"], state["error"]),
                         (1, 0, "night/light-0003.fits", None))
        for number, name in enumerate(("bias-0001", "bias-0002", "light-0003"), 1):
            with fits.open(self.path("night", name + ".fits")) as file:
                crc = zlib.crc32(file[0].data.astype("<u2").tobytes())
                self.assertEqual(file[0].header["GAIN"], 3)
            self.assertEqual(crc, self.camera.frame(number)["crc"])
        facts, _ = watcher.frame()
        self.assertEqual(facts["exposure_id"], 0)
        self.assertEqual(self.server.get(CAMERA + "/properties/gain").json["value"], 3)
        events = self.events()
        told = [event for event in events if event["event"] == "sequence"]
        self.assertEqual([event["file"] for event in told if "file" in event],
                         ["night/bias-0001.fits", "night/bias-0002.fits", "night/light-0003.fits"])
        self.assertEqual([event["line"] for event in told if "file" not in event],
                         [2, 3, 4, 0])
        self.assertEqual(told[-1]["state"], "complete")
        self.assertIn(("gain", 3), [(event.get("name"), event.get("value")) for event in events])

    def test_how_far_it_is_is_told_from_the_first_moment(self):
        plan = ("steps:\n- temperature: {to: -273, ramp: 60}\n"  # out of reach, and 5 min of time
                "- lights: {count: 2, exposure: 10s}\n")
        answer = self.begin(plan)
        self.assertEqual(answer.status, 202, answer.body)
        for state in (answer.json, self.state()):
            self.assertEqual((state["state"], state["line"], state["taken"]), ("running", 2, 0))
            self.assertLess(state["done"], 0.1)
            self.assertGreater(state["left"], 240)
            self.assertTrue(state["doing"])
        self.assertLess(self.stop().json["done"], 0.1)
        first = next(event for event in self.events() if event["event"] == "sequence")
        self.assertEqual((first["line"], first["taken"]), (2, 0))
        self.assertGreater(first["left"], 240)

    def test_what_is_done_stays_so_when_the_server_starts_anew(self):
        self.begin("steps:\n- bias: {count: 2}\n- lights: {count: 3, exposure: 100ms}\n"
                   "- lights: {count: 1, exposure: 2s}\n")
        self.until_doing("light 6: exposing")
        stopped = self.stop().json
        self.assertEqual(stopped["taken"], 5)
        self.assertGreater(stopped["left"], 2)  # nothing of that frame is done
        self.assertEqual(self.server.end(), 0)
        self.server = self.start(self.camera.target)
        state = self.again().json
        self.assertEqual((state["line"], state["taken"], state["before"]), (4, 5, 5))
        self.assertGreater(state["done"], 0.1)
        self.assertLess(state["done"], 0.5)
        self.assertGreater(state["left"], 1)

    def test_a_report_tells_what_came(self):
        self.assertRefused(self.server.get(SEQUENCE + "/report"), 404, "unknown-sequence")
        self.put("night.yaml", SHORT)
        self.assertRefused(self.server.get(PLANS + "/night.yaml/report"), 404, "unknown-sequence")
        self.begin(LONG, folder="2026/first")
        self.until_doing("light 3: exposing")
        running = self.server.get(SEQUENCE + "/report").json
        self.assertEqual((running["taken"], running["frames"], running["complete"]), (2, 3, False))
        self.stop()
        report = self.server.get(PLANS + "/night.yaml/report?folder=2026/first").json
        self.assertEqual(report, self.server.get(SEQUENCE + "/report").json)
        self.assertEqual([file["file"] for file in report["files"]],
                         ["2026/first/bias-0001.fits", "2026/first/bias-0002.fits"])
        for file in report["files"]:
            self.assertEqual(os.path.getsize(self.path(file["file"])), file["bytes"])
        self.assertRefused(self.server.get(PLANS + "/night.yaml/report"), 404, "unknown-sequence")
        self.assertRefused(self.server.get(PLANS + "/night.yaml/report?folder=../x"), 400, "usage")

    def test_a_camera_at_a_sequence_does_nothing_else(self):
        self.begin()
        state = self.until_doing("light 3: exposing")
        self.assertEqual((state["state"], state["line"], state["taken"]), ("running", 1, 2))
        self.assertGreater(state["left"], 3000)
        self.assertEqual(self.server.get(CAMERA).json["sequence"], "night.yaml")
        self.assertEqual(self.server.metric('vxcamd_sequence_running{camera="0"}'), 1)
        self.assertGreater(self.server.metric('vxcamd_sequence_left_seconds{camera="0"}'), 3000)
        ask = self.server.ask
        self.assertRefused(ask("POST", CAMERA + "/exposures", {}), 409, "sequence")
        self.assertRefused(ask("PUT", CAMERA + "/properties/gain", {"value": 1}), 409, "sequence")
        self.assertRefused(self.again(), 409, "sequence")
        self.assertRefused(self.put("night.yaml", SHORT), 409, "sequence")
        self.assertRefused(ask("DELETE", PLANS + "/night.yaml"), 409, "sequence")
        self.assertEqual(self.put("other.yaml", SHORT).status, 201)
        self.assertEqual(self.stop().json["state"], "stopped")
        self.assertIsNone(self.server.get(CAMERA).json["sequence"])
        self.assertEqual(self.server.metric('vxcamd_sequence_running{camera="0"}'), 0)
        self.assertEqual(self.server.expose(exposure=0.001)["state"], "complete")

    def test_a_camera_that_exposes_begins_none(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 60})
        self.assertRefused(self.begin(), 409, "exposing")
        self.assertEqual(self.state()["state"], "none")
        self.server.ask("DELETE", CAMERA + "/exposures/1")
        self.assertEqual(self.again().status, 202)

    def test_what_is_stopped_goes_on_where_it_was(self):
        self.assertEqual(self.stop().json["state"], "none")
        self.begin()
        self.until_doing("light 3: exposing")
        stopped = self.stop().json
        self.assertEqual((stopped["state"], stopped["over"], stopped["doing"]), ("stopped", True, ""))
        self.assertEqual(stopped["error"]["kind"], "aborted")
        self.assertEqual(self.stop().json, stopped)
        plan = self.server.get(PLANS).json["plans"][0]
        self.assertEqual(plan["journal"],
                         {"taken": 2, "runs": 1, "complete": False, "failures": 0})
        self.assertEqual(self.again().json["before"], 2)
        self.until_doing("light 3: exposing")
        self.stop()
        self.assertEqual(self.server.get(SEQUENCE + "/report").json["runs"], 2)
        self.assertEqual(len(glob.glob(self.path("night", "*.fits"))), 2)

    def test_it_is_stopped_behind_a_frame(self):
        self.begin("steps: [{lights: {count: 3, exposure: 1s}}]\n")
        self.until_doing("light 1: exposing")
        self.assertEqual(self.stop("?when=frame").json["state"], "stopping")
        state = self.over()
        self.assertEqual((state["state"], state["taken"]), ("stopped", 1))
        self.assertRefused(self.stop("?when=soon"), 400, "usage")

    def test_what_is_complete_is_so_at_once(self):
        self.begin(SHORT)
        self.assertEqual(self.over()["state"], "complete")
        count = len(self.camera.frames())
        self.assertEqual(self.again().status, 202)
        state = self.over()
        self.assertEqual((state["state"], state["taken"], state["before"]), ("complete", 2, 2))
        self.assertEqual(len(self.camera.frames()), count)

    def test_what_the_camera_cannot_do_never_was(self):
        self.assertRefused(self.begin("sensor: [64, 64]\n" + SHORT), 400, "usage")
        self.assertEqual(self.state()["state"], "none")
        self.begin(SHORT)
        self.over()
        before = self.state()
        self.put("night.yaml", "steps: [{bias: {count: 3}}]\n")
        answer = self.again()
        self.assertRefused(answer, 400, "usage")
        self.assertIn("another plan", answer.json["error"]["text"])
        os.mkdir(self.path("full"))
        with open(self.path("full", "bias-0002.fits"), "wb") as file:
            file.write(b"something else")
        self.assertRefused(self.again(folder="full"), 500, "file")
        self.assertEqual(self.state(), before)
        self.assertEqual(self.server.expose(exposure=0.001)["state"], "complete")
        for body in ({}, {"plan": 1}, {"plan": "night.yaml", "more": 1}, {"plan": "../x.yaml"}):
            self.assertRefused(self.server.ask("POST", SEQUENCE, body), 400, "usage")

    def test_a_plan_is_done_once_at_a_time(self):
        other = Simulator()
        self.addCleanup(self.retire, other)
        self.assertEqual(self.server.end(), 0)
        server = self.server = self.start(self.camera.target, other.target)
        server.open(1)
        self.begin()
        answer = server.ask("POST", "/api/v1/cameras/1/sequence", {"plan": "night.yaml"})
        self.assertRefused(answer, 409, "sequence")
        answer = server.ask("POST", "/api/v1/cameras/1/sequence",
                            {"plan": "night.yaml", "folder": "other"})
        self.assertEqual(answer.status, 202, answer.body)

    def test_no_frame_is_taken_twice_when_the_server_is_killed(self):
        self.begin("steps: [{lights: {count: 30, exposure: 20ms}}]\n")
        until(lambda: self.state()["taken"] >= 5, "5 frames")
        self.server.end(signal.SIGKILL)
        self.server = self.start(self.camera.target)
        self.assertEqual(self.state()["state"], "none")
        before = self.server.get(PLANS + "/night.yaml/report").json["taken"]
        self.assertGreaterEqual(before, 5)
        self.again()
        state = self.over()
        self.assertEqual((state["state"], state["taken"]), ("complete", 30))
        self.assertIn(state["before"], (before, before + 1))
        report = self.server.get(SEQUENCE + "/report").json
        self.assertEqual((report["runs"], report["complete"]), (2, True))
        files = sorted(os.listdir(self.path("night")))
        self.assertEqual(files, ["light-%04d.fits" % number for number in range(1, 31)] +
                         ["night.journal"])
        begins = {fits.getheader(self.path("night", name))["DATE-OBS"] for name in files[:-1]}
        self.assertEqual(len(begins), 30)

    def test_it_ends_with_the_server(self):
        self.begin()
        self.until_doing("light 3: exposing")
        self.assertEqual(self.server.end(), 0)
        self.assertEqual(len(glob.glob(self.path("night", "*.fits"))), 2)

    def test_alpaca_clients_change_nothing_meanwhile(self):
        self.server = self.start(self.camera.target, "--alpaca", "--discovery-port", "0") \
            if self.server.end() == 0 else None
        put = lambda member, value: self.server.ask(
            "PUT", "/api/v1/camera/0/" + member, "%s&ClientID=1" % value,
            {"Content-Type": "application/x-www-form-urlencoded"}).json
        self.assertEqual(put("connected", "Connected=true")["ErrorNumber"], 0)
        self.begin()
        answer = put("gain", "Gain=2")
        self.assertEqual(answer["ErrorNumber"], 0x40B)
        self.assertIn("night.yaml", answer["ErrorMessage"])
        self.stop()
        self.assertEqual(put("gain", "Gain=2")["ErrorNumber"], 0)


class Finishing(WithPlans):
    options = ("--at-end", "finish")

    def test_the_frame_that_is_under_way_comes(self):
        self.begin("steps: [{lights: {count: 3, exposure: 1s}}]\n")
        self.until_doing("light 1: exposing")
        self.server.process.send_signal(signal.SIGTERM)  # a second one would end it as it is
        self.assertEqual(self.server.process.wait(PATIENCE), 0)
        self.assertEqual(len(glob.glob(self.path("night", "*.fits"))), 1)

    def test_nothing_is_begun_meanwhile(self):
        self.put("night.yaml", SHORT)
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 600})
        self.server.process.send_signal(signal.SIGTERM)
        for begin in (self.again, lambda: self.server.ask("POST", CAMERA + "/exposures", {})):
            until(lambda: begin().kind != "exposing", "it is about to end")
            self.assertRefused(begin(), 503, "ending")


class Faults(WithPlans):
    camera_options = ("--fault", "missing-packet:readout=2,packet=1",
                      "--fault", "reboot:readout=4,packet=1,seconds=0.3")

    def test_what_fails_is_taken_again_and_told(self):
        self.begin("steps: [{lights: {count: 4, exposure: 1ms}}]\n")
        state = self.over()
        self.assertEqual((state["state"], state["taken"], state["failures"]), ("complete", 4, 2))
        self.assertEqual([failure["text"][:8] for failure in state["last_failures"]],
                         ["light 2:", "light 3:"])
        report = self.server.get(SEQUENCE + "/report").json
        self.assertEqual(report["failures"], state["last_failures"])
        told = [event["failure"] for event in self.events() if "failure" in event]
        self.assertEqual(told, [failure["text"] for failure in report["failures"]])


class Leases(WithPlans):
    options = ("--lease", "1")

    def lease(self, holder, **more):
        return self.server.ask("POST", CAMERA + "/lease", dict(holder=holder, **more))

    def test_it_keeps_the_lease_of_who_started_it(self):
        key = {"X-Lease": self.lease("anna").json["key"]}
        self.put("night.yaml", "steps: [{lights: {count: 2, exposure: 1500ms}}]\n")
        self.assertRefused(self.again(), 423, "lease-held")
        self.assertEqual(self.again(headers=key).status, 202)
        self.assertRefused(self.stop(), 423, "lease-held")
        until(lambda: self.state()["taken"] == 1, "1.5 s have passed")
        self.assertRefused(self.lease("bert"), 423, "lease-held")
        self.assertEqual(self.over()["state"], "complete")
        until(lambda: self.lease("bert").status == 200, "it is free in the end")

    def test_it_goes_on_when_the_lease_is_taken_over(self):
        old = {"X-Lease": self.lease("anna").json["key"]}
        self.begin(headers=old)
        self.until_doing("light 3: exposing")
        new = {"X-Lease": self.lease("bert", take=True).json["key"]}
        self.assertEqual(self.state()["state"], "running")
        self.assertRefused(self.stop(headers=old), 423, "lease-held")
        self.assertEqual(self.stop(headers=new).json["state"], "stopped")

    def test_anybody_stops_it_when_the_lease_is_given_back(self):
        key = {"X-Lease": self.lease("anna").json["key"]}
        self.begin(headers=key)
        self.assertEqual(self.server.ask("DELETE", CAMERA + "/lease", headers=key).status, 200)
        self.assertEqual(self.state()["state"], "running")
        self.assertEqual(self.stop().json["state"], "stopped")


if __name__ == "__main__":
    unittest.main()
