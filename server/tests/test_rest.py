"""Exposures and properties through REST, against the simulated camera's own account."""

import concurrent.futures
import hashlib
import http.client
import io
import json
import os
import re
import select
import signal
import struct
import threading
import time
import unittest
import zlib

import numpy
from astropy.io import fits

from server_support import PATIENCE, Server, Simulator, WebSocket, reap, until

CAMERA = "/api/v1/cameras/0"


def tearDownModule():
    reap()


class Rest(unittest.TestCase):
    options = ()
    camera_options = ()

    def setUp(self):
        self.camera = Simulator(*self.camera_options)
        self.addCleanup(self.camera.retire)
        self.server = Server(self.camera.target, *self.options)
        self.addCleanup(self.server.retire)
        self.server.open()

    def assertRefused(self, answer, status, kind):
        self.assertEqual((answer.status, answer.kind), (status, kind), answer.body)
        self.assertTrue(answer.json["error"]["text"])


class Exposures(Rest):
    def test_a_raw_frame_is_what_the_camera_sent(self):
        exposure = self.server.expose(exposure=0.005)
        self.assertEqual(exposure["state"], "complete")
        answer = self.server.get(CAMERA + "/exposures/1/frame.raw")
        truth = self.camera.frame(1)
        self.assertEqual(zlib.crc32(answer.body), truth["crc"])
        self.assertEqual(int(answer.headers["x-frame-sum"]), truth["sum"])
        self.assertEqual((answer.headers["x-frame-columns"], answer.headers["x-frame-rows"]),
                         ("128", "96"))
        self.assertEqual(answer.headers["x-frame-complete"], "yes")

    def test_a_fits_file_holds_the_pixels_and_the_exposure(self):
        self.server.expose(exposure=0.25)
        answer = self.server.get(CAMERA + "/exposures/1/frame.fits")
        self.assertEqual(answer.headers["content-type"], "application/fits")
        with fits.open(io.BytesIO(answer.body)) as file:
            pixels = file[0].data
            self.assertEqual(file[0].header["EXPTIME"], 0.25)
        self.assertEqual(pixels.shape, (96, 128))
        truth = self.camera.frame(1)
        self.assertEqual(zlib.crc32(pixels.astype("<u2").tobytes()), truth["crc"])

    def test_a_preview_is_a_png_of_that_size(self):
        self.server.expose(exposure=0.005)
        body = self.server.get(CAMERA + "/exposures/1/frame.png").body
        self.assertEqual(body[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(struct.unpack(">II", body[16:24]), (128, 96))

    def test_an_area_is_the_part_of_the_sensor(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "2,1000"})
        exposure = self.server.expose(
            exposure=0, area={"column": 10, "row": 20, "columns": 30, "rows": 4})
        self.assertEqual(exposure["state"], "complete")
        body = self.server.get(CAMERA + "/exposures/1/frame.raw").body
        pixels = numpy.frombuffer(body, "<u2").reshape(4, 30)
        self.assertEqual(pixels.tolist(), [[1000 + column for column in range(10, 40)]] * 4)

    def test_the_regions_of_a_frame_are_told_where_there_are_several(self):
        regions = [{"column": 8, "row": 4, "columns": 16, "rows": 8},
                   {"column": 40, "row": 32, "columns": 16, "rows": 4}]
        self.server.expose(exposure=0, regions=regions)
        facts = self.server.get(CAMERA + "/exposures/1/frame.json").json
        self.assertEqual((facts["regions"], facts["rows"]), (regions, 12))
        self.assertEqual(facts["area"], {"column": 8, "row": 4, "columns": 48, "rows": 32})
        self.server.expose(exposure=0)
        self.assertNotIn("regions", self.server.get(CAMERA + "/exposures/2/frame.json").json)

    def test_bins_are_sums(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "1,7"})
        self.server.expose(exposure=0, binning=[4, 2])
        body = self.server.get(CAMERA + "/exposures/1/frame.raw").body
        self.assertNotIn("bits", self.server.get(CAMERA + "/exposures/1").json["plan"])
        pixels = numpy.frombuffer(body, "<u4")
        self.assertEqual((pixels.size, set(pixels.tolist())), (32 * 48, {56}))

    def test_a_frame_is_binned_as_the_camera_is_set_unless_asked_for_otherwise(self):
        self.server.ask("PUT", CAMERA + "/properties/simple-binning", {"value": "2,4"})
        for number, (plan, size) in enumerate([({}, ("32", "48")), ({"bits": 16}, ("128", "96"))], 1):
            self.server.expose(exposure=0, **plan)
            headers = self.server.get(f"{CAMERA}/exposures/{number}/frame.raw").headers
            self.assertEqual((headers["x-frame-columns"], headers["x-frame-rows"]), size)

    def test_every_frame_of_an_exposure_can_be_had(self):
        exposure = self.server.expose(exposure=0.001, frames=3)
        self.assertEqual([frame["number"] for frame in exposure["frames"]], [1, 2, 3])
        for number in (1, 2, 3):
            body = self.server.get(CAMERA + "/exposures/1/frames/%d.raw" % number).body
            self.assertEqual(zlib.crc32(body), self.camera.frame(1, number)["crc"])
        self.assertRefused(self.server.get(CAMERA + "/exposures/1/frames/4.raw"), 404,
                           "unknown-frame")

    def test_what_is_not_there_yet_is_said_to_be(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 30})
        self.assertRefused(self.server.get(CAMERA + "/exposures/1/frame.fits"), 409, "not-ready")
        self.assertRefused(self.server.ask("POST", CAMERA + "/exposures", {}), 409, "exposing")
        progress = until(lambda: (lambda e: e if e["progress"]["phase"] == "exposing" else None)(
            self.server.get(CAMERA + "/exposures/1").json), "exposing")["progress"]
        self.assertLess(progress["done"], 0.9)

    def test_an_abort_ends_an_exposure_at_once(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 60})
        answer = self.server.ask("DELETE", CAMERA + "/exposures/1")
        self.assertEqual((answer.status, answer.json["state"]), (200, "aborted"))
        self.assertRefused(self.server.get(CAMERA + "/exposures/1/frame.fits"), 409, "aborted")
        self.assertEqual(self.server.expose(exposure=0.001)["state"], "complete")

    def test_a_plan_that_cannot_be_is_refused(self):
        bad = [{"bits": 12}, {"exposure": -1}, {"exposure": "long"}, {"frames": 40000},
               {"area": {"column": 100, "row": 0, "columns": 29, "rows": 1}}, {"area": [1]},
               {"type": "odd"}, {"kind": "odd"}, {"binning": [0, 1]}, {"binning": 2},
               {"exposur": 1}, {"frames": 1.5}, {"frames": "2"}, {"when_full": "odd"},
               {"exposure": 0.0001}, {"binning": [129, 1]}, {"binning": [1, 97]}]
        for plan in bad:
            with self.subTest(plan):
                self.assertRefused(self.server.ask("POST", CAMERA + "/exposures", plan), 400,
                                   "usage")
        self.assertEqual(self.server.get(CAMERA + "/exposures").json["exposures"], [])
        exposure = self.server.expose(exposure=0.001)
        self.assertEqual((exposure["id"], exposure["state"]), (1, "complete"))
        self.assertEqual(self.server.metric('vxcamd_exposures_total{camera="0",end="failed"}'), 0)

    def test_a_time_out_that_cannot_be_is_told_what_can(self):
        for plan, text in (({"timeout": -1}, "timeout: more than 0 to 4294967.295 s"),
                           ({"exposure": -1}, "exposure: 0 to 4294967.295 s")):
            answer = self.server.ask("POST", CAMERA + "/exposures", plan)
            self.assertEqual(answer.json["error"]["text"], text)

    def test_what_no_query_has_is_refused(self):
        self.server.expose(exposure=0.001)
        for path in ("/exposures/1?wiat=1", "/exposures/1?wait=", "/exposures/1?wait=1&wait=1",
                     "/exposures/1?wait=1&x", "/exposures?wait=1", "?x=1", "/properties?x",
                     "/properties/gain?value=3", "/lease?x=", "/events?snice=1", "/events?since=",
                     "/exposures/1/frame.raw?incomplete=1", "/exposures/1/frame.raw?complete=yes"):
            with self.subTest(path):
                self.assertRefused(self.server.get(CAMERA + path), 400, "usage")
        for path in ("/exposures/1?", "/exposures/1?wait=0", "/exposures/1/frame.raw?incomplete=no"):
            self.assertEqual(self.server.get(CAMERA + path).status, 200, path)
        answer = self.server.ask("POST", CAMERA + "/exposures?frames=2", {"exposure": 0.001})
        self.assertRefused(answer, 400, "usage")

    def test_frames_that_cannot_be_are_answered_by_those_that_can(self):
        self.server.expose(exposure=0.001)
        for name in ("frame.tiff", "frame", "frames/0.raw", "frames/1", "frames/1.tiff", "x.raw"):
            answer = self.server.get(CAMERA + "/exposures/1/" + name)
            self.assertRefused(answer, 404, "unknown-path")
            for part in ("fits", "png", "raw", "json", "from 1"):
                self.assertIn(part, answer.json["error"]["text"])

    def test_only_the_last_frames_are_kept(self):
        server = Server("sim?sensor=512x512&heartbeat=0", "--keep", "2")
        self.addCleanup(server.retire)
        server.open()
        exposure = server.expose(exposure=0.001, frames=8)
        self.assertEqual([frame["number"] for frame in exposure["frames"]], [5, 6, 7, 8])
        self.assertRefused(server.get(CAMERA + "/exposures/1/frames/2.raw"), 410, "gone")
        server.expose(exposure=0.001, frames=4)
        for name in ("frame.raw", "frame.json", "frames/8.raw"):
            self.assertRefused(server.get(CAMERA + "/exposures/1/" + name), 410, "gone")
        self.assertRefused(server.get(CAMERA + "/exposures/1/frames/9.raw"), 404, "unknown-frame")

    def test_many_watchers_at_once_are_not_more_than_there_may_be(self):
        for options, most in (((), 64), (("--watchers", "70"), 70)):
            self.watch_with_a_hundred(most, "--connections", "150", *options)

    def watch_with_a_hundred(self, most, *options):
        server = Server("sim?sensor=64x48&heartbeat=0", *options)
        self.addCleanup(server.retire)
        server.open()
        with concurrent.futures.ThreadPoolExecutor(100) as pool:
            watchers = list(pool.map(lambda _: WebSocket(server.port, CAMERA + "/live"),
                                     range(100)))
        for watcher in watchers:
            self.addCleanup(watcher.close)
        self.assertLessEqual({watcher.status for watcher in watchers}, {101, 503})
        self.assertEqual(sum(self.is_served(watcher) for watcher in watchers), most)
        refused = server.get(CAMERA + "/live")
        self.assertRefused(refused, 503, "watchers")
        self.assertIn("--watchers lets in: %d" % most, refused.json["error"]["text"])

    @staticmethod
    def is_served(watcher):
        if watcher.status != 101:
            return False
        try:
            watcher.socket.sendall(b"\x89\x80" + bytes(4))
            while (message := watcher.message()) not in ("pong", None):
                pass
            return message == "pong"
        except (OSError, ValueError):  # closed
            return False


