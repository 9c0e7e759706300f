"""Each kind of fault of a camera, as a client of its device meets it: the frame that arrived is the
frame that was sent, or the client was told, in time."""

import os
import re
import time
import unittest

import tango

from bench import Camera, check_value, decoded, wait_for
from database import Database, Registered

DEVICE = "lab/camera/1"
PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "simulator.md")
FRAMES = 3
TIMEOUT = 1    # s, silence that is allowed
QUESTION = 10  # s, until the kit gives it up
KIT = 1        # s, from the moment when it is known to the client

# What has to come of a fault: the frames, all as they were sent; or a word of trouble, so many
# seconds after the fault struck, or, without these, after the last frame was sent; or either.
GOOD, TOLD, EITHER = "good", "told", "either"
AT = "readout=1,frame=2,packet=20"
FAULTS = [
    ("close:" + AT, TOLD, KIT),
    ("close-header:" + AT, TOLD, KIT),
    ("close-payload:" + AT, TOLD, KIT),
    ("reset:" + AT, TOLD, KIT),
    ("half-open:" + AT, TOLD, TIMEOUT + KIT),
    ("stall:seconds=0.5," + AT, GOOD, None),
    ("stall:seconds=4," + AT, TOLD, TIMEOUT + KIT),
    ("drip:rate=20000,seconds=0.5," + AT, GOOD, None),
    ("stop-reading:time=0.5", EITHER, None),
    ("truncate:" + AT, TOLD, None),
    ("over-long:" + AT, TOLD, None),
    ("zero-length:" + AT, TOLD, None),
    ("flip-header:bit=3," + AT, TOLD, None),
    ("flip-header:count=3," + AT, EITHER, None),
    ("flip-payload:" + AT, EITHER, None),
    ("wrong-version:" + AT, TOLD, None),
    ("unknown-id:" + AT, TOLD, None),
    ("garbage:" + AT, EITHER, None),
    ("duplicate-answer", EITHER, None),
    ("duplicate-answer:message=9,count=3", EITHER, None),
    ("late-answer:message=9", EITHER, None),
    ("wrong-answer:message=9", EITHER, None),
    ("short-answer:message=9", EITHER, None),
    ("no-answer:message=9", EITHER, None),
    ("missing-packet:" + AT, TOLD, None),
    ("duplicate-packet:" + AT, GOOD, None),
    ("reorder:" + AT, GOOD, None),
    ("outside:" + AT, TOLD, None),
    ("changed-total:" + AT, EITHER, None),
    ("no-last-frame:readout=1,frame=3", EITHER, None),
    ("endless:readout=1", EITHER, None),
    ("refuse:connection=1", EITHER, None),
    ("reboot:" + AT, TOLD, KIT),
    ("reboot-resized:rows=32,columns=32," + AT, TOLD, KIT),
    ("cooler-failure", GOOD, None),
    ("error-storm:" + AT, TOLD, KIT),
    ("heartbeat-stop", GOOD, None),
    ("discovery-conflict", GOOD, None),
]


def setUpModule():
    global database, server, device
    database = Database()
    server = Registered({DEVICE: {"Target": ["127.0.0.1:1"], "RetrySeconds": ["0.3"]}})
    device = tango.DeviceProxy(DEVICE)
    device.set_timeout_millis(30000)


def tearDownModule():
    server.end()
    database.end()


def kinds_of_the_page():
    with open(PAGE) as page:
        table = page.read().split("### Kinds", 1)[1].split("###", 1)[0]
    return set(re.findall(r"^\| `([a-z-]+)` \|", table, re.MULTILINE))


class EveryFault(unittest.TestCase):
    def test_is_in_the_table(self):
        kinds = {text.split(":")[0] for text, _, _ in FAULTS}
        self.assertEqual(35, len(kinds))
        self.assertEqual(kinds_of_the_page(), kinds)

    def test_is_told_or_leaves_the_frames_as_they_were_sent(self):
        chosen = os.environ.get("VX_FAULTS", "").split()
        for text, expected, seconds in FAULTS:
            if chosen and text.split(":")[0] not in chosen:
                continue
            with self.subTest(fault=text):
                camera = Camera("--fault", text)
                try:
                    self.meet(camera, expected, seconds)
                finally:
                    camera.end()

    def meet(self, camera, expected, seconds):
        self.open(camera)
        outcome, told_at = self.acquire(camera)
        if expected != EITHER:
            self.assertEqual(expected, outcome, device.LastError)
        if expected == TOLD:
            known = camera.events["frame"][-1] if seconds is None else camera.events["fault"][0]
            self.assertLess(told_at - known["heard"], seconds or KIT)
        # And after it: whatever it was, the frames of the next acquisition are its own.
        end = time.monotonic() + 3
        while device.state() not in (tango.DevState.ON,) and time.monotonic() < end:
            device.Reset()
            time.sleep(0.05)
        if device.state() == tango.DevState.ON:
            self.acquire(camera)

    def open(self, camera):
        database.connection().put_device_property(DEVICE, {"Target": [camera.target()]})
        device.Init()
        wait_for(lambda: device.state() != tango.DevState.INIT, "the camera", 15)
        device.Timeout = TIMEOUT
        device.Frames = FRAMES
        try:
            device.Exposure = 0.05
        except tango.DevFailed:
            pass  # told

    def acquire(self, camera):
        """What became of an acquisition, and when that was known."""
        try:
            device.Start()
        except tango.DevFailed as failure:
            self.assertRegex(failure.args[0].reason, "^VxCamera_")
            self.assertTrue(failure.args[0].desc)
            return TOLD, time.monotonic()
        end = time.monotonic() + 12
        while device.state() == tango.DevState.RUNNING and time.monotonic() < end:
            time.sleep(0.01)
        told_at = time.monotonic()
        if device.state() == tango.DevState.RUNNING:
            device.Abort()
            # At once, but for one that has not begun yet: two questions may be in vain first.
            wait_for(lambda: device.state() != tango.DevState.RUNNING, "the abort", 2 * QUESTION + 2)
        delivered = self.check_images(camera)
        end, error = device.AcquisitionEnd, device.LastError
        if end != "complete":
            self.assertTrue(error)
            self.assertRegex(device.LastErrorReason, "^VxCamera_")
            return TOLD, told_at
        self.assertEqual(list(range(FRAMES)), delivered)
        return GOOD, told_at

    def check_images(self, camera):
        """The indices of images that are given as good; each is as the camera sent it, in the
        latest readout."""
        delivered = []
        for index in range(FRAMES + 1):
            try:
                pixels = decoded(device.readImage(index))[1]
            except tango.DevFailed as failure:
                self.assertIn(failure.args[0].reason, ("VxCamera_Usage", "VxCamera_Incomplete"))
                continue
            readout = max(number for number, _ in camera.frames)
            truth = camera.truth(readout, index + 1)
            self.assertEqual(truth["sentCrc"], check_value(pixels), "image %d" % index)
            delivered.append(index)
        return delivered


if __name__ == "__main__":
    unittest.main(verbosity=2)
