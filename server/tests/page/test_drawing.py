"""What the page draws of a frame."""

import re

import numpy

from page.page_support import CAMERA, drawn_in, InBrowser, setUpModule, tearDownModule, text


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

    def test_a_bin_of_full_pixels_is_marked(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,100,65535,8"})
        exposure = self.expose(binning=[2, 2])
        frame = numpy.frombuffer(self.server.get(CAMERA + "/exposures/%d/frame.raw" % exposure["id"]).body, "<u4").reshape(16, 32)
        self.assertEqual({int(frame[1, 1]), int(frame[1, 6])}, {400, 4 * 65535})
        self.columns, self.rows = 32, 16
        for column in (1, 6):
            red, green, blue = self.pixel(column, 1)
            self.assertEqual(red > 200 and max(green, blue) < 100, frame[1, column] == 4 * 65535, column)


class DrawingWithGraphics(Drawing):
    graphics = True
    window = (920, 400)  # with fewer pixels to imitate


class Values(InBrowser):
    columns, rows = 640, 320
    faults = ("missing-packet:packet=163",)

    # Remembers what is written from now on, and where.
    WRITTEN = """(() => {
      window.written = [];
      CanvasRenderingContext2D.prototype.fillText = function(text, x, y) {
        if (this.canvas.id === 'values') written.push([text, x / devicePixelRatio, y / devicePixelRatio, this.fillStyle]);
      };
    })()"""

    def written(self):
        """[text, x, y, ink] of each value that is to be seen: its middle on the screen."""
        return self.browser.run("""(() => {
          const {left, top} = document.getElementById('values').getBoundingClientRect();
          return document.getElementById('values').hidden ? [] : written.map(([text, x, y, ink]) => [text, left + x, top + y, ink]);
        })()""")

    def test_values_are_written_into_pixels_that_are_large_enough(self):
        self.browser.run(self.WRITTEN)
        exposure = self.expose()
        body = self.server.get(CAMERA + "/exposures/%d/frame.raw?incomplete=yes" % exposure["id"]).body
        frame = numpy.frombuffer(body, "<u2").reshape(self.rows, self.columns)
        self.assertEqual(self.written(), [])
        for scale in (2, 4, 8, 16, 32, 64):
            self.browser.run("written.length = 0")
            self.browser.press("1" if scale == 2 else "+")
            if scale == 2:
                self.browser.press("+")
            if scale < 32:
                self.assertEqual(self.written(), [], scale)
        self.browser.press("-")
        self.browser.run("written.length = 0")
        self.browser.press("ArrowRight")
        box = self.browser.run("(({left, top, right, bottom}) => [left, top, right, bottom])("
                               "document.getElementById('image').getBoundingClientRect())")
        told = [each for each in self.written() if box[0] < each[1] < box[2] and box[1] < each[2] < box[3]]
        self.assertGreater(len(told), 400)
        rows = {}
        for at, (text_, x, y, _) in enumerate(told):
            if at % 37 and y in rows:
                continue
            self.browser.mouse("mouseMoved", x, y)
            column, row, value = (int(part) for part in re.findall(r"\d+", self.browser.run(text("pixel"))))
            self.assertEqual((text_, value), (str(frame[row, column]), frame[row, column]), (column, row))
            rows[y] = row
        missing = self.server.get(CAMERA + "/exposures/%d/frame.json" % exposure["id"]).json["missing_rows"]
        self.assertEqual(len(missing), 1)
        self.assertEqual(set(range(min(rows.values()), max(rows.values()) + 1)) - set(rows.values()), set(missing))
        self.browser.press("f")
        self.assertEqual(self.written(), [])

    def test_values_are_dark_on_what_is_bright(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,8192,49152,8"})
        self.browser.run("document.getElementById('stretch').value = 'full'; " + self.WRITTEN)
        self.expose()
        for key in "1+++++":
            self.browser.press(key)
        self.assertEqual({(told, ink) for told, _, _, ink in self.written()}, {("8192", "#ffffff"), ("49152", "#000000")})


class Missing(InBrowser):
    graphics = True
    window = (920, 400)
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
        self.browser.until(text("facts") + ".includes('1 packet missing')")
        self.assertEqual(self.browser.run(text("save")), "FITS, incomplete")
        self.assertEqual(self.browser.run("fetch(document.getElementById('save').href).then(answer => answer.status)"), 200)


class MissingWithoutGraphics(Missing):
    graphics = False

    def test_missing_rows_are_no_values(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "1,8192"})
        self.expose()
        self.browser.until(text("facts") + ".includes('values8192 to 8192')")
        values, counts = self.browser.run(drawn_in("histogram"))
        self.assertEqual((values[0], sum(counts)), (8192, 64 * 31))
        self.assertEqual(self.browser.run(text("counted")), "Histogram of the whole frame")
        self.browser.press("m")
        for kind, place in (("mousePressed", (20, 4)), ("mouseMoved", (25, 7)), ("mouseReleased", (30, 8))):
            self.browser.mouse(kind, *self.place(*place))
        self.browser.until(text("figures") + ".includes('values8192 to 8192') && " + text("figures") + ".includes('deviation0.00')")
        self.assertIn("rows are missing", self.browser.run(text("figures")))
        for row, told in ((5, "8192"), (6, "missing"), (7, "8192")):
            self.browser.mouse("mouseMoved", *self.place(20, row))
            self.assertEqual(self.browser.run(text("pixel")), "20, %d: %s" % (row, told))
        _, counts = self.browser.until(drawn_in("histogram") + ".then(drawn => drawn[1].reduce((a, b) => a + b) < 100 && drawn)")
        self.assertEqual(sum(counts), 11 * 4)
