"""One law, for every kind of fault that a camera can have: the frame that arrives is the frame that was
sent, or the client is told. Told means: the property is Alert, with a reason, and no BLOB came."""
import os
import re
import time
import unittest

import indi_support
from indi_support import DriverTest

AT_PACKET = "readout=1,packet=10"
AT_ANSWER = "message=30"  # while the camera is asked what it is set to

# Kind: arguments, and how an exposure ends that it strikes: with a frame, with an alert, or with one
# of them, as chance will have it.
FAULTS = {
    "close": (AT_PACKET, "alert"),
    "close-header": (AT_PACKET, "alert"),
    "close-payload": (AT_PACKET, "alert"),
    "reset": (AT_PACKET, "alert"),
    "half-open": (AT_PACKET, "alert"),
    "stall": (AT_PACKET + ",seconds=1", "frame"),
    "drip": (AT_PACKET + ",rate=2000,seconds=1", "frame"),
    "stop-reading": (AT_PACKET + ",seconds=1", "frame"),
    "truncate": (AT_PACKET, "alert"),
    "over-long": (AT_PACKET, "alert"),
    "zero-length": (AT_PACKET, "alert"),
    "flip-header": (AT_PACKET, "either"),
    "flip-payload": (AT_PACKET, "either"),
    "wrong-version": (AT_PACKET, "alert"),
    "unknown-id": (AT_PACKET, "alert"),
    "garbage": (AT_PACKET, "frame"),
    "duplicate-answer": (AT_ANSWER, "frame"),
    "late-answer": (AT_ANSWER, "either"),
    "wrong-answer": (AT_ANSWER, "either"),
    "short-answer": (AT_ANSWER, "either"),
    "no-answer": (AT_ANSWER, "either"),
    "missing-packet": (AT_PACKET, "alert"),
    "duplicate-packet": (AT_PACKET, "frame"),
    "reorder": (AT_PACKET, "frame"),
    "outside": (AT_PACKET, "alert"),
    "changed-total": (AT_PACKET, "either"),
    "no-last-frame": ("readout=1", "either"),
    "endless": ("readout=1", "either"),
    "refuse": ("connection=1", "frame"),
    "reboot": (AT_PACKET + ",seconds=1", "alert"),
    "reboot-resized": (AT_PACKET + ",seconds=1", "alert"),
    "cooler-failure": (AT_PACKET, "frame"),
    "error-storm": (AT_PACKET + ",count=3", "alert"),
    "heartbeat-stop": (AT_PACKET, "frame"),
    "discovery-conflict": ("", "either"),
}
EXPOSURE = 0.2  # s
# s, that the kit waits before it gives a camera up: within a frame, and for an answer.
SILENCE = {"half-open": 20, "wrong-answer": 10, "no-answer": 10}
KIT = 1  # s, from the moment when it knows until the client is told
MOST = 60  # s, for an exposure to end


