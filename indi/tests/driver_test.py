"""The driver behind indiserver, as clients meet it."""
import os
import subprocess
import time
import unittest
import xml.etree.ElementTree as ElementTree

import indi_support
from indi_support import DEVICE, DriverTest


class Connecting(DriverTest):
    def test_a_driver_without_a_target_has_one_device_that_says_where_its_camera_is(self):
        client = self.client(self.server())
        vector = client.vector("DEVICE_ADDRESS")
        self.assertEqual(vector.values, {"ADDRESS": "", "PORT": ""})
        self.assertEqual({device for device, _ in client.vectors}, {"VX CCD"})
        client.change("CONNECTION", {"CONNECT": True}, "Alert")
        self.assertFalse(client.has("CCD_EXPOSURE"))

    def test_a_camera_that_is_not_there_is_told_with_the_reason(self):
        client = self.client(self.server())
        client.change("DEVICE_ADDRESS", {"ADDRESS": "127.0.0.1", "PORT": "9"})
        vector = client.change("CONNECTION", {"CONNECT": True}, "Alert")
        self.assertIn("127.0.0.1:9", vector.messages[-1])
        self.assertTrue(vector.values["DISCONNECT"])

    def test_an_address_that_is_none_is_refused_and_the_old_one_stays(self):
        client = self.client(self.server())
        client.change("DEVICE_ADDRESS", {"ADDRESS": "localhost", "PORT": "2000"})
        vector = client.change("DEVICE_ADDRESS", {"PORT": "many"}, "Alert")
        self.assertEqual(vector.values, {"ADDRESS": "localhost", "PORT": "2000"})

    def test_the_camera_is_free_for_others_after_disconnecting(self):
        camera, client = self.connected()
        client.change("CONNECTION", {"DISCONNECT": True}, "Idle")
        camera.wait("disconnected")
        client.wait(lambda: not client.has("CCD_EXPOSURE"), "the properties are gone")
        client.change("CONNECTION", {"CONNECT": True})
        client.expose()

    def test_each_target_has_a_device(self):
        one, other = self.camera("--seed", "5"), self.camera("--seed", "6")
        server = self.server(VXCAM_TARGETS=f"127.0.0.1:{one.port},127.0.0.1:{other.port},sim?seed=3")
        names = {"VX CCD", "VX CCD 2", "VX CCD 3"}
        clients = {name: self.client(server, name) for name in sorted(names)}
        for client in clients.values():
            client.connect()
        clients["VX CCD"].wait(
            lambda: {device for device, _ in clients["VX CCD"].vectors} == names, "three devices")
        for name, camera in (("VX CCD", one), ("VX CCD 2", other)):
            self.assert_true_frame(clients[name].expose(), camera)
        clients["VX CCD 3"].change("CCD_FRAME", {"WIDTH": 64, "HEIGHT": 32})
        self.assertEqual(clients["VX CCD 3"].expose().fits()[0].shape, (32, 64))

    def test_devices_send_images_at_the_same_time(self):
        cameras = [self.camera("--seed", str(number)) for number in range(4)]
        server = self.server(VXCAM_TARGETS=",".join(f"127.0.0.1:{c.port}" for c in cameras))
        clients = [self.client(server, "VX CCD" + (f" {number}" if number > 1 else ""))
                   for number in range(1, 5)]
        for client in clients:
            client.connect()
            client.change("CCD_FAST_TOGGLE", {"INDI_ENABLED": True})
            client.change("CCD_FAST_COUNT", {"FRAMES": 30})
        for client in clients:
            client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.001})
        for client, camera in zip(clients, cameras):
            client.wait(lambda: len(client.blobs) == 30 and
                        client.vector("CCD_EXPOSURE").state == "Ok", "30 frames")
            for blob in client.blobs:
                self.assert_true_frame(blob, camera)

    def test_it_listens_on_no_port(self):
        del os.environ["DBGD_DISABLE"]  # that alone would keep it from it
        camera = self.camera()
        server = self.server()
        self.client(server).connect(camera.port)
        child = subprocess.run(["pgrep", "-P", str(server.process.pid)], capture_output=True,
                               text=True).stdout.strip()
        sockets = subprocess.run(["ss", "-Hatunp"], capture_output=True, text=True).stdout
        own = [line for line in sockets.splitlines() if f"pid={child}," in line]
        self.assertEqual([line.split()[:2] for line in own], [["tcp", "ESTAB"]], sockets)

    def test_the_file_for_clients_names_the_driver(self):
        file = os.path.join(os.path.dirname(indi_support.DRIVER), "indi_vxcam_ccd.xml")
        device = ElementTree.parse(file).find("devGroup[@group='CCDs']/device")
        self.assertEqual(device.get("label"), DEVICE)
        self.assertEqual(device.find("driver").text, "indi_vxcam_ccd")


