"""The device server as a client sees it, without a database."""

import signal
import time
import unittest

import numpy
import tango

from bench import (Camera, Server, check_value, decoded, free_port, reason, wait_end, wait_for, wait_state,
                   without_repeats)


class WithCamera(unittest.TestCase):
    OPTIONS = ()
    SENSOR = "64x48"

    def setUp(self):
        self.camera = Camera(*self.OPTIONS, sensor=self.SENSOR)
        self.addCleanup(self.camera.end)
        self.server = Server(self.camera.target())
        self.addCleanup(self.server.end)
        self.device = self.server.device()
        wait_state(self.device, tango.DevState.ON)

    def take(self, frames=1, exposure=0.01):
        self.device.Exposure = exposure
        self.device.Frames = frames
        self.device.Start()
        return wait_end(self.device)

    def refused(self, why, work, *arguments):
        with self.assertRaises(tango.DevFailed) as caught:
            work(*arguments)
        self.assertEqual(why, reason(caught.exception))
        return caught.exception.args[0].desc


class Acquisitions(WithCamera):
    def test_a_frame_arrives_as_it_was_sent(self):
        self.device.Exposure = 0.05
        before = time.time()
        self.device.Grab()
        self.assertEqual(tango.DevState.ON, wait_end(self.device))
        truth = self.camera.truth(1, 1)
        names = ["image", "FrameSum", "FrameNumber", "FrameComplete", "FrameMissing", "FrameBegin",
                 "FrameMiddle", "FrameEnd", "FrameUncertainty", "FrameTimesFrom", "FrameExposure",
                 "FrameColumns", "FrameRows", "FrameBits"]
        values = {v.name: v.value for v in self.device.read_attributes(names)}
        image = values["image"]
        self.assertEqual((48, 64), image.shape)
        self.assertEqual(truth["crc"], check_value(image.astype("<u2").tobytes()))
        self.assertEqual(truth["sum"], int(image.sum(dtype=numpy.uint64)))
        self.assertEqual(truth["sum"], values["FrameSum"])
        self.assertEqual((1, True, 0), (values["FrameNumber"], values["FrameComplete"],
                                        values["FrameMissing"]))
        self.assertEqual((64, 48, 16), (values["FrameColumns"], values["FrameRows"],
                                        values["FrameBits"]))
        begin = truth["beginRealtime"] / 1e9
        self.assertLessEqual(abs(values["FrameBegin"] - begin), values["FrameUncertainty"] + 1e-6)
        self.assertAlmostEqual(0.05, values["FrameEnd"] - values["FrameBegin"], places=3)
        self.assertAlmostEqual(0.025, values["FrameMiddle"] - values["FrameBegin"], places=3)
        self.assertAlmostEqual(0.05, values["FrameExposure"], places=6)
        self.assertEqual("commanded", values["FrameTimesFrom"])
        self.assertTrue(before - 1 < values["FrameBegin"] < time.time())
        self.assertEqual("complete", self.device.AcquisitionEnd)

    def test_images_of_a_ring_are_read_by_their_index(self):
        self.assertEqual(-1, self.device.last_image_ready)
        self.assertEqual(tango.DevState.ON, self.take(frames=12))
        self.assertEqual(11, self.device.last_image_ready)
        self.assertEqual(8, self.device.FramesHeld)
        for index in range(4, 12):
            header, pixels = decoded(self.device.readImage(index))
            self.assertEqual((2, 64, 48, 16), header)
            self.assertEqual(self.camera.truth(1, index + 1)["crc"], check_value(pixels))
        self.assertEqual(self.device.readImage(11), self.device.readImage(-1))
        self.assertIn("4 to 11 are", self.refused("VxCamera_Usage", self.device.readImage, 3))
        self.refused("VxCamera_Usage", self.device.readImage, 12)
        self.device.prepareAcq()
        self.assertEqual(-1, self.device.last_image_ready)
        self.refused("VxCamera_Usage", self.device.readImage, 0)
        self.assertEqual(tango.AttrQuality.ATTR_INVALID,
                         self.device.read_attribute("image").quality)

    def test_other_widths_have_their_pixels_too(self):
        self.device.Bits = 8
        self.take()
        header, pixels = decoded(self.device.imageEncoded)
        self.assertEqual((2, 64, 48, 8), header)
        self.assertEqual(self.camera.truth(1, 1)["crc"], check_value(pixels))
        self.assertEqual(pixels, self.device.image.astype("u1").tobytes())
        self.device.Bits = 16
        self.device.ReadoutKind = "binned"
        self.device.SimpleBinning = "2,4"
        self.take()
        header, pixels = decoded(self.device.readImage(0))
        self.assertEqual((2, 16, 24, 32), header)
        truth = self.camera.truth(2, 1)
        self.assertEqual(truth["crc"], check_value(pixels))
        self.assertEqual(truth["crc"], check_value(self.device.image32.astype("<u4").tobytes()))
        self.refused("VxCamera_Usage", self.device.read_attribute, "image")

    def test_events_tell_each_frame_and_the_state(self):
        numbers, states = [], []
        ids = [self.device.subscribe_event(name, tango.EventType.CHANGE_EVENT, hear)
               for name, hear in (
                   ("last_image_ready", lambda e: numbers.append(e.err or e.attr_value.value)),
                   ("State", lambda e: states.append(e.err or e.attr_value.value)))]
        self.take(frames=20, exposure=0.02)
        wait_for(lambda: numbers[-1:] == [19] and states[-1:] == [tango.DevState.ON], "events")
        # Tango sends the first event behind a subscription twice.
        self.assertEqual([-1] + list(range(20)), without_repeats(numbers))
        self.assertEqual([tango.DevState.ON, tango.DevState.RUNNING, tango.DevState.ON],
                         without_repeats(states))
        # However short it is, each acquisition is told.
        before = len(states)
        for _ in range(5):
            self.take(exposure=0)
        wait_for(lambda: len(states) == before + 10, "a begin and an end each")
        self.assertEqual([tango.DevState.RUNNING, tango.DevState.ON] * 5, states[before:])
        for number in ids:
            self.device.unsubscribe_event(number)

    def test_aliases_do_what_their_names_do(self):
        self.device.acq_expo_time = 0.02
        self.device.acq_nb_frames = 3
        self.device.acq_trigger_mode = "off"
        self.assertEqual((0.02, 3), (self.device.Exposure, self.device.Frames))
        self.assertEqual(self.device.TriggerMode, self.device.acq_trigger_mode)
        self.device.prepareAcq()
        self.device.startAcq()
        wait_for(lambda: self.device.last_image_ready == 2, "three images")
        self.device.acq_nb_frames = 0
        self.device.startAcq()
        wait_for(lambda: self.device.last_image_ready >= 1, "two images")
        self.device.stopAcq()
        self.assertEqual(tango.DevState.ON, wait_end(self.device, 1))
        self.assertEqual("aborted", self.device.AcquisitionEnd)
        self.assertEqual("", self.device.LastError)

    def test_an_abort_ends_an_exposure_at_once(self):
        self.device.Exposure = 60
        self.device.Grab()
        self.assertEqual(tango.DevState.RUNNING, self.device.state())
        wait_for(lambda: self.device.Phase == "exposing", "the exposure")
        self.refused("VxCamera_Usage", self.device.Start)
        self.refused("VxCamera_Usage", self.device.prepareAcq)
        self.device.Abort()
        self.assertEqual(tango.DevState.ON, wait_end(self.device, 1))
        self.assertEqual("VxCamera_Aborted", self.device.LastErrorReason)
        self.device.Reset()
        self.assertEqual("", self.device.LastError)
        self.assertEqual(tango.DevState.ON, self.take())

    def test_triggers_start_frames(self):
        self.device.TriggerMode = "frame"
        self.device.Exposure = 0.01
        self.device.Frames = 2
        self.device.Start()
        for number in range(2):
            wait_for(lambda: self.device.Phase == "waiting", "the wait for a trigger")
            self.assertEqual(number - 1, self.device.last_image_ready)
            self.device.Trigger = 1
            wait_for(lambda: self.device.last_image_ready == number, "the frame")
        self.assertEqual(tango.DevState.ON, wait_end(self.device))
        self.assertEqual("triggered", self.device.FrameTimesFrom)


