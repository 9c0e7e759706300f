"""What an Alpaca camera can be set to, and where the limits are."""

from alpaca_client import (
    IDLE, INVALID_OPERATION, INVALID_VALUE, NOT_IMPLEMENTED, STATE, Refused)
from alpaca_walk import COLUMNS, REST, ROWS, Camera
from server_support import reap, until


def tearDownModule():
    reap()


class Settings(Camera):
    def test_what_the_camera_can_do_agrees_with_its_members(self):
        get, number = self.client.get, self.client.number
        self.assertEqual((get("cameraxsize"), get("cameraysize")), (COLUMNS, ROWS))
        self.assertGreaterEqual(min(get("pixelsizex"), get("pixelsizey")), 1.0)
        self.assertRegex(get("sensorname"), r"^[^a-z ]*$")
        bayer = [number(get, member) for member in ("bayeroffsetx", "bayeroffsety")]
        self.assertEqual(bayer, [NOT_IMPLEMENTED] * 2 if get("sensortype") == 0 else [0, 0])
        if not get("canasymmetricbin"):
            self.assertEqual(get("maxbinx"), get("maxbiny"))
        for can, member in (("cangetcoolerpower", "coolerpower"), ("canfastreadout", "fastreadout"),
                            ("cansetccdtemperature", "setccdtemperature")):
            self.assertEqual(number(get, member), 0 if get(can) else NOT_IMPLEMENTED, member)
        self.assertEqual(number(get, "readoutmode"), NOT_IMPLEMENTED if get("canfastreadout") else 0)
        if not get("canpulseguide"):
            self.assertIn(self.client.number(get, "ispulseguiding"), (0, NOT_IMPLEMENTED))
            self.assertError(NOT_IMPLEMENTED, self.client.put, "pulseguide", Direction=0, Duration=5)
            self.assertError(NOT_IMPLEMENTED, self.client.put, "pulseguide", Direction=9, Duration=-5)
        self.assertTrue(0 <= get("exposuremin") <= get("exposuremax") >= 0.0001)
        self.assertTrue(0 <= get("exposureresolution") <= get("exposuremax"))
        for member in ("electronsperadu", "fullwellcapacity", "heatsinktemperature",
                       "subexposureduration"):
            self.assertIn(number(get, member), (0, NOT_IMPLEMENTED), member)
        self.assertIn(number(get, "percentcompleted"), (INVALID_OPERATION, NOT_IMPLEMENTED))

    def test_bins_go_to_their_limits_and_no_further(self):
        for axis in "XY":
            member, name = "bin" + axis.lower(), "Bin" + axis
            limit = self.client.get("maxbin" + axis.lower())
            self.client.set(StartX=3, StartY=4, NumX=50, NumY=40)
            for each in range(1, limit + 1):
                self.client.put(member, **{name: each})
                self.assertEqual(self.client.get(member), each)
            for each in (0, -1, limit + 1, 32767, 32768, 65536, 65537, 2**31 - 1, -2**31):
                self.assertError(INVALID_VALUE, self.client.put, member, **{name: each})
            self.assertEqual(self.client.get(member), limit)
            subframe = [self.client.get(each) for each in ("startx", "starty", "numx", "numy")]
            self.assertEqual(subframe, [3, 4, 50, 40])

    def test_subframes_are_stored_unseen_and_refused_when_the_exposure_starts(self):
        limits = {"StartX": COLUMNS, "StartY": ROWS, "NumX": COLUMNS, "NumY": ROWS}
        for name, size in limits.items():
            wrong = [-1, -2**31, 2**31 - 1, 65536, size + 1] + [0] * name.startswith("Num")
            for value in wrong + [size] * name.startswith("Start"):
                with self.subTest(name=name, value=value):
                    self.whole_sensor()
                    self.client.set(**{name: value})
                    self.assertEqual(self.client.get(name.lower()), value)
                    self.assertNoStart(INVALID_VALUE, 0)
                    self.assertEqual(self.client.get("camerastate"), IDLE)
        for start, size in ((2**31 - 1, 2**31 - 1), (1, 2**31 - 1), (2**31 - 1, 1), (-1, 1),
                            (-2**31, -2**31), (1, COLUMNS), (COLUMNS - 1, 2), (-COLUMNS, COLUMNS)):
            self.whole_sensor()
            self.client.set(StartX=start, NumX=size)
            self.assertNoStart(INVALID_VALUE, 0)

    def test_durations_out_of_range_are_refused(self):
        longest = self.client.get("exposuremax")
        for seconds in (-1, -1e-9, longest * 1.001, 1e30, 1e308):
            self.assertNoStart(INVALID_VALUE, seconds)
        self.assertEqual(self.client.get("camerastate"), IDLE)
        self.assertError(INVALID_OPERATION, self.client.get, "imagearray")

    def test_gain_and_offset_go_to_their_limits_and_no_further(self):
        for name in ("Gain", "Offset"):
            member = name.lower()
            if self.client.number(self.client.get, member + "max") == NOT_IMPLEMENTED:
                continue
            least, most = self.client.get(member + "min"), self.client.get(member + "max")
            for value in sorted({least, most, (least + most) // 2}):
                self.client.put(member, **{name: value})
                self.assertEqual(self.client.get(member), value)
            for value in (least - 1, most + 1, -2**31, 2**31 - 1, 65536 + least):
                self.assertError(INVALID_VALUE, self.client.put, member, **{name: value})
            self.assertEqual(self.client.get(member), most)
            if name == "Gain":
                told = self.server.get(REST + "/properties/gain").json["value"]
                self.assertEqual(told, most, "the camera has it")
            self.client.put(member, **{name: least})

    def test_readout_modes_are_an_index(self):
        modes = self.client.get("readoutmodes")
        self.assertTrue(modes and all(modes))
        self.assertEqual(self.client.get("readoutmode"), 0)
        for mode in range(len(modes)):
            self.client.put("readoutmode", ReadoutMode=mode)
            self.assertEqual(self.client.get("readoutmode"), mode)
        for mode in (-1, len(modes), 256, 65536, 2**31 - 1):
            self.assertError(INVALID_VALUE, self.client.put, "readoutmode", ReadoutMode=mode)
        self.client.put("readoutmode", ReadoutMode=0)

    def test_the_cooler_is_switched_whatever_its_set_point_is(self):
        for on in (True, False, True, False):
            self.client.put("cooleron", CoolerOn=on)
            self.assertIs(self.client.get("cooleron"), on)
            self.assertIs(self.server.get(REST + "/properties/cooling").json["value"], on)
            self.client.put("setccdtemperature", SetCCDTemperature=-7.5 - on)
            self.assertEqual(self.client.get("setccdtemperature"), -7.5 - on)
            told = self.server.get(REST + "/properties/target-temp").json["value"]
            self.assertEqual(told, -7.5 - on)
            self.assertIs(self.client.get("cooleron"), on)

    def test_connecting_anew_begins_anew(self):
        self.expose()
        self.client.set(BinX=3, BinY=2, StartX=4, NumX=2**31 - 1)
        self.client.put("disconnect")
        until(lambda: not self.client.get("connecting"), "disconnected")
        self.assertIs(self.client.get("connected"), False)
        for _ in range(2):
            self.client.put("connect")
            until(lambda: not self.client.get("connecting"), "connected")
            self.assertIs(self.client.get("connected"), True)
        self.assertEqual([self.client.get(each) for each in ("binx", "biny", "startx", "starty", "numx",
                                                             "numy", "readoutmode", "imageready")],
                         [1, 1, 0, 0, COLUMNS, ROWS, 0, False])
        self.assertError(INVALID_OPERATION, self.client.get, "imagearray")
        self.assertError(INVALID_OPERATION, self.client.get, "lastexposureduration")
        self.assertError(INVALID_OPERATION, self.client.get, "lastexposurestarttime")

    def test_gain_and_offset_are_numbers_within_limits_and_have_no_names(self):
        self.client.put("offset", Offset=3)  # the camera does not tell it before
        for member in ("gain", "offset"):
            numbers = [self.client.number(self.client.get, each) for each in
                       (member, member + "min", member + "max", member + "s")]
            self.assertEqual(numbers, [0, 0, 0, NOT_IMPLEMENTED], member)

    def test_set_points_have_limits_at_both_ends(self):
        self.client.put("setccdtemperature", SetCCDTemperature=0.0)
        for values, bound in ((range(15, -285, -5), -273.15), (range(0, 200, 5), 100)):
            good = 0.0
            for value in values:
                number = self.client.number(self.client.put, "setccdtemperature",
                                            SetCCDTemperature=value)
                if number:
                    break
                good = value
            self.assertEqual(number, INVALID_VALUE)
            self.assertLessEqual(abs(value), abs(bound) + 5)
            self.assertEqual(self.client.get("setccdtemperature"), good)
        for value in (-1e9, 1e9, 1e300, -274, 101):
            self.assertError(INVALID_VALUE, self.client.put, "setccdtemperature",
                             SetCCDTemperature=value)

    def test_the_state_is_what_its_members_are(self):
        told = {each["Name"]: each["Value"] for each in self.client.get("devicestate")}
        for name in STATE:
            try:
                value = self.client.get(name.lower())
            except Refused:
                self.assertNotIn(name, told)
            else:
                self.assertEqual(told.get(name), value, name)
        self.assertIn("TimeStamp", told)
