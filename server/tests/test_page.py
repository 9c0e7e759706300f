"""The page in a browser: what it draws, and what it says of what is not there."""

import math
import os
import re
import shutil
import unittest

import numpy

from browser_support import Browser
from server_support import PATIENCE, Server, Simulator, reap, until

CAMERA = "/api/v1/cameras/0"
SHIFT = 8


def tearDownModule():
    reap()


def text(element):
    return "document.getElementById('%s').textContent" % element


@unittest.skipUnless(shutil.which("chromium"), "there is no chromium")
class InBrowser(unittest.TestCase):
    faults = ()
    graphics = False  # imitated; else as on a host that has none

    def setUp(self):
        options = [word for fault in self.faults for word in ("--fault", fault)]
        self.camera = Simulator("--heartbeat", "0.1", *options, sensor="64x32")
        self.addCleanup(self.camera.retire)
        self.server = Server(self.camera.target)
        self.addCleanup(self.server.retire)
        self.server.open()
        self.browser = Browser(graphics=self.graphics)
        self.addCleanup(self.browser.close)
        self.browser.open("http://127.0.0.1:%d/%s" % (
            self.server.port, "?painter=graphics" if self.graphics else ""))
        self.browser.until(text("link") + " === 'connected'")

    def tearDown(self):
        self.assertEqual(self.browser.complaints, [])

    def expose(self, **plan):
        exposure = self.server.expose(**dict({"exposure": 0.001}, **plan))
        self.browser.until("document.getElementById('image').dataset.frame !== undefined")
        return exposure

    def pixel(self, column, row):
        """What is drawn in the middle of a pixel of the frame, when all of it is shown."""
        place = self.browser.run("""(() => {
          const {left, top, width, height} = document.getElementById('image').getBoundingClientRect();
          const scale = Math.min(width / 64, height / 32);
          return [left + (width - 64 * scale) / 2 + %s * scale, top + (height - 32 * scale) / 2 + %s * scale];
        })()""" % (column + 0.5, row + 0.5))
        return self.browser.pixel(*(int(part) for part in place))


