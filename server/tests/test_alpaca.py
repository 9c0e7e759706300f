"""A client of the Alpaca camera interface that walks every endpoint, every error, and what real
clients get wrong."""

import json
import re
import socket
import struct
import time
import unittest
import urllib.parse
import zlib

import numpy

from server_support import PATIENCE, Server, Simulator, reap, until

DEVICE = "/api/v1/camera/0/"
COLUMNS, ROWS = 128, 96

NOT_IMPLEMENTED, INVALID_VALUE, VALUE_NOT_SET = 0x400, 0x401, 0x402
NOT_CONNECTED, INVALID_OPERATION, ACTION_NOT_IMPLEMENTED = 0x407, 0x40B, 0x40C
CANNOT_CONNECT = 0x504

# Every member of the interface: the verbs, the parameters of PUT with a good value, the type of the
# value of GET, and the error that a camera of this kind answers to each verb when connected and idle.
STRING, INT, DOUBLE, BOOL, LIST = str, int, float, bool, list
MEMBERS = {
    # common
    "connected": (BOOL, {"Connected": "true"}),
    "connect": (None, {}),
    "disconnect": (None, {}),
    "connecting": (BOOL, None),
    "devicestate": (LIST, None),
    "interfaceversion": (INT, None),
    "name": (STRING, None),
    "description": (STRING, None),
    "driverinfo": (STRING, None),
    "driverversion": (STRING, None),
    "supportedactions": (LIST, None),
    "action": (None, {"Action": "FrameFacts", "Parameters": ""}),
    "commandblind": (None, {"Command": "x", "Raw": "true"}),
    "commandbool": (None, {"Command": "x", "Raw": "true"}),
    "commandstring": (None, {"Command": "x", "Raw": "true"}),
    # camera
    "bayeroffsetx": (INT, None), "bayeroffsety": (INT, None),
    "binx": (INT, {"BinX": "1"}), "biny": (INT, {"BinY": "1"}),
    "camerastate": (INT, None),
    "cameraxsize": (INT, None), "cameraysize": (INT, None),
    "canabortexposure": (BOOL, None), "canasymmetricbin": (BOOL, None),
    "canfastreadout": (BOOL, None), "cangetcoolerpower": (BOOL, None),
    "canpulseguide": (BOOL, None), "cansetccdtemperature": (BOOL, None),
    "canstopexposure": (BOOL, None),
    "ccdtemperature": (DOUBLE, None),
    "cooleron": (BOOL, {"CoolerOn": "false"}),
    "coolerpower": (DOUBLE, None),
    "electronsperadu": (DOUBLE, None),
    "exposuremax": (DOUBLE, None), "exposuremin": (DOUBLE, None),
    "exposureresolution": (DOUBLE, None),
    "fastreadout": (BOOL, {"FastReadout": "false"}),
    "fullwellcapacity": (DOUBLE, None),
    "gain": (INT, {"Gain": "0"}), "gainmin": (INT, None), "gainmax": (INT, None),
    "gains": (LIST, None),
    "offset": (INT, {"Offset": "100"}), "offsetmin": (INT, None), "offsetmax": (INT, None),
    "offsets": (LIST, None),
    "hasshutter": (BOOL, None),
    "heatsinktemperature": (DOUBLE, None),
    "imagearray": (LIST, None), "imagearrayvariant": (LIST, None),
    "imageready": (BOOL, None),
    "ispulseguiding": (BOOL, None),
    "lastexposureduration": (DOUBLE, None),
    "lastexposurestarttime": (STRING, None),
    "maxadu": (INT, None),
    "maxbinx": (INT, None), "maxbiny": (INT, None),
    "numx": (INT, {"NumX": "128"}), "numy": (INT, {"NumY": "96"}),
    "startx": (INT, {"StartX": "0"}), "starty": (INT, {"StartY": "0"}),
    "percentcompleted": (INT, None),
    "pixelsizex": (DOUBLE, None), "pixelsizey": (DOUBLE, None),
    "readoutmode": (INT, {"ReadoutMode": "0"}),
    "readoutmodes": (LIST, None),
    "sensorname": (STRING, None),
    "sensortype": (INT, None),
    "setccdtemperature": (DOUBLE, {"SetCCDTemperature": "10"}),
    "subexposureduration": (DOUBLE, {"SubExposureDuration": "1"}),
    "abortexposure": (None, {}),
    "stopexposure": (None, {}),
    "pulseguide": (None, {"Direction": "0", "Duration": "10"}),
    "startexposure": (None, {"Duration": "0.001", "Light": "true"}),
}
ABSENT = {"bayeroffsetx", "bayeroffsety", "coolerpower", "electronsperadu", "fastreadout",
          "fullwellcapacity", "gains", "offsets", "heatsinktemperature", "subexposureduration",
          "commandblind", "commandbool", "commandstring", "pulseguide", "stopexposure"}
BEFORE_AN_IMAGE = {"imagearray", "imagearrayvariant", "lastexposureduration",
                   "lastexposurestarttime", "percentcompleted", "action"}
