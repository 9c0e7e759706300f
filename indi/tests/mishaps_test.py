"""What goes wrong around exposures, and what clients are told then."""
import os
import socket
import struct
import subprocess
import unittest

from indi_support import DriverTest


class Mishaps(DriverTest):
    def local(self, client, folder, mode="UPLOAD_LOCAL", prefix="N_XXX"):
        client.change("UPLOAD_SETTINGS", {"UPLOAD_DIR": folder, "UPLOAD_PREFIX": prefix})
        client.change("UPLOAD_MODE", {mode: True})

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

    def test_a_camera_that_takes_the_connection_and_is_silent_is_not_told_to_be_back(self):
        camera, client = self.connected()
        connection = client.vector("CONNECTION")
        camera.close()
        client.wait(lambda: connection.state == "Alert", "the link is lost")
        with socket.create_server(("127.0.0.1", camera.port)) as listener:
            listener.settimeout(20)
            silent = listener.accept()[0]
        with silent:
            silent.settimeout(20)
            self.assertTrue(silent.recv(12), "it is asked something")
            client.change("CCD_BINNING", {"HOR_BIN": 1, "VER_BIN": 1})
            client.pump(0.3)
            self.assertEqual(connection.state, "Alert", connection.messages)
        again = self.camera(port=camera.port)
        client.wait(lambda: connection.state == "Ok", "the link is back")
        told = " ".join(connection.messages)
        self.assertLess(told.index("is lost"), told.index("made anew"))
        self.assertEqual(told.count("is lost"), 1)
        self.assert_true_frame(client.expose(), again)

    def test_a_folder_that_takes_no_files_is_told_before_the_camera_exposes(self):
        camera, client = self.connected()
        open(self.home + "/file", "w").close()
        self.local(client, self.home + "/file/below")
        vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 3600}, "Alert")
        self.assertIn(self.home + "/file/below", vector.messages[-1])
        self.local(client, self.home, prefix="one")
        client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.01})
        client.wait(lambda: os.path.exists(self.home + "/one.fits"), "a file")
        vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 3600}, "Alert")
        self.assertIn("exists already", vector.messages[-1])
        client.change("UPLOAD_MODE", {"UPLOAD_CLIENT": True})
        blob = client.expose()
        self.assertEqual(self.assert_true_frame(blob, camera)[0]["readout"], 2)

    def test_clients_have_the_frame_also_when_its_file_cannot_be_written(self):
        camera, client = self.connected()
        folder = self.home + "/gone"
        self.local(client, folder, "UPLOAD_BOTH")
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 2})
        camera.wait("readout")
        os.rename(folder, self.home + "/moved")
        open(folder, "w").close()
        exposure = client.vector("CCD_EXPOSURE")
        client.wait(lambda: exposure.state == "Alert", "the file is told")
        self.assertIn(folder, exposure.messages[-1])
        client.wait(lambda: client.blobs, "the frame")
        self.assert_true_frame(client.blobs[-1], camera)

    def test_files_have_a_whole_path_and_a_name(self):
        client = self.connected()[1]
        vector = client.change("UPLOAD_SETTINGS", {"UPLOAD_DIR": self.home, "UPLOAD_PREFIX": "N_XXX"})
        before = dict(vector.values)
        for wrong in ({"UPLOAD_DIR": ""}, {"UPLOAD_DIR": "images"}, {"UPLOAD_PREFIX": ""},
                      {"UPLOAD_PREFIX": "../N_XXX"}, {"UPLOAD_PREFIX": "sky/../../N_XXX"}):
            both = dict(before, **wrong)
            told = client.change("UPLOAD_SETTINGS", both, "Alert")
            self.assertEqual(told.values, before)
            client.change("UPLOAD_SETTINGS", before)

    def small_disk(self):
        folder = self.home + "/disk"
        os.mkdir(folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k", "tmpfs", folder], check=True)
        self.stack.callback(subprocess.run, ["umount", "-l", folder], check=True)
        return folder

    @unittest.skipIf(os.getuid() != 0, "mounts a disk")
    def test_a_disk_without_space_for_a_frame_is_told_before_the_camera_exposes(self):
        client = self.connected()[1]
        folder = self.small_disk()
        for mode in ("UPLOAD_LOCAL", "UPLOAD_BOTH"):
            self.local(client, folder, mode)
            vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 3600}, "Alert")
            self.assertIn("16 KB left", vector.messages[-1])
        self.assertEqual(os.listdir(folder), [])

    @unittest.skipIf(os.getuid() != 0, "mounts a disk")
    def test_a_recording_that_the_disk_does_not_take_is_told(self):
        camera, client = self.connected()
        file = {"RECORD_FILE_DIR": self.small_disk(), "RECORD_FILE_NAME": "stream"}
        client.change("RECORD_FILE", file, "Idle")
        recording = client.vector("RECORD_STREAM")
        client.set("RECORD_STREAM", {"RECORD_ON": True})
        client.wait(lambda: recording.state == "Alert", "it is told")
        self.assertIn("KB left", recording.messages[-1])
        client.change("RECORD_FILE", dict(file, RECORD_FILE_DIR=self.home), "Idle")
        client.change("RECORD_STREAM", {"RECORD_ON": True}, "Busy")
        client.wait(lambda: len(camera.frames()) > 3, "frames")
        client.change("RECORD_STREAM", {"RECORD_OFF": True}, "Idle")

    def test_a_recording_that_loses_its_camera_is_a_whole_file(self):
        camera, client = self.connected()
        client.change("RECORD_FILE", {"RECORD_FILE_DIR": self.home, "RECORD_FILE_NAME": "stream"}, "Idle")
        recording = client.change("RECORD_STREAM", {"RECORD_ON": True}, "Busy")
        client.wait(lambda: len(camera.frames()) > 3, "frames")
        camera.close()
        client.wait(lambda: recording.state == "Alert", "it is told")
        self.assertIn("connection was lost", recording.messages[-1])
        with open(self.home + "/stream.ser", "rb") as file:
            content = file.read()
        frames = struct.unpack_from("<i", content, 38)[0]  # behind a header of 178 bytes; times at the end
        self.assertGreater(frames, 0)
        self.assertEqual(len(content), 178 + frames * (128 * 96 * 2 + 8))
        again = self.camera(port=camera.port)
        connection = client.vector("CONNECTION")
        client.wait(lambda: "restored" in connection.messages[-1], "the link is back")
        client.change("RECORD_STREAM", {"RECORD_ON": True}, "Busy")
        client.wait(lambda: len(again.frames()) > 3, "frames")
        client.change("RECORD_STREAM", {"RECORD_OFF": True}, "Idle")

    def test_recordings_have_a_whole_path_and_a_name(self):
        camera, client = self.connected()
        before = dict(client.vector("RECORD_FILE").values)
        for wrong in ({"RECORD_FILE_DIR": ""}, {"RECORD_FILE_DIR": "streams"},
                      {"RECORD_FILE_NAME": ""}, {"RECORD_FILE_NAME": "../stream"}):
            told = client.change("RECORD_FILE", dict(before, **wrong), "Alert")
            self.assertEqual(told.values, before)
        self.assert_true_frame(client.expose(), camera)

    def test_folders_in_the_name_of_files_are_made(self):
        camera, client = self.connected()
        self.local(client, self.home, prefix="night/first/N_XXX")
        client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.01})
        client.wait(lambda: os.path.exists(self.home + "/night/first/N_001.fits"), "a file")
        self.local(client, self.home, prefix="N" * 300)
        vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 3600}, "Alert")
        self.assertIn("name too long", vector.messages[-1])

    def test_a_text_that_no_xml_may_hold_is_refused(self):
        client = self.connected()[1]
        before = dict(client.vector("UPLOAD_SETTINGS").values)
        told = client.change("UPLOAD_SETTINGS", dict(before, UPLOAD_PREFIX="N\x01_XXX"), "Alert")
        self.assertEqual(told.values, before)
        self.assertIn("control characters", told.messages[-1])
        header = client.change("FITS_HEADER", {"FITS_OBJECT": "\u00fc \u20ac \U0001f52d"})
        for wrong in (b"\xfc", b"\xc3", b"M\x80", b"\xc0\xaf", b"\xe0\x80\xaf", b"\xed\xa0\x80",
                      b"\xf4\x90\x80\x80", b"\xff", b"\xe2\x82"):
            before = header.updates
            client.socket.sendall(b"<newTextVector device='VX CCD' name='FITS_HEADER'><oneText "
                                  b"name='FITS_OBJECT'>" + wrong + b"</oneText></newTextVector>")
            client.wait(lambda: header.updates > before, "it is refused")
            self.assertIn("no UTF-8", header.messages[-1], wrong)
        self.assertEqual(header.values["FITS_OBJECT"], "\u00fc \u20ac \U0001f52d")

    def test_an_exposure_goes_on_while_another_one_is_refused(self):
        camera, client = self.connected()
        exposure = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 1}, "Busy")
        other = self.client(self.last_server)
        other.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": -5})
        client.wait(lambda: client.blobs, "the frame")
        client.wait(lambda: exposure.state == "Ok", "the end")
        self.assertIn("-5 is not within", exposure.messages[-1])
        self.assertNotIn("Alert", [state for state, _ in exposure.history])
        self.assert_true_frame(client.blobs[-1], camera, 1)

    def test_cooling_goes_on_when_the_camera_is_back(self):
        camera, client = self.connected()
        client.vector("CCD_TEMPERATURE")
        client.change("CCD_TEMP_RAMP", {"RAMP_SLOPE": 1, "RAMP_THRESHOLD": 0.2})
        client.change("CCD_TEMPERATURE", {"CCD_TEMPERATURE_VALUE": -5}, "Busy")
        cooler = client.vector("CCD_COOLER")
        client.wait(lambda: cooler.values["COOLER_ON"], "it cools")
        camera.close()
        client.wait(lambda: not client.has("CCD_TEMPERATURE"), "no temperature is known")
        self.camera(port=camera.port)
        self.assertEqual(client.vector("CCD_TEMPERATURE").history[0][0], "Busy")
        self.assertEqual(cooler.state, "Busy")

    def test_flags_are_shown_as_they_count(self):
        client = self.connected()[1]
        flags = client.change("READOUT_FLAGS", {"FLAGS": 7.9})
        self.assertEqual(flags.values["FLAGS"], 7)

    def test_an_exposure_goes_on_while_a_configuration_is_loaded(self):
        camera, client = self.connected()
        client.change("CONFIG_PROCESS", {"CONFIG_SAVE": True})
        exposure = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 2}, "Busy")
        client.change("CONFIG_PROCESS", {"CONFIG_LOAD": True})  # as a client does that has just come
        client.wait(lambda: any("applied" in told for told in client.messages), "loaded")
        client.wait(lambda: exposure.state != "Busy", "the end")
        self.assertEqual(exposure.state, "Ok")
        self.assert_true_frame(client.blobs[-1], camera, 2)

    def test_texts_have_an_end(self):
        camera, client = self.connected()
        client.change("FITS_HEADER", {"FITS_OBJECT": "M" * 30000})
        for length in (30001, 70000, 1000000):
            told = client.change("FITS_HEADER", {"FITS_OBJECT": "M" * length}, "Alert")
            self.assertIn("30000 bytes at most", told.messages[-1])
            client.change("FITS_HEADER", {"FITS_OBJECT": "M 31"})
        self.assertEqual(client.expose().fits()[1]["OBJECT"], "M 31")

    def test_the_size_of_square_pixels_is_set_alone(self):
        client = self.connected()[1]
        sizes = client.vector("CCD_INFO").values
        unset = {"CCD_PIXEL_SIZE_X": 0, "CCD_PIXEL_SIZE_Y": 0}  # as panels send what nobody has set
        for given, wanted in ((dict(unset, CCD_PIXEL_SIZE=4.5), (4.5, 4.5)),
                              ({"CCD_PIXEL_SIZE": 5.5}, (5.5, 5.5)),
                              ({"CCD_PIXEL_SIZE_Y": 7}, (5.5, 7))):
            client.change("CCD_INFO", given)
            client.wait(lambda: (sizes["CCD_PIXEL_SIZE_X"], sizes["CCD_PIXEL_SIZE_Y"]) == wanted,
                        f"{wanted}")
        header = client.expose().fits()[1]
        self.assertEqual((header["PIXSIZE1"], header["PIXSIZE2"]), (5.5, 7))

    def test_a_saved_configuration_complains_of_nothing_that_was_never_set(self):
        client = self.connected()[1]
        client.change("CONFIG_PROCESS", {"CONFIG_SAVE": True})
        client.change("CONFIG_PROCESS", {"CONFIG_LOAD": True})
        client.wait(lambda: any("applied" in told for told in client.messages), "loaded")
        client.change("CCD_BINNING", {"HOR_BIN": 1, "VER_BIN": 1})  # behind all of it
        alerts = {name for _, _, name, state, _ in client.log if state == "Alert"}
        self.assertEqual(alerts, set())

    def test_the_cooler_is_switched_by_an_element_that_is_on(self):
        client = self.client(self.server(VXCAM_TARGETS="sim?sensor=128x96&heartbeat=0.1"))
        client.connect()
        client.vector("CCD_TEMPERATURE")
        client.change("CCD_TEMPERATURE", {"CCD_TEMPERATURE_VALUE": -20}, "Busy")
        cooler = client.vector("CCD_COOLER")
        client.wait(lambda: cooler.values["COOLER_ON"], "it cools")
        client.change("CCD_COOLER", {"COOLER_OFF": False}, "Alert")
        self.assertTrue(cooler.values["COOLER_ON"])
        client.change("CCD_COOLER", {"COOLER_OFF": True})
        self.assertFalse(cooler.values["COOLER_ON"])

    def test_frames_of_a_stream_keep_their_shape(self):
        client = self.connected()[1]
        client.change("CCD_VIDEO_STREAM", {"STREAM_ON": True}, "Busy")
        client.wait(lambda: client.blobs, "a frame")
        for name, values in (("CCD_BINNING", {"HOR_BIN": 2, "VER_BIN": 2}),
                             ("CCD_FRAME", {"X": 8, "Y": 4, "WIDTH": 32, "HEIGHT": 16}),
                             ("CCD_CAPTURE_FORMAT", {"INDI_MONO_8": True}),
                             ("CCD_FRAME_RESET", {"RESET": True})):
            self.assertIn("stream", client.change(name, values, "Alert").messages[-1])
        count = len(client.blobs)
        client.wait(lambda: len(client.blobs) > count + 2, "further frames")
        client.change("CCD_VIDEO_STREAM", {"STREAM_OFF": True}, "Idle")
        client.change("CCD_BINNING", {"HOR_BIN": 2, "VER_BIN": 2})

    def test_a_switch_without_an_element_that_is_on_is_refused(self):
        camera, client = self.connected()
        exposure = client.vector("CCD_EXPOSURE")
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 1})
        client.wait(lambda: exposure.state == "Busy", "exposing")
        for name, element in (("CCD_ABORT_EXPOSURE", "ABORT"), ("CCD_FRAME_RESET", "RESET"),
                              ("CCD_CAPTURE_FORMAT", "INDI_MONO_8"), ("UPLOAD_MODE", "UPLOAD_CLIENT"),
                              ("READOUT_MODE", "REGIONS")):
            self.assertIn("no element is on", client.change(name, {element: False}, "Alert").messages[-1])
        client.wait(lambda: client.blobs, "the exposure goes on")
        self.assert_true_frame(client.blobs[-1], camera)

    def test_ranges_are_told_with_all_their_digits(self):
        client = self.connected()[1]
        vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 4294967.4}, "Alert")
        self.assertIn("4294967.4 is not within 0 and 4294967.295", vector.messages[-1])

    def test_the_address_in_force_is_no_news(self):
        camera, client = self.connected()
        address = client.vector("DEVICE_ADDRESS")
        client.change("DEVICE_ADDRESS", {"ADDRESS": "127.0.0.1", "PORT": str(camera.port)})
        self.assertEqual(address.messages, [])
        client.change("DEVICE_ADDRESS", {"PORT": "9"})
        self.assertIn("next time", address.messages[-1])


if __name__ == "__main__":
    unittest.main()