class Drawing(InBrowser):
    def test_it_is_drawn_by_what_is_there(self):
        made_with = "document.getElementById('image').getContext('%s') !== null"
        self.assertTrue(self.browser.run(made_with % ("webgl2" if self.graphics else "2d")))

    def test_pixels_are_drawn_as_they_are(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,8192,49152,8"})
        self.browser.run("document.getElementById('stretch').value = 'full'")
        for bits, most in ((16, 65535), (8, 255)):
            self.browser.run("delete document.getElementById('image').dataset.frame")
            exposure = self.expose(bits=bits)
            frame = numpy.frombuffer(
                self.server.get(CAMERA + "/exposures/%d/frame.raw" % exposure["id"]).body,
                "<u2" if bits == 16 else "u1").reshape(32, 64)
            for column, row in ((3, 3), (12, 3), (12, 12), (3, 12), (63, 31)):
                drawn = self.pixel(column, row)
                if frame[row, column] < most:
                    self.assertEqual(drawn, [round(int(frame[row, column]) / most * 255)] * 3,
                                     (bits, column, row))
            self.assertEqual(len(set(frame.ravel())), 2)

    def test_a_stretch_bends_what_is_between_black_and_white(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,8192,49152,8"})
        self.expose()
        # Half of the pixels have either value: the sky is the lesser one, white the other.
        self.assertLess(max(self.pixel(3, 3)), 60)
        self.assertEqual(self.pixel(12, 3), [255] * 3)

    def test_pixels_that_are_full_are_marked(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,100,65535,8"})
        self.expose()
        red, green, blue = self.pixel(12, 3)
        self.assertGreater(red, 200)
        self.assertLess(max(green, blue), 100)


class DrawingWithGraphics(Drawing):
    graphics = True


class Page(InBrowser):
    def test_a_region_that_is_drawn_becomes_the_area(self):
        self.expose()
        box = self.browser.run("""(() => {
          const box = document.getElementById('image').getBoundingClientRect();
          return [box.left, box.top, box.width, box.height];
        })()""")
        scale = min(box[2] / 64, box[3] / 32)
        left, top = (box[0] + (box[2] - 64 * scale) / 2, box[1] + (box[3] - 32 * scale) / 2)
        place = lambda column, row: (left + (column + 0.5) * scale, top + (row + 0.5) * scale)
        self.browser.mouse("mousePressed", *place(10, 5), SHIFT)
        self.browser.mouse("mouseMoved", *place(20, 9), SHIFT)
        self.browser.mouse("mouseMoved", *place(41, 20), SHIFT)
        self.browser.mouse("mouseReleased", *place(41, 20), SHIFT)
        self.browser.until(text("area") + ".startsWith('area 10,5,32,16')")
        value = self.server.get(CAMERA + "/properties/area").json["text"]
        self.assertEqual(value, "10,5,32,16")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("facts") + ".includes('32 x 16')")

    def test_an_exposure_and_a_live_view_are_started_and_stopped(self):
        self.browser.run("document.getElementById('seconds').value = '0.01'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.browser.run("document.getElementById('live').click()")
        self.browser.until("parseFloat(%s) > 2" % text("truth"))
        self.browser.run("document.getElementById('stop').click()")
        self.browser.until(text("state") + ".startsWith('aborted')")

    def test_the_width_of_a_star_is_that_of_its_gaussian(self):
        for sigma in (1.0, 1.5, 2.0, 3.0):
            star = self.browser.run("""import('/star.js').then(({starAt}) => {
              const columns = 100, rows = 80, pixels = new Uint16Array(columns * rows);
              for (let y = 0; y < rows; ++y) for (let x = 0; x < columns; ++x) {
                const square = (x - 50.3) ** 2 + (y - 40.6) ** 2;
                pixels[y * columns + x] = 1000 + 20000 * Math.exp(-square / 2 / %f ** 2);
              }
              return starAt({pixels, columns, rows, full: 65535}, 52, 39);
            })""" % sigma)
            wide = 2 * math.sqrt(2 * math.log(2)) * sigma  # both widths of a round gaussian
            self.assertAlmostEqual(star["column"], 50.3, delta=0.02)
            self.assertAlmostEqual(star["row"], 40.6, delta=0.02)
            self.assertAlmostEqual(star["fwhm"], wide, delta=0.02 * wide)
            self.assertAlmostEqual(star["hfd"], wide, delta=0.03 * wide)
            self.assertAlmostEqual(star["flux"], 40000 * math.pi * sigma**2,
                                   delta=0.02 * 40000 * math.pi * sigma**2)
            self.assertFalse(star["isFull"])
        for place in ("5, 5", "-50, 3", "50, 20"):  # nothing but sky
            found = self.browser.run("""import('/star.js').then(({starAt}) =>
              starAt({pixels: new Uint16Array(8000).fill(7), columns: 100, rows: 80, full: 9}, %s))
              """ % place)
            self.assertIsNone(found)

    def test_what_somebody_else_controls_is_told(self):
        self.server.ask("POST", CAMERA + "/lease", {"holder": "night script"})
        self.browser.until(text("lease") + " === 'night script controls'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + ".includes('night script')")
        self.browser.run("document.getElementById('control').click()")
        self.browser.until(text("lease") + " === 'you control'")

    def test_a_lost_camera_shows_within_a_second_and_no_image_stays_current(self):
        self.expose()
        self.camera.end()
        is_busy = os.getloadavg()[0] > os.cpu_count()  # then a second says nothing of the page
        self.browser.until(text("stale") + ".includes('no connection to the camera')",
                           PATIENCE if is_busy else 1.5)
        self.assertTrue(self.browser.run("document.getElementById('stage').matches('.old')"))
        camera = Simulator(port=self.camera.port, sensor="64x32")
        self.addCleanup(camera.retire)
        self.browser.until("!%s.includes('connection')" % text("stale"))

    def test_a_server_that_comes_back_is_found(self):
        self.expose()
        port = self.server.port
        self.server.end()
        self.browser.until(text("stale") + ".includes('no connection to the server')")
        self.server = Server(self.camera.target, "--listen", "127.0.0.1:%d" % port)
        self.addCleanup(self.server.retire)
        self.browser.until("!%s.includes('connection')" % text("stale"))
        self.browser.until(text("link") + " === 'connected'")
        self.expose()

    def test_properties_are_a_form(self):
        self.browser.run("document.getElementById('table').open = true")
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        self.browser.run("""(() => {
          const label = [...document.querySelectorAll('#properties label')]
              .find(label => label.textContent === 'Gain');
          const input = label.querySelector('input');
          input.value = '3';
          input.dispatchEvent(new Event('change'));
        })()""")
        is_set = lambda: self.server.get(CAMERA + "/properties/gain").json["value"] == 3
        until(is_set, "the gain")


class Stars(unittest.TestCase):
    def test_a_star_that_is_clicked_is_followed_until_it_is_left(self):
        camera = Simulator("--seeing", "4", "--heartbeat", "0.1", sensor="320x240")
        self.addCleanup(camera.retire)
        server = Server(camera.target)
        self.addCleanup(server.retire)
        server.open()
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open("http://127.0.0.1:%d/" % server.port)
        server.expose(exposure=1)
        browser.until("document.getElementById('image').dataset.frame !== undefined")
        body = server.get(CAMERA + "/exposures/1/frame.raw").body
        pixels = numpy.frombuffer(body, "<u2").reshape(240, 320).astype(float)
        inner = pixels[50:190, 50:270]
        row, column = (int(part) + 50 for part in numpy.unravel_index(inner.argmax(), inner.shape))
        spot = browser.run("""(() => {
          const box = document.getElementById('image').getBoundingClientRect();
          const scale = Math.min(box.width / 320, box.height / 240);
          return [box.left + (box.width - 320 * scale) / 2 + %f * scale,
                  box.top + (box.height - 240 * scale) / 2 + %f * scale];
        })()""" % (column + 0.5, row + 0.5))
        browser.mouse("mousePressed", *spot)
        browser.mouse("mouseReleased", *spot)
        browser.until("!document.getElementById('star').hidden")
        told = browser.run(text("width"))
        near = [float(part) for part in re.search(r"at ([\d.]+), ([\d.]+);", told).groups()]
        self.assertLess(math.dist(near, (column, row)), 2)
        width = float(re.search(r"FWHM ([\d.]+)", told).group(1))
        light = pixels[row - 12:row + 13, column - 12:column + 13] - numpy.median(pixels)
        within = numpy.count_nonzero(light > light.max() / 2)  # pixels: the area of half the peak
        wide = 2 * math.sqrt(within / math.pi)
        self.assertAlmostEqual(width, wide, delta=0.15 * wide)
        server.expose(exposure=1, frames=2)
        browser.until("document.getElementById('image').dataset.frame === '2.2'")
        browser.until("""(() => {
          const canvas = document.getElementById('focus');
          const data = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
          return data.some(value => value > 0);
        })()""")
        browser.run("document.getElementById('leave').click()")
        self.assertTrue(browser.run("document.getElementById('star').hidden"))
        self.assertEqual(browser.complaints, [])


class Missing(InBrowser):
    graphics = True
    faults = ("missing-packet:packet=7",)

    def test_missing_rows_are_drawn_as_what_they_are(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "1,8192"})
        self.browser.run("document.getElementById('stretch').value = 'full'")
        self.expose()
        self.assertIn("incomplete", self.browser.run(text("stale")))  # at once
        self.assertEqual(len(set(self.pixel(5, 5))), 1)
        red, green, blue = self.pixel(5, 6)
        self.assertGreater(blue, green + 40)
        self.assertIn("incomplete", self.browser.run(text("stale")))
        self.browser.until(text("facts") + ".includes('1 packets missing')")


class MissingWithoutGraphics(Missing):
    graphics = False


@unittest.skipUnless(os.environ.get("VX_SCREENSHOT"), "VX_SCREENSHOT names no file")
class Screenshot(unittest.TestCase):
    def test_a_picture_of_the_page_is_taken(self):
        server = Server("sim?sensor=1024x768&seed=3")
        self.addCleanup(server.retire)
        server.open()
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open("http://127.0.0.1:%d/" % server.port)
        browser.until(text("link") + " === 'connected'")
        server.ask("PUT", CAMERA + "/properties/target-temp", {"value": -10})
        server.ask("PUT", CAMERA + "/properties/cooling", {"value": True})
        browser.until("parseFloat(%s) < 10" % text("temperature"))
        server.expose(exposure=2)
        browser.until("document.getElementById('image').dataset.frame !== undefined")
        browser.until("document.getElementById('target').value === '-10'")
        browser.until(text("state") + " === 'complete'")
        self.assertEqual(browser.run(text("stale")), "")
        browser.screenshot(os.environ["VX_SCREENSHOT"])


if __name__ == "__main__":
    unittest.main()