UNCONNECTED = {"connected", "connect", "disconnect", "connecting", "interfaceversion", "name",
               "description", "driverinfo", "driverversion", "supportedactions"}
FROM_V4 = {"connect", "disconnect", "connecting", "devicestate"}
SHORTS = {"binx", "biny", "gain", "gainmin", "gainmax", "maxbinx", "maxbiny", "readoutmode",
          "sensortype", "percentcompleted", "camerastate"}


def tearDownModule():
    reap()


class Alpaca(unittest.TestCase):
    options = ("--pixel-size", "4.5", "--discovery-port", "0")
    camera_options = ("--heartbeat", "0.05")

    def setUp(self):
        self.camera = Simulator(*self.camera_options, sensor="%dx%d" % (COLUMNS, ROWS))
        self.addCleanup(self.camera.retire)
        self.server = Server(self.camera.target, "--alpaca", *self.options)
        self.addCleanup(self.server.retire)
        self.server.open()

    def get(self, member, query="", **more):
        return self.server.get(DEVICE + member + query, **more)

    def put(self, member, form=None, **parameters):
        body = form if form is not None else urllib.parse.urlencode(parameters)
        headers = {"Content-Type": "application/x-www-form-urlencoded"} if body else {}
        return self.server.ask("PUT", DEVICE + member, body or None, headers)

    def value(self, member):
        answer = self.get(member).json
        self.assertEqual(answer["ErrorNumber"], 0, (member, answer))
        return answer["Value"]

    def error(self, answer, number):
        self.assertEqual(answer.status, 200, answer.body)
        self.assertEqual(answer.json["ErrorNumber"], number, answer.json)
        self.assertTrue(answer.json["ErrorMessage"])
        return answer.json["ErrorMessage"]

    def good(self, answer):
        self.assertEqual(answer.status, 200, answer.body)
        self.assertEqual((answer.json["ErrorNumber"], answer.json["ErrorMessage"]), (0, ""))
        return answer.json

    def set(self, **settings):
        """NumX=5 and the like, each to its member."""
        for name, value in settings.items():
            self.good(self.put(name.lower(), **{name: value}))

    def connect(self):
        self.good(self.put("connected", Connected="true"))

    def expose(self, duration=0.001, light="true"):
        self.good(self.put("startexposure", Duration=duration, Light=light))

    def image_ready(self):
        def look():
            self.assertIn(self.value("camerastate"), (0, 1, 2, 3, 4))
            return self.value("imageready")
        until(look, "image ready")
        self.assertEqual(self.value("camerastate"), 0)

    def bytes(self, member="imagearray"):
        """The image as it is in memory: rows of columns."""
        answer = self.get(member, headers={"Accept": "application/imagebytes, application/json"})
        self.assertEqual(answer.headers["content-type"], "application/imagebytes")
        fields = struct.unpack_from("<11i", answer.body)
        version, error, _, server, start, element, transmitted, rank, columns, rows, planes = fields
        self.assertEqual((version, error, start, element, rank, planes), (1, 0, 44, 2, 2, 0))
        self.assertGreater(server, 0)
        kind = {2: "<i4", 6: "u1", 8: "<u2"}[transmitted]
        pixels = numpy.frombuffer(answer.body, kind, offset=start)
        self.assertEqual(pixels.size, columns * rows)
        return pixels.reshape(columns, rows).T, transmitted

    def arrays(self):
        answer = self.get("imagearray")
        self.assertRegex(answer.body, rb'^\{"Type":2,"Rank":2,"Value":\[\[')
        self.assertEqual(answer.headers["content-type"].split(";")[0], "application/json")
        return numpy.array(self.good(answer)["Value"]).T