class Law(DriverTest):
    sensor = "64x48"

    def setUp(self):
        super().setUp()
        self.a_client = self.client(self.server())

    def connect_to(self, camera):
        """Also where that fails at first, which must be told."""
        client = self.a_client
        address = {"ADDRESS": "127.0.0.1", "PORT": str(camera.port)}
        if "discovery" in " ".join(camera.process.args):
            address = {"ADDRESS": "serial:1", "PORT": ""}
        client.change("DEVICE_ADDRESS", address)
        for _ in range(3):
            vector = client.change("CONNECTION", {"CONNECT": True}, ("Ok", "Alert"), MOST)
            if vector.state == "Ok":
                client.send(f"<enableBLOB device='{client.device}'>Also</enableBLOB>")
                client.vector("CCD_EXPOSURE")
                return
            self.assertTrue(vector.messages[-1])
        self.fail(f"it never connects: {vector.messages[-1]}")

    def outcome(self):
        client = self.a_client
        vector = client.vector("CCD_EXPOSURE")
        client.blobs.clear()
        count, before = len(vector.messages), len(vector.history)
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": EXPOSURE})
        client.wait(lambda: vector.state == "Busy" or len(vector.messages) > count, "begun", MOST)
        client.wait(lambda: vector.state != "Busy" and (vector.state == "Alert" or client.blobs),
                    "the exposure ends", MOST)
        ended = time.monotonic()
        client.pump(0.2)
        left = [values["CCD_EXPOSURE_VALUE"] for state, values in vector.history[before:] if state == "Busy"]
        self.assertEqual(left, sorted(left, reverse=True), "it does not count down")
        if vector.state == "Alert":
            self.assertEqual(client.blobs, [], "a frame that nobody vouches for")
            self.assertTrue(vector.messages[-1])
            return "alert", vector.messages[-1], ended
        return "frame", "", ended

    def test_the_frame_that_arrives_is_the_frame_that_was_sent_or_the_client_is_told(self):
        chosen = os.environ.get("VX_FAULTS", " ".join(FAULTS)).split()
        for kind, (arguments, expected) in ((kind, FAULTS[kind]) for kind in chosen):
            with self.subTest(kind):
                try:
                    self.strike(kind, arguments, expected)
                finally:
                    self.a_client.change("CONNECTION", {"DISCONNECT": True}, "Idle")

    def strike(self, kind, arguments, expected):
        options = ["--fault", f"{kind}:{arguments}".rstrip(":")]
        if kind == "discovery-conflict":
            options.append("--discovery")
        camera = self.camera(*options)
        client = self.a_client
        self.connect_to(camera)
        began = time.monotonic()
        how, why, ended = self.outcome()
        print(f"{kind:20} {how:6} {ended - began:5.1f} s  {why}", flush=True)
        if expected in ("frame", "alert"):
            self.assertEqual(how, expected, why)
        if how == "frame":
            total, check, header = client.blobs[-1].truth()
            self.assertEqual(camera.sent(check, "sentCrc")["sentSum"], total)
            self.assertIs(header["COMPLETE"], True)
        else:
            self.assertLess(ended - began, EXPOSURE + SILENCE.get(kind, 0) + KIT)
        # And the next one is good, as soon as the camera is there again. A connection on which it
        # never says anything again is made anew by the observer.
        if kind == "half-open":
            client.change("CONNECTION", {"DISCONNECT": True}, "Idle")
            self.connect_to(camera)
        deadline = time.monotonic() + MOST
        while self.outcome()[0] != "frame":
            self.assertLess(time.monotonic(), deadline, "no frame any more")
            client.pump(0.5)
        total, check, _ = client.blobs[-1].truth()
        self.assertEqual(camera.sent(check, "crc")["sum"], total)

    def test_a_camera_that_dies_in_an_exposure_is_told_and_taken_back(self):
        camera = self.camera()
        self.connect_to(camera)
        client = self.a_client
        exposure = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 600}, "Busy")
        client.wait(lambda: 0 < exposure.values["CCD_EXPOSURE_VALUE"] < 599.5, "it counts down")
        camera.close()
        died = time.monotonic()
        client.wait(lambda: exposure.state == "Alert", "the end is told")
        self.assertLess(time.monotonic() - died, KIT)
        self.assertIn("connection was lost", exposure.messages[-1])
        self.assertEqual(client.blobs, [])
        connection = client.vector("CONNECTION")
        client.wait(lambda: connection.state == "Alert", "so is the link's")
        again = self.camera(port=camera.port)
        client.wait(lambda: connection.state == "Ok" and "restored" in connection.messages[-1],
                    "the link is back", MOST)
        self.assert_true_frame(client.expose(), again)

    def test_the_table_has_every_kind_of_fault(self):
        with open(indi_support.page("simulator.md")) as file:
            section = file.read().split("### Kinds")[1].split("###")[0]
        kinds = set(re.findall(r"^\| `([a-z-]+)` \|", section, re.MULTILINE))
        self.assertEqual(set(FAULTS), kinds)


if __name__ == "__main__":
    unittest.main()
