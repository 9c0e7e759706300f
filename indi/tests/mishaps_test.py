"""What goes wrong around exposures, and what clients are told then."""
import unittest

from indi_support import DriverTest


class Mishaps(DriverTest):
    def test_no_exposure_is_shown_to_run_after_connecting_again(self):
        camera, client = self.connected()
        exposure = client.vector("CCD_EXPOSURE")
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 30})
        client.wait(lambda: exposure.state == "Busy", "exposing")
        client.change("CONNECTION", {"DISCONNECT": True}, "Idle")
        client.wait(lambda: not client.has("CCD_EXPOSURE"), "the properties are gone")
        self.assertEqual(exposure.state, "Idle")
        client.change("CONNECTION", {"CONNECT": True})
        exposure = client.vector("CCD_EXPOSURE")
        self.assertEqual((exposure.state, exposure.values["CCD_EXPOSURE_VALUE"]), ("Idle", 0))
        self.assert_true_frame(client.expose(), camera)


if __name__ == "__main__":
    unittest.main()