class Endpoints(Alpaca):
    def test_every_member_answers_as_the_tables_say(self):
        self.connect()
        for member, (kind, parameters) in MEMBERS.items():
            if member in ("startexposure", "disconnect", "connected"):
                continue
            with self.subTest(member):
                expected = 0
                if member in ABSENT:
                    expected = NOT_IMPLEMENTED
                elif member in BEFORE_AN_IMAGE:
                    expected = INVALID_OPERATION
                if kind is None:
                    answer = self.get(member)
                    self.assertEqual((answer.status, answer.headers["allow"]), (405, "PUT"))
                else:
                    wanted = VALUE_NOT_SET if member == "offset" else expected
                    answer = self.get(member, "?ClientID=7&ClientTransactionID=42")
                    self.check_envelope(answer, 42)
                    self.assertEqual(answer.json["ErrorNumber"], wanted, answer.json)
                    if wanted == 0:
                        self.check_type(member, kind, answer.json["Value"])
                if parameters is None:
                    answer = self.put(member, Odd=1)
                    self.assertEqual((answer.status, answer.headers["allow"]), (405, "GET"))
                else:
                    answer = self.put(member, ClientTransactionID=43, ClientID=7, **parameters)
                    self.check_envelope(answer, 43)
                    self.assertEqual(answer.json["ErrorNumber"], expected, answer.json)

    def check_envelope(self, answer, transaction):
        self.assertEqual(answer.status, 200, answer.body)
        self.assertEqual(answer.headers["content-type"].split(";")[0], "application/json")
        envelope = answer.json
        self.assertLessEqual(set(envelope), {"Type", "Rank", "Value", "ClientTransactionID",
                                             "ServerTransactionID", "ErrorNumber", "ErrorMessage"})
        self.assertEqual(envelope["ClientTransactionID"], transaction)
        self.assertGreater(envelope["ServerTransactionID"], 0)
        number = envelope["ErrorNumber"]
        self.assertTrue(number == 0 or 0x400 <= number <= 0xFFF)
        self.assertEqual(number == 0, envelope["ErrorMessage"] == "")
        self.assertNotIn(None, envelope.values())

    def check_type(self, member, kind, value):
        if kind is DOUBLE:
            self.assertIsInstance(value, (int, float))
            self.assertNotIsInstance(value, bool)
        else:
            self.assertIs(type(value), kind)
        if member in SHORTS:
            self.assertLessEqual(abs(value), 32767)

    def test_nothing_of_the_camera_works_unconnected(self):
        for member, (kind, parameters) in MEMBERS.items():
            if member in ("connect", "connected"):
                continue
            with self.subTest(member):
                expected = 0 if member in UNCONNECTED else NOT_CONNECTED
                if kind is not None:
                    self.assertEqual(self.get(member).json["ErrorNumber"], expected)
                if parameters is not None:
                    self.assertEqual(self.put(member, **parameters).json["ErrorNumber"], expected)

    def test_names_of_get_parameters_have_any_case_and_those_of_put_one(self):
        self.connect()
        answer = self.get("binx", "?cLIENTtRANSACTIONid=9")
        self.assertEqual(answer.json["ClientTransactionID"], 9)
        for member, (_, parameters) in MEMBERS.items():
            for name in parameters or {}:
                for other in (name.lower(), name.upper(), name.swapcase()):
                    if other == name:
                        continue
                    with self.subTest(member + " " + other):
                        form = dict(parameters)
                        form[other] = form.pop(name)
                        answer = self.put(member, **form)
                        self.assertEqual(answer.status, 400, answer.body)
                        self.assertTrue(answer.headers["content-type"].startswith("text/plain"))
        answer = self.put("binx", BinX=1, clienttransactionid=9)
        self.assertEqual(self.good(answer)["ClientTransactionID"], 0)

    def test_missing_doubled_and_extra_parameters(self):
        self.connect()
        for member, (_, parameters) in MEMBERS.items():
            for name, value in (parameters or {}).items():
                with self.subTest(member + " " + name):
                    rest = {key: each for key, each in parameters.items() if key != name}
                    self.assertEqual(self.put(member, **rest).status, 400)
                    twice = urllib.parse.urlencode([*parameters.items(), (name, value)])
                    self.assertEqual(self.put(member, form=twice).status, 400)
        self.good(self.put("binx", form="Odd=1&&BinX=1&More"))
        self.good(self.get("binx", "?Odd=1&More"))
        self.assertEqual(self.server.ask("PUT", DEVICE + "binx?BinX=1").status, 400)

    def test_values_that_cannot_be_read_are_400(self):
        self.connect()
        bad = {
            INT: ("", " ", "x", "1.0", "1x", "0x1", "1e0", "+1", "--1", "2147483648",
                  "-2147483649", "1,0", " 1", "1 ", "٣"),
            DOUBLE: ("", " ", "x", "0,5", "1.0x", "nan", "NaN", "inf", "Infinity", "-inf", "1e999",
                     "0x1p3", "1 ", "1.5.", "--1"),
            BOOL: ("", "1", "0", "yes", "tru", "true ", "123456", "wahr"),
        }
        for member, (kind, parameters) in MEMBERS.items():
            for name in parameters or {}:
                kinds = {"Duration": DOUBLE, "Light": BOOL, "Raw": BOOL, "Direction": INT}
                if member == "pulseguide":
                    kinds["Duration"] = INT
                kind_of = kinds.get(name, kind)
                if kind_of not in bad:
                    continue
                for value in bad[kind_of]:
                    with self.subTest("%s %s=%r" % (member, name, value)):
                        answer = self.put(member, **dict(parameters, **{name: value}))
                        self.assertEqual(answer.status, 400, answer.body)
        self.assertEqual(self.value("camerastate"), 0)

    def test_real_clients_write_numbers_and_booleans_in_their_ways(self):
        self.connect()
        self.good(self.put("setccdtemperature", SetCCDTemperature="1E01"))
        self.assertEqual(self.value("setccdtemperature"), 10)
        self.good(self.put("cooleron", CoolerOn="TRUE"))
        self.assertIs(self.value("cooleron"), True)
        self.good(self.put("setccdtemperature", form="SetCCDTemperature=%2d5%2E5"))
        self.assertEqual(self.value("setccdtemperature"), -5.5)
        self.good(self.put("startexposure", Duration="1E-03", Light="False"))
        self.image_ready()
        self.assertEqual(self.value("lastexposureduration"), 0.001)

    def test_ids_are_echoed_and_bad_ones_refused(self):
        for good in ("0", "1", "4294967295"):
            answer = self.get("name", "?ClientTransactionID=" + good)
            self.assertEqual(answer.json["ClientTransactionID"], int(good))
        for bad in ("", "-1", "4294967296", "x", "%20", "1.5"):
            for name in ("ClientTransactionID", "ClientID"):
                self.assertEqual(self.get("name", "?%s=%s" % (name, bad)).status, 400)
                answer = self.put("connected", form="Connected=true&%s=%s" % (name, bad))
                self.assertEqual(answer.status, 400)
        numbers = [self.get("name").json["ServerTransactionID"] for _ in range(5)]
        self.assertEqual(numbers, list(range(numbers[0], numbers[0] + 5)))

    def test_paths_are_case_sensitive_and_bad_ones_400(self):
        for path in ("/apx/v1/camera/0/name", "/api/1/camera/0/name", "/api/v/camera/0/name",
                     "/api/V1/camera/0/name", "/api/v2/camera/0/name", "/api/v1/CAMERA/0/name",
                     "/api/v1/odd/0/name", "/api/v1/camera/-1/name", "/api/v1/camera/99999/name",
                     "/api/v1/camera/A/name", "/api/v1/camera/00/name", "/api/v1/camera/0/odd",
                     "/api/v1/camera/0/Name", "/api/v1/camera/0", "/api/v1/camera/0/name/x",
                     "/api/v1/camera/4294967296/name"):
            with self.subTest(path):
                self.assertIn(self.server.get(path).status, (404,) if "apx" in path else (400,))
        for method in ("POST", "DELETE", "PATCH"):
            self.assertEqual(self.server.ask(method, DEVICE + "connected").status, 405)
        self.assertIs(self.value("connected"), False)

    def test_bodies_of_other_types_are_refused(self):
        for kind in ("application/json", "multipart/form-data; boundary=x", "text/plain"):
            answer = self.server.ask("PUT", DEVICE + "connected", b"Connected=true",
                                     {"Content-Type": kind})
            self.assertEqual(answer.status, 400)
        answer = self.server.ask("PUT", DEVICE + "connected", b"Connected=true", {
            "Content-Type": "Application/X-WWW-Form-Urlencoded; charset=utf-8"})
        self.good(answer)


