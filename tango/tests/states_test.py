"""States and ends, as clients see them who wait for either."""

import unittest

import tango

from bench import wait_end, wait_for
from small_test import WithCamera

ON, RUNNING = tango.DevState.ON, tango.DevState.RUNNING


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


if __name__ == "__main__":
    unittest.main(verbosity=2)