class Settings(WithCamera):
    def test_what_is_impossible_is_refused_with_the_kits_reason_and_text(self):
        text = self.refused("VxCamera_Usage", setattr, self.device, "TriggerMode", "sometimes")
        self.assertIn("off|start|frame|exposure", text)
        self.refused("VxCamera_Usage", setattr, self.device, "Exposure", 0.0001)
        self.refused("API_WAttrOutsideLimit", setattr, self.device, "TargetTemp", 1000)
        self.refused("VxCamera_Usage", self.device.GetProperty, "gian")
        for bits in (12, 0, -8):
            self.refused("VxCamera_Usage", setattr, self.device, "Bits", bits)
        self.assertEqual(16, self.device.Bits)
        self.assertEqual(tango.DevState.ON, self.device.state())

    def test_any_property_is_reached_by_its_name_and_key(self):
        self.assertEqual("0x00001234", self.device.SetProperty(["register:0x10", "0x1234"]))
        self.assertEqual("0x00001234", self.device.GetProperty("register:16"))

    def test_cooling_goes_at_its_ramp(self):
        self.device.CoolingRamp = 60
        self.device.Cool(10)
        self.assertEqual("ramping", self.device.CoolingPhase)
        wait_for(lambda: self.device.TargetTemp < 19.9, "the set point to move")
        self.assertGreater(self.device.TargetTemp, 10)
        self.device.CoolingRamp = 0
        self.device.WarmUp()
        wait_for(lambda: not self.device.Cooling, "cooling to be off")

    def test_attributes_say_what_the_table_says(self):
        exposure = self.device.get_attribute_config("Exposure")
        self.assertEqual(("s", "exposure time (property exposure)"),
                         (exposure.unit, exposure.description))
        target = self.device.get_attribute_config("TargetTemp")
        self.assertEqual(("C", -273.0, 273.0),
                         (target.unit, float(target.min_value), float(target.max_value)))
        self.assertEqual(["rolling", "global"],
                         list(self.device.get_attribute_config("CisShutterMode").enum_labels))