class Management(Alpaca):
    def test_management_tells_of_the_devices(self):
        versions = self.server.get("/management/apiversions?ClientTransactionID=3").json
        self.assertEqual((versions["Value"], versions["ClientTransactionID"]), ([1], 3))
        description = self.server.get("/management/v1/description").json["Value"]
        self.assertEqual(set(description),
                         {"ServerName", "Manufacturer", "ManufacturerVersion", "Location"})
        devices = self.server.get("/management/v1/configureddevices").json["Value"]
        self.assertEqual([(d["DeviceType"], d["DeviceNumber"]) for d in devices], [("Camera", 0)])
        self.assertRegex(devices[0]["UniqueID"], r"^[0-9a-f]{32}$")
        for path in ("/management/v2/description", "/management/odd", "/management"):
            self.assertEqual(self.server.get(path).status, 404)
        self.assertEqual(self.server.ask("PUT", "/management/apiversions").status, 405)

    def test_setup_pages_are_html(self):
        for path, status in (("/setup", 200), ("/setup/v1/camera/0/setup", 200),
                             ("/setup/v1/camera/1/setup", 400), ("/setup/odd", 400)):
            answer = self.server.get(path)
            self.assertEqual(answer.status, status)
            if status == 200:
                self.assertTrue(answer.headers["content-type"].startswith("text/html"))

    def test_ids_of_devices_differ_and_stay(self):
        servers = []
        for _ in range(2):
            server = Server("sim?sensor=16x16", "sim?sensor=16x16", "--alpaca",
                            "--discovery-port", "0")
            self.addCleanup(server.retire)
            devices = server.get("/management/v1/configureddevices").json["Value"]
            servers.append([device["UniqueID"] for device in devices])
        self.assertEqual(servers[0], servers[1])
        self.assertNotEqual(*servers[0])

    def test_the_order_of_cameras_changes_no_id(self):
        ids = []
        targets = ["127.0.0.1:12001", "127.0.0.1:12002"]
        for order in (targets, targets[::-1]):
            server = Server(*order, "--alpaca", "--discovery-port", "0")
            self.addCleanup(server.retire)
            devices = server.get("/management/v1/configureddevices").json["Value"]
            ids.append([device["UniqueID"] for device in devices])
        self.assertEqual(ids[0], ids[1][::-1])

    def test_a_path_that_is_not_written_plainly_does_nothing(self):
        self.connect()
        for path in ("connected%00", "/connected", "connected%2f..", "connected%0a", "%2e/connected",
                     "connected%", "./connected"):
            for method, body in (("GET", None), ("PUT", "Connected=false")):
                answer = self.server.ask(method, DEVICE + path, body,
                                         {"Content-Type": "application/x-www-form-urlencoded"})
                self.assertEqual((answer.status, answer.headers["content-type"].split(";")[0]),
                                 (400, "text/plain"), path)
        self.assertIs(self.value("connected"), True)

    def test_mistakes_in_other_paths_are_left_to_rest(self):
        self.assertEqual(self.server.get("/api/v1/camras").kind, "unknown-path")


