"""The device server with its database: what is memorised, what a restart leaves, 100 frames."""

import contextlib
import io
import os
import re
import signal
import threading
import time
import unittest

import numpy
import tango

from bench import (Camera, check_value, decoded, wait_end, wait_for, wait_state, without_repeats)
from database import Database, Registered

DEVICE = "lab/camera/1"
DOCS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs")

# A value for each attribute that can be written, in an order that a camera takes, and what is read
# then where that is another.
MASK = numpy.tile(numpy.arange(4, dtype=numpy.uint8), 768)
TIMING = numpy.arange(4356, dtype=numpy.uint32).astype(numpy.uint8)
VALUES = {
    "ExposureEx": 250,  # of this and the next two, the last one counts
    "acq_expo_time": 0.5,
    "Exposure": 0.125,
    "ShutterParams": "5,6,7",
    "ShutterOverride": "0,1",
    "AreaRegions": "0,0,16,8/16,8,16,8",
    "Area": "8,4,32,16",
    "ImageInterval": 0.5,
    "Mirroring": "on,off",
    "Shearing": "1,2,3,4",
    "TestPattern": "4,100",
    "Offset": "900,on",
    "Recording": "1,2,3,night",
    "SimpleBinning": "2,4,0.5",
    "BinningSequence": "2,3/4,5",
    "BinMask": MASK,
    "Cooling": True,
    "TargetTemp": -12.5,
    "Fan": False,
    "Pid": "1.5,2.5,3.5",
    "Trigger": 1,
    "acq_trigger_mode": ("start", "start,0,0"),
    "TriggerMode": "frame,3,-4",
    "AutoRearm": False,
    "Gain": 5,
    "Filter": "on,off",
    "CisShutterMode": 1,
    "CisChannel": 2,
    "CisCalibrate": 1,
    "NetworkConfig": ("1,2,3,4,5,6",
                      "0x00000001,0x00000002,0x00000003,0x00000004,0x00000005,6"),
    "HardwareInfo": None,  # the camera keeps some of it: see below
    "TimingData": TIMING,
    "Register16": 0x1234,
    "Gpio3": 1,
    "Dac7": "4000,1",
    "Parameter77": 4000000000,
    "ParameterInt78": -5,
    "ParameterFloat79": 1.5,
    "ParameterText80": "a, b",
    "ParameterBytes81": numpy.array([1, 2, 255], numpy.uint8),
    "acq_nb_frames": 3,
    "Frames": 7,
    "Bits": 8,
    "ReadoutMode": 1,
    "ReadoutKind": 1,
    "FrameType": 3,
    "Timeout": 2.5,
    "CoolingRamp": 12.0,
    "DeliverIncomplete": True,
}
VALUES.update({table + str(i): numpy.array([0, 1, i], numpy.uint8)
               for table in ("BinTable", "HorBinTable") for i in range(8)})
KEYED = ["register:0x10", "gpio:3", "dac:7", "parameter:77", "parameter-int:78",
         "parameter-float:79", "parameter-text:80", "parameter-bytes:81"]


def setUpModule():
    global database
    database = Database()


def tearDownModule():
    database.end()


class WithServer(unittest.TestCase):
    OPTIONS = ()

    def setUp(self):
        self.camera = Camera(*self.OPTIONS)
        self.addCleanup(lambda: self.camera.end())
        self.server = Registered({DEVICE: {"Target": [self.camera.target()], "Keyed": KEYED,
                                           "RetrySeconds": ["0.5"]}})
        self.addCleanup(self.forget)
        self.device = tango.DeviceProxy(DEVICE)
        wait_state(self.device, tango.DevState.ON)

    def forget(self):
        self.server.end()
        known = tango.Database()
        for name in self.device_attributes:
            known.delete_device_attribute_property(DEVICE, {name: ["__value"]})
        known.delete_device(DEVICE)

    @property
    def device_attributes(self):
        return list(VALUES)

    def check_read(self, name, expected):
        value = self.device.read_attribute(name)
        self.assertEqual(tango.AttrQuality.ATTR_VALID, value.quality, name)
        if isinstance(expected, numpy.ndarray):
            self.assertEqual(list(expected), list(value.value[:len(expected)]), name)
        elif isinstance(expected, float):
            self.assertAlmostEqual(expected, value.value, places=4, msg=name)
        else:
            self.assertEqual(expected, value.value, name)


def written(name):
    value = VALUES[name]
    return value if isinstance(value, tuple) else (value, value)


