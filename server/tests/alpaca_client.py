"""An Alpaca client that takes nothing on trust: every answer must keep the rules."""

import collections
import http.client
import itertools
import json
import re
import socket
import struct
import threading
import urllib.parse

import numpy

from server_support import PATIENCE

FORM = "application/x-www-form-urlencoded"
UINT32 = 4294967295

NOT_IMPLEMENTED, INVALID_VALUE, NOT_CONNECTED = 0x400, 0x401, 0x407
INVALID_OPERATION, ACTION_NOT_IMPLEMENTED, CANCELLED, DRIVER = 0x40B, 0x40C, 0x40E, 0x500
IDLE, WAITING, EXPOSING, READING, DOWNLOAD, ERROR = range(6)


def _kinds(table):
    return {name: kind for kind, names in table.items() for name in names.split()}


# What each member's Value is.
COMMON = _kinds({
    "bool": "connected connecting", "int": "interfaceversion", "states": "devicestate",
    "string": "name description driverinfo driverversion", "strings": "supportedactions"})
CAMERA = _kinds({
    "bool": "canabortexposure canasymmetricbin canfastreadout cangetcoolerpower canpulseguide"
            " cansetccdtemperature canstopexposure cooleron fastreadout hasshutter imageready"
            " ispulseguiding",
    "short": "bayeroffsetx bayeroffsety binx biny gain gainmin gainmax maxbinx maxbiny"
             " percentcompleted readoutmode",
    "int": "camerastate cameraxsize cameraysize offset offsetmin offsetmax maxadu numx numy startx"
           " starty sensortype",
    "double": "ccdtemperature coolerpower electronsperadu exposuremax exposuremin"
              " exposureresolution fullwellcapacity heatsinktemperature lastexposureduration"
              " pixelsizex pixelsizey setccdtemperature subexposureduration",
    "string": "lastexposurestarttime sensorname", "strings": "gains offsets readoutmodes",
    "image": "imagearray imagearrayvariant"})
GETS = {**COMMON, **CAMERA}
MANAGEMENT = {"/management/apiversions": "versions", "/management/v1/description": "server",
              "/management/v1/configureddevices": "devices"}

# What each PUT takes: the exact names, with the kind of their values.
CAMERA_PUTS = {name.lower(): {name: kind} for kind, names in {
    "bool": "CoolerOn FastReadout", "short": "BinX BinY Gain ReadoutMode",
    "int": "NumX NumY StartX StartY Offset",
    "double": "SetCCDTemperature SubExposureDuration"}.items() for name in names.split()}
CAMERA_PUTS.update(abortexposure={}, stopexposure={},
                   pulseguide={"Direction": "int", "Duration": "int"},
                   startexposure={"Duration": "double", "Light": "bool"})
PUTS = {**CAMERA_PUTS, "connected": {"Connected": "bool"}, "connect": {}, "disconnect": {},
        "action": {"Action": "string", "Parameters": "string"}}
PUTS.update({"command" + how: {"Command": "string", "Raw": "bool"}
             for how in ("blind", "bool", "string")})
ONLY_V4 = {"connect", "disconnect", "connecting", "devicestate"}
ANSWERING_PUTS = {"action": "string", "commandbool": "bool", "commandstring": "string"}

# Members of the state, as they are written there, with the kinds of their values.
STATE = {name: CAMERA[name.lower()] for name in (
    "CameraState CCDTemperature CoolerPower HeatSinkTemperature ImageReady IsPulseGuiding"
    " PercentCompleted").split()}

ELEMENTS = {1: "<i2", 2: "<i4", 3: "<f8", 4: "<f4", 5: "<u8", 6: "u1", 7: "<i8", 8: "<u2", 9: "<u4"}
IMAGE_BYTES = "application/imagebytes"
HEADER = struct.Struct("<iiIIiiiiiii")
Header = collections.namedtuple("Header", "version error client server start image transmission"
                                          " rank dimension1 dimension2 dimension3")


class Refused(Exception):
    """The device answered an error number."""

    def __init__(self, number, text):
        super().__init__("0x%X: %s" % (number, text))
        self.number = number


def _once(pairs):
    names = [name for name, _ in pairs]
    assert len(set(names)) == len(names), "a key stands twice: %s" % names
    return dict(pairs)


def _no_constant(word):
    raise AssertionError("no JSON number: " + word)