class Faults(Rest):
    def start(self, *faults):
        options = [word for fault in faults for word in ("--fault", fault)]
        camera = Simulator(*options)
        self.addCleanup(camera.retire)
        server = Server(camera.target)
        self.addCleanup(server.retire)
        server.open()
        return server

    def test_an_incomplete_frame_is_never_served_as_good(self):
        server = self.start("missing-packet:packet=7")
        exposure = server.expose(exposure=0.001)
        self.assertEqual((exposure["state"], exposure["error"]["kind"]),
                         ("incomplete", "incomplete"))
        for ending in ("fits", "png", "raw"):
            answer = server.get(CAMERA + "/exposures/1/frame." + ending)
            self.assertRefused(answer, 502, "incomplete")
            self.assertEqual(answer.json["error"]["frame"]["missing_rows"], [6])
        answer = server.get(CAMERA + "/exposures/1/frame.raw?incomplete=yes")
        self.assertEqual((answer.status, answer.headers["x-frame-complete"]), (200, "no"))
        row = numpy.frombuffer(answer.body, "<u2").reshape(96, 128)[6]
        self.assertEqual(int(row.sum()), 0)

    def test_a_link_that_is_lost_ends_the_exposure_and_comes_back(self):
        server = self.start("reset:readout=1,packet=20")
        exposure = server.expose(exposure=0.001)
        self.assertEqual((exposure["state"], exposure["error"]["kind"]), ("failed", "link-lost"))
        self.assertRefused(server.get(CAMERA + "/exposures/1/frame.fits"), 503, "link-lost")
        until(lambda: server.get(CAMERA).json["link"], "the link is made anew")
        self.assertEqual(server.expose(exposure=0.001)["state"], "complete")
        self.assertEqual(server.metric('vxcamd_links_lost_total{camera="0"}'), 1)
        # What the alert of docs/operations.md looks at.
        self.assertEqual(server.metric('vxcamd_frames_total{camera="0",end="aborted"}'), 1)
        self.assertEqual(server.metric('vxcamd_exposures_total{camera="0",end="failed"}'), 1)

    def test_a_camera_that_falls_silent_has_no_temperatures(self):
        camera = Simulator()
        self.addCleanup(camera.retire)
        server = Server(camera.target)
        self.addCleanup(server.retire)
        server.open()
        until(lambda: server.get(CAMERA).json["sensor_temperature"] is not None, "a temperature")
        self.assertLess(server.get(CAMERA).json["heartbeat_age"], 10)
        interval = until(lambda: server.get(CAMERA).json["heartbeat_interval"], "a second heartbeat")
        self.assertTrue(0.5 < interval < 10, interval)  # 1 s, on a machine that may be busy
        camera.process.send_signal(signal.SIGSTOP)
        self.addCleanup(camera.process.send_signal, signal.SIGCONT)
        until(lambda: server.get(CAMERA).json["sensor_temperature"] is None, "silence", 20)
        silent = server.get(CAMERA).json
        self.assertEqual((silent["link"], silent["board_temperature"]), (True, None))
        self.assertGreater(silent["heartbeat_age"], 10)
        self.assertGreater(server.metric('vxcamd_heartbeat_age_seconds{camera="0"}'), 10)
        self.assertNotIn("vxcamd_temperature_celsius{", server.get("/metrics").body.decode())
        camera.process.send_signal(signal.SIGCONT)
        until(lambda: server.get(CAMERA).json["sensor_temperature"] is not None, "it speaks again")

    def test_a_camera_that_hangs_does_not_hold_up_the_server(self):
        hanging, other = Simulator(), Simulator()
        self.addCleanup(hanging.retire)
        self.addCleanup(other.retire)
        server = Server(hanging.target, other.target, "--connections", "200")
        self.addCleanup(server.retire)
        server.open()
        server.open(1)
        hanging.halt()
        self.addCleanup(hanging.process.send_signal, signal.SIGCONT)
        asking = [server.connection() for _ in range(150)]
        for each in asking:
            self.addCleanup(each.close)
            each.request("GET", CAMERA + "/properties/gain")
        answered = lambda: select.select([each.sock for each in asking], [], [], 0)[0]
        until(lambda: len(answered()) == 134, "16 of them wait")
        refused = next(each for each in asking if each.sock in answered()).getresponse()
        self.assertEqual((refused.status, json.loads(refused.read())["error"]["kind"]), (503, "crowded"))
        for path in ("/healthz", "/metrics", "/api/v1/cameras", CAMERA + "/exposures",
                     "/api/v1/cameras/1/properties/gain"):
            self.assertEqual(server.get(path).status, 200, path)
        put = lambda: server.ask("PUT", CAMERA + "/properties/gain", {"value": 1})
        threads = [threading.Thread(target=put) for _ in range(8)]  # there are places for changes
        for each in threads:
            each.start()
        self.assertEqual(server.expose(1, exposure=0.001)["state"], "complete")
        hanging.process.send_signal(signal.SIGCONT)
        for each in threads:
            each.join()
        until(lambda: put().status == 200, "it is asked again")

    def test_those_who_wait_hold_up_nobody(self):
        server = Server(self.camera.target, "--connections", "200")
        self.addCleanup(server.retire)
        self.server.retire()  # a camera serves one
        reap()
        server.open()
        server.ask("POST", CAMERA + "/exposures", {"exposure": 60})
        waiting = [server.connection() for _ in range(150)]
        for each in waiting:
            self.addCleanup(each.close)
            each.request("GET", CAMERA + "/exposures/1?wait=60")
        self.assertEqual(server.get("/healthz").status, 200)
        self.assertEqual(server.ask("DELETE", CAMERA + "/exposures/1").json["state"], "aborted")
        for each in waiting:
            self.assertEqual(json.loads(each.getresponse().read())["state"], "aborted")

    def test_a_camera_that_has_another_sensor_afterwards_is_told_and_read_whole(self):
        server = self.start("reboot-resized:readout=1,packet=20,seconds=0.3,rows=32,columns=40")
        self.assertEqual(server.expose(exposure=0.001)["state"], "failed")
        until(lambda: server.get(CAMERA).json["columns"] == 40, "the other sensor")
        self.assertEqual(server.expose(exposure=0.001)["state"], "complete")
        self.assertEqual(len(server.get(CAMERA + "/exposures/2/frame.raw").body), 2 * 40 * 32)
        connection = http.client.HTTPConnection("127.0.0.1", server.port, timeout=PATIENCE)
        self.addCleanup(connection.close)
        connection.request("GET", CAMERA + "/events?since=0")
        told = (json.loads(line[6:]) for line in connection.getresponse() if line.startswith(b"data: "))
        changed = next(event for event in told if event["event"] == "camera-changed")
        self.assertEqual(changed["text"], "its sensor has 40 x 32 pixels, before 128 x 96 pixels")

    def test_an_exposure_that_is_begun_while_the_link_is_lost_fails(self):
        camera = Simulator()
        server = Server(camera.target)
        self.addCleanup(server.retire)
        server.open()
        camera.end(signal.SIGKILL)
        until(lambda: not server.get(CAMERA).json["link"], "the link is lost")
        exposure = server.expose(exposure=0.001)
        self.assertEqual((exposure["state"], exposure["error"]["kind"]), ("failed", "link-lost"))
        self.assertEqual(server.metric('vxcamd_exposures_total{camera="0",end="failed"}'), 1)

    def test_a_camera_that_refuses_is_told_with_its_code(self):
        answer = self.server.ask("PUT", CAMERA + "/properties/target-temp", {"value": -250})
        self.assertRefused(answer, 502, "camera-error")
        self.assertEqual(answer.json["error"]["code"], 3)

    def test_a_camera_that_is_not_there_is_opened_when_it_comes(self):
        port = 18300
        server = Server("127.0.0.1:%d" % port)
        self.addCleanup(server.retire)
        answer = until(lambda: (lambda a: a if a.status == 503 and "opened yet" not in str(a.body)
                                else None)(server.get(CAMERA + "/properties/gain")), "no camera")
        self.assertRefused(answer, 503, "not-found")
        self.assertRefused(server.ask("POST", CAMERA + "/exposures", {}), 503, "not-found")
        camera = Simulator(port=port)
        self.addCleanup(camera.retire)
        server.open()
        self.assertEqual(server.expose(exposure=0.001)["state"], "complete")


