"""Every property of the table, set and read; streams, fast exposures, configuration, the observatory."""
import json
import os
import re
import struct
import subprocess
import time
import unittest
import zlib

import indi_support
from indi_support import DriverTest

# Name: what to set, and what is shown then, where that is not the same. All values are some that the
# simulated camera takes.
SAMPLES = {
    "EXPOSURE_EX": ({"EXPOSURE": 1234}, None),
    "SHUTTER_PARAMS": ({"CLOSE_DELAY": 1, "SECOND": 2, "THIRD": 3}, None),
    "SHUTTER_OVERRIDE": ({"FIRST": 0, "SECOND": 1}, None),
    "AREA_REGIONS": ({"VALUE": "0,0,16,8/16,8,32,4"}, None),
    "IMAGE_INTERVAL": ({"INTERVAL": 0.25}, None),
    "MIRRORING": ({"HORIZONTAL": True, "VERTICAL": False}, None),
    "SHEARING": ({"FIRST": 1, "SECOND": 2, "THIRD": 3, "FOURTH": 4}, None),
    "TEST_PATTERN": ({"VALUE": "4,100"}, None),
    "RECORDING": ({"VALUE": "1,2,3,night"}, None),
    "BINNING_SEQUENCE": ({"VALUE": "2,2/4,1"}, None),
    "BIN_TABLE": ({"INDEX": "3", "VALUE": "0001"}, None),
    "HOR_BIN_TABLE": ({"INDEX": "3", "VALUE": "000001"}, None),
    "BIN_MASK": ({"VALUE": "01" * (64 * 32)}, None),
    "FAN": ({"INDI_ENABLED": True, "INDI_DISABLED": False}, None),
    "PID": ({"P": 1.5, "I": 2.25, "D": 3}, None),
    "TRIGGER": ({"STATE": 1}, None),
    "TRIGGER_MODE": ({"VALUE": "frame,3,-4"}, None),
    "AUTO_REARM": ({"INDI_ENABLED": False, "INDI_DISABLED": True}, None),
    "GPIO": ({"PIN": "5", "VALUE": "high"}, None),
    "FILTER": ({"FIRST": True, "SECOND": False}, None),
    "DAC": ({"CHANNEL": "2", "VALUE": "300,1"}, None),
    "CIS_SHUTTER_MODE": ({"GLOBAL": True}, {"GLOBAL": True, "ROLLING": False}),
    "CIS_CHANNEL": ({"BOTH": True}, {"BOTH": True, "HIGH_GAIN": False, "LOW_GAIN": False}),
    "CIS_CALIBRATE": ({"ACTION": 1}, None),
    "PARAMETER": ({"ID": "40", "VALUE": "7"}, None),
    "PARAMETER_INT": ({"ID": "41", "VALUE": "-7"}, None),
    "PARAMETER_FLOAT": ({"ID": "42", "VALUE": "1.5"}, None),
    "PARAMETER_TEXT": ({"ID": "43", "VALUE": "dome"}, None),
    "PARAMETER_BYTES": ({"ID": "44", "VALUE": "010203"}, None),
    "REGISTER": ({"ADDRESS": "16", "VALUE": "0x000000ff"}, None),
    "NETWORK_CONFIG": ({"FIRST": 1, "SECOND": 2, "THIRD": 3, "FOURTH": 4, "FIFTH": 5, "VALUE": 6},
                       None),
    "HARDWARE_INFO": (None, None),  # set to what it is
    "TIMING_DATA": ({"VALUE": "00112233"}, None),
}


# What clients of INDI expect; driver_test.py and these tests set them.
CUSTOMARY = {"CCD_EXPOSURE", "CCD_FRAME", "CCD_BINNING", "CCD_TEMPERATURE", "CCD_COOLER", "CCD_GAIN",
             "CCD_OFFSET"}


def setters(client):
    """Those of the tab of the camera."""
    return {name for (device, name), vector in client.vectors.items()
            if vector.group == "Camera" and device == client.device}


def names_in_indi():
    """Of every property of the kit, as its page has them."""
    with open(indi_support.page("properties.md")) as file:
        rows = file.read().split("## Names elsewhere")[1].split("\n## ")[0]
    return [name for row in re.findall(r"^\| `.*", rows, re.MULTILINE)
            for name in re.findall(r"`(\w+)`", row.split("|")[4])]