class Faults(WithCamera):
    OPTIONS = ("--fault", "missing-packet:readout=1,frame=2,packet=7")

    def test_an_incomplete_frame_is_refused_unless_it_is_wanted(self):
        told = []
        number = self.device.subscribe_event("State", tango.EventType.CHANGE_EVENT,
                                             lambda e: told.append(e.attr_value.value))
        self.assertEqual(tango.DevState.FAULT, self.take(frames=2))
        wait_for(lambda: tango.DevState.FAULT in told, "the event", 1)
        self.device.unsubscribe_event(number)
        self.assertEqual("VxCamera_Incomplete", self.device.LastErrorReason)
        self.assertIn("1 of 48 packets", self.device.LastError)
        self.assertEqual("incomplete", self.device.AcquisitionEnd)
        self.assertEqual((2, False, 1, "6"), (
            self.device.FrameNumber, self.device.FrameComplete, self.device.FrameMissing,
            self.device.FrameMissingRows))
        for name in ("image", "image32", "imageEncoded"):
            self.refused("VxCamera_Incomplete", self.device.read_attribute, name)
        self.refused("VxCamera_Incomplete", self.device.readImage, 1)
        pixels = decoded(self.device.readImage(0))[1]
        self.assertEqual(self.camera.truth(1, 1)["crc"], check_value(pixels))

        self.device.DeliverIncomplete = True
        image = self.device.read_attribute("image")
        self.assertEqual(tango.AttrQuality.ATTR_ALARM, image.quality)
        self.assertEqual(0, image.value[6].sum())
        self.assertEqual(self.camera.truth(1, 2)["sentCrc"],
                         check_value(image.value.astype("<u2").tobytes()))
        self.assertEqual(tango.DevState.ON, self.take())
        self.assertEqual(tango.AttrQuality.ATTR_VALID, self.device.read_attribute("image").quality)

    def test_a_camera_that_is_killed_is_told_within_a_second(self):
        self.device.Exposure = 60
        self.device.Grab()
        wait_for(lambda: self.device.Phase == "exposing", "the exposure")
        port = self.camera.port
        self.camera.end(signal.SIGKILL)
        self.assertEqual(tango.DevState.FAULT, wait_end(self.device, 1))
        self.assertEqual("VxCamera_LinkLost", self.device.LastErrorReason)
        self.assertEqual("link-lost", self.device.AcquisitionEnd)
        self.refused("VxCamera_LinkLost", setattr, self.device, "Gain", 2)
        self.camera = Camera(port=port)
        self.addCleanup(self.camera.end)
        wait_for(lambda: "made anew" not in self.device.status(), "the link")
        # What was on its way when the connection was lost is waited for as long as the library does.
        wait_for(lambda: self.takes("Exposure", 0.01), "the end of earlier questions", 12)
        self.assertEqual(tango.DevState.ON, self.take())
        self.assertEqual(self.camera.truth(1, 1)["sum"], self.device.FrameSum)

    def takes(self, name, value):
        try:
            self.device.write_attribute(name, value)
        except tango.DevFailed:
            return False
        return True


