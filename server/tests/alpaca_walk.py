"""A camera whose patterns and frames tests know, behind a server and an Alpaca client."""

import io
import os
import time
import unittest

import numpy
from astropy.io import fits

from alpaca_client import IDLE, Client
from server_support import Server, Simulator, until

WHOLE = os.environ.get("VX_ALPACA_WALK") == "whole"  # every bin with every subframe
REST = "/api/v1/cameras/0"
COLUMNS, ROWS = 128, 96  # of the sensor


class Walk(unittest.TestCase):
    """A camera, its server and a connected client, the same for the tests of a class."""

    options = ()
    camera_options = ()
    interface = 4
    sensor = "%dx%d" % (COLUMNS, ROWS)

    @classmethod
    def setUpClass(cls):
        cls.camera = Simulator(*cls.camera_options, sensor=cls.sensor)
        cls.addClassCleanup(cls.camera.retire)
        cls.server = Server(cls.camera.target, "--alpaca", "--pixel-size", "5.5",
                            "--alpaca-interface", str(cls.interface), *cls.options)
        cls.addClassCleanup(cls.server.retire)
        cls.server.open()

    def setUp(self):
        self.client = Client(self.server.port)
        self.addCleanup(self.client.close)
        self.client.put("connected", Connected="true")
        self.addCleanup(self.client.put, "connected", Connected="false")

    def assertError(self, number, call, *arguments, **more):
        self.assertEqual(self.client.number(call, *arguments, **more), number, (arguments, more))

    def assertNoStart(self, number, seconds=0):
        self.assertError(number, self.client.put, "startexposure", Duration=seconds, Light="true")

    def wait_idle(self):
        until(lambda: self.client.get("camerastate") == IDLE, "idle")

    def start(self, seconds, light="true"):
        self.began = time.time_ns()
        self.client.put("startexposure", Duration=seconds, Light=light)

    def expose(self, seconds=0, light="true"):
        """Takes a picture, and waits for it as clients do."""
        self.start(seconds, light)
        until(lambda: self.client.get("imageready"), "an image")
        self.assertEqual(self.client.get("camerastate"), IDLE)


class Camera(Walk):
    def setUp(self):
        super().setUp()
        self.whole_sensor()

    def whole_sensor(self):
        self.client.set(BinX=1, BinY=1, StartX=0, StartY=0, NumX=COLUMNS, NumY=ROWS)

    def pattern(self, mode, value=0):
        """Exact numbers in place of pictures; the other door must be let in for that."""
        lease = self.server.ask("POST", REST + "/lease", {"holder": "walk", "take": True}).json
        pattern = {"value": "%d,%d" % (mode, value)}
        for method, path, body in (("PUT", "/properties/test-pattern", pattern),
                                   ("DELETE", "/lease", None)):
            answer = self.server.ask(method, REST + path, body, {"X-Lease": lease["key"]})
            self.assertIn(answer.status, (200, 204), answer.body)

    def last_fits(self):
        """The last frame by the other door, as rows of columns."""
        last = self.server.get(REST + "/exposures").json["exposures"][-1]["id"]
        body = self.server.get(REST + "/exposures/%d/frame.fits" % last).body
        with fits.open(io.BytesIO(body)) as file:
            return numpy.array(file[0].data)

    def truth(self):
        """What the camera says of the frame that was begun last."""
        def find():
            return [frame for frame in self.camera.frames() if frame["beginRealtime"] >= self.began]
        return until(find, "the camera's account")[-1]