class Discovery(unittest.TestCase):
    def test_servers_that_share_the_port_answer_queries(self):
        port = 13227
        servers = [Server("sim?sensor=16x16", "--alpaca", "--discovery-port", str(port))
                   for _ in range(2)]
        for server in servers:
            self.addCleanup(server.retire)
        client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(client.close)
        client.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        client.settimeout(PATIENCE)
        for query in (b"alpacadiscovery2", b"alpacadiscovery", b"", b"x" * 2000, b"ALPACADISCOVERY1"):
            client.sendto(query, ("127.255.255.255", port))
        client.sendto(b"alpacadiscovery1", ("127.255.255.255", port))
        client.sendto(b"alpacadiscovery1 and more", ("127.255.255.255", port))
        answers = [client.recv(100) for _ in range(4)]
        ports = sorted(json.loads(answer)["AlpacaPort"] for answer in answers)
        self.assertEqual(ports, sorted([server.port for server in servers] * 2))
        self.assertRegex(answers[0], rb'^\{"AlpacaPort":\d+\}$')
        client.settimeout(0.3)
        self.assertRaises(TimeoutError, client.recv, 100)


class Versions(Alpaca):
    options = Alpaca.options + ("--alpaca-interface", "3")

    def test_version_3_lacks_what_came_with_4(self):
        self.assertEqual(self.value("interfaceversion"), 3)
        for member in FROM_V4:
            self.assertEqual(self.get(member).status, 400)
            self.assertEqual(self.put(member).status, 400)
        self.connect()
        self.assertIs(self.value("connected"), True)