class Silence(WithCamera):
    OPTIONS = ("--fault", "half-open:readout=1,packet=20")

    def test_nobody_waits_long_for_a_camera_that_says_nothing(self):
        self.device.Timeout = 1
        self.device.Exposure = 0.01
        self.device.Grab()
        wait_for(lambda: self.camera.events["fault"], "the fault")
        struck = time.monotonic()
        self.refused("VxCamera_Timeout", self.device.read_attribute, "Gain")
        self.assertLess(time.monotonic() - struck, 2.5)
        wait_state(self.device, tango.DevState.FAULT, seconds=3)
        before = time.monotonic()
        self.refused("VxCamera_Timeout", self.device.read_attribute, "Gain")
        self.device.state()
        self.assertEqual("timed-out", self.device.AcquisitionEnd)
        self.refused("VxCamera_Timeout", self.device.Start)
        self.assertEqual(tango.DevState.FAULT, self.device.state())
        self.assertLess(time.monotonic() - before, 1.5)
        self.assertEqual(tango.AttrQuality.ATTR_INVALID,
                         self.device.read_attribute("image").quality)


class Beginning(WithCamera):
    OPTIONS = ("--fault", "no-answer:id=0x7A,times=0")  # to what it is asked before the first exposure

    def test_an_acquisition_that_cannot_begin_does_not_keep_init_waiting(self):
        self.device.Grab()
        self.assertEqual(tango.DevState.RUNNING, self.device.state())
        before = time.monotonic()
        self.device.Init()
        wait_state(self.device, tango.DevState.ON)
        self.assertLess(time.monotonic() - before, 2)

    def test_a_server_ends_in_order_while_one_cannot_begin(self):
        self.device.Grab()
        self.server.end()
        self.assertEqual(0, self.server.process.returncode, self.server.log)


class Targets(unittest.TestCase):
    def test_a_device_without_a_target_says_what_to_do(self):
        server = Server(devices=1)
        self.addCleanup(server.end)
        device = server.device()
        wait_state(device, tango.DevState.OFF)
        self.assertIn("set the device property Target", device.status())
        for work in (device.Grab, lambda: device.Gain, lambda: setattr(device, "Gain", 2)):
            with self.assertRaises(tango.DevFailed) as caught:
                work()
            self.assertEqual("VxCamera_NotFound", reason(caught.exception))

    def test_a_target_that_is_none_says_what_to_do(self):
        server = Server("host")
        self.addCleanup(server.end)
        device = server.device()
        wait_state(device, tango.DevState.FAULT)
        self.assertIn("target 'host': write HOST:PORT", device.status())
        self.assertIn("Set the device property Target, then call Init", device.status())

    def test_settings_wait_for_a_camera_that_comes_later(self):
        port = free_port()
        server = Server("127.0.0.1:%d" % port)
        self.addCleanup(server.end)
        device = server.device()
        wait_state(device, tango.DevState.OFF)
        device.Gain = 3
        with self.assertRaises(tango.DevFailed):
            device.Trigger = 1
        camera = Camera(port=port)
        self.addCleanup(camera.end)
        wait_state(device, tango.DevState.ON)
        self.assertEqual(3, device.Gain)

    def test_each_device_has_its_own_camera(self):
        cameras = [Camera(sensor="32x%d" % rows) for rows in (16, 24)]
        for camera in cameras:
            self.addCleanup(camera.end)
        server = Server(*[camera.target() for camera in cameras], "127.0.0.1:1")
        self.addCleanup(server.end)
        for number, rows in ((1, 16), (2, 24)):
            device = server.device(number)
            wait_state(device, tango.DevState.ON)
            device.Exposure = 0.01
            device.Grab()
            wait_end(device)
            self.assertEqual(rows, device.image.shape[0])
            self.assertEqual(cameras[number - 1].truth(1, 1)["sum"], device.FrameSum)
        missing = server.device(3)
        wait_state(missing, tango.DevState.OFF)
        self.assertIn("tried again", missing.status())
        with self.assertRaises(tango.DevFailed) as caught:
            missing.Start()
        self.assertEqual("VxCamera_NotFound", reason(caught.exception))

    def test_init_opens_the_camera_anew_with_its_settings(self):
        camera = Camera()
        self.addCleanup(camera.end)
        server = Server(camera.target())
        self.addCleanup(server.end)
        device = server.device()
        wait_state(device, tango.DevState.ON)
        device.Gain = 4
        device.SetProperty(["auto-rearm", "off"])
        device.Init()
        wait_state(device, tango.DevState.ON)
        wait_for(lambda: len(camera.events["connected"]) == 2, "the second connection")
        self.assertEqual((4, False), (device.Gain, device.AutoRearm))

    def test_a_server_that_ends_lets_its_camera_go(self):
        camera = Camera()
        self.addCleanup(camera.end)
        server = Server(camera.target())
        wait_state(server.device(), tango.DevState.ON)
        server.end()
        self.assertEqual(0, server.process.returncode)
        wait_for(lambda: camera.events["disconnected"], "the camera to be free", 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
