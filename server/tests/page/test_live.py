"""What comes to the page while frames come quickly."""

import math
import re

import numpy

from page.page_support import CAMERA, InBrowser, setUpModule, tearDownModule, text
from server_support import until


class Quick(InBrowser):
    """Frames that come quickly, on a canvas of less than half as many pixels each way."""
    columns, rows = 1000, 800
    options = ("--line-rate", str(20 * 800))
    window = (920, 400)

    def setUp(self):
        super().setUp()
        self.browser.run("""window.asked = [];
          const send = WebSocket.prototype.send;
          WebSocket.prototype.send = function(text) {
            if (text.includes('part')) asked.push(JSON.parse(text).part);
            send.call(this, text);
          };
          document.getElementById('stretch').value = 'full'""")
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,8192,49152,64"})

    def start(self, **plan):
        plan = dict({"exposure": 0.001, "frames": 0}, **plan)
        self.assertEqual(self.server.ask("POST", CAMERA + "/exposures", plan).status, 202)
        self.browser.until("asked.length > 0 && asked.at(-1).step > 1")

    def stop(self):
        self.server.ask("DELETE", CAMERA + "/exposures/1")
        return numpy.frombuffer(self.server.get(CAMERA + "/exposures/1/frame.raw").body,
                                "<u2").reshape(self.rows, self.columns)

    def bytes_a_frame(self):
        """Of those that are sent to the page from now on."""
        figures = lambda: [self.server.metric("vxcamd_watcher_%s_total" % name)
                           for name in ("bytes", "frames")]
        begun = figures()
        until(lambda: figures()[1] > begun[1] + 3, "frames")
        return (figures()[0] - begun[0]) / (figures()[1] - begun[1])

    def assertDrawn(self, frame, places, scale=None):
        for column, row in places:
            self.assertEqual(self.pixel(column, row, scale),
                             [round(int(frame[row, column]) / 65535 * 255)] * 3, (column, row))

    def test_what_can_be_shown_is_sent_while_frames_come_and_then_the_whole_frame(self):
        self.start()
        whole = self.columns * self.rows * 2
        until(lambda: self.bytes_a_frame() < 0.3 * whole, "frames with fewer pixels")
        self.browser.until(text("facts") + r".match(/of 1 in \d+/) !== null")
        places = [(32, 32), (96, 32), (96, 96), (32, 96), (992, 32), (32, 790), (992, 790)]
        drawn = [self.pixel(*place) for place in places]
        frame = self.stop()
        self.assertEqual(drawn, [[round(int(frame[row, column]) / 65535 * 255)] * 3
                                 for column, row in places])
        self.browser.until("JSON.stringify(asked.at(-1)) === '{}'")
        self.browser.until("!%s.includes('of 1 in')" % text("facts"))
        self.assertIn("values%d to %d" % (frame.min(), frame.max()), self.browser.run(text("facts")))
        self.assertIn("median%d" % numpy.percentile(frame, 50, method="lower"), self.browser.run(text("facts")))
        self.assertDrawn(frame, places)

    def test_pixels_under_the_mouse_are_those_of_the_frame(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "0"})
        self.start()
        until(lambda: self.bytes_a_frame() < 700000, "frames with fewer pixels")
        frame = self.stop()
        self.browser.until("JSON.stringify(asked.at(-1)) === '{}'")
        self.browser.until("!%s.includes('of 1 in')" % text("facts"))
        for x, y in ((200, 100), (301, 150), (333, 222)):
            self.browser.mouse("mouseMoved", x, y)
            column, row, value = (int(part) for part in re.findall(r"\d+", self.browser.until(text("pixel"))))
            self.assertEqual(value, frame[row, column], (column, row))

    def test_what_is_zoomed_in_is_sent_alone(self):
        self.start()
        self.browser.run("document.getElementById('one').click()")
        self.browser.until("asked.at(-1).step === 1 && asked.at(-1).columns < 800")
        until(lambda: self.bytes_a_frame() < 0.8 * self.columns * self.rows * 2, "frames of a part")
        places = [(480, 380), (544, 380), (480, 444), (300, 400), (700, 400)]
        drawn = [self.pixel(*place, 1) for place in places]
        frame = self.stop()
        self.assertEqual(drawn, [[round(int(frame[row, column]) / 65535 * 255)] * 3
                                 for column, row in places])
        self.browser.until("JSON.stringify(asked.at(-1)) === '{}'")
        self.browser.run("document.getElementById('fit').click()")
        self.browser.until("!%s.includes('of 1 in')" % text("facts"))
        self.assertDrawn(frame, [(32, 32), (992, 790)])

    def test_a_star_is_looked_at_pixel_by_pixel_while_frames_come(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "0"})
        exposure = self.server.expose(exposure=0.2)["id"]
        body = self.server.get(CAMERA + "/exposures/%d/frame.raw" % exposure).body
        frame = numpy.frombuffer(body, "<u2").reshape(self.rows, self.columns).astype(float)
        box = sum(frame[y:y + 700, x:x + 900] for y in range(48, 53) for x in range(48, 53))
        row, column = (int(part) + 50 for part in numpy.unravel_index(box.argmax(), box.shape))
        self.start(exposure=0.2)
        spot = self.place(column, row)
        self.browser.mouse("mousePressed", *spot)
        self.browser.mouse("mouseReleased", *spot)
        self.browser.until("JSON.stringify(asked.at(-1)) === '{}'")
        self.browser.until("!document.getElementById('star').hidden")
        near = re.search(r"at ([\d.]+), ([\d.]+);", self.browser.run(text("width"))).groups()
        self.assertLess(math.dist([float(part) for part in near], (column, row)), 2)
        self.browser.run("document.getElementById('leave').click()")
        self.browser.until("asked.at(-1).step > 1")

    def test_frames_that_come_slowly_are_whole(self):
        for _ in range(3):
            self.server.expose(exposure=0.6)
        self.browser.until("document.getElementById('image').dataset.frame === '3.1'")
        self.browser.until("!%s.includes('of 1 in')" % text("facts"))
        self.assertEqual(self.browser.run("asked.length"), 0)


class QuickWithGraphics(Quick):
    graphics = True