class Exposing(DriverTest):
    def test_the_frame_that_arrives_is_the_one_that_was_sent(self):
        camera, client = self.connected()
        blob = client.expose(0.05)
        self.assertEqual(blob.format, ".fits")
        sent, header = self.assert_true_frame(blob, camera, 0.05)
        begin = header["MJD-BEG"]
        true = sent["beginRealtime"] / 86400e9 + 40587
        self.assertLess(abs(begin - true) * 86400, header["TIMRDER"] + 0.001)
        self.assertEqual((header["IMAGETYP"], header["FRAME"]), ("Light Frame", "Light"))
        self.assertEqual(header["NMISSROW"], 0)
        self.assertEqual(client.vector("CCD_EXPOSURE").values["CCD_EXPOSURE_VALUE"], 0)

    def test_a_frame_is_a_part_of_the_sensor_and_says_which(self):
        camera, client = self.connected()
        client.change("CCD_FRAME", {"X": 16, "Y": 8, "WIDTH": 64, "HEIGHT": 32})
        blob = client.expose()
        _, header = self.assert_true_frame(blob, camera)
        self.assertEqual(blob.fits()[0].shape, (32, 64))
        self.assertEqual((header["XORGSUBF"], header["YORGSUBF"]), (16, 8))
        client.change("CCD_FRAME_RESET", {"RESET": True})
        self.assertEqual(client.expose().fits()[0].shape, (96, 128))

    def test_areas_beyond_the_sensor_are_refused_and_nothing_changes(self):
        camera, client = self.connected()
        client.change("CCD_FRAME", {"X": 16, "Y": 8, "WIDTH": 64, "HEIGHT": 32})
        for wrong in ({"X": 100}, {"Y": 90, "HEIGHT": 32}, {"WIDTH": 0}, {"WIDTH": 129},
                      {"X": -1}, {"X": "nan"}, {"HEIGHT": "1e30"}, {"Z": 1}):
            vector = client.change("CCD_FRAME", wrong, "Alert")
            self.assertEqual(vector.values, {"X": 16, "Y": 8, "WIDTH": 64, "HEIGHT": 32}, wrong)
            self.assertTrue(vector.messages, wrong)
            client.change("CCD_FRAME", {"X": 16})
        self.assertEqual(client.expose().fits()[0].shape, (32, 64))

    def test_bins_are_sums_of_32_bits(self):
        camera, client = self.connected()
        client.change("CCD_BINNING", {"HOR_BIN": 4, "VER_BIN": 2})
        client.wait(lambda: client.value("CCD_INFO", "CCD_BITSPERPIXEL") == 32, "32 bits")
        blob = client.expose()
        pixels, header = blob.fits()
        self.assertEqual(pixels.shape, (48, 32))
        self.assertEqual((header["XBINNING"], header["YBINNING"]), (4, 2))
        self.assertEqual(camera.sent(int(pixels.sum(dtype="u8")))["readout"], 1)
        for wrong in ({"HOR_BIN": 0, "VER_BIN": 0}, {"HOR_BIN": 200}, {"VER_BIN": "nan"}):
            vector = client.change("CCD_BINNING", wrong, "Alert")
            self.assertEqual(vector.values, {"HOR_BIN": 4, "VER_BIN": 2}, wrong)
        # The camera bins whole sensors.
        client.change("CCD_FRAME", {"WIDTH": 64})
        self.assertIn("whole sensor", client.change(
            "CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.01}, "Alert").messages[-1])

    def test_pixels_of_8_bits(self):
        camera, client = self.connected()
        client.change("CCD_CAPTURE_FORMAT", {"INDI_MONO_8": True})
        client.wait(lambda: client.value("CCD_INFO", "CCD_BITSPERPIXEL") == 8, "8 bits")
        blob = client.expose()
        self.assertEqual(self.assert_true_frame(blob, camera)[1]["BITPIX"], 8)

    def test_darks_and_bias_frames_keep_the_shutter_shut(self):
        camera, client = self.connected()
        client.change("TEST_PATTERN", {"VALUE": "0"})
        light = int(client.expose(1).fits()[0].sum(dtype="u8"))
        for kind, name, exposure in (("FRAME_DARK", "Dark Frame", 1), ("FRAME_BIAS", "Bias Frame", 0),
                                     ("FRAME_FLAT", "Flat Field", 1)):
            client.change("CCD_FRAME_TYPE", {kind: True})
            blob = client.expose(1)
            _, header = self.assert_true_frame(blob, camera, exposure)
            self.assertEqual(header["IMAGETYP"], name)
            is_dark = int(blob.fits()[0].sum(dtype="u8")) < 0.99 * light
            self.assertEqual(is_dark, kind != "FRAME_FLAT", kind)

    def test_an_exposure_is_aborted_at_once_and_the_next_frame_is_a_new_one(self):
        camera, client = self.connected()
        vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 60}, "Busy")
        client.wait(lambda: 0 < vector.values["CCD_EXPOSURE_VALUE"] < 59.5, "it counts down")
        begin = time.monotonic()
        client.change("CCD_ABORT_EXPOSURE", {"ABORT": True})
        self.assertLess(time.monotonic() - begin, 1)
        client.wait(lambda: vector.state == "Idle", "idle")
        self.assertEqual(client.blobs, [])
        self.assert_true_frame(client.expose(0.02), camera, 0.02)
        self.assertEqual(len(client.blobs), 1)

    def test_a_new_exposure_takes_the_place_of_the_one_that_runs(self):
        camera, client = self.connected()
        client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 60}, "Busy")
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.03})
        client.wait(lambda: client.blobs, "a frame")
        self.assert_true_frame(client.blobs[0], camera, 0.03)

    def test_impossible_exposures_are_refused_with_the_reason(self):
        _, client = self.connected()
        for wrong in ("nan", "inf", -1, 0, 0.0004, 5e6):
            vector = client.vector("CCD_EXPOSURE")
            count = len(vector.messages)
            client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": wrong}, "Alert")
            self.assertGreater(len(vector.messages), count, wrong)
        vector = client.change("CCD_EXPOSURE", {"NO_SUCH": 1}, "Alert")
        self.assertIn("NO_SUCH", vector.messages[-1])
        client.pump(0.2)
        self.assertEqual(client.blobs, [])

    def test_packed_images_and_files_of_this_host_hold_the_same_pixels(self):
        camera, client = self.connected()
        client.change("CCD_COMPRESSION", {"INDI_ENABLED": True})
        client.change("UPLOAD_SETTINGS", {"UPLOAD_DIR": self.home + "/new", "UPLOAD_PREFIX": "N_XXX"})
        client.change("UPLOAD_MODE", {"UPLOAD_BOTH": True})
        blob = client.expose()
        self.assertEqual(blob.format, ".fits.fz")
        pixels, _ = blob.fits()
        self.assertEqual(camera.sent(int(pixels.sum(dtype="u8")))["readout"], 1)
        path = self.home + "/new/N_001.fits.fz"
        client.wait(lambda: client.value("CCD_FILE_PATH", "FILE_PATH") == path, "its name")
        with open(path, "rb") as file:
            self.assertEqual(file.read(), blob.data)