def strict_json(data):
    return json.loads(data.decode("utf-8"), object_pairs_hook=_once, parse_constant=_no_constant)


def check_kind(value, kind):
    """The value is of the kind, as JSON writes it."""
    right = {
        "bool": lambda: type(value) is bool,
        "short": lambda: type(value) is int and -2**15 <= value < 2**15,
        "int": lambda: type(value) is int and -2**31 <= value < 2**31,
        "double": lambda: type(value) in (int, float),
        "string": lambda: type(value) is str,
        "strings": lambda: type(value) is list and all(type(each) is str for each in value),
        "states": lambda: _is_state(value),
        "image": lambda: type(value) is list,
        "versions": lambda: value == [1],
        "server": lambda: sorted(value) == ["Location", "Manufacturer", "ManufacturerVersion",
                                            "ServerName"]
        and all(type(each) is str for each in value.values()),
        "devices": lambda: all(_is_device(each) for each in value)}[kind]
    assert right(), "%r is no %s" % (value, kind)


def _is_device(device):
    return sorted(device) == ["DeviceName", "DeviceNumber", "DeviceType", "UniqueID"] and \
        device["DeviceType"] == "Camera" and type(device["DeviceNumber"]) is int and \
        0 <= device["DeviceNumber"] <= UINT32 and type(device["DeviceName"]) is str and \
        device["UniqueID"].isascii() and device["UniqueID"].isprintable()


def _is_state(value):
    names = [each["Name"] for each in value]
    assert len(set(names)) == len(names), names
    for each in value:
        assert sorted(each) == ["Name", "Value"], each
        if each["Name"] == "TimeStamp":
            assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z", each["Value"]), each
        else:
            check_kind(each["Value"], STATE[each["Name"]])
    return True


class Answer:
    """What came back, and the rules that it must keep."""

    def __init__(self, response, body):
        self.status, self.body = response.status, body
        self.headers = {name.lower(): value for name, value in response.getheaders()}

    def type(self):
        return self.headers.get("content-type", "")

    def text(self):
        return self.body.decode("utf-8")

    def check_refusal(self, *statuses):
        """A request that was not understood is answered with a sentence."""
        allowed = statuses or (400, 404, 405)
        assert self.status in allowed, (self.status, self.body[:200])
        assert re.match(r"text/plain\b", self.type()), (self.type(), self.body[:200])
        assert self.text().strip(), "a refusal says why"
        if self.status == 405:
            assert self.headers.get("allow"), "405 says which methods are allowed"

    def envelope(self, transaction=0, kind=None):
        """The answer's envelope, whose Value is of the kind; of a PUT it has none."""
        assert self.status == 200, (self.status, self.body[:300])
        assert re.fullmatch(r"application/json(; ?charset=utf-8)?", self.type(), re.I), self.type()
        content = strict_json(self.body)
        keys = {"ClientTransactionID", "ServerTransactionID", "ErrorNumber", "ErrorMessage"}
        assert keys <= set(content), content
        assert set(content) - keys <= {"Value", "Type", "Rank"}, sorted(content)
        for name in ("ClientTransactionID", "ServerTransactionID"):
            assert type(content[name]) is int, content
        assert content["ClientTransactionID"] == transaction, (transaction, content)
        assert 1 <= content["ServerTransactionID"] <= UINT32, content
        number, message = content["ErrorNumber"], content["ErrorMessage"]
        assert type(number) is int and (number == 0 or 0x400 <= number <= 0xFFF), content
        assert type(message) is str and bool(message.strip()) == (number != 0), content
        if content.get("Value") is not None and kind != "image":
            check_kind(content["Value"], kind)
        assert number or ("Value" in content) == (kind is not None), (kind, content)
        assert "Value" not in content or content["Value"] is not None, "null breaks some clients"
        return content