class Properties(Rest):
    def test_a_property_is_set_and_read_back(self):
        answer = self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 3})
        self.assertEqual(answer.json, {"name": "gain", "value": 3, "text": "3"})
        self.assertEqual(self.server.get(CAMERA + "/properties/gain").json["value"], 3)
        self.assertEqual(self.server.get(CAMERA + "/properties").json["gain"],
                         {"value": 3, "text": "3"})

    def test_values_of_several_fields_are_objects_or_texts(self):
        path = CAMERA + "/properties/mirroring"
        told = self.server.ask("PUT", path, {"value": {"horizontal": True, "vertical": False}})
        self.assertEqual(told.json["text"], "on,off")
        told = self.server.ask("PUT", path, {"value": "off,on"})
        self.assertEqual(told.json["value"], {"horizontal": False, "vertical": True})

    def test_every_readable_property_of_the_table_answers(self):
        table = self.server.get("/api/v1/properties").json["properties"]
        self.assertGreater(len(table), 30)
        values = self.server.get(CAMERA + "/properties").json
        for entry in table:
            if "key" in entry or not entry["listed"]:
                continue
            with self.subTest(entry["name"]):
                self.assertEqual(entry["name"] in values, entry["readable"])
                answer = self.server.get(CAMERA + "/properties/" + entry["name"])
                self.assertEqual(answer.status, 200 if entry["readable"] else 400, answer.body)

    def test_what_is_no_property_or_no_value_is_refused(self):
        put = lambda name, body: self.server.ask("PUT", CAMERA + "/properties/" + name, body)
        self.assertRefused(self.server.get(CAMERA + "/properties/gian"), 404, "unknown-property")
        self.assertIn("gain", self.server.get(CAMERA + "/properties/gian").json["error"]["text"])
        for body in ({"value": "much"}, {"value": -1}, {"value": [1, 2, 3]}, {}, {"valu": 1},
                     {"value": 1, "more": 2}):
            with self.subTest(body):
                self.assertRefused(put("gain", body), 400, "usage")
        self.assertRefused(put("ccd-temp", {"value": 1}), 400, "usage")

    def test_a_body_without_a_value_sets_nothing(self):
        area = {"column": 1, "row": 2, "columns": 8, "rows": 4}
        put = lambda body: self.server.ask("PUT", CAMERA + "/properties/area", body)
        self.assertEqual(put({"value": area}).status, 200)
        self.assertRefused(put({}), 400, "usage")
        self.assertEqual(self.server.get(CAMERA + "/properties/area").json["value"], area)
        self.assertEqual(put({"value": None}).status, 200)
        self.assertNotEqual(self.server.get(CAMERA + "/properties/area").json["value"], area)

    def test_a_body_that_is_no_json_object_is_refused(self):
        for body in ("", "{", "[1]", "{\"value\": NaN}", "[" * 20000, "{\"a\":" * 60, "\xff\xfe"):
            with self.subTest(body[:20]):
                answer = self.server.ask("PUT", CAMERA + "/properties/gain", body.encode("latin1"))
                self.assertRefused(answer, 400, "usage")
        for body in ('{"value": 3, "value": 4}', '{"value": {"a": 1, "b": 2, "a": 1}}'):
            answer = self.server.ask("PUT", CAMERA + "/properties/gain", body,
                                     {"Content-Type": "application/json"})
            self.assertRefused(answer, 400, "usage")
            self.assertIn("twice", answer.json["error"]["text"])
        area = {"column": 0, "row": 0, "columns": 8, "rows": 4}  # twice, in one list
        exposure = self.server.expose(exposure=0.001, regions=[area, dict(area, row=8)])
        self.assertEqual(exposure["state"], "complete")
        answer = self.server.ask("PUT", CAMERA + "/properties/gain", b"value=1",
                                 {"Content-Type": "application/x-www-form-urlencoded"})
        self.assertRefused(answer, 415, "media-type")