class Controls(DriverTest):
    def test_gain_and_offset_are_those_of_the_camera(self):
        camera, client = self.connected()
        client.wait(lambda: client.vector("CCD_GAIN").state == "Ok", "the gain is known")
        self.assertEqual(client.change("CCD_GAIN", {"GAIN": 3}).values["GAIN"], 3)
        client.change("CCD_OFFSET", {"OFFSET": 500})
        header = client.expose().fits()[1]
        self.assertEqual((header["GAIN"], header["OFFSET"]), (3, 500))
        vector = client.change("CCD_GAIN", {"GAIN": 99}, "Alert")  # the camera refuses it
        self.assertEqual(vector.values["GAIN"], 3)
        self.assertTrue(vector.messages)

    def test_the_sensor_is_cooled_slowly_and_the_property_is_busy_until_it_is_there(self):
        client = self.client(self.server(VXCAM_TARGETS="sim?sensor=128x96&scale=60&heartbeat=0.1"))
        client.connect()
        vector = client.vector("CCD_TEMPERATURE")
        self.assertAlmostEqual(vector.values["CCD_TEMPERATURE_VALUE"], 20, delta=0.5)
        client.change("CCD_TEMP_RAMP", {"RAMP_SLOPE": 30, "RAMP_THRESHOLD": 0.5})
        client.change("CCD_TEMPERATURE", {"CCD_TEMPERATURE_VALUE": -5}, "Busy")
        seen = set()

        def is_there():
            seen.add(round(vector.values["CCD_TEMPERATURE_VALUE"]))
            return vector.state == "Ok"
        client.wait(is_there, "cooled", 30)
        self.assertTrue(seen & {15, 14, 13, 12, 11, 10, 9, 8}, seen)
        self.assertAlmostEqual(vector.values["CCD_TEMPERATURE_VALUE"], -5, delta=0.6)
        client.wait(lambda: client.value("CCD_COOLER", "COOLER_ON"), "the cooler is on")
        self.assertEqual(client.change("CCD_TEMPERATURE", {"CCD_TEMPERATURE_VALUE": "nan"},
                                       "Alert").values.keys(), {"CCD_TEMPERATURE_VALUE"})
        client.change("CCD_COOLER", {"COOLER_OFF": True}, ("Ok", "Busy"))

    def test_a_temperature_that_nobody_tells_is_not_shown(self):
        camera, client = self.connected(heartbeat=0)
        client.expose(1.5)
        self.assertFalse(client.has("CCD_TEMPERATURE"))
        self.assertEqual(client.value("BOARD_TEMP", "VALUE"), "")
        self.assertNotIn("CCD-TEMP", client.blobs[-1].fits()[1])