class EveryAttribute(WithServer):
    OPTIONS = ("--trace",)

    def configs(self):
        names = set(self.device.get_attribute_list()) - {"State", "Status"}
        return {c.name: c for c in self.device.get_attribute_config_ex(sorted(names))}

    def test_is_written_and_read_and_memorised(self):
        configs = self.configs()
        can_be_written = {name for name, config in configs.items()
                          if config.writable != tango.AttrWriteType.READ}
        self.assertEqual(set(VALUES), can_be_written)
        VALUES["HardwareInfo"] = self.device.HardwareInfo
        for name in VALUES:
            before = len(self.camera.events["trace"])
            self.device.write_attribute(name, written(name)[0])
            if configs[name].writable == tango.AttrWriteType.WRITE:
                wait_for(lambda: len(self.camera.events["trace"]) > before, name)
            self.check_read(name, written(name)[1])
        self.restart_camera_and_server()
        memorised = [name for name, config in configs.items()
                     if str(config.memorized) == "MEMORIZED_WRITE_INIT"]
        self.assertGreater(len(memorised), 25)
        for name in memorised:
            self.check_read(name, written(name)[1])

    def restart_camera_and_server(self):
        port = self.camera.port
        self.server.end()
        self.camera.end()
        self.camera = Camera(*self.OPTIONS, port=port)
        self.server.start()
        wait_for(lambda: self.answers(), "the server")
        wait_state(self.device, tango.DevState.ON)

    def answers(self):
        try:
            return self.device.ping()
        except tango.DevFailed:
            return None

    def test_can_be_read_and_is_described(self):
        wait_for(lambda: self.device.read_attribute("CcdTemp").quality ==
                 tango.AttrQuality.ATTR_VALID, "a heartbeat")
        self.device.Exposure = 0.01
        self.device.Grab()
        wait_end(self.device)
        with open(os.path.join(DOCS, "tango.md")) as page:
            described = set(re.findall(r"`(\w+)", page.read()))
        with open(os.path.join(DOCS, "properties.md")) as page:
            described |= set(re.findall(r"`(\w+)", page.read()))
        for name, config in self.configs().items():
            self.assertIn(re.sub(r"\d+$", "", name) if name not in described else name, described)
            self.assertNotIn("No description", config.description, name)
            value = self.device.read_attribute(name) if self.can_be_read(name) else None
            if value is not None and not re.match(r"(Hor)?BinTable\d", name):
                self.assertEqual(tango.AttrQuality.ATTR_VALID, value.quality, name)
        commands = {c.cmd_name for c in self.device.command_list_query()}
        self.assertEqual(set(), commands - described - {"State", "Status"})

    # What nothing was written to yet, a camera does not have.
    @staticmethod
    def can_be_read(name):
        return not name.startswith("Parameter")


class HundredFrames(WithServer):
    def setUp(self):
        super().setUp()
        self.device.Exposure = 0.02
        self.device.Frames = 100

    def take(self, readout, on_image=lambda index: None):
        numbers = []
        event = self.device.subscribe_event("last_image_ready", tango.EventType.CHANGE_EVENT,
                                            lambda e: e.err or numbers.append(e.attr_value.value))
        self.device.Start()
        for index in range(100):
            wait_for(lambda: self.device.last_image_ready >= index, "image %d" % index)
            header, pixels = decoded(self.device.readImage(index))
            truth = self.camera.truth(readout, index + 1)
            self.assertEqual(((2, 64, 48, 16), truth["crc"]), (header, check_value(pixels)))
            self.assertEqual(truth["sum"], int(numpy.frombuffer(pixels, "<u2").sum(dtype="u8")))
            on_image(index)
        self.assertEqual(tango.DevState.ON, wait_end(self.device))
        wait_for(lambda: numbers[-1:] == [99], "the last event")
        self.device.unsubscribe_event(event)
        self.assertEqual([-1, *range(100)], without_repeats(numbers))

    def test_arrive_as_they_were_sent_while_the_database_restarts(self):
        restart = threading.Thread(target=database.restart)
        self.take(1, lambda index: restart.start() if index == 30 else None)
        restart.join()
        self.device.Gain = 6
        kept = tango.Database().get_device_attribute_property(DEVICE, "Gain")
        self.assertEqual(["6"], list(kept["Gain"]["__value"]))

    def test_arrive_after_the_server_was_killed_among_them(self):
        self.device.Gain = 2
        self.device.Start()
        wait_for(lambda: self.device.last_image_ready >= 40, "image 40")
        self.server.end(signal.SIGKILL)
        with self.assertRaises(tango.DevFailed):
            self.device.last_image_ready
        self.server.start()
        wait_for(lambda: self.started(), "the server")
        self.assertEqual((2, 100), (self.device.Gain, self.device.Frames))
        self.assertEqual(-1, self.device.last_image_ready)
        self.take(2)

    def started(self):
        try:
            return self.device.state() == tango.DevState.ON
        except tango.DevFailed:
            return False