class Leases(Rest):
    options = ("--lease", "2")

    def test_a_holder_has_a_name_that_can_be_shown(self):
        for name in ("", "a" * 101, "a\0b", "a\nb"):
            self.assertRefused(self.server.ask("POST", CAMERA + "/lease", {"holder": name}), 400, "usage")

    def test_one_client_controls_and_others_watch(self):
        mine = self.server.ask("POST", CAMERA + "/lease", {"holder": "me"}).json
        self.assertEqual((mine["held"], mine["holder"]), (True, "me"))
        changes = [("PUT", "/properties/gain", {"value": 1}), ("POST", "/exposures", {}),
                   ("DELETE", "/lease", None), ("POST", "/lease", {"holder": "you"})]
        for method, path, body in changes:
            with self.subTest(path):
                self.assertRefused(self.server.ask(method, CAMERA + path, body), 423, "lease-held")
        self.assertNotIn("key", self.server.get(CAMERA + "/lease").json)
        self.assertEqual(self.server.get(CAMERA + "/properties/gain").status, 200)
        key = {"X-Lease": mine["key"]}
        put = lambda: self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 1}, key).status
        self.assertEqual(put(), 200)
        yours = self.server.ask("POST", CAMERA + "/lease", {"holder": "you", "take": True}).json
        self.assertEqual((put(), yours["holder"]), (423, "you"))
        self.assertEqual(self.server.get(CAMERA).json["lease"]["holder"], "you")

    def test_events_tell_what_became_of_the_lease_and_which_value_was_set(self):
        self.server.ask("POST", CAMERA + "/lease", {"holder": "me"})
        key = self.server.ask("POST", CAMERA + "/lease", {"holder": "you", "take": True}).json["key"]
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 3}, {"X-Lease": key})
        self.server.ask("DELETE", CAMERA + "/lease", headers={"X-Lease": key})
        connection = self.server.connection()
        self.addCleanup(connection.close)
        connection.request("GET", CAMERA + "/events?since=0")
        response, told = connection.getresponse(), []
        while len(told) < 4:
            line = response.readline().decode()
            event = json.loads(line[6:]) if line.startswith("data: ") else {"event": ""}
            if event["event"] in ("lease", "property"):
                told.append([event.get(name) for name in ("state", "holder", "from", "name", "text")])
        self.assertEqual(told, [["taken", "me", None, None, None], ["taken-over", "you", "me", None, None],
                                [None, None, None, "gain", "3"], ["given-back", None, "you", None, None]])

    def test_a_lease_that_nobody_uses_is_free(self):
        self.server.ask("POST", CAMERA + "/lease", {"holder": "me"})
        until(lambda: not self.server.get(CAMERA + "/lease").json["held"], "free")
        self.assertEqual(
            self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 1}).status, 200)

    def test_a_lease_lasts_while_its_holder_waits(self):
        key = {"X-Lease": self.server.ask("POST", CAMERA + "/lease", {"holder": "me"}).json["key"]}
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 5}, key)  # longer than the lease lasts
        answer = self.server.get(CAMERA + "/exposures/1?wait=30", headers=key)
        self.assertEqual(answer.json["state"], "complete")
        self.assertRefused(self.server.ask("POST", CAMERA + "/lease", {"holder": "you"}), 423, "lease-held")

    def test_a_lease_that_has_run_out_is_told(self):
        key = {"X-Lease": self.server.ask("POST", CAMERA + "/lease", {"holder": "me"}).json["key"]}
        connection = self.server.connection()
        self.addCleanup(connection.close)
        connection.request("GET", CAMERA + "/events?since=0")
        told = (json.loads(line[6:]) for line in connection.getresponse() if line.startswith(b"data: "))
        state = next(event for event in told if event["event"] == "lease" and event["state"] != "taken")
        self.assertEqual((state["state"], state["holder"], state["from"]), ("run-out", None, "me"))
        put = lambda **more: self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 1}, **more)
        self.assertRefused(put(headers=key), 423, "lease-over")
        self.assertEqual(put().status, 200)

    def test_an_abort_needs_the_lease(self):
        key = self.server.ask("POST", CAMERA + "/lease", {"holder": "me"}).json["key"]
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 30}, {"X-Lease": key})
        self.assertRefused(self.server.ask("DELETE", CAMERA + "/exposures/1"), 423, "lease-held")
        answer = self.server.ask("DELETE", CAMERA + "/exposures/1", headers={"X-Lease": key})
        self.assertEqual(answer.json["state"], "aborted")


