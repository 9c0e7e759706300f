"""The page in a browser: what it draws, and what it says of what is not there."""

import os
import shutil
import unittest

from browser_support import Browser
from server_support import Server, Simulator, reap, until

CAMERA = "/api/v1/cameras/0"
SHIFT = 8
PIXEL = """(() => {
  const canvas = document.getElementById('image'), gl = canvas.getContext('webgl2');
  const box = canvas.getBoundingClientRect(), pixel = new Uint8Array(4);
  gl.readPixels(%d, canvas.height - 1 - %d, 1, 1, gl.RGBA, gl.UNSIGNED_BYTE, pixel);
  return [...pixel].slice(0, 3);
})()"""


def tearDownModule():
    reap()


def text(element):
    return "document.getElementById('%s').textContent" % element


@unittest.skipUnless(shutil.which("chromium"), "there is no chromium")
class InBrowser(unittest.TestCase):
    faults = ()

    def setUp(self):
        options = [word for fault in self.faults for word in ("--fault", fault)]
        self.camera = Simulator("--heartbeat", "0.1", *options, sensor="64x32")
        self.addCleanup(self.camera.retire)
        self.server = Server(self.camera.target)
        self.addCleanup(self.server.retire)
        self.server.open()
        self.browser = Browser()
        self.addCleanup(self.browser.close)
        self.browser.open("http://127.0.0.1:%d/" % self.server.port)
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
          const {width, height} = document.getElementById('image');
          const scale = Math.min(width / 64, height / 32);
          return [(width - 64 * scale) / 2 + %s * scale, (height - 32 * scale) / 2 + %s * scale];
        })()""" % (column + 0.5, row + 0.5))
        return self.browser.run(PIXEL % tuple(int(part) for part in place))


class Page(InBrowser):
    def test_pixels_are_drawn_as_they_are(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,8192,49152,8"})
        self.browser.run("document.getElementById('stretch').value = 'full'")
        self.expose()
        for column, row, value in ((3, 3, 8192), (12, 3, 49152), (12, 12, 8192), (3, 12, 49152),
                                   (63, 31, 8192 if (63 // 8 + 31 // 8) % 2 == 0 else 49152)):
            drawn = self.pixel(column, row)
            self.assertEqual(drawn, [round(value / 65535 * 255)] * 3, (column, row))

    def test_pixels_that_are_full_are_marked(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,100,65535,8"})
        self.expose()
        red, green, blue = self.pixel(12, 3)
        self.assertGreater(red, 200)
        self.assertLess(max(green, blue), 100)

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
        self.browser.until(text("stale") + ".includes('no connection to the camera')", 1.5)
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


class Missing(InBrowser):
    faults = ("missing-packet:packet=7",)

    def test_missing_rows_are_drawn_as_what_they_are(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "1,8192"})
        self.browser.run("document.getElementById('stretch').value = 'full'")
        self.expose()
        self.assertEqual(len(set(self.pixel(5, 5))), 1)
        red, green, blue = self.pixel(5, 6)
        self.assertGreater(blue, green + 40)
        self.assertIn("incomplete", self.browser.run(text("stale")))
        self.assertIn("1 packets missing", self.browser.run(text("facts")))


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
        browser.screenshot(os.environ["VX_SCREENSHOT"])


if __name__ == "__main__":
    unittest.main()