def orders(camera):
    """How many messages came to it that were no questions."""
    told = [json.loads(line) for line in list(camera.lines.all) if line.startswith('{"event":"trace"')]
    return sum(not event["text"].startswith("Get") for event in told)


class Table(DriverTest):
    sensor = "64x32"

    def ready(self, *options):
        camera, client = self.connected(*options)
        client.wait(lambda: client.value("HARDWARE_INFO", "VALUE") and
                    client.vector("CCD_GAIN").state == "Ok", "all is told")
        return camera, client

    def test_every_property_of_the_table_is_there_and_takes_a_value(self):
        camera, client = self.ready("--trace")
        self.assertEqual(setters(client), set(SAMPLES))
        for name, (values, shown) in SAMPLES.items():
            vector = client.vector(name)
            values = values or dict(vector.values)
            self.assertEqual(vector.perm, "rw")
            before = orders(camera)
            client.change(name, values)
            client.wait(lambda: orders(camera) > before, f"the camera hears of {name}")
            told = dict(vector.values)
            for key, value in (shown or values).items():
                if isinstance(value, str) and vector.kind == "Text" and key == "VALUE":
                    # Blocks of bytes are told with 0x in front, and as long as the camera has them.
                    plain = told[key].removeprefix("0x")
                    self.assertTrue(plain.startswith(value.removeprefix("0x")), (name, told))
                elif isinstance(value, bool):
                    self.assertIs(told[key], value, name)
                else:
                    self.assertEqual(str(told[key]), str(type(told[key])(value)), name)

    def test_every_row_of_the_table_is_a_property_and_what_can_only_be_read_is_told(self):
        _, client = self.ready()
        names = names_in_indi()
        self.assertGreater(len(names), len(SAMPLES) + 8)
        for name in names:
            client.vector(name)
        states = {name: vector for (_, name), vector in client.vectors.items()
                  if vector.group == "Camera state"}
        self.assertEqual(set(states), set(names) - set(SAMPLES) - CUSTOMARY | {"GPIO_STATE"})  # all pins
        for name, vector in states.items():
            client.wait(lambda: vector.state == "Ok" and vector.values["VALUE"] != "", name)
            self.assertEqual(vector.perm, "ro", name)
        self.assertEqual(states["BOARD_TEMP"].values["VALUE"], "25C")  # 5 above the ambient
        self.assertEqual(states["READOUT_NOISE"].values["VALUE"], "6,6")

    def test_another_client_reads_what_was_set(self):
        camera, client = self.ready()
        client.change("PID", {"P": 4, "I": 5, "D": 6})
        client.change("REGISTER", {"ADDRESS": "99", "VALUE": "4711"})
        server_port = client.socket.getpeername()[1]
        out = subprocess.run(["indi_getprop", "-p", str(server_port), "-t", "5", "VX CCD.PID.I"],
                             capture_output=True, text=True).stdout
        self.assertEqual(out.strip(), "VX CCD.PID.I=5")
        subprocess.run(["indi_setprop", "-p", str(server_port), "VX CCD.PID.P=7;I=8;D=9"], check=True)
        client.wait(lambda: client.value("PID", "I") == 8, "set by another")
        client.change("REGISTER", {"ADDRESS": "98"})
        self.assertEqual(client.value("REGISTER", "VALUE"), "0x00000000")
        client.change("REGISTER", {"ADDRESS": "99"})
        self.assertEqual(client.value("REGISTER", "VALUE"), "0x00001267")

    def test_what_is_impossible_is_refused_and_the_old_value_stays(self):
        _, client = self.ready()
        wrong = {
            "TRIGGER_MODE": {"VALUE": "sometimes"}, "IMAGE_INTERVAL": {"INTERVAL": "nan"},
            "PID": {"P": "inf"}, "MIRRORING": {"DIAGONAL": True}, "AREA_REGIONS": {"VALUE": "0,0,65,1"},
            "TEST_PATTERN": {"VALUE": "9"}, "REGISTER": {"ADDRESS": "x", "VALUE": "1"},
            "CCD_OFFSET": {"OFFSET": 65536}, "SHUTTER_PARAMS": {"FOURTH": 1},
            "READOUT_MODE": {"SIDEWAYS": True}, "DEVICE_ADDRESS": {"PORT": "none"},
            "BIN_TABLE": {"INDEX": "8", "VALUE": "00"}, "CCD_TEMP_RAMP": {"RAMP_SLOPE": "nan"},
            "SCOPE_INFO": {"FOCAL_LENGTH": "nan"}, "CCD_FAST_COUNT": {"FRAMES": "nan"},
        }
        for name, values in wrong.items():
            vector = client.vector(name)
            before = dict(vector.values)
            count = len(vector.messages)
            client.change(name, values, "Alert")
            self.assertEqual(vector.values, before, name)
            self.assertGreater(len(vector.messages), count, name)

    def test_every_property_is_in_the_documentation(self):
        _, client = self.ready()
        text = ""
        for page in ("indi.md", "properties.md"):
            with open(indi_support.page(page)) as file:
                text += file.read()
        general = {"DRIVER_INFO", "DEBUG", "DEBUG_LEVEL", "LOGGING_LEVEL", "LOG_OUTPUT",
                   "POLLING_PERIOD"}  # every driver has these
        own = {name for _, name in client.vectors} - general
        missing = sorted(name for name in own if f"`{name}`" not in text)
        self.assertEqual(missing, [])

    def test_settings_are_saved_and_loaded(self):
        camera = self.camera()
        server = self.server()
        client = self.client(server)
        client.connect(camera.port)
        client.change("PID", {"P": 4, "I": 5, "D": 6})
        client.change("TRIGGER_MODE", {"VALUE": "off,5,6"})
        client.change("MIRRORING", {"VERTICAL": True})
        client.change("CCD_GAIN", {"GAIN": 2})
        client.change("CCD_INFO", {"CCD_PIXEL_SIZE": 9, "CCD_PIXEL_SIZE_X": 9, "CCD_PIXEL_SIZE_Y": 8})
        client.change("CCD_FRAME", {"X": 8, "Y": 4, "WIDTH": 32, "HEIGHT": 16})
        client.change("CONFIG_PROCESS", {"CONFIG_SAVE": True})
        server.close()
        camera.close()
        other = self.camera(port=camera.port)
        client = self.client(self.server())
        self.assertEqual(client.value("DEVICE_ADDRESS", "PORT"), str(camera.port))
        client.connect()
        client.wait(lambda: client.vector("PID").state == "Ok", "told")
        self.assertNotEqual(client.value("PID", "I"), 5)
        client.change("CONFIG_PROCESS", {"CONFIG_LOAD": True})
        client.wait(lambda: client.value("PID", "I") == 5 and client.value("CCD_GAIN", "GAIN") == 2 and
                    client.value("TRIGGER_MODE", "VALUE") == "off,5,6" and
                    client.value("MIRRORING", "VERTICAL"), "loaded")
        blob = client.expose()
        pixels, header = blob.fits()
        self.assertEqual(pixels.shape, (16, 32))
        self.assertEqual((header["PIXSIZE1"], header["PIXSIZE2"]), (9, 8))
        self.assert_true_frame(blob, other)