class Failing(DriverTest):
    def failing(self, fault, seconds=0.1):
        camera, client = self.connected("--fault", fault)
        vector = client.vector("CCD_EXPOSURE")
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": seconds})
        client.wait(lambda: vector.state == "Alert", "the exposure fails")
        client.pump(0.3)
        self.assertEqual(client.blobs, [])
        return camera, client, vector.messages[-1]

    def test_an_incomplete_frame_is_told_and_never_sent(self):
        camera, client, why = self.failing("missing-packet:readout=1,packet=7")
        self.assertIn("incomplete", why)
        self.assert_true_frame(client.expose(), camera)

    def test_a_link_that_breaks_ends_the_exposure_and_comes_back_with_the_settings(self):
        camera, client, why = self.failing("reboot:readout=1,packet=20,seconds=1")
        connection = client.vector("CONNECTION")
        client.wait(lambda: connection.state == "Alert" or connection.messages[-1:] and
                    "restored" in connection.messages[-1], "the link is lost")
        client.wait(lambda: connection.state == "Ok" and "restored" in connection.messages[-1],
                    "the link is back")
        self.assertTrue(any("lost" in message for message in connection.messages))
        client.vector("CCD_TEMPERATURE")
        self.assertIn("CCD_TEMPERATURE", client.deleted)
        self.assert_true_frame(client.expose(), camera)

    def test_settings_are_those_of_before_when_the_link_is_back(self):
        camera, client = self.connected("--fault", "reboot:readout=2,packet=20,seconds=1")
        client.change("CCD_GAIN", {"GAIN": 4})
        client.expose()
        client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.1}, "Alert")
        connection = client.vector("CONNECTION")
        client.wait(lambda: connection.state == "Ok" and "restored" in connection.messages[-1],
                    "the settings are back")
        self.assertEqual(client.expose().fits()[1]["GAIN"], 4)

    def test_a_camera_that_has_another_sensor_afterwards_is_told_and_read_whole(self):
        fault = "reboot-resized:readout=2,packet=20,seconds=1,rows=32,columns=40"
        camera, client = self.connected("--fault", fault)
        client.expose()
        client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.1}, "Alert")
        connection = client.vector("CONNECTION")
        client.wait(lambda: any("40 x 32" in message for message in connection.messages), "told")
        client.wait(lambda: client.value("CCD_FRAME", "WIDTH") == 40, "the frame is the sensor")
        self.assertEqual(client.value("CCD_INFO", "CCD_MAX_Y"), 32)
        self.assertEqual(client.expose().fits()[0].shape, (32, 40))

    def test_an_error_of_the_camera_ends_the_exposure_with_its_words(self):
        why = self.failing("error-storm:time=1.5,count=1,code=77,subcode=5", 5)[2]
        self.assertIn("77", why)

    def test_a_long_exposure_does_not_time_out(self):
        camera, client = self.connected("--time-scale", "400")
        client.expose(0.01)
        begin = time.monotonic()
        client.expose(1600)
        self.assertGreater(time.monotonic() - begin, 3.5)


if __name__ == "__main__":
    unittest.main()