class Watching(Rest):
    def test_watchers_get_the_pixels_that_were_sent(self):
        watchers = [WebSocket(self.server.port, CAMERA + "/live") for _ in range(3)]
        self.server.expose(exposure=0.001, frames=1)
        truth = self.camera.frame(1)
        for watcher in watchers:
            facts, pixels = watcher.frame()
            self.assertEqual((zlib.crc32(pixels), facts["sum"], facts["complete"]),
                             (truth["crc"], truth["sum"], True))
            watcher.close()

    def test_a_live_view_goes_on_until_it_is_ended(self):
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 0.001, "frames": 0})
        for _ in range(5):
            facts, pixels = watcher.frame()
            truth = self.camera.frame(facts["readout"], facts["number"])
            self.assertEqual(zlib.crc32(pixels), truth["crc"])
        self.server.ask("DELETE", CAMERA + "/exposures/1")
        self.assertEqual(self.server.get(CAMERA + "/exposures/1").json["state"], "aborted")
        watcher.close()

    def test_a_watcher_hears_of_the_server_as_often_as_it_asks_for(self):
        asking, silent = [WebSocket(self.server.port, CAMERA + "/live") for _ in range(2)]
        asking.send('{"beat": 0.1, "more": 0}')
        begun, beats = time.monotonic(), 0
        while beats < 20:
            beats += asking.message() == {"message": "beat"}
        self.assertLess(time.monotonic() - begun, 20)
        told = [silent.message() for _ in range(3)]  # meanwhile
        self.assertEqual({message["message"] for message in told}, {"event"})
        for each in (asking, silent):
            each.close()

    def test_a_watcher_is_told_what_is_missing(self):
        self.camera.end()
        camera = Simulator("--fault", "missing-packet:packet=3", port=self.camera.port)
        self.addCleanup(camera.retire)
        until(lambda: self.server.get(CAMERA).json["link"], "the link")
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        self.server.expose(exposure=0.001)
        facts, pixels = watcher.frame()
        self.assertEqual((facts["complete"], facts["missing_rows"]), (False, [2]))
        watcher.close()

    def test_a_slow_watcher_gets_fewer_frames_and_holds_up_nobody(self):
        """One reads 1 MB a second, of frames of half a megabyte."""
        server = Server("sim?sensor=512x512")
        self.addCleanup(server.retire)
        server.open()
        slow = WebSocket(server.port, CAMERA + "/live", receive=4096)
        quick = WebSocket(server.port, CAMERA + "/live")
        ends, got = threading.Event(), []

        def dawdle():
            begun = time.monotonic()
            while not ends.is_set():
                data = slow.socket.recv(4096)
                if not data:
                    return
                got.append(len(data))
                time.sleep(max(0, begun + sum(got) / 1e6 - time.monotonic()))
        reader = threading.Thread(target=dawdle, daemon=True)
        self.addCleanup(ends.set)
        reader.start()
        server.ask("POST", CAMERA + "/exposures", {"exposure": 0.001, "frames": 0})
        quick.frame()
        begun, sent = time.monotonic(), server.metric("vxcamd_watcher_frames_total")
        for count in range(1, 41):
            quick.frame()
        took = time.monotonic() - begun
        to_slow = server.metric("vxcamd_watcher_frames_total") - sent - count
        self.assertLess(to_slow, count / 2)
        self.assertLess(took, count / 8)  # the slow one takes two frames a second
        came = server.get(CAMERA + "/exposures/1").json["came"]
        self.assertGreater(came, count)  # the camera did not wait for it either
        until(lambda: server.metric("vxcamd_watcher_missed_total") > 0, "missed frames are told")
        ends.set()
        reader.join()
        slow.close()
        quick.close()
        until(lambda: server.metric("vxcamd_watchers") == 0, "no watcher")

    def test_a_watcher_that_asks_for_frames_gets_no_others_and_the_newest(self):
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        watcher.send('{"more": 2}')
        watcher.settle()
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 0.001, "frames": 0})
        last = [watcher.frame()[0]["number"] for _ in range(2)][-1]
        until(lambda: self.server.get(CAMERA + "/exposures/1").json["came"] > 50, "frames")
        self.assertEqual(self.server.metric("vxcamd_watcher_frames_total"), 2)
        watcher.send('{"more": 1}')
        frame = watcher.frame()[0]
        self.assertGreater(frame["number"], 50 - 2)
        self.assertEqual(frame["missed"], frame["number"] - last - 1)
        self.assertLess(frame["age"], 0.5)
        watcher.close()

    def test_a_watcher_that_comes_before_any_frame_is_told_of_all_it_missed(self):
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        watcher.send('{"more": 0}')
        watcher.settle()
        self.server.expose(exposure=0.001, frames=3)
        watcher.send('{"more": 1}')
        frame = watcher.frame()[0]
        self.assertEqual((frame["number"], frame["missed"]), (3, 2))
        watcher.close()

    def test_a_frame_from_before_is_late_for_no_watcher(self):
        self.server.expose(exposure=0.001)
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        self.assertEqual(watcher.frame()[0]["exposure_id"], 1)
        watcher.settle()
        self.assertEqual(self.server.metric("vxcamd_watcher_delay_seconds_count"), 0)
        self.server.expose(exposure=0.001)
        self.assertEqual(watcher.frame()[0]["exposure_id"], 2)
        until(lambda: self.server.metric("vxcamd_watcher_delay_seconds_count") == 1, "the new one counts")
        watcher.close()

    def test_a_watcher_may_ask_for_a_part_of_each_frame(self):
        for bits, kind in ((16, "<u2"), (8, "u1")):
            exposure = self.server.expose(exposure=0.001, bits=bits)["id"]
            watcher = WebSocket(self.server.port, CAMERA + "/live")
            self.assertNotIn("part", watcher.frame()[0])
            whole = numpy.frombuffer(self.server.get(
                CAMERA + "/exposures/%d/frame.raw" % exposure).body, kind).reshape(96, 128)
            for asked, begin, step, end in (
                    ({"step": 3}, (0, 0), 3, (96, 128)),
                    ({"column": 10, "row": 7, "columns": 31, "rows": 20, "step": 2}, (7, 10), 2, (27, 41)),
                    ({"column": 100, "row": 90, "columns": 60, "rows": 60}, (90, 100), 1, (96, 128)),
                    ({"column": 500, "row": 0, "columns": 60, "rows": 60}, (0, 0), 1, (96, 128)),
                    ({"step": 64}, (0, 0), 64, (96, 128)), ({}, (0, 0), 1, (96, 128))):
                watcher.send(json.dumps({"part": asked}))
                facts, pixels = watcher.frame()
                part = whole[begin[0]:end[0]:step, begin[1]:end[1]:step]
                self.assertEqual(facts["part"], {"column": begin[1], "row": begin[0], "step": step,
                                                 "columns": part.shape[1], "rows": part.shape[0]})
                self.assertEqual(pixels, part.tobytes(), asked)
                self.assertEqual((facts["again"], facts["missed"], facts["columns"], facts["rows"]),
                                 (True, 0, 128, 96))
            watcher.close()

    def test_a_part_that_makes_no_sense_changes_nothing(self):
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        watcher.send('{"part": {"step": 2}}')
        for part in (3, {"step": 0}, {"step": 65}, {"step": "2"}, {"step": 1.5}, {"column": -1},
                     {"rows": 65536}, {"columns": 2**70}, {"row": None}):
            watcher.send(json.dumps({"part": part}))
        watcher.settle()
        self.server.expose(exposure=0.001)
        facts, pixels = watcher.frame()
        self.assertNotIn("again", facts)
        self.assertEqual((facts["part"]["step"], len(pixels)), (2, 64 * 48 * 2))
        watcher.close()

    def test_a_watcher_may_ask_for_fewer_frames(self):
        watcher = WebSocket(self.server.port, CAMERA + "/live")
        watcher.send('{"rate": 10}')
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 0.001, "frames": 0})
        watcher.frame()
        begins = [watcher.frame()[0]["times"]["begin"].rstrip("Z") for _ in range(4)]
        seconds = [float(begin.split(":")[-1]) for begin in begins]
        apart = [(later - sooner) % 60 for sooner, later in zip(seconds, seconds[1:])]
        self.assertGreater(min(apart), 0.05)
        watcher.close()

    def test_events_of_a_server_before_this_one_do_not_hide_its_own(self):
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 2})
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE)
        connection.request("GET", CAMERA + "/events", headers={"Last-Event-ID": "99999"})
        response = connection.getresponse()
        until(lambda: b'"gain"' in response.readline(), "the event")
        connection.close()

    def test_events_tell_what_happens(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE)
        connection.request("GET", CAMERA + "/events?since=0")
        response = connection.getresponse()
        self.assertEqual(response.getheader("Content-Type"), "text/event-stream")
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 2})
        self.server.expose(exposure=0.001)
        seen = []
        while ("exposure", "complete") not in seen:
            line = response.readline().decode()
            if line.startswith("data: "):
                event = json.loads(line[6:])
                seen.append((event["event"], event.get("state", event.get("name"))))
        self.assertLess(seen.index(("property", "gain")), seen.index(("exposure", "running")))
        self.assertIn(("frame", None), seen)
        connection.close()


