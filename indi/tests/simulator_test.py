"""Property by property beside the CCD simulator that comes with INDI, whose set clients know."""
import re
import unittest

import indi_support
from indi_support import Client, DriverTest

# What it has and this driver has not, and why.
MISSING = {
    # Cameras have no second head for guiding, and no port to a mount.
    "GUIDER_EXPOSURE", "GUIDER_ABORT_EXPOSURE", "GUIDER_FRAME", "GUIDER_INFO", "GUIDER_BINNING",
    "GUIDER_COMPRESSION", "GUIDER_FRAME_TYPE", "CCD2",
    "TELESCOPE_TIMED_GUIDE_NS", "TELESCOPE_TIMED_GUIDE_WE",
    "WCS_CONTROL",  # a frame does not know how the sensor is turned
    # Images are sent as they are, not processed.
    "DSP_ACTIVATE_CONVOLUTION", "DSP_ACTIVATE_DFT", "DSP_ACTIVATE_HISTOGRAM", "DSP_ACTIVATE_IDFT",
    "DSP_ACTIVATE_SPECTRUM", "DSP_ACTIVATE_WAVELETS",
    # Of its own sky, filters and focuser.
    "CCD_DIRECTORY_LOCATION", "CCD_DIRECTORY_TOGGLE", "CCD_SIMULATE_CRASH", "SIM_FOCUSING", "SIMULATOR_SETTINGS", "EQUATORIAL_PE", "SIMULATE_BAYER",
    "FILTER_SLOT", "FILTER_NAME",
}


class Beside(DriverTest):
    maxDiff = None

    def test_what_the_simulator_has_is_here_or_named_with_its_reason(self):
        camera = self.camera()
        server = self.server(indi_support.DRIVER, "indi_simulator_ccd")
        own = self.client(server)
        own.connect(camera.port)
        own.vector("CCD_TEMPERATURE")
        theirs = self.client(server, "CCD Simulator")
        theirs.change("CONNECTION", {"CONNECT": True})
        theirs.vector("CCD_FAST_COUNT")

        def names(client: Client):
            return {name: vector for (device, name), vector in client.vectors.items()
                    if device == client.device}
        theirs.wait(lambda: MISSING <= set(names(theirs)), "all that is missing here")
        own.wait(lambda: set(names(theirs)) - set(names(own)) <= MISSING, "all that the simulator has")
        here, there = names(own), names(theirs)
        for name in sorted(set(there) - set(here)):
            print(f"only the simulator has {name} ({there[name].group})")
        for name in sorted(set(here) - set(there)):
            print(f"only this driver has {name} ({here[name].group})")
        self.assertEqual(sorted(set(there) - set(here)), sorted(MISSING))
        with open(indi_support.page("indi.md")) as file:
            text = file.read().split("Not here, and why:")[1].split("##")[0]
        named = re.findall(r"`([A-Z_0-9]+)(\.\.\.)?`", text)
        for missing in MISSING:
            self.assertTrue(any(missing == name or (more and missing.startswith(name))
                                for name, more in named), f"{missing} is not in the documentation")
        for name in sorted(set(here) & set(there)):
            with self.subTest(name):
                self.assertEqual(here[name].kind, there[name].kind)
                self.assertIn(here[name].perm, (there[name].perm, "rw"))
                # Formats are a camera's own.
                if name not in ("CCD_CAPTURE_FORMAT", "CCD_STREAM_RECORDER"):
                    self.assertEqual(set(there[name].elements) - set(here[name].elements), set())


if __name__ == "__main__":
    unittest.main()