class Connecting(Alpaca):
    def test_connecting_in_the_background_ends(self):
        self.assertEqual(self.value("interfaceversion"), 4)
        self.assertIs(self.value("connecting"), False)
        self.good(self.put("connect"))
        until(lambda: not self.value("connecting"), "connected")
        self.assertIs(self.value("connected"), True)
        self.good(self.put("connect"))
        self.good(self.put("disconnect"))
        until(lambda: not self.value("connecting"), "disconnected")
        self.assertIs(self.value("connected"), False)
        self.good(self.put("disconnect"))

    def test_the_last_order_of_several_at_once_holds(self):
        for orders in (("connect", "disconnect"), ("connect", "disconnect", "connect")) * 20:
            self.connect()
            for order in orders:
                self.good(self.put(order))
            until(lambda: not self.value("connecting"), "it is over")
            self.assertIs(self.value("connected"), orders[-1] == "connect")

    def test_connecting_anew_resets_bins_subframe_and_image(self):
        self.connect()
        self.set(BinX=2, BinY=2, NumX=5, NumY=6, StartX=1, StartY=2)
        self.expose()
        self.image_ready()
        self.good(self.put("connected", Connected="false"))
        self.connect()
        names = ("binx", "biny", "startx", "starty", "numx", "numy", "imageready", "camerastate")
        self.assertEqual([self.value(name) for name in names],
                         [1, 1, 0, 0, COLUMNS, ROWS, False, 0])
        self.error(self.get("imagearray"), INVALID_OPERATION)

    def test_a_camera_that_is_not_there_cannot_be_connected(self):
        server = Server("127.0.0.1:18301", "--alpaca", "--discovery-port", "0")
        self.addCleanup(server.retire)
        self.server = server
        self.error(self.put("connected", Connected="true"), CANNOT_CONNECT)
        self.assertIs(self.value("connected"), False)
        self.good(self.put("connect"))
        until(lambda: self.get("connecting").json["ErrorNumber"] == CANNOT_CONNECT, "the error")

    def test_device_state_has_the_names_of_the_interface(self):
        self.connect()
        until(lambda: "CCDTemperature" in str(self.value("devicestate")), "a temperature")
        states = {state["Name"]: state["Value"] for state in self.value("devicestate")}
        self.assertEqual(set(states), {"CameraState", "CCDTemperature", "ImageReady",
                                       "IsPulseGuiding", "TimeStamp"})
        self.assertRegex(states["TimeStamp"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d+Z$")
        self.good(self.put("startexposure", Duration=30, Light="true"))
        states = {state["Name"]: state["Value"] for state in self.value("devicestate")}
        self.assertLessEqual({"PercentCompleted", "CameraState"}, set(states))
        self.assertIn(states["CameraState"], (1, 2))


class Settings(Alpaca):
    def setUp(self):
        super().setUp()
        self.connect()

    def test_gain_has_numbers_within_its_limits(self):
        least, most = self.value("gainmin"), self.value("gainmax")
        for gain in (least, most):
            self.set(Gain=gain)
            self.assertEqual(self.value("gain"), gain)
        for gain in (least - 1, most + 1):
            self.error(self.put("gain", Gain=gain), INVALID_VALUE)
        self.assertEqual(self.server.get("/api/v1/cameras/0/properties/gain").json["value"], most)

    def test_offset_is_known_once_it_was_set(self):
        self.error(self.get("offset"), VALUE_NOT_SET)
        least, most = self.value("offsetmin"), self.value("offsetmax")
        self.assertEqual((least, most), (0, 65535))  # a word of 16 bits in the camera
        for offset in (least, most):
            self.set(Offset=offset)
            self.assertEqual(self.value("offset"), offset)
            self.set(Gain=1)
            self.assertEqual(self.value("offset"), offset)
        for offset in (least - 1, most + 1):
            self.error(self.put("offset", Offset=offset), INVALID_VALUE)

    def test_the_cooler_follows(self):
        self.set(SetCCDTemperature=-10, CoolerOn="true")
        self.assertEqual((self.value("setccdtemperature"), self.value("cooleron")), (-10, True))
        first = until(lambda: self.get("ccdtemperature").json.get("Value"), "a temperature")
        until(lambda: self.value("ccdtemperature") < first, "it gets colder")
        for degrees in (-273.16, -201, 101):
            self.error(self.put("setccdtemperature", SetCCDTemperature=degrees), INVALID_VALUE)
        answers = [self.put("setccdtemperature", SetCCDTemperature=d).json["ErrorNumber"]
                   for d in range(15, -273, -5)]
        self.assertEqual(set(answers), {0, INVALID_VALUE})  # also what the camera itself refuses
        self.assertEqual(answers[0], 0)

    def test_readout_modes_have_names(self):
        modes = self.value("readoutmodes")
        for number in range(len(modes)):
            self.set(ReadoutMode=number)
            self.assertEqual(self.value("readoutmode"), number)
        for number in (-1, len(modes)):
            self.error(self.put("readoutmode", ReadoutMode=number), INVALID_VALUE)

    def test_bins_are_checked_at_once_and_subframes_are_not(self):
        most = self.value("maxbinx")
        for name in ("BinX", "BinY"):
            for good in range(1, most + 1):
                self.set(**{name: good})
                self.assertEqual(self.value(name.lower()), good)
            for bad in (0, -1, most + 1, 2147483647):
                self.error(self.put(name.lower(), **{name: bad}), INVALID_VALUE)
        for name in ("NumX", "NumY", "StartX", "StartY"):
            for value in (COLUMNS + 1, -5, 0, 2147483647, -2147483648):
                self.set(**{name: value})
                self.assertEqual(self.value(name.lower()), value)

    def test_limits_agree_with_each_other(self):
        self.assertLessEqual(self.value("exposuremin"), self.value("exposuremax"))
        self.assertEqual(self.value("pixelsizex"), 4.5)
        self.assertEqual((self.value("cameraxsize"), self.value("cameraysize")), (COLUMNS, ROWS))
        self.assertEqual(self.value("maxadu"), 65535)
        self.set(ReadoutMode=1)
        self.assertEqual(self.value("maxadu"), 255)
        self.assertEqual(self.value("sensortype"), 0)
        self.assertLessEqual(len(self.value("description")), 64)
        self.assertRegex(self.value("driverversion"), r"^\d+\.\d+$")


class Images(Alpaca):
    def setUp(self):
        super().setUp()
        self.connect()

    def pattern(self, value):
        path = "/api/v1/cameras/0/properties/test-pattern"
        key = self.server.ask("POST", "/api/v1/cameras/0/lease", {"holder": "t", "take": True})
        headers = {"X-Lease": key.json["key"]}
        self.assertEqual(self.server.ask("PUT", path, {"value": value}, headers).status, 200)
        self.server.ask("DELETE", "/api/v1/cameras/0/lease", headers=headers)

    def test_an_image_is_what_the_camera_sent(self):
        self.expose(0.05)
        self.image_ready()
        truth = self.camera.frame(1)
        pixels, transmitted = self.bytes()
        self.assertEqual((pixels.shape, transmitted), ((ROWS, COLUMNS), 8))
        self.assertEqual(zlib.crc32(pixels.astype("<u2").tobytes()), truth["crc"])
        self.assertTrue((self.arrays() == pixels).all())
        self.assertTrue((self.bytes("imagearrayvariant")[0] == pixels).all())
        facts = json.loads(self.good(self.put("action", Action="framefacts", Parameters=""))["Value"])
        self.assertEqual((facts["sum"], facts["complete"]), (truth["sum"], True))

    def test_times_are_those_of_the_exposure(self):
        before = time.time()
        self.expose(0.3)
        self.image_ready()
        self.assertAlmostEqual(self.value("lastexposureduration"), 0.3, delta=0.006)
        text = self.value("lastexposurestarttime")
        self.assertRegex(text, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?$")
        truth = self.camera.frame(1)["beginRealtime"] / 1e9
        begun = time.mktime(time.strptime(text[:19], "%Y-%m-%dT%H:%M:%S")) - time.timezone
        self.assertLess(abs(begun + float("0" + text[19:]) - truth), 0.1)
        self.assertGreater(truth, before - 1)

    def test_subframes_and_bins_of_every_combination(self):
        self.pattern("4,0")  # row + column
        for bin_x, bin_y, start_x, start_y, num_x, num_y in (
                (1, 1, 0, 0, 128, 96), (1, 1, 7, 5, 11, 13), (1, 1, 127, 95, 1, 1),
                (2, 2, 0, 0, 64, 48), (2, 2, 3, 4, 10, 20), (3, 1, 2, 50, 40, 46),
                (1, 4, 100, 1, 28, 23), (5, 7, 24, 12, 1, 1), (15, 15, 0, 0, 8, 6)):
            with self.subTest((bin_x, bin_y, start_x, start_y, num_x, num_y)):
                self.set(NumX=num_x, StartY=start_y, BinX=bin_x, NumY=num_y, BinY=bin_y,
                         StartX=start_x)
                self.expose()
                self.image_ready()
                rows, columns = numpy.mgrid[0:ROWS, 0:COLUMNS]
                whole = (rows + columns)[:ROWS // bin_y * bin_y, :COLUMNS // bin_x * bin_x]
                sums = whole.reshape(ROWS // bin_y, bin_y, COLUMNS // bin_x, bin_x).sum((1, 3))
                wanted = sums[start_y:start_y + num_y, start_x:start_x + num_x]
                pixels, _ = self.bytes()
                self.assertEqual(pixels.tolist(), wanted.tolist())
                self.assertEqual(self.arrays().tolist(), wanted.tolist())

    def test_pixels_travel_in_the_narrowest_type(self):
        self.pattern("1,60000")
        for settings, wanted, value in (({}, 8, 60000), ({"BinX": 2, "NumX": 64}, 2, 120000),
                                        ({"BinX": 1, "NumX": 128, "ReadoutMode": 1}, 6, 234)):
            self.set(**settings)
            self.expose()
            self.image_ready()
            pixels, transmitted = self.bytes()
            self.assertEqual((transmitted, set(pixels.ravel().tolist())), (wanted, {value}))
            self.assertLessEqual(value, self.value("maxadu"))

    def test_what_the_client_accepts_decides_on_the_form(self):
        self.expose()
        self.image_ready()
        for accepted, wanted in (("*/*", "json"), ("application/json", "json"), ("", "json"),
                                 ("application/imagebytes", "imagebytes"),
                                 ("application/json, Application/ImageBytes;q=0.9", "imagebytes")):
            answer = self.get("imagearray", headers={"Accept": accepted})
            self.assertIn(wanted, answer.headers["content-type"])
        answer = self.get("imagearray", headers={"Accept": "application/imagebytes"})
        self.assertEqual(answer.headers["content-type"], "application/imagebytes")

    def test_darks_keep_the_shutter_closed(self):
        self.expose(1, light="false")
        self.image_ready()
        dark = self.bytes()[0].mean()
        self.expose(1)
        self.image_ready()
        self.assertLess(dark + 20, self.bytes()[0].mean())

    def test_impossible_exposures_are_refused_and_change_nothing(self):
        self.expose()
        self.image_ready()
        whole = {"NumX": COLUMNS, "NumY": ROWS, "StartX": 0, "StartY": 0, "BinX": 1, "BinY": 1}
        bad = [{"NumX": 0}, {"NumX": -1}, {"NumX": COLUMNS + 1}, {"NumY": 0}, {"NumY": ROWS + 1},
               {"StartX": -1}, {"StartX": 1}, {"StartY": -1}, {"StartY": 1},
               {"StartX": 2147483647, "NumX": 2147483647}, {"BinX": 2}, {"BinY": 2},
               {"BinX": 3, "NumX": 43}, {"StartX": COLUMNS + 1}]
        for settings in bad:
            with self.subTest(settings):
                self.set(**dict(whole, **settings))
                self.error(self.put("startexposure", Duration=0.001, Light="true"), INVALID_VALUE)
        self.set(**whole)
        for duration in ("-1", "-0.001", "4294967.5", "1E30"):
            self.error(self.put("startexposure", Duration=duration, Light="true"), INVALID_VALUE)
        self.assertIs(self.value("imageready"), True)
        self.expose(0)
        self.image_ready()


class Exposing(Alpaca):
    def setUp(self):
        super().setUp()
        self.connect()

    def test_an_exposure_goes_through_its_states(self):
        self.expose()
        self.image_ready()
        begun = time.monotonic()
        self.expose(0.6)
        self.assertLess(time.monotonic() - begun, 1)
        self.assertIs(self.value("imageready"), False)
        self.assertIn(self.value("camerastate"), (1, 2))
        self.error(self.get("imagearray"), INVALID_OPERATION)
        self.error(self.put("startexposure", Duration=1, Light="true"), INVALID_OPERATION)
        self.set(NumX=10)  # of the next one
        states, percents = [], []

        def look():
            percent = self.get("percentcompleted").json
            if percent["ErrorNumber"] == 0:
                percents.append(percent["Value"])
            ready = self.value("imageready")
            states.append(self.value("camerastate"))
            self.assertFalse(ready and states[-1] != 0)
            return ready
        until(look, "image ready")
        self.assertEqual(states, sorted(states, key=lambda state: (state == 0, state)))
        self.assertEqual(percents, sorted(percents))
        self.assertTrue(percents and 0 <= percents[0] and percents[-1] <= 100)
        self.error(self.get("percentcompleted"), INVALID_OPERATION)
        self.assertEqual(self.bytes()[0].shape, (ROWS, COLUMNS))

    def test_an_abort_leaves_no_image(self):
        self.good(self.put("abortexposure"))
        self.expose(60)
        self.good(self.put("abortexposure"))
        self.assertEqual((self.value("camerastate"), self.value("imageready")), (0, False))
        self.error(self.get("imagearray"), INVALID_OPERATION)
        self.expose()
        self.image_ready()
        self.good(self.put("abortexposure"))
        self.assertIs(self.value("imageready"), True)

    def test_whoever_holds_the_lease_controls(self):
        path = "/api/v1/cameras/0/lease"
        self.good(self.put("gain", Gain=1, ClientID=17))
        holder = self.server.get(path).json["holder"]
        self.assertIn("17", holder)
        self.assertEqual(self.server.ask("POST", "/api/v1/cameras/0/exposures", {}).status, 423)
        self.server.ask("POST", path, {"holder": "operator", "take": True})
        for member in ("startexposure", "gain", "cooleron", "setccdtemperature", "offset",
                       "abortexposure"):
            message = self.error(self.put(member, **MEMBERS[member][1]), INVALID_OPERATION)
            self.assertIn("operator", message)
        self.assertIs(self.value("connected"), True)

    def test_an_exposure_of_somebody_else_is_not_disturbed(self):
        self.server.ask("POST", "/api/v1/cameras/0/exposures", {"exposure": 60})
        self.error(self.put("startexposure", Duration=1, Light="true"), INVALID_OPERATION)
        self.good(self.put("abortexposure"))
        self.assertFalse(self.server.get("/api/v1/cameras/0/exposures/1").json["over"])
        self.assertIs(self.value("imageready"), False)

    def test_status_is_answered_on_many_connections_while_it_exposes(self):
        self.expose(20)
        for member in ("imageready", "camerastate", "ccdtemperature", "percentcompleted"):
            begun = time.monotonic()
            for _ in range(10):
                self.get(member)
            self.assertLess((time.monotonic() - begun) / 10, 0.5)


class Failing(Alpaca):
    def start(self, *faults):
        camera = Simulator("--heartbeat", "0.05",
                           *(word for fault in faults for word in ("--fault", fault)))
        self.addCleanup(camera.retire)
        self.server = Server(camera.target, *self.options, "--alpaca")
        self.addCleanup(self.server.retire)
        self.server.open()
        self.connect()

    def fails(self, number):
        self.expose()
        until(lambda: self.get("imageready").json["ErrorNumber"], "the failure")
        for member in ("imageready", "percentcompleted", "imagearray", "lastexposureduration"):
            self.error(self.get(member), number)
        self.assertIn(self.value("camerastate"), (0, 5))
        answer = self.get("imagearray", headers={"Accept": "application/imagebytes"})
        self.error(answer, number)

    def test_an_incomplete_frame_is_no_image(self):
        self.start("missing-packet:packet=7")
        self.fails(0x503)
        self.expose()
        self.image_ready()

    def test_a_lost_link_is_told_and_the_next_exposure_works(self):
        self.start("reset:readout=1,packet=20")
        self.fails(0x501)
        until(lambda: self.value("connected"), "the link is made anew")
        self.expose()
        self.image_ready()

    def test_an_error_of_the_camera_is_told(self):
        self.start("error-storm:count=1,readout=1,packet=3")
        self.fails(0x502)

    def test_a_camera_that_vanishes_is_not_connected(self):
        self.connect()
        self.expose()
        self.image_ready()
        self.camera.end()
        until(lambda: self.value("connected") is False, "not connected")
        for member in ("binx", "gain", "cooleron", "ccdtemperature", "camerastate", "devicestate"):
            self.error(self.get(member), NOT_CONNECTED)
        self.error(self.put("startexposure", Duration=1, Light="true"), NOT_CONNECTED)
        for member in ("imageready", "lastexposureduration", "imagearray"):  # that was taken before
            self.good(self.get(member))
        self.good(self.put("connected", Connected="false"))
        self.assertNotEqual(self.put("connected", Connected="true").json["ErrorNumber"], 0)


class Unset(Alpaca):
    options = ("--discovery-port", "0")

    def test_a_pixel_size_that_nobody_told_is_not_invented(self):
        self.connect()
        self.error(self.get("pixelsizex"), VALUE_NOT_SET)


if __name__ == "__main__":
    unittest.main()