class Beating(Rest):
    camera_options = ("--heartbeat", "0.01")

    def events(self, last):
        """All from the first one that is kept on, until one says that."""
        connection = self.server.connection()
        self.addCleanup(connection.close)
        connection.request("GET", CAMERA + "/events?since=0")
        response, told = connection.getresponse(), []
        while last not in told[-1:]:
            words = response.readline().decode()
            if words.startswith("data: "):
                event = json.loads(words[6:])
                told.append((event["event"], event.get("value")))
        return told

    def test_heartbeats_do_not_fill_the_history_and_are_heard_live(self):
        beats = 'vxcamd_heartbeats_total{camera="0"}'
        until(lambda: self.server.metric(beats) > 50, "heartbeats")
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 2})
        told = self.events(("property", 2))
        self.assertEqual(told[0][0], "opened")
        self.assertLessEqual(told.count(("heartbeat", None)), 10)
        connection = self.server.connection()
        self.addCleanup(connection.close)
        connection.request("GET", CAMERA + "/events")
        response, heard = connection.getresponse(), 0
        while heard < 30:
            heard += response.readline().startswith(b"event: heartbeat")

    def test_a_history_that_has_lost_its_beginning_says_so(self):
        connection = self.server.connection()
        self.addCleanup(connection.close)
        for number in range(1001):
            connection.request("PUT", CAMERA + "/properties/gain", json.dumps({"value": number % 4}),
                               {"Content-Type": "application/json"})
            self.assertEqual(connection.getresponse().read()[:1], b"{")
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 5})
        told = [event for event in self.events(("property", 5)) if event[0] != "heartbeat"]
        self.assertEqual((told[0], len(told)), (("forgotten", None), 1 + 1000))


