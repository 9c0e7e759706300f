"""States and ends as clients see them who wait for either, and what a lost link leaves behind."""

import signal
import socket
import time
import unittest

import tango

from bench import Camera, wait_end, wait_for, wait_state
from small_test import WithCamera

ON, RUNNING, FAULT = tango.DevState.ON, tango.DevState.RUNNING, tango.DevState.FAULT


class Ends(WithCamera):
    def test_is_running_as_long_as_the_state_is(self):
        self.assertEqual("", self.device.AcquisitionEnd)
        for _ in range(2):
            self.device.Exposure = 0.3
            self.device.Grab()
            self.assertEqual("running", self.device.AcquisitionEnd)
            self.assertEqual(RUNNING, self.device.state())
            wait_end(self.device)
            self.assertEqual("complete", self.device.AcquisitionEnd)

    def test_is_told_when_the_state_is_no_longer_running(self):
        self.device.Exposure = 0
        for _ in range(100):
            self.device.Grab()
            end = wait_for(lambda: self.device.AcquisitionEnd.replace("running", ""), "the end")
            self.assertEqual(("complete", ON), (end, self.device.state()))
            self.device.Grab()
            wait_end(self.device)
            self.assertEqual("complete", self.device.AcquisitionEnd)


class Links(WithCamera):
    def lose(self):
        self.port = self.camera.port
        self.camera.end(signal.SIGKILL)
        wait_state(self.device, FAULT)

    def come_back(self):
        self.camera = Camera(port=self.port)
        self.addCleanup(self.camera.end)

    def check_good(self):
        self.assertEqual(ON, self.take())
        self.assertEqual(self.camera.truth(len(self.camera.events["readout"]), 1)["sum"],
                         self.device.FrameSum)
        self.assertNotIn("lost", self.device.status())

    def test_a_refused_grab_leaves_no_fault_behind(self):
        self.take()
        self.lose()
        self.refused("VxCamera_LinkLost", self.device.Grab)
        self.refused("VxCamera_LinkLost", self.device.Start)
        self.assertEqual(FAULT, self.device.state())
        self.assertIn("made anew as soon as", self.device.status())
        self.come_back()
        wait_state(self.device, ON)
        self.assertRegex(self.device.status(), "is ready. The connection was lost at 20.* UTC, and is "
                         "back since 20.* UTC")
        self.assertEqual("VxCamera_LinkLost", self.device.LastErrorReason)
        self.assertEqual("", self.device.AcquisitionEnd)
        self.check_good()

    def test_an_acquisition_that_ended_with_it_stays_a_fault_that_says_what_to_do(self):
        self.device.Exposure = 60
        self.device.Grab()
        wait_for(lambda: self.device.Phase == "exposing", "the exposure")
        self.lose()
        self.come_back()
        wait_for(lambda: "is back since" in self.device.status(), "the link")
        self.assertIn("Start, Grab and Reset end this fault", self.device.status())
        self.assertEqual((FAULT, "link-lost"), (self.device.state(), self.device.AcquisitionEnd))
        self.check_good()

    def test_a_camera_that_takes_the_connection_and_is_silent_is_not_back(self):
        self.lose()
        with socket.create_server(("127.0.0.1", self.port)) as listener:
            listener.settimeout(20)
            silent = listener.accept()[0]
        with silent:
            silent.settimeout(20)
            self.assertTrue(silent.recv(12), "it is asked something")
            end = time.monotonic() + 0.5
            while time.monotonic() < end:
                self.assertEqual(FAULT, self.device.state())
                self.refused("VxCamera_LinkLost", self.device.Grab)
        self.come_back()
        wait_state(self.device, ON)
        self.check_good()


if __name__ == "__main__":
    unittest.main(verbosity=2)
