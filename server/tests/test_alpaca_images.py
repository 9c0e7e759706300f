"""Exposures through Alpaca: how they begin, run and end, and images that are what was sent."""

import calendar
import random
import time
import zlib

import numpy

from alpaca_client import (
    EXPOSING, IDLE, IMAGE_BYTES, INVALID_OPERATION, INVALID_VALUE, NOT_IMPLEMENTED, WAITING, Refused,
    Watch)
from alpaca_walk import COLUMNS, ROWS, WHOLE, Camera
from server_support import reap, until

FLAT, BY_COLUMN, BY_ROW = 1, 2, 3  # patterns of the camera


def tearDownModule():
    reap()


class Exposures(Camera):
    def test_a_start_returns_at_once_and_the_state_is_true_from_then_on(self):
        before = time.monotonic()
        self.start(60)
        self.assertLess(time.monotonic() - before, 10)
        self.assertIn(self.client.get("camerastate"), (WAITING, EXPOSING))
        self.assertIs(self.client.get("imageready"), False)
        self.assertError(INVALID_OPERATION, self.client.get, "imagearray")
        self.assertError(INVALID_OPERATION, self.client.get, "imagearrayvariant")
        self.assertNoStart(INVALID_OPERATION, 0)
        self.assertNoStart(INVALID_VALUE, -1)
        self.assertEqual(self.client.get("camerastate"), EXPOSING)
        self.client.put("abortexposure")

    def test_an_exposure_tells_how_far_it_is_and_when_it_was(self):
        before = time.time()
        self.start(1)
        told = []
        while not self.client.get("imageready"):
            try:
                told.append(self.client.get("percentcompleted"))
            except Refused as refused:  # it has just ended
                self.assertEqual(refused.number, INVALID_OPERATION)
        self.assertEqual(self.client.get("camerastate"), IDLE)
        self.assertEqual(told, sorted(told))
        self.assertTrue(told and 0 <= told[0] <= told[-1] <= 100 and len(set(told)) > 1, told)
        self.assertAlmostEqual(self.client.get("lastexposureduration"), 1, delta=0.02)
        text = self.client.get("lastexposurestarttime")
        self.assertRegex(text, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?$")
        start = calendar.timegm(time.strptime(text[:19], "%Y-%m-%dT%H:%M:%S"))
        self.assertAlmostEqual(start, before, delta=2)
        self.assertEqual(self.client.image_bytes()[0].sum(), self.truth()["sum"])

    def test_what_is_set_during_an_exposure_is_of_the_next(self):
        self.client.set(NumX=30, NumY=20)
        self.client.put("startexposure", Duration=0.2, Light="true")
        self.client.set(BinX=2, NumX=11, NumY=12, StartX=1)
        until(lambda: self.client.get("imageready"), "an image")
        self.assertEqual(self.client.image_bytes()[0].shape, (30, 20))
        self.expose()
        self.assertEqual(self.client.image_bytes()[0].shape, (11, 12))

    def test_an_image_is_ready_only_together_with_idle(self):
        for seconds in (0, 0.001, 0.05) * (20 if WHOLE else 3):
            self.client.put("startexposure", Duration=seconds, Light="true")
            watches = [Watch(self.server.port, "imageready", "camerastate"),
                       Watch(self.server.port, "camerastate", "imageready")]
            until(lambda: self.client.get("imageready"), "an image")
            first, second = (watch.finish() for watch in watches)
            for ready, state in first:
                self.assertTrue(not ready or state == IDLE, (ready, state))
            for state, ready in second:
                self.assertTrue(state != IDLE or ready is True, (ready, state))

    def test_an_aborted_exposure_leaves_no_image_and_the_next_is_whole(self):
        self.client.put("abortexposure")
        self.expose()
        for seconds, delay in [(30, 0), (30, 0.05), (0.02, 0.02)] * (10 if WHOLE else 1):
            self.client.put("startexposure", Duration=seconds, Light="true")
            time.sleep(delay)
            self.client.put("abortexposure")
            if seconds == 30:
                self.assertIn(self.client.get("camerastate"), (IDLE, EXPOSING))
                self.wait_idle()
                self.assertIs(self.client.get("imageready"), False)
                self.assertError(INVALID_OPERATION, self.client.get, "imagearray")
            self.wait_idle()
            self.expose()
            image = self.client.image_bytes()[0]
            self.assertEqual(zlib.crc32(image.T.astype("<u2").tobytes()), self.truth()["crc"])

    def test_what_cannot_be_stopped_goes_on(self):
        self.client.put("startexposure", Duration=0.1, Light="true")
        if not self.client.get("canstopexposure"):
            self.assertError(NOT_IMPLEMENTED, self.client.put, "stopexposure")
        until(lambda: self.client.get("imageready"), "an image")

    def test_a_dark_frame_is_dark(self):
        self.expose(0.5, "true")
        light = self.client.image_bytes()[0].mean()
        self.expose(0.5, "False")
        self.assertLess(self.client.image_bytes()[0].mean(), light)


if WHOLE:
    class OldExposures(Exposures):
        """The same of the version before."""

        interface = 3


class Images(Camera):
    def test_an_image_is_the_same_by_every_way_and_stays(self):
        self.client.set(StartX=7, StartY=5, NumX=40, NumY=21)
        self.expose(0.01)
        image, header = self.client.image_bytes()
        self.assertEqual((image.shape, header.transmission), ((40, 21), 8))
        self.assertEqual(zlib.crc32(image.T.astype("<u2").tobytes()), self.truth()["crc"])
        self.assertEqual(image.sum(), self.truth()["sum"])
        numpy.testing.assert_array_equal(self.last_fits(), image.T)
        for headers in ({}, {"Accept": "*/*"}, {"Accept": "application/json"},
                        {"base64handoff": "true"}, {"Accept": "text/html, image/*"}):
            numpy.testing.assert_array_equal(self.client.image_json(**headers), image)
        for accept in (IMAGE_BYTES + ", application/json", "application/json," + IMAGE_BYTES,
                       IMAGE_BYTES + ";q=0.5, */*"):
            numpy.testing.assert_array_equal(self.client.image_bytes(accept=accept)[0], image)
        if self.client.number(self.client.get, "imagearrayvariant") != NOT_IMPLEMENTED:
            numpy.testing.assert_array_equal(self.client.image_json("imagearrayvariant"), image)
            numpy.testing.assert_array_equal(self.client.image_bytes("imagearrayvariant")[0], image)

    def test_an_image_that_is_not_there_is_refused_either_way(self):
        self.client.put("startexposure", Duration=60, Light="true")
        self.assertError(INVALID_OPERATION, self.client.image_bytes)
        self.assertError(INVALID_OPERATION, self.client.image_json)
        self.client.put("abortexposure")

    def test_eight_bits_are_sent_as_bytes(self):
        eight = self.client.get("readoutmodes").index("8 bits")
        self.pattern(FLAT, 0xABCD)
        self.client.set(ReadoutMode=eight)
        self.expose()
        image, header = self.client.image_bytes()
        self.assertEqual((header.transmission, set(image.flat)), (6, {0xAB}))
        numpy.testing.assert_array_equal(self.client.image_json(), image)
        self.assertLessEqual(image.max(), self.client.get("maxadu"))
        self.client.set(ReadoutMode=0)

    def test_no_pixel_is_above_the_largest_value(self):
        self.pattern(FLAT, 65535)
        for columns, rows in ((1, 1), (1, 2), (2, 1), (3, 5), (15, 15)):
            self.client.set(BinX=columns, BinY=rows, NumX=8, NumY=6)
            self.expose()
            image, header = self.client.image_bytes()
            self.assertEqual(set(image.flat), {65535 * columns * rows})
            self.assertLessEqual(image.max(), self.client.get("maxadu"))
            numpy.testing.assert_array_equal(self.client.image_json(), image)

    def test_every_subframe_of_every_bin_shows_its_part_of_the_sensor(self):
        limits = self.client.get("maxbinx"), self.client.get("maxbiny")
        pairs = [(x, y) for x in range(1, limits[0] + 1) for y in range(1, limits[1] + 1)]
        chance = random.Random(29)
        if not WHOLE:
            pairs = [(1, 1), (2, 2), (3, 1), (1, 4), limits] + chance.sample(pairs, 4)
        for mode in (BY_COLUMN, BY_ROW):
            self.pattern(mode, 100)
            for columns, rows in pairs:
                self.client.set(BinX=columns, BinY=rows)
                for subframe in self.subframes(COLUMNS // columns, ROWS // rows, chance):
                    with self.subTest(mode=mode, bins=(columns, rows), subframe=subframe):
                        self.check_subframe(mode, columns, rows, *subframe)

    @staticmethod
    def subframes(width, height, chance):
        x, y = chance.randrange(width), chance.randrange(height)
        part = x, y, 1 + chance.randrange(width - x), 1 + chance.randrange(height - y)
        chosen = [(0, 0, width, height), part, (width - 1, height - 1, 1, 1)]
        return chosen + [(0, 0, 1, 1), (x, 0, 1, height), (0, y, width, 1)] if WHOLE else chosen

    def check_subframe(self, mode, columns, rows, x, y, width, height):
        self.client.set(NumY=height, StartX=x, NumX=width, StartY=y)
        self.expose()
        image = self.client.image_bytes()[0]
        sensor = 100 + numpy.indices((COLUMNS, ROWS))[0 if mode == BY_COLUMN else 1]
        part = sensor[x * columns:(x + width) * columns, y * rows:(y + height) * rows]
        truth = part.reshape(width, columns, height, rows).sum(axis=(1, 3))
        numpy.testing.assert_array_equal(image, truth)

    def test_a_bin_more_than_the_sensor_has_is_refused(self):
        for columns, rows in ([(x, y) for x in range(1, 16) for y in range(1, 16)] if WHOLE
                              else [(1, 1), (3, 1), (7, 9), (15, 15)]):
            self.client.set(BinX=columns, BinY=rows)
            width, height = COLUMNS // columns, ROWS // rows
            full = {"StartX": 0, "StartY": 0, "NumX": width, "NumY": height}
            for wrong in ({"NumX": width + 1}, {"NumY": height + 1}, {"StartX": width + 1},
                          {"StartY": height + 1}, {"StartX": 1}, {"StartY": 1}, {"NumX": 0},
                          {"NumY": -1}, {"StartX": width, "NumX": 1}, {"StartY": -1, "NumY": 1}):
                self.client.set(**{**full, **wrong})
                self.assertNoStart(INVALID_VALUE, 0)

    def test_binned_pictures_are_those_of_the_other_door(self):
        for columns, rows in ((2, 2), (3, 5)):
            self.client.set(BinX=columns, BinY=rows, StartX=2, StartY=3, NumX=20, NumY=11)
            self.expose(0.02)
            whole = self.last_fits()
            self.assertEqual(zlib.crc32(whole.astype("<u4").tobytes()), self.truth()["crc"])
            numpy.testing.assert_array_equal(self.client.image_bytes()[0], whole[3:14, 2:22].T)