class Readouts(DriverTest):
    sensor = "64x32"

    def test_regions_tables_and_masks_are_read_as_the_camera_is_set(self):
        camera, client = self.connected()
        client.change("AREA_REGIONS", {"VALUE": "0,0,16,8/16,8,32,4"})
        client.change("READOUT_MODE", {"REGIONS": True})
        self.assertEqual(client.expose().fits()[0].shape, (12, 32))
        client.change("BIN_TABLE", {"INDEX": "2", "VALUE": "0001" * 16})
        client.change("READOUT_FLAGS", {"FLAGS": 2})
        client.change("READOUT_MODE", {"BIN_TABLES": True})
        pixels, _ = client.expose().fits()
        self.assertEqual(pixels.shape, (16, 64))
        self.assertEqual(camera.sent(int(pixels.sum(dtype="u8")))["readout"], 2)
        client.change("BIN_MASK", {"VALUE": ("01" * 32 + "02" * 32) * 32})
        client.change("READOUT_FLAGS", {"FLAGS": 0})
        client.change("READOUT_MODE", {"BIN_MASK": True})
        pixels, _ = client.expose().fits()
        self.assertEqual(pixels.shape, (1, 2))
        self.assertEqual(camera.sent(int(pixels.sum(dtype="u8")))["readout"], 3)

    def test_fast_exposures_come_one_after_the_other_without_a_pause(self):
        camera, client = self.connected()
        client.change("CCD_FAST_TOGGLE", {"INDI_ENABLED": True})
        client.change("CCD_FAST_COUNT", {"FRAMES": 20})
        vector = client.vector("CCD_EXPOSURE")
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.01})
        client.wait(lambda: len(client.blobs) == 20 and vector.state == "Ok" and
                    client.vector("CCD_FAST_COUNT").state == "Idle", "20 frames")
        numbers = [blob.truth() for blob in client.blobs]
        camera.sent(numbers[-1][1], "crc")
        self.assertEqual([(total, check) for total, check, _ in numbers],
                         [(frame["sum"], frame["crc"]) for frame in camera.frames()])
        self.assertEqual([header["FRAMENO"] for _, _, header in numbers], list(range(1, 21)))
        self.assertEqual({frame["readout"] for frame in camera.frames()}, {1})

    def test_fast_exposures_are_aborted(self):
        _, client = self.connected()
        client.change("CCD_FAST_TOGGLE", {"INDI_ENABLED": True})
        client.change("CCD_FAST_COUNT", {"FRAMES": 1000})
        client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.05})
        client.wait(lambda: len(client.blobs) >= 3, "some frames")
        client.change("CCD_ABORT_EXPOSURE", {"ABORT": True})
        client.wait(lambda: client.vector("CCD_EXPOSURE").state == "Idle", "idle")
        client.pump(0.3)
        count = len(client.blobs)
        client.pump(0.5)
        self.assertEqual(len(client.blobs), count)
        client.change("CCD_FAST_TOGGLE", {"INDI_DISABLED": True})
        client.expose()

    def test_streams_show_true_frames(self):
        camera, client = self.connected()
        client.change("CCD_CAPTURE_FORMAT", {"INDI_MONO_8": True})
        client.change("LIMITS", {"LIMITS_PREVIEW_FPS": 120})
        client.change("STREAMING_EXPOSURE", {"STREAMING_EXPOSURE_VALUE": 0.02})
        client.change("IMAGE_INTERVAL", {"INTERVAL": 0.02})
        client.change("CCD_VIDEO_STREAM", {"STREAM_ON": True}, "Busy")
        client.wait(lambda: len(client.blobs) >= 100, "100 frames", 30)
        client.change("CCD_VIDEO_STREAM", {"STREAM_OFF": True}, "Idle")
        camera.sent(zlib.crc32(client.blobs[-1].data), "crc")
        sent = {(frame["sum"], frame["crc"]) for frame in camera.frames()}
        for blob in client.blobs:
            self.assertEqual(blob.format, ".stream")
            self.assertIn((sum(blob.data), zlib.crc32(blob.data)), sent)
        camera.wait("readout")
        client.change("CCD_CAPTURE_FORMAT", {"INDI_MONO_16": True})
        client.blobs.clear()
        client.wait(lambda: client.value("CCD_INFO", "CCD_BITSPERPIXEL") == 16, "16 bits")
        self.assert_true_frame(client.expose(), camera)

    def test_recordings_hold_every_frame_in_16_bits(self):
        camera, client = self.connected()
        folder = self.home + "/films"
        client.change("RECORD_FILE", {"RECORD_FILE_DIR": folder, "RECORD_FILE_NAME": "film.ser"},
                      "Idle")
        client.change("RECORD_OPTIONS", {"RECORD_FRAME_TOTAL": 100})
        client.change("STREAMING_EXPOSURE", {"STREAMING_EXPOSURE_VALUE": 0.005})
        client.change("RECORD_STREAM", {"RECORD_FRAME_ON": True}, "Busy")
        client.wait(lambda: client.vector("RECORD_STREAM").values["RECORD_OFF"], "recorded", 30)
        client.wait(lambda: os.path.exists(folder + "/film.ser"), "the file")
        deadline = time.monotonic() + 10
        while os.path.getsize(folder + "/film.ser") < 178 + 100 * (64 * 32 * 2 + 8):
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)
        with open(folder + "/film.ser", "rb") as file:
            data = file.read()
        size = 64 * 32 * 2
        frames = [data[178 + i * size:178 + (i + 1) * size] for i in range(100)]
        sums = [sum(struct.unpack("<2048H", frame)) for frame in frames]
        camera.sent(sums[-1])
        self.assertEqual(sums, [frame["sum"] for frame in camera.frames()][:100])

    def test_a_stream_that_fails_says_why(self):
        _, client = self.connected("--fault", "reboot:readout=1,frame=5,seconds=1")
        client.change("CCD_CAPTURE_FORMAT", {"INDI_MONO_8": True})
        client.change("STREAMING_EXPOSURE", {"STREAMING_EXPOSURE_VALUE": 0.02})
        vector = client.change("CCD_VIDEO_STREAM", {"STREAM_ON": True}, "Busy")
        client.wait(lambda: vector.state == "Alert", "alert")
        self.assertTrue(vector.values["STREAM_OFF"])
        self.assertIn("onnection", vector.messages[-1])
        connection = client.vector("CONNECTION")
        client.wait(lambda: "restored" in connection.messages[-1], "the link is back")
        client.expose()

    def test_pixels_alone_are_what_the_camera_sent(self):
        camera, client = self.connected()
        client.change("CCD_TRANSFER_FORMAT", {"FORMAT_NATIVE": True})
        blob = client.expose()
        self.assertEqual((blob.format, len(blob.data)), (".raw", 64 * 32 * 2))
        camera.sent(zlib.crc32(blob.data), "crc")