class Figures(Rest):
    def test_metrics_count_what_happened(self):
        self.server.expose(exposure=0.001, frames=2)
        self.assertEqual(self.server.metric('vxcamd_frames_total{camera="0",end="complete"}'), 2)
        self.assertEqual(self.server.metric('vxcamd_exposures_total{camera="0",end="complete"}'), 1)
        self.assertEqual(self.server.metric('vxcamd_camera_up{camera="0"}'), 1)
        self.assertGreater(self.server.metric('vxcamd_received_bytes_total{camera="0"}'),
                           2 * 128 * 96 * 2)
        until(lambda: 'place="sensor"' in self.server.get("/metrics").body.decode(), "temperature")

    def test_the_dashboard_and_the_alert_rules_ask_for_figures_that_there_are(self):
        """With the labels that these figures have."""
        self.server.expose(exposure=0.001)
        until(lambda: "place=" in self.server.get("/metrics").body.decode(), "temperature")
        told = {}
        for name, labels in re.findall(r"^(vxcamd_\w+)(?:\{(.*)\})? ",
                                       self.server.get("/metrics").body.decode(), re.MULTILINE):
            told.setdefault(name, set()).update(re.findall(r'(\w+)="', labels))
        docs = os.path.join(os.path.dirname(__file__), "..", "..", "docs")
        with open(os.path.join(docs, "vxcamd-dashboard.json"), encoding="utf-8") as file:
            panels = json.load(file)["panels"]
        asked = [target["expr"] for panel in panels for target in panel["targets"]]
        with open(os.path.join(docs, "operations.md"), encoding="utf-8") as file:
            asked += re.findall(r"^ +expr: (.*)", file.read(), re.MULTILINE)
        self.assertGreater(len(asked), 15)
        for expression in asked:
            figures = re.findall(r"(vxcamd_\w+)(?:\{(.*?)\})?", expression)
            self.assertTrue(figures, expression)
            for name, labels in figures:
                self.assertIn(name, told, expression)
                self.assertLessEqual(set(re.findall(r'(\w+)=~?"', labels)), told[name], expression)

    def test_figures_have_no_more_digits_than_they_need(self):
        for _ in range(10):  # sums of nanoseconds
            text = self.server.get("/metrics").body.decode()
            figure = re.search(r"^vxcamd_http_answer_seconds_sum (.*)", text, re.MULTILINE)[1]
            self.assertLessEqual(len(figure), len("0.123456789"))

    def test_waiting_that_was_asked_for_is_no_time_to_make_an_answer(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 30})
        before = self.server.metric("vxcamd_http_answer_seconds_sum")
        self.assertIs(self.server.get(CAMERA + "/exposures/1?wait=1.5").json["over"], False)
        self.assertLess(self.server.metric("vxcamd_http_answer_seconds_sum") - before, 1)
        self.server.ask("DELETE", CAMERA + "/exposures/1")

    def test_metrics_are_in_prometheus_format(self):
        answer = self.server.get("/metrics")
        self.assertTrue(answer.headers["content-type"].startswith("text/plain; version=0.0.4"))
        kinds, families = {}, []
        for line in answer.body.decode().splitlines():
            if line.startswith("# TYPE "):
                _, _, name, kind = line.split(" ")
                self.assertNotIn(name, kinds)
                kinds[name] = kind
            elif not line.startswith("#"):
                self.assertRegex(line, r'^[a-z_]+(\{[a-z]+="[^"]*"(,[a-z]+="[^"]*")*\})? [-+.0-9e]+$')
                name = line.split("{")[0].split(" ")[0]
                for ending in ("_bucket", "_sum", "_count"):
                    if kinds.get(name.removesuffix(ending)) == "histogram":
                        name = name.removesuffix(ending)
                self.assertIn(name, kinds)
                if not families or families[-1] != name:
                    families.append(name)
        self.assertEqual(len(families), len(set(families)), "a family stands in two places")


if __name__ == "__main__":
    unittest.main()