class Client:
    """One connection to the server. What it sends can be as wrong as a test wants it."""

    numbers = itertools.count(1000)  # of transactions

    def __init__(self, port, client=77, device=0):
        self.port, self.client, self.device, self.server_transaction = port, client, device, 0
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
        self.connection.connect()
        self.connection.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def close(self):
        self.connection.close()

    def path(self, member):
        return member if member.startswith("/") else "/api/v1/camera/%d/%s" % (self.device, member)

    def raw(self, method, target, body=None, headers=None):
        """Exactly this request; pairs as a body become a form."""
        headers = dict(headers or {})
        if isinstance(body, (dict, list)):
            body = urllib.parse.urlencode(body, encoding="utf-8")
            headers.setdefault("Content-Type", FORM)
        self.connection.request(method, self.path(target), body, headers)
        response = self.connection.getresponse()
        return Answer(response, response.read())

    def _take(self, answer, transaction, kind):
        content = answer.envelope(transaction, kind)
        assert content["ServerTransactionID"] > self.server_transaction, content
        self.server_transaction = content["ServerTransactionID"]
        if content["ErrorNumber"]:
            raise Refused(content["ErrorNumber"], content["ErrorMessage"])
        return content

    def get(self, member, **headers):
        """The Value; Refused, if the device refuses."""
        transaction = next(self.numbers)
        query = "?ClientID=%d&ClientTransactionID=%d" % (self.client, transaction)
        answer = self.raw("GET", self.path(member) + query, headers=headers)
        kind = MANAGEMENT[member] if member in MANAGEMENT else GETS[member]
        return self._take(answer, transaction, kind)["Value"]

    def put(self, member, **values):
        transaction = next(self.numbers)
        ids = {"ClientID": self.client, "ClientTransactionID": transaction}
        answer = self.raw("PUT", member, {**values, **ids})
        return self._take(answer, transaction, ANSWERING_PUTS.get(member)).get("Value")

    def set(self, **values):
        """Sets members: set(BinX=2, NumX=10)."""
        for name, value in values.items():
            self.put(name.lower(), **{name: value})

    def number(self, call, *arguments, **more):
        """The error number of a call: 0, if it succeeds."""
        try:
            call(*arguments, **more)
        except Refused as refused:
            return refused.number
        return 0

    def image_bytes(self, member="imagearray", accept=IMAGE_BYTES):
        """The image by its binary form: an array [x, y], and its header."""
        transaction = next(self.numbers)
        query = "?ClientID=%d&ClientTransactionID=%d" % (self.client, transaction)
        answer = self.raw("GET", self.path(member) + query, headers={"Accept": accept})
        if answer.type() != IMAGE_BYTES:
            self._take(answer, transaction, "image")
            raise AssertionError("JSON instead of " + IMAGE_BYTES)
        return parse_image_bytes(answer, transaction)

    def image_json(self, member="imagearray", **headers):
        """The image by JSON: an array [x, y]."""
        transaction = next(self.numbers)
        query = "?ClientID=%d&ClientTransactionID=%d" % (self.client, transaction)
        answer = self.raw("GET", self.path(member) + query, headers=headers)
        content = self._take(answer, transaction, "image")
        assert content["Rank"] == 2, content["Rank"]
        assert content["Type"] == 2 or member == "imagearrayvariant" and content["Type"] in (1, 3)
        start = answer.text()[:answer.text().index('"Value"')]
        assert '"Type":' in start and '"Rank":' in start, start
        whole = all(type(each) is int for column in content["Value"] for each in column)
        assert whole or content["Type"] == 3, "counts are integers"
        return numpy.array(content["Value"])


def parse_image_bytes(answer, transaction):
    assert answer.status == 200, answer.status
    header = Header(*HEADER.unpack_from(answer.body))
    assert header.version == 1 and header.client == transaction and header.server, header
    assert min(header) >= 0, header
    if header.error:
        assert header[5:] == (0,) * 6, header
        raise Refused(header.error, answer.body[header.start:].decode("utf-8"))
    assert (header.start, header.image, header.rank, header.dimension3) == (44, 2, 2, 0), header
    pixels = numpy.frombuffer(answer.body, ELEMENTS[header.transmission], offset=header.start)
    return pixels.reshape(header.dimension1, header.dimension2), header


class Watch(threading.Thread):
    """Polls members on a connection of its own until it is told to end, and keeps what was told."""

    def __init__(self, port, *members):
        super().__init__(daemon=True)
        self.client, self.members, self.told, self.trouble = Client(port), members, [], None
        self.ends = threading.Event()
        self.start()

    def run(self):
        try:
            while not self.ends.is_set():
                self.told.append(tuple(self._read(member) for member in self.members))
        except Exception as failure:  # told by finish()
            self.trouble = failure

    def _read(self, member):
        try:
            return self.client.get(member)
        except Refused as refused:
            return refused

    def finish(self):
        self.ends.set()
        self.join(PATIENCE)
        self.client.close()
        if self.trouble:
            raise self.trouble
        return self.told