class Observatory(DriverTest):
    def test_other_devices_are_in_the_header(self):
        camera = self.camera()
        server = self.server(indi_support.DRIVER, "indi_simulator_telescope", "indi_simulator_wheel")
        mount = self.client(server, "Telescope Simulator")
        mount.change("CONNECTION", {"CONNECT": True})
        mount.change("GEOGRAPHIC_COORD", {"LAT": 48, "LONG": 11, "ELEV": 500})
        wheel = self.client(server, "Filter Simulator")
        wheel.change("CONNECTION", {"CONNECT": True})
        client = self.client(server)
        client.connect(camera.port)
        client.change("ACTIVE_DEVICES", {"ACTIVE_TELESCOPE": "Telescope Simulator",
                                         "ACTIVE_FILTER": "Filter Simulator"})
        client.change("FITS_HEADER", {"FITS_OBJECT": "M 31", "FITS_OBSERVER": "Vera"})
        client.change("SCOPE_INFO", {"FOCAL_LENGTH": 800, "APERTURE": 200})
        client.change("CCD_INFO", {"CCD_PIXEL_SIZE": 8, "CCD_PIXEL_SIZE_X": 8, "CCD_PIXEL_SIZE_Y": 8})
        header = {}
        deadline = time.monotonic() + indi_support.PATIENCE
        while "OBJCTRA" not in header or "SITELAT" not in header or "FILTER" not in header:
            self.assertLess(time.monotonic(), deadline, repr(header))
            header = client.expose(0.2).fits()[1]
        self.assertEqual((header["OBJECT"], header["OBSERVER"]), ("M 31", "Vera"))
        self.assertEqual(header["TELESCOP"], "Telescope Simulator")
        self.assertAlmostEqual(header["SCALE"], 206.264806 * 8 / 800, 4)
        self.assertAlmostEqual(header["SITELAT"], 48, 3)
        from astropy.coordinates import SkyCoord
        place = SkyCoord(header["OBJCTRA"], header["OBJCTDEC"], unit=("hourangle", "deg"))
        self.assertAlmostEqual(place.ra.deg % 360, header["RA"] % 360, 3)
        self.assertAlmostEqual(place.dec.deg, header["DEC"], 3)
        client.change("CCD_FRAME_TYPE", {"FRAME_DARK": True})
        self.assertNotIn("OBJCTRA", client.expose().fits()[1])


if __name__ == "__main__":
    unittest.main()