class AnotherCamera(WithServer):
    """What was memorised, and a camera that does not take all of it."""

    def setUp(self):
        super().setUp()
        for i in range(2, 8):  # which take the time in which the camera is opened
            info = tango.DbDevInfo()
            info.server, info._class, info.name = "VxCamera/test", "VxCamera", "lab/camera/%d" % i
            tango.Database().add_device(info)
            self.addCleanup(tango.Database().delete_device, info.name)

    def restart(self, is_camera_first):
        port = self.camera.port
        self.server.end()
        self.camera.end()
        if is_camera_first:
            self.camera = Camera(sensor="32x24", port=port)
        self.server.start()
        if not is_camera_first:
            self.camera = Camera(sensor="32x24", port=port)

    def test_tells_what_is_not_set_as_before(self):
        for is_camera_first in (True, False):
            with self.subTest(is_camera_first=is_camera_first):
                self.device.Area = "0,0,20,10"
                self.device.Gain = 3
                known = tango.Database()
                known.put_device_attribute_property(DEVICE, {"Area": {"__value": ["40,30,20,10"]}})
                self.restart(is_camera_first)
                wait_state(self.device, tango.DevState.FAULT)
                wait_for(lambda: "not set as before: area: reaches beyond" in self.device.status(),
                         "the area to be told: " + self.device.status())
                self.assertEqual(3, self.device.Gain)
                self.device.Grab()
                self.assertEqual(tango.DevState.ON, wait_end(self.device))
                self.assertEqual((24, 32), self.device.image.shape)


class NoCamera(WithServer):
    def test_is_tried_again_as_often_as_the_status_says(self):
        port = self.camera.port
        self.camera.end()
        self.device.Init()
        wait_state(self.device, tango.DevState.OFF)
        self.assertIn("It is tried again every 0.5 s.", self.device.status())
        self.camera = Camera(port=port)
        wait_state(self.device, tango.DevState.ON, seconds=4)

    def test_properties_that_there_are_not_are_told_together(self):
        tango.Database().put_device_property(DEVICE, {"Keyed": ["nix:1", "gpio:3", "register"]})
        self.device.Init()
        self.assertIn("nix", self.device.LastError)
        self.assertIn("write register:ADDRESS", self.device.LastError)


class Events(WithServer):
    def test_of_an_end_comes_behind_that_of_the_state(self):
        told = []
        for name in ("State", "AcquisitionEnd"):
            number = self.device.subscribe_event(
                name, tango.EventType.CHANGE_EVENT,
                lambda e: told.append(e.err or str(e.attr_value.value)))
            self.addCleanup(self.device.unsubscribe_event, number)
        wait_for(lambda: len(told) >= 4, "the first ones")
        told.clear()
        self.device.Grab()
        wait_for(lambda: told[-1:] == ["complete"], "the last one")
        self.assertEqual(["RUNNING", "running", "ON", "complete"], without_repeats(told))


class Page(unittest.TestCase):
    def test_does_what_it_says(self):
        camera = Camera()
        self.addCleanup(camera.end)
        with open(os.path.join(DOCS, "tango.md")) as page:
            register, frames, picture, events = re.findall(r"```python\n(.*?)```", page.read(),
                                                           re.DOTALL)
        names = {}
        exec(register.replace("192.168.1.20:2000", camera.target()), names)
        server = Registered({}, "dome")
        self.addCleanup(server.end)
        device = tango.DeviceProxy("dome/camera/1")
        wait_state(device, tango.DevState.ON)
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            exec(frames, names)
            sums = ["%d %d" % (i, camera.truth(1, i + 1)["sum"]) for i in range(10)]
            self.assertEqual(sums, printed.getvalue().splitlines())
            wait_state(device, tango.DevState.ON)
            exec(picture, names)
            self.assertEqual(camera.truth(2, 1)["sum"], int(names["image"].sum(dtype="u8")))
            self.assertLess(abs(names["begin"] - camera.truth(2, 1)["beginRealtime"] / 1e9),
                            names["uncertainty"] + 1e-6)
            exec(events, names)
            wait_for(lambda: "image 0" in printed.getvalue(), "what the event prints")


if __name__ == "__main__":
    unittest.main(verbosity=2)
