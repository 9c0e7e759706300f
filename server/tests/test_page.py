"""The page in a browser: what it draws, and what it says of what is not there."""

import datetime
import glob
import json
import math
import os
import re
import signal
import socket
import tempfile
import time
import unittest

import numpy

from browser_support import Browser, skip_without_browser
from server_support import PATIENCE, Server, Simulator, reap, until

CAMERA = "/api/v1/cameras/0"


def setUpModule():
    skip_without_browser()


def tearDownModule():
    reap()


def text(element):
    return "document.getElementById('%s').textContent" % element


def drawn_in(graph, least=1):
    """The columns of a graph, once so many points of it are drawn."""
    return """import('/graphs.js').then(({graphIn}) => {
      const {plot} = graphIn('%s');
      const {width, height} = plot.ctx.canvas;
      const isDrawn = plot.ctx.getImageData(0, 0, width, height).data.some(value => value > 0);
      return isDrawn && plot.data[0].length >= %d && plot.data;
    })""" % (graph, least)


class InBrowser(unittest.TestCase):
    columns, rows = 64, 32
    options = ()      # of the camera
    faults = ()
    server_options = ()
    window = (1366, 768)
    graphics = False  # imitated; else as on a host that has none

    def setUp(self):
        # A processor that imitates graphics takes long for each picture of the page, on a busy machine
        # seconds: it is to make few.
        heartbeat = "1" if self.graphics else "0.1"
        options = [word for fault in self.faults for word in ("--fault", fault)]
        self.camera = Simulator("--heartbeat", heartbeat, *self.options, *options,
                                sensor="%dx%d" % (self.columns, self.rows))
        self.addCleanup(self.camera.retire)
        self.server = Server(self.camera.target, *self.server_options)
        self.addCleanup(self.server.retire)
        self.server.open()
        self.browser = Browser(*self.window, graphics=self.graphics)
        self.addCleanup(self.browser.close)
        self.browser.open("http://127.0.0.1:%d/%s" % (
            self.server.port, "?painter=graphics" if self.graphics else ""))
        self.browser.until(text("link") + " === 'connected'")

    def tearDown(self):
        self.assertEqual(self.browser.complaints, [])

    def expose(self, **plan):
        exposure = self.server.expose(**dict({"exposure": 0.001}, **plan))
        self.browser.until("document.getElementById('image').dataset.frame !== undefined", 3 * PATIENCE)
        return exposure

    def place(self, column, row, scale=None):
        """The middle of a pixel of the frame on the screen, when all of it is shown, or at a scale."""
        return self.browser.run("""(() => {
          const {left, top, width, height} = document.getElementById('image').getBoundingClientRect();
          const [columns, rows] = [%d, %d];
          const scale = %s ?? Math.min(width / columns, height / rows);
          return [left + (width - columns * scale) / 2 + %s * scale, top + (height - rows * scale) / 2 + %s * scale];
        })()""" % (self.columns, self.rows, scale or "null", column + 0.5, row + 0.5))

    def pixel(self, column, row, scale=None):
        """What is drawn there."""
        return self.browser.pixel(*(int(part) for part in self.place(column, row, scale)))


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
        self.browser.mouse("mousePressed", *place(10, 5), "Shift")
        self.browser.mouse("mouseMoved", *place(20, 9), "Shift")
        self.browser.mouse("mouseMoved", *place(41, 20), "Shift")
        self.browser.mouse("mouseReleased", *place(41, 20), "Shift")
        self.browser.until(text("area") + ".startsWith('area 10,5,32,16')")
        value = self.server.get(CAMERA + "/properties/area").json["text"]
        self.assertEqual(value, "10,5,32,16")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("facts") + ".includes('32 x 16')")

    def test_a_region_that_lies_beside_the_image_is_none(self):
        for ends in (((-9, 3), (-2, 8)), ((64, 3), (70, 8)), ((3, -9), (8, -1)), ((3, 32), (8, 40))):
            found = self.browser.run(
                "import('/measure.js').then(({regionOf}) => regionOf({columns: 64, rows: 32}, [%d, %d], [%d, %d]))"
                % (*ends[0], *ends[1]))
            self.assertIsNone(found, ends)
        found = self.browser.run(
            "import('/measure.js').then(({regionOf}) => regionOf({columns: 64, rows: 32}, [-9, -9], [70, 40]))")
        self.assertEqual(found, {"column": 0, "row": 0, "columns": 64, "rows": 32})

    def test_the_area_is_what_the_camera_reads_whoever_has_set_it(self):
        self.browser.until(text("area") + " === 'whole sensor'")
        self.server.ask("PUT", CAMERA + "/properties/area", {"value": "4,2,8,6"})
        self.browser.until(text("area") + " === 'area 4,2,8,6'")
        self.browser.open("http://127.0.0.1:%d/?again" % self.server.port)
        self.browser.until(text("area") + " === 'area 4,2,8,6'")
        self.browser.run("document.getElementById('whole').click()")
        self.browser.until(text("area") + " === 'whole sensor' && document.getElementById('whole').hidden")
        self.assertEqual(self.server.expose(exposure=0.001)["state"], "complete")
        self.browser.until(text("facts") + ".includes('size64 x 32')")

    def test_an_exposure_and_a_live_view_are_started_and_stopped(self):
        self.browser.run("document.getElementById('seconds').value = '0.01'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.browser.run("document.getElementById('live').click()")
        self.browser.until("parseFloat(%s) > 2 && !document.getElementById('stop').disabled" % text("truth"))
        self.browser.run("document.getElementById('stop').click()")
        self.browser.until(text("state") + ".startsWith('aborted')")

    def test_seconds_that_are_left_empty_are_the_cameras_own(self):
        self.server.ask("PUT", CAMERA + "/properties/exposure", {"value": 250})
        self.browser.run("document.getElementById('seconds').value = ' '")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.assertEqual(self.server.get(CAMERA + "/exposures/1/frame.json").json["exposure"], 0.25)

    def test_seconds_that_are_no_number_are_refused_beside_the_field(self):
        for wrong in ("abc", "0,5", "-1", "Infinity"):
            self.browser.run("document.getElementById('seconds').value = '%s'" % wrong)
            self.browser.run("document.getElementById('start').click()")
            self.assertEqual(self.browser.run(text("seconds-wrong")), "'%s' is no number of seconds" % wrong)
            self.assertTrue(self.browser.run("document.getElementById('seconds').matches('.wrong')"))
        self.browser.run("document.getElementById('seconds').value = '0.01'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.assertEqual(self.browser.run(text("seconds-wrong")), "")
        self.assertEqual([each["plan"]["exposure"] for each in self.server.get(CAMERA + "/exposures").json["exposures"]],
                         [0.01])

    def test_binned_frames_are_taken_and_told(self):
        self.server.ask("PUT", CAMERA + "/properties/area", {"value": "4,2,8,6"})
        self.browser.until(text("area") + " === 'area 4,2,8,6'")
        for word, binning, size in (("2", [2, 2], "32 x 16"), ("4x2", [4, 2], "16 x 16")):
            self.type("bins", word)
            self.assertIn("whole sensor", self.browser.run(text("area")))
            self.assertTrue(self.browser.run("document.getElementById('bits').disabled"))
            self.start()
            told = "size%s, 32 bitsbins%d x %d pixels in one" % (size, *binning)
            self.browser.until(text("facts") + ".startsWith('%s')" % told)
        plans = [each["plan"] for each in self.server.get(CAMERA + "/exposures").json["exposures"]]
        self.assertEqual([(plan["kind"], plan["binning"]) for plan in plans],
                         [("binned", [2, 2]), ("binned", [4, 2])])
        for word in ("", "0", "2x", "two", "-1"):
            self.type("bins", word)
            self.start()
            self.assertEqual(self.browser.run(text("bins-wrong")), "'%s' is no bin: 2, or 2x3" % word)
        self.type("bins", "99")
        self.start()
        self.browser.until(text("bins-wrong") + ".startsWith('binning')")
        self.type("bins", "1x1")
        self.assertEqual(self.browser.run(text("area")), "area 4,2,8,6")
        self.start()
        self.browser.until(text("facts") + ".startsWith('size8 x 6, 16 bitsexposure')")
        self.assertEqual(self.browser.run(text("bins-wrong")), "")

    def start(self):
        self.browser.until("!document.getElementById('start').disabled")
        self.browser.run("document.getElementById('start').click()")

    def type(self, field, word):
        self.browser.run("""document.getElementById('%s').value = '%s';
                            document.getElementById('%s').dispatchEvent(new Event('input'))""" % (field, word, field))

    def test_what_the_server_refuses_of_an_exposure_is_told_beside_its_field(self):
        for field, word, told in (("seconds", "1e11", "exposure: 0 to 4294967.295 s"), ("frames", "40000", "frames 40000")):
            self.type(field, word)
            self.browser.run("document.getElementById('expose').noValidate = true")  # by the browser itself
            self.start()
            self.browser.until(text(field + "-wrong") + ".includes('%s')" % told)
            self.assertTrue(self.browser.run("document.getElementById('%s').matches('.wrong')" % field))
            self.type(field, "1")
        self.assertEqual(self.server.get(CAMERA + "/exposures").json["exposures"], [])

    def test_enter_exposes_but_where_it_means_something_else(self):
        count = lambda: len(self.server.get(CAMERA + "/exposures").json["exposures"])
        for focus in ("document.activeElement.blur()", "document.getElementById('image').focus()",
                      "document.getElementById('seconds').focus()"):
            wanted = count() + 1
            self.browser.run(focus)
            self.browser.press("Enter")
            self.browser.until("document.getElementById('save').href.includes('exposures/%d/')" % wanted)
            self.browser.until("%s === 'complete' && !document.getElementById('start').disabled" % text("state"))
        self.browser.run("document.getElementById('mode').focus()")
        self.browser.press("Enter")
        self.browser.until("document.documentElement.matches('.dome')")
        self.browser.run("document.querySelector('#table summary').focus()")
        self.browser.press("Enter")
        self.browser.until("document.getElementById('table').open")
        self.browser.run("document.getElementById('target').focus()")
        self.browser.press("Enter")
        self.browser.run("fetch('%s')" % CAMERA)  # what it asked for before is answered
        self.assertEqual(count(), 3)

    def test_a_wrong_set_point_is_told_beside_its_field(self):
        self.browser.until("document.getElementById('target').value !== ''")
        target = lambda: self.server.get(CAMERA + "/properties/target-temp").json["value"]
        before = target()
        for wrong, told in (("", "to how many degrees?"), ("warm", "'warm' is no number of degrees"), ("500", "out of range")):
            self.browser.run('''document.getElementById('target').value = '%s';
                                document.getElementById('target').dispatchEvent(new Event('change'))''' % wrong)
            self.browser.until(text("target-wrong") + ".includes(%r)" % told)
            self.assertEqual(target(), before)
        self.browser.run('''document.getElementById('target').value = '-7';
                            document.getElementById('target').dispatchEvent(new Event('change'))''')
        self.browser.until(text("target-wrong") + " === ''")
        until(lambda: target() == -7, "the set point")

    def test_all_times_are_utc(self):
        self.browser.call("Emulation.setTimezoneOverride", timezoneId="Asia/Kathmandu")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("events") + ".includes('exposure complete')")
        told = self.browser.run("[...document.getElementById('events').children].map(each => each.textContent)")
        now = datetime.datetime.now(datetime.timezone.utc)
        for each in told:
            then = datetime.datetime.strptime(each[:8], "%H:%M:%S").replace(
                year=now.year, month=now.month, day=now.day, tzinfo=datetime.timezone.utc)
            self.assertLess(abs((now - then).total_seconds()) % 86100, 300, each)
        self.browser.until(drawn_in("temperatures", 3))
        clock = "import('/graphs.js').then(({graphIn}) => graphIn('temperatures').plot.series[0].value(null, 1700000000))"
        self.assertEqual(self.browser.run(clock), "22:13:20")
        self.assertIn("UTC", self.browser.run("document.querySelector('footer').textContent"))

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

    def test_a_lease_that_is_taken_over_is_told(self):
        self.browser.run("document.getElementById('control').click()")
        self.browser.until(text("lease") + " === 'you control'")
        self.server.ask("POST", CAMERA + "/lease", {"holder": "night script", "take": True})
        self.browser.until(text("lease") + " === 'night script controls'")
        self.browser.until(text("control") + " === 'Take over'")

    def test_no_number_of_frames_is_no_exposure_without_end(self):
        self.browser.run("document.getElementById('frames').value = ''")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("frames-wrong") + " === 'how many frames?'")
        self.assertIsNone(self.server.get(CAMERA).json["exposure"])
        self.browser.run("document.getElementById('frames').value = '1'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.assertEqual(self.browser.run(text("frames-wrong")), "")

    def test_a_refused_exposure_stays_told_beside_the_state(self):
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.server.ask("POST", CAMERA + "/lease", {"holder": "night script"})
        self.browser.until(text("lease") + " === 'night script controls'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + ".includes('night script')")
        looks = "performance.getEntriesByType('resource').filter(each => each.name.endsWith('%s')).length" % CAMERA
        before = self.browser.run(looks)
        self.browser.until("%s > %d" % (looks, before + 1))
        self.assertIn("night script", self.browser.run(text("state")))
        self.assertTrue(self.browser.run("document.getElementById('state').matches('.wrong')"))
        self.browser.run("document.getElementById('control').click()")
        self.browser.until(text("state") + " === 'complete'")

    def assertToldWithinASecond(self, told, spoil, mend):
        """What is told beside the image of what spoils it, with which the image is dimmed; mended, that passes."""
        is_told = text("stale") + ".includes('%s')" % told
        self.browser.run("""new MutationObserver(() => { if (%s) window.told ??= Date.now(); }).observe(
            document.getElementById('stale'), {childList: true, characterData: true, subtree: true})""" % is_told)
        for _ in range(3):
            self.browser.run("delete window.told")
            begun = time.time()
            spoil()
            took = self.browser.until("window.told") / 1000 - begun
            self.assertTrue(self.browser.run("document.getElementById('stage').matches('.old')"))
            mend()
            self.browser.until("!(%s) && !document.getElementById('stage').matches('.old')" % is_told)
            if took < 1:
                return
        is_busy = os.getloadavg()[0] > os.cpu_count()  # then a second says nothing of the page
        self.assertTrue(is_busy, "shown after %.2f s" % took)

    def test_a_lost_camera_shows_within_a_second_and_no_image_stays_current(self):
        self.expose()

        def mend():
            self.camera = Simulator(port=self.camera.port, sensor="64x32")
            self.addCleanup(self.camera.retire)
        self.assertToldWithinASecond("no connection to the camera", lambda: self.camera.end(), mend)

    def test_a_camera_that_hangs_is_not_shown_as_connected(self):
        self.expose()
        stop, go_on = [lambda how=how: self.camera.process.send_signal(how) for how in (signal.SIGSTOP, signal.SIGCONT)]
        self.addCleanup(go_on)
        self.browser.until(text("temperature") + ".startsWith('20')")
        until(lambda: self.server.get(CAMERA).json["heartbeat_interval"], "a second heartbeat")
        stop()
        self.browser.until(text("link") + ".startsWith('no heartbeat for ')")
        self.assertTrue(self.browser.run("document.getElementById('link').matches('.bad')"))
        self.browser.until(text("stale") + ".includes('no heartbeat for ') && " + text("state") + ".includes('no heartbeat for ')")
        self.assertTrue(self.browser.run("document.getElementById('stage').matches('.old')"))
        self.browser.until(text("link") + " === 'no heartbeat for 6 s'")  # by the page's clock, too
        self.assertGreater(self.server.get(CAMERA).json["heartbeat_age"], 5)
        go_on()
        self.browser.until(text("link") + " === 'connected' && document.getElementById('link').matches('.good')")
        self.browser.until("!%s.includes('no heartbeat') && !%s.includes('no heartbeat')" % (text("stale"), text("state")))

    def test_a_heartbeat_is_missed_by_how_often_it_comes(self):
        for interval, age, is_missed in (("0.1", "2.9", False), ("0.1", "3.1", True), ("10", "29", False), ("10", "31", True),
                                         ("null", "29", False), ("null", "31", True), ("null", "null", False)):
            found = self.browser.run("import('/cameras.js').then(({isQuiet}) => isQuiet({link: true, heartbeat_interval: %s}, %s))"
                                     % (interval, age))
            self.assertEqual(found, is_missed, (interval, age))

    def test_a_server_that_hangs_shows_within_a_second_and_is_heard_again(self):
        stop, go_on = [lambda how=how: self.server.process.send_signal(how) for how in (signal.SIGSTOP, signal.SIGCONT)]
        self.addCleanup(go_on)
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 0.01, "frames": 0})
        self.browser.until("parseFloat(%s) > 2" % text("truth"))
        self.assertToldWithinASecond("no word from the server for ", stop, go_on)
        self.browser.until("parseFloat(%s) > 2" % text("truth"))
        self.server.ask("DELETE", CAMERA + "/exposures/1")
        self.browser.until("!document.getElementById('start').disabled")
        self.assertToldWithinASecond("no word from the server for ", stop, go_on)
        stop()
        # Beyond when the page tries another connection.
        self.browser.until(text("stale") + ".includes('for 12 s; this frame is 1')")
        self.assertEqual(self.browser.run(text("link")), "no word")
        self.assertTrue(self.browser.run(text("temperature")).startswith("was 20"))
        self.assertTrue(self.browser.run(text("state")).startswith("no word from the server for 1"))
        self.assertTrue(self.browser.run("document.getElementById('start').disabled"))
        go_on()
        self.browser.until(text("link") + " === 'connected' && !document.getElementById('start').disabled")
        self.browser.until("!document.getElementById('stage').matches('.old')")
        shown = self.browser.run("document.getElementById('image').dataset.frame")
        self.assertEqual(self.server.expose(exposure=0.001)["state"], "complete")
        self.browser.until("document.getElementById('image').dataset.frame !== '%s'" % shown)

    def test_a_frame_that_takes_long_on_its_way_is_no_silence(self):
        self.browser.prepare("""
          window.held = [];  // from a frame's pixels on, while they shall be
          const {set} = Object.getOwnPropertyDescriptor(WebSocket.prototype, 'onmessage');
          Object.defineProperty(WebSocket.prototype, 'onmessage', {set(take) {
            set.call(this, take && (event => {
              const isHeld = window.isSlow && (held.length > 0 || typeof event.data !== 'string');
              if (isHeld) held.push(() => take(event));
              else take(event);
            }));
          }})""")
        self.browser.open("http://127.0.0.1:%d/?again" % self.server.port)
        self.browser.until(text("link") + " === 'connected'")
        self.expose()
        self.browser.run("""window.isSlow = true; window.told = '';
          new MutationObserver(() => { told += document.getElementById('stale').textContent; }).observe(
            document.getElementById('stale'), {childList: true, characterData: true, subtree: true})""")
        self.assertEqual(self.server.expose(exposure=0.001)["state"], "complete")
        self.browser.until("held.length > 30")  # for seconds
        self.assertNotIn("word", self.browser.run("told"))
        self.addCleanup(lambda: self.server.process.send_signal(signal.SIGCONT))
        self.server.process.send_signal(signal.SIGSTOP)
        self.browser.until("told.includes('no word from the server')")
        self.server.process.send_signal(signal.SIGCONT)
        self.browser.until("!%s.includes('word')" % text("stale"))
        self.browser.run("isSlow = false; held.forEach(take => take())")
        self.browser.until("document.getElementById('image').dataset.frame === '2.1'")

    def test_what_the_server_refuses_of_the_live_view_is_told(self):
        self.browser.prepare("""
          const send = WebSocket.prototype.send;
          WebSocket.prototype.send = function(text) {
            window.liveSocket = this;
            send.call(this, text);
          }""")
        self.browser.open("http://127.0.0.1:%d/?again" % self.server.port)
        self.browser.until("window.liveSocket !== undefined")
        self.browser.run("""liveSocket.onmessage({data: JSON.stringify(
            {message: 'error', error: {kind: 'usage', text: "'more' is no number"}})})""")
        self.assertIn("the live view was refused: 'more' is no number", self.browser.run(text("events")))

    def test_a_server_that_comes_back_is_found(self):
        self.expose()
        port = self.server.port
        save = "document.getElementById('save')"
        self.browser.until("!%s.hidden" % save)
        self.assertEqual(self.browser.run(save + ".download"), "camera-0-exposure-1.fits")
        self.browser.until(text("temperature") + ".startsWith('20')")
        self.server.end()
        self.browser.until(text("stale") + ".includes('no connection to the server')")
        self.assertEqual(self.browser.run(text("link")), "no connection")
        self.assertTrue(self.browser.run("document.getElementById('link').matches('.bad')"))
        self.assertTrue(self.browser.run(text("temperature")).startswith("was 20"))
        self.assertEqual(self.browser.run(text("state")), "no connection to the server")
        self.assertTrue(self.browser.run("document.getElementById('start').disabled"))
        self.server = Server(self.camera.target, "--listen", "127.0.0.1:%d" % port)
        self.addCleanup(self.server.retire)
        self.browser.until("!%s.includes('connection')" % text("stale"))
        self.browser.until(text("link") + " === 'connected'")
        self.browser.until(text("temperature") + ".startsWith('20')")
        self.browser.until("!document.getElementById('start').disabled && %s !== 'no connection to the server'" % text("state"))
        self.browser.press("+")
        self.browser.until(text("counted") + ".includes('what is seen')")  # all beside the image is drawn again
        self.assertTrue(self.browser.run(save + ".hidden"))  # nothing of it is on this server
        self.expose()
        self.browser.until("!%s.hidden" % save)

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

    FIELD = "[...document.querySelectorAll('#properties label')].find(label => label.firstChild.textContent === '%s').querySelector('input')"

    def set_field(self, label, value):
        self.browser.run("(field => { field.value = '%s'; field.dispatchEvent(new Event('change')); })(%s)" % (value, self.FIELD % label))

    def test_properties_stay_those_of_the_camera_but_where_one_writes(self):
        self.browser.run("document.getElementById('table').open = true")
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 5})
        self.browser.until(self.FIELD % "Gain" + ".value === '5'")
        self.browser.run("(%s).focus()" % (self.FIELD % "Gain"))
        self.browser.run("(%s).value = '17'" % (self.FIELD % "Gain"))
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 6})
        self.server.expose(exposure=0.125)  # nobody is told that this sets the camera's exposure time
        self.browser.until(self.FIELD % "Exposure" + ".value.startsWith('125')")
        self.assertEqual(self.browser.run(self.FIELD % "Gain" + ".value"), "17")
        self.browser.run("(%s).value = '5'" % (self.FIELD % "Gain"))  # nothing is changed
        self.browser.run("document.activeElement.blur()")
        self.browser.until(self.FIELD % "Gain" + ".value === '6'")
        self.server.ask("PUT", CAMERA + "/properties/gpio:3", {"value": "low"})
        row = "[...document.querySelectorAll('#properties .property')].find(row => row.firstChild.textContent === 'Gpio (pin)')"
        self.browser.run("(key => { key.value = '3'; key.dispatchEvent(new Event('change')); })((%s).querySelector('.key'))" % row)
        self.browser.until("(%s).querySelector('select').value === 'low'" % row)
        self.server.ask("PUT", CAMERA + "/properties/gpio:3", {"value": "high"})
        self.browser.until("(%s).querySelector('select').value === 'high'" % row)

    def test_properties_that_cannot_be_read_are_not_shown_as_current(self):
        self.browser.run("document.getElementById('table').open = true")
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        self.camera.process.send_signal(signal.SIGSTOP)
        self.addCleanup(lambda: self.camera.process.send_signal(signal.SIGCONT))
        self.browser.until("document.getElementById('properties').matches('.old')", 3 * PATIENCE)
        self.camera.process.send_signal(signal.SIGCONT)
        self.browser.until("!document.getElementById('properties').matches('.old')", 6 * PATIENCE)

    def test_what_is_refused_of_a_property_is_told_below_it(self):
        self.browser.run("document.getElementById('table').open = true")
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        said = self.FIELD % "Gain" + ".closest('.property').querySelector('p.wrong')?.textContent"
        self.set_field("Gain", "99999")
        self.browser.until("(%s)?.includes('99999')" % said)
        self.set_field("Gain", "4")
        self.browser.until("(%s) === undefined" % said)
        self.assertEqual(self.server.get(CAMERA + "/properties/gain").json["value"], 4)

    def test_nothing_is_under_way_on_a_server_that_began_anew(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 10})
        self.browser.until("document.getElementById('progress').value > 0.1")
        port = self.server.port
        self.server.end()
        self.server = Server(self.camera.target, "--listen", "127.0.0.1:%d" % port)
        self.addCleanup(self.server.retire)
        self.browser.until(text("state") + " === 'idle'")
        self.assertEqual(self.browser.run("document.getElementById('progress').value"), 0)

    def test_each_property_has_its_row(self):
        self.browser.run("document.getElementById('table').open = true")
        table = self.server.get("/api/v1/properties").json["properties"]
        self.browser.until("document.querySelectorAll('#properties .property').length >= %d" % len(table))
        rows = self.browser.run("""[...document.querySelectorAll('#properties .property')].map(row => [
            row.title, row.querySelectorAll('input, select').length, row.querySelector('output')?.textContent])""")
        values = self.server.get(CAMERA + "/properties").json
        self.assertEqual(len(rows), len(table))
        for entry, (help_, fields, told) in zip(table, rows):
            self.assertEqual(help_, entry["help"])
            self.assertEqual(fields, entry["writable"] + ("key" in entry), entry["name"])
            if not entry["writable"]:
                self.assertEqual(told, values[entry["name"]]["text"], entry["name"])

    def test_one_of_many_is_read_by_its_key_and_sent_by_its_button(self):
        row = "[...document.querySelectorAll('#properties .property')].find(row => row.firstChild.textContent === '%s')"
        get = lambda name: self.server.get(CAMERA + "/properties/" + name).json["text"]
        self.server.ask("PUT", CAMERA + "/properties/gpio:3", {"value": "high"})
        self.browser.run("document.getElementById('table').open = true")
        self.browser.until("document.querySelectorAll('#properties .property').length > 40")
        for pin, value in ((3, "high"), (4, "low")):
            self.browser.run("""(key => { key.value = '%d'; key.dispatchEvent(new Event('change')); })(
                (%s).querySelector('.key'))""" % (pin, row % "Gpio (pin)"))
            self.browser.until("(%s).querySelector('select').value === '%s'" % (row % "Gpio (pin)", value))
        for label, value in (("Gpio (pin)", "high"), ("Trigger", "1")):
            self.browser.run("""(field => { field.value = '%s'; field.dispatchEvent(new Event('change')); })(
                (%s).querySelector('input:not(.key), select'))""" % (value, row % label))
        self.browser.run("fetch('%s')" % CAMERA)  # what it asked for before is answered
        self.assertEqual((get("gpio:4"), get("trigger")), ("low", "0"))  # nothing goes by itself
        for label in ("Gpio (pin)", "Trigger"):
            self.browser.run("(%s).querySelector('button').click()" % (row % label))
        until(lambda: (get("gpio:4"), get("trigger")) == ("high", "1"), "both are set")


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


class Crowded(InBrowser):
    server_options = ("--watchers", "1")

    def test_one_for_whom_there_is_no_place_is_told_why_until_there_is(self):
        other = Browser()
        self.addCleanup(other.close)
        other.open("http://127.0.0.1:%d/" % self.server.port)
        other.until(text("stale") + ".startsWith('no live view: as many watch already')")
        other.until(text("link") + " === 'connected'")
        self.assertIn("--watchers lets in: 1", other.run(text("stale")))
        self.assertEqual(self.browser.run(text("stale")), "no frame yet")
        other.run("document.getElementById('start').click()")  # all else goes on
        other.until(text("state") + " === 'complete'")
        self.browser.open("about:blank")
        other.until("!%s.includes('no live view') && document.getElementById('image').dataset.frame === '1.1'" % text("stale"))
        other.run("document.getElementById('start').click()")
        other.until("document.getElementById('image').dataset.frame === '2.1'")
        self.assertEqual(other.complaints, [])


class Tools(InBrowser):
    """What mouse, fingers and keys do on the image with each tool."""

    def setUp(self):
        super().setUp()
        self.browser.call("Emulation.setTouchEmulationEnabled", enabled=True, maxTouchPoints=5)
        self.expose()

    def key(self, key):
        self.browser.run("document.body.dispatchEvent(new KeyboardEvent('keydown', {key: '%s', bubbles: true}))" % key)

    def pressed(self):
        return self.browser.run("[...document.querySelectorAll('#tools [aria-pressed=true]')].map(each => each.value).join()")

    def area(self):
        return self.server.get(CAMERA + "/properties/area").json["text"]

    def touch(self, kind, *places):
        """touchStart and touchMove tell where all fingers are, touchEnd those that stay."""
        points = [{"x": x, "y": y, "id": finger} for finger, (x, y) in enumerate(places)]
        self.browser.call("Input.dispatchTouchEvent", type=kind, touchPoints=points)

    def drag(self, *places):
        """One finger."""
        self.touch("touchStart", self.place(*places[0]))
        for each in places[1:]:
            self.touch("touchMove", self.place(*each))
        self.touch("touchEnd")

    def placing(self):
        """Pixels of the screen for one of the frame, and which of the frame's lies in the middle."""
        self.browser.mouse("mouseMoved", 1, 1)
        return self.browser.run("""(() => {
          const {left, top, width, height} = document.getElementById('image').getBoundingClientRect();
          const look = (x, y) => {
            document.getElementById('image').dispatchEvent(new PointerEvent('pointermove',
                {clientX: left + x, clientY: top + y, pointerId: 99}));
            return document.getElementById('pixel').textContent.split(':')[0].split(', ').map(Number);
          };
          return look(width / 2, height / 2);
        })()""")

    def test_tools_are_taken_by_button_and_by_key(self):
        self.assertEqual(self.pressed(), "pan")
        for key, tool in (("m", "measure"), ("a", "area"), ("p", "pan")):
            self.browser.run("document.querySelector('#tools [value=%s]').click()" % tool)
            self.assertEqual(self.pressed(), tool)
            self.key("p")
            self.assertEqual(self.pressed(), "pan")
            self.key(key)
            self.assertEqual(self.pressed(), tool)

    def test_a_finger_draws_the_area_once(self):
        self.key("a")
        self.drag((10, 5), (30, 9), (41, 20))
        self.browser.until(text("area") + " === 'area 10,5,32,16'")
        self.assertEqual(self.area(), "10,5,32,16")
        self.assertEqual(self.pressed(), "pan")
        self.drag((20, 5), (30, 9))
        self.browser.run("fetch('%s')" % CAMERA)  # what it asked for before is answered
        self.assertEqual(self.area(), "10,5,32,16")
        self.key("a")
        self.touch("touchStart", self.place(30, 9))
        self.touch("touchEnd")
        self.browser.run("fetch('%s')" % CAMERA)
        self.assertEqual(self.area(), "10,5,32,16")

    def test_a_second_finger_makes_no_area_of_the_first_ones_drag(self):
        self.key("a")
        self.touch("touchStart", self.place(10, 5))
        self.touch("touchMove", self.place(20, 9))
        self.assertEqual(self.browser.run("document.getElementById('region').getAttribute('visibility')"), "visible")
        self.touch("touchStart", self.place(20, 9), self.place(40, 20))
        self.touch("touchMove", self.place(20, 9), self.place(45, 25))
        self.assertEqual(self.browser.run("document.getElementById('region').getAttribute('visibility')"), "hidden")
        self.touch("touchEnd")
        self.browser.run("fetch('%s')" % CAMERA)
        self.assertEqual(self.area(), "0,0,64,32")
        self.assertEqual(self.pressed(), "area")

    def test_escape_gives_a_box_up_and_stops_nothing(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 60})
        self.browser.until("!document.getElementById('stop').disabled")
        self.key("a")
        self.browser.mouse("mousePressed", *self.place(10, 5))
        self.browser.mouse("mouseMoved", *self.place(20, 9))
        self.key("Escape")
        self.browser.mouse("mouseReleased", *self.place(20, 9))
        self.browser.run("fetch('%s')" % CAMERA)
        self.assertEqual(self.area(), "0,0,64,32")
        self.assertEqual(self.server.get(CAMERA + "/exposures/2").json["state"], "running")
        self.key("Escape")
        self.browser.until(text("state") + ".startsWith('aborted')")

    def test_two_fingers_zoom_and_move(self):
        middle = [64 / 2, 32 / 2]
        self.assertEqual(self.placing(), middle)
        one, other = self.place(28, 16), self.place(36, 16)
        self.touch("touchStart", one, other)
        self.touch("touchMove", self.place(24, 16), self.place(40, 16))
        self.touch("touchEnd")
        # Pixel 28.5 went to where 24.5 was, 36.5 to where 40.5 was: twice as large, about 32.5.
        scale = self.browser.run("(() => { const {width, height} = document.getElementById('image')"
                                 ".getBoundingClientRect(); return Math.min(width / 64, height / 32); })()")
        self.browser.mouse("mouseMoved", *self.place(24, 16))
        self.assertIn("28, ", self.browser.run(text("pixel")))
        self.browser.mouse("mouseMoved", *self.place(40, 16))
        self.assertIn("36, ", self.browser.run(text("pixel")))
        self.touch("touchStart", one, other)
        shifted = [[x + 8 * scale, y + 4 * scale] for x, y in (one, other)]
        self.touch("touchMove", *shifted)
        self.touch("touchEnd")
        # Four pixels to the right, and two down.
        self.browser.mouse("mouseMoved", *self.place(40, 16))
        self.assertIn("32, 14: ", self.browser.run(text("pixel")))
        self.key("f")
        self.assertEqual(self.placing(), middle)

    def test_one_finger_moves(self):
        self.drag((30, 16), (25, 14), (20, 12))
        self.browser.mouse("mouseMoved", *self.place(20, 12))
        self.assertIn("30, 16: ", self.browser.run(text("pixel")))

    def test_a_region_is_measured_in_each_frame_until_it_is_left(self):
        self.key("m")
        self.drag((10, 5), (30, 9), (41, 20))
        self.browser.until("!document.getElementById('region-facts').hidden")
        for number, exposure in ((1, 0.001), (2, 5)):
            if number > 1:
                self.expose(exposure=exposure)
            self.browser.until("document.getElementById('image').dataset.frame === '%d.1'" % number)
            body = self.server.get(CAMERA + "/exposures/%d/frame.raw" % number).body
            inside = numpy.frombuffer(body, "<u2").reshape(32, 64)[5:21, 10:42]
            wanted = "size32 x 16 at 10, 5values%d to %dmedian%dmean%.2fdeviation%.2f" % (
                inside.min(), inside.max(), numpy.percentile(inside, 50, method="lower"), inside.mean(),
                inside.std(ddof=1))
            self.browser.until("%s === '%s'" % (text("figures"), wanted))
        self.assertEqual(self.area(), "0,0,64,32")
        self.key("x")
        self.assertTrue(self.browser.run("document.getElementById('region-facts').hidden"))
        self.assertEqual(self.browser.run("document.getElementById('measured').getAttribute('visibility')"), "hidden")

    def test_what_was_marked_goes_with_the_area_or_the_bins_that_it_was_of(self):
        is_marked = "!document.getElementById('region-facts').hidden && document.getElementById('measured')" \
                    ".getAttribute('visibility') === 'visible'"
        is_unmarked = "document.getElementById('region-facts').hidden && document.getElementById('measured')" \
                      ".getAttribute('visibility') === 'hidden'"

        def mark():
            self.key("m")
            self.drag((10, 5), (12, 6), (14, 8))
            self.browser.until(is_marked)
        mark()
        self.expose(exposure=0.002)
        self.browser.until("document.getElementById('image').dataset.frame === '2.1'")
        self.assertTrue(self.browser.run(is_marked))
        self.expose(binning=[2, 2])
        self.browser.until(is_unmarked)
        self.expose()
        self.browser.until("document.getElementById('image').dataset.frame === '4.1'")
        mark()
        self.key("a")
        self.drag((10, 5), (30, 9), (41, 20))
        self.browser.until(text("area") + " === 'area 10,5,32,16'")
        self.browser.until(is_unmarked)

    def test_what_is_measured_of_a_part_says_of_how_many(self):
        found = self.browser.run("""import('/measure.js').then(({figuresIn}) => figuresIn(
            {part: {column: 4, row: 2, step: 2, columns: 3, rows: 2}, pixels: Uint16Array.of(1, 2, 3, 4, 5, 6), facts: {missing_rows: []}},
            {column: 5, row: 0, columns: 4, rows: 4}))""")
        # Of columns 4, 6, 8 and rows 2, 4 these are 6 and 8 of row 2.
        self.assertEqual(found, {"count": 2, "share": 2 / 16, "least": 2, "most": 3, "mean": 2.5,
                                 "deviation": math.sqrt(0.5), "median": 2})
        nothing = self.browser.run("""import('/measure.js').then(({figuresIn}) => figuresIn(
            {part: {column: 0, row: 0, step: 1, columns: 2, rows: 2}, pixels: new Uint16Array(4), facts: {missing_rows: []}},
            {column: 5, row: 0, columns: 4, rows: 4}))""")
        self.assertIsNone(nothing)


class Cameras(unittest.TestCase):
    """Several of one server: a 64x32, a 48x24, and one that is not there."""

    def setUp(self):
        self.cameras = [Simulator(sensor=sensor) for sensor in ("64x32", "48x24")]
        with socket.create_server(("127.0.0.1", 0)) as unused:
            self.targets = [each.target for each in self.cameras] + ["127.0.0.1:%d" % unused.getsockname()[1]]
        for each in self.cameras:
            self.addCleanup(each.retire)
        self.server = Server(*self.targets)
        self.addCleanup(lambda: self.server.retire())
        self.server.open(0)
        self.server.open(1)
        self.browser = Browser()
        self.addCleanup(self.browser.close)

    def tearDown(self):
        self.assertEqual(self.browser.complaints, [])

    def open(self, query=""):
        self.browser.open("http://127.0.0.1:%d/%s" % (self.server.port, query))

    def until(self, script):
        """Also while the page goes and comes."""
        self.browser.until("document.readyState === 'complete' && document.getElementById('unknown') && (%s)" % script)

    def states(self, place="cameras"):
        return """[...document.querySelectorAll('#%s a')].map(each =>
            [...each.children].map(part => part.textContent).join(' ')).join()""" % place

    def shows(self, camera, columns):
        """Whether the page is that of a camera, and a frame of it is drawn."""
        self.until("document.querySelector('#cameras [aria-current]')?.firstChild.textContent === '%d'" % camera)
        self.until(text("facts") + ".includes('size%d x ')" % columns)

    def click(self, place, camera):
        self.browser.run("[...document.querySelectorAll('#%s a')].find(each => "
                         "each.firstChild.textContent === '%d').click()" % (place, camera))

    def test_all_are_listed_with_their_state(self):
        self.open()
        self.until("%s === '0 vxcamsim idle,1 vxcamsim idle,2 %s not there'" % (self.states(), self.targets[2]))
        self.assertEqual(self.browser.run("document.querySelectorAll('#cameras .bad').length"), 1)
        self.assertIn(self.targets[1], self.browser.run("document.querySelectorAll('#cameras a')[1].title"))
        self.server.ask("POST", "/api/v1/cameras/1/exposures", {"exposure": 60})
        self.until(self.states() + ".includes('1 vxcamsim exposing')")
        self.server.ask("DELETE", "/api/v1/cameras/1/exposures/1")
        self.until(self.states() + ".includes('1 vxcamsim idle')")
        self.cameras[1].process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.cameras[1].process.send_signal, signal.SIGCONT)
        self.until(self.states() + ".includes('1 vxcamsim no heartbeat')")
        self.assertEqual(self.browser.run("document.querySelectorAll('#cameras .bad').length"), 2)
        self.cameras[1].process.send_signal(signal.SIGCONT)
        self.until(self.states() + ".includes('1 vxcamsim idle')")
        self.cameras[1].end()
        self.until(self.states() + ".includes('1 vxcamsim link lost')")
        self.browser.run("document.querySelector('#cameras a').focus()")
        self.server.end()
        self.until(self.states() + ".includes('0 vxcamsim not known')")
        self.assertEqual(self.browser.run("document.activeElement.firstChild.textContent"), "0")

    def test_why_there_is_no_camera_is_told(self):
        self.open("?camera=2")
        why = "no camera answers at " + self.targets[2]
        for element in ("state", "stale"):
            self.until("%s.includes('%s')" % (text(element), why))
        self.assertTrue(self.browser.run("document.getElementById('state').matches('.wrong')"))
        self.assertIn(why, self.browser.run("document.querySelectorAll('#cameras a')[2].title"))
        other = Server(self.targets[0])
        self.addCleanup(other.retire)
        self.browser.open("http://127.0.0.1:%d/" % other.port)
        self.until(text("state") + ".includes('in use by another client')")

    def test_how_others_stand_is_asked_for_more_than_once_a_second(self):
        self.open()
        self.until(self.states() + ".includes('1 vxcamsim idle')")
        asked = "performance.getEntriesByType('resource').filter(each => each.name.endsWith('/cameras')).length"
        begun, before = time.monotonic(), self.browser.run(asked)
        self.until("%s >= %d" % (asked, before + 10))
        took = time.monotonic() - begun
        self.assertTrue(took < 10 or os.getloadavg()[0] > os.cpu_count(), "asked 10 times in %.1f s" % took)
        self.cameras[1].end()
        self.until(self.states() + ".includes('1 vxcamsim link lost')")

    def test_the_address_tells_which_one_is_shown_and_goes_back_and_forward(self):
        self.server.expose(0, exposure=0.001)
        self.server.expose(1, exposure=0.001)
        self.open("?painter=software")
        self.shows(0, 64)
        self.click("cameras", 1)
        self.shows(1, 48)
        self.assertEqual(self.browser.run("location.search"), "?painter=software&camera=1")
        self.assertEqual(self.browser.run("document.title"), "1 vxcamsim - vxcamd")
        self.browser.run("history.back()")
        self.shows(0, 64)
        self.browser.run("history.forward()")
        self.shows(1, 48)
        self.browser.run("location.reload()")
        self.shows(1, 48)

    def test_control_of_one_is_not_that_of_another(self):
        self.open()
        self.until(text("link") + " === 'connected'")
        self.browser.run("document.getElementById('control').click()")
        self.until(text("lease") + " === 'you control'")
        self.server.ask("POST", "/api/v1/cameras/1/lease", {"holder": "night script"})
        self.click("cameras", 1)
        self.until(text("lease") + " === 'night script controls'")
        self.browser.run("history.back()")
        self.until(text("lease") + " === 'you control'")

    def test_one_that_does_not_exist_is_told_with_those_that_do(self):
        for query, number in (("?camera=77", "77"), ("?camera=..", ".."), ("?camera=1/live", "1/live")):
            self.open(query)
            self.until(text("no-camera") + " === 'no such camera: %s'" % number)
            self.assertEqual(self.browser.run(self.states("offered")),
                             "0 vxcamsim idle,1 vxcamsim idle,2 %s not there" % self.targets[2])
            self.assertEqual(self.browser.run("document.querySelector('main').getClientRects().length"), 0)
            self.assertEqual(self.browser.run("document.getElementById('link').getClientRects().length"), 0)
        self.server.expose(1, exposure=0.001)
        self.click("offered", 1)
        self.shows(1, 48)

    def test_one_that_the_server_has_again_is_shown_again(self):
        self.open("?camera=1")
        self.until(text("link") + " === 'connected'")
        port = self.server.port
        for targets, is_there in ((self.targets[:1], False), (self.targets[:2], True)):
            self.server.end()
            self.server = Server(*targets, "--listen", "127.0.0.1:%d" % port)
            self.until("document.getElementById('unknown').hidden === %s" % str(is_there).lower())
        self.until(text("link") + " === 'connected'")

    def test_a_single_one_needs_no_list(self):
        self.server.end()
        self.server = Server(self.targets[0])
        self.open()
        self.until(text("link") + " === 'connected'")
        self.assertTrue(self.browser.run("document.getElementById('cameras').hidden"))
        self.assertEqual(self.browser.run("document.title"), "vxcamsim - vxcamd")


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


class Graphs(InBrowser):
    def test_the_histogram_counts_each_pixel(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,8192,49152,8"})
        self.expose()
        values, counts = self.browser.until(drawn_in("histogram", 2))
        self.assertEqual(sum(counts), self.columns * self.rows)
        wide = values[1] - values[0]
        most = [value for value, count in zip(values, counts) if count]
        self.assertEqual(len(most), 2)
        self.assertLessEqual(most[0], 8192)
        self.assertLess(8192, most[0] + wide)
        self.assertLessEqual(most[1], 49152)
        self.assertLess(49152, most[1] + wide)

    def test_the_histogram_is_of_what_is_seen_or_measured_and_says_so(self):
        exposure = self.expose()
        body = self.server.get(CAMERA + "/exposures/%d/frame.raw" % exposure["id"]).body
        frame = numpy.frombuffer(body, "<u2").reshape(self.rows, self.columns)
        self.browser.until(text("counted") + " === 'Histogram of the whole frame'")
        self.browser.press("+")
        title = self.browser.until(text("counted") + r".match(/of what is seen, (\d+) x (\d+) at (\d+), (\d+)$/)")
        columns, rows, column, row = (int(part) for part in title[1:])
        self.assertLess(columns * rows, 0.4 * frame.size)
        self.assertCounted(frame[row:row + rows, column:column + columns])
        self.browser.press("m")
        for kind, place in (("mousePressed", (20, 10)), ("mouseMoved", (25, 12)), ("mouseReleased", (30, 15))):
            self.browser.mouse(kind, *self.place(*place))
        title = self.browser.until(text("counted") + r".match(/of the region, (\d+) x (\d+) at (\d+), (\d+)$/)")
        columns, rows, column, row = (int(part) for part in title[1:])
        self.assertCounted(frame[row:row + rows, column:column + columns])
        self.browser.press("x")
        self.browser.press("f")
        self.browser.until(text("counted") + " === 'Histogram of the whole frame'")
        self.assertCounted(frame)

    def assertCounted(self, pixels):
        values, counts = self.browser.run(drawn_in("histogram", 2))
        wide = values[1] - values[0]
        self.assertEqual(values[0], pixels.min())
        self.assertEqual(sum(counts), numpy.count_nonzero(pixels < values[-1] + wide))
        self.assertGreater(sum(counts), 0.99 * pixels.size)
        above = pixels[pixels >= values[-1] + wide]
        self.assertEqual(self.browser.run(text("above")), "and %d above %d, to %d" % (
            above.size, values[-1] + wide - 1, above.max()) if above.size else "")
        for value, count in zip(values, counts):
            self.assertEqual(count, numpy.count_nonzero((pixels >= value) & (pixels < value + wide)), value)

    def test_temperatures_are_drawn_with_what_they_are_to_be(self):
        self.browser.until(drawn_in("temperatures", 3))
        self.server.ask("PUT", CAMERA + "/properties/target-temp", {"value": -12})
        self.server.ask("PUT", CAMERA + "/properties/cooling", {"value": True})
        self.browser.until("(%s).then(columns => columns && columns[2].at(-1) === -12)" % drawn_in("temperatures"))
        times, sensor, target = self.browser.run(drawn_in("temperatures"))
        self.assertLess(abs(times[-1] - time.time()), 60)
        self.assertIsNone(target[0])  # nothing was cooled then
        self.assertLessEqual(set(zip(times, sensor)), self.told_temperatures(times[-1]))
        self.assertIn("-12.0", self.browser.run(text("temperatures")))
        self.server.ask("PUT", CAMERA + "/properties/cooling", {"value": False})
        self.browser.until("(%s).then(columns => columns && columns[2].at(-1) === null)" % drawn_in("temperatures"))

    def told_temperatures(self, end):
        """When (UTC, seconds) and what, as the server remembers them, until that time."""
        with socket.create_connection(("127.0.0.1", self.server.port), PATIENCE) as connection:
            connection.sendall(b"GET " + CAMERA.encode() + b"/events?since=0 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            found = set()
            for line in connection.makefile("r", encoding="utf-8"):
                event = json.loads(line[6:]) if line.startswith("data: ") else {}
                if event.get("sensor_temperature") is None:
                    continue
                utc = datetime.datetime.fromisoformat(event["utc"].replace("Z", "")[:23] + "+00:00").timestamp()
                found.add((utc, event["sensor_temperature"]))
                if utc >= end:
                    return found
        raise AssertionError(found)

    def test_the_dome_has_its_colours_in_graphs_and_keeps_them(self):
        is_blue = """(%s).then(columns => columns && import('/graphs.js').then(({graphIn}) => {
          const {ctx} = graphIn('temperatures').plot;
          const {data} = ctx.getImageData(0, 0, ctx.canvas.width, ctx.canvas.height);
          return data.some((value, at) => at %% 4 === 2 && value > data[at - 2]) ? 'yes' : 'no';
        }))""" % drawn_in("temperatures", 3)
        self.assertEqual(self.browser.until(is_blue), "yes")
        self.browser.run("document.body.dispatchEvent(new KeyboardEvent('keydown', {key: 'n', bubbles: true}))")
        self.assertEqual(self.browser.until(is_blue), "no")
        self.browser.open("http://127.0.0.1:%d/?again" % self.server.port)
        self.browser.until("document.documentElement.matches('.dome')")
        self.assertEqual(self.browser.until(is_blue), "no")

    def test_nothing_in_the_dome_is_bright_but_red(self):
        self.browser.resize(1366, 2600)
        self.browser.run('''document.getElementById('mode').click();
          document.getElementById('table').open = true;
          document.getElementById('progress').value = 0.5;
          document.getElementById('target').placeholder = 'warm'; document.getElementById('target').value = ''
          ''')
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        self.expose(exposure=0.1)
        for is_on in ("true", "false"):
            self.browser.run("document.getElementById('cooling').checked = %s" % is_on)
            light = self.browser.pixels()[..., 1:].max(axis=2)  # green or blue
            self.assertLess(light.max(), 130, numpy.unravel_index(light.argmax(), light.shape))

    def test_what_is_not_our_own_is_served_with_its_licence(self):
        for name, kind in (("uPlot.esm.js", "text/javascript"), ("uPlot.min.css", "text/css"),
                           ("uPlot.LICENSE", "text/plain")):
            answer = self.server.get("/vendor/" + name)
            self.assertEqual(answer.status, 200)
            self.assertTrue(answer.headers["content-type"].startswith(kind))
        self.assertIn(b"Permission is hereby granted, free of charge", answer.body)


class Sequences(InBrowser):
    PLAN = "steps:\n- lights: {name: M31, count: %d, exposure: %s}\n"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.plans = folder.name
        self.server_options = ("--plans", folder.name)
        self.write("bad.yaml", "steps:\n- lights: {count: 0, exposure: 1s}\n- lights: {count: 1}\n")
        super().setUp()
        self.addCleanup(reap)  # before the folder goes
        self.addCleanup(self.server.retire)

    def write(self, name, plan):
        with open(os.path.join(self.plans, name), "w", encoding="ascii") as file:
            file.write(plan)

    def click(self, *buttons):
        for button in buttons:
            self.browser.until("!document.getElementById('%s').matches(':disabled')" % button)
            self.browser.run("document.getElementById('%s').click()" % button)

    def choose(self, name):
        self.browser.until("[...document.getElementById('plan').options].some(each => each.value === '%s')" % name)
        self.browser.run("""(() => {
          const plan = document.getElementById('plan');
          plan.value = '%s';
          plan.dispatchEvent(new Event('change'));
        })()""" % name)

    def start(self, count, exposure, name="night.yaml"):
        self.write(name, self.PLAN % (count, exposure))
        self.click("check")
        self.choose(name)
        self.click("run")

    def reads(self, element, part):
        self.browser.until("!document.getElementById('%s').hidden && %s.includes('%s')" % (
            element, text(element), part))

    def test_plans_are_listed_and_checked(self):
        self.choose("bad.yaml")
        self.reads("checked", "line 2: ")
        self.assertIn("line 3: ", self.browser.run(text("checked")))
        self.assertTrue(self.browser.run("document.getElementById('run').disabled"))
        self.write("bad.yaml", "sensor: [64, 32]\n" + self.PLAN % (20, "2min"))
        self.click("check")
        self.reads("checked", "good: 20 frames, 40 min exposed")
        self.assertFalse(self.browser.run("document.getElementById('run').disabled"))

    def test_a_sequence_is_watched_stopped_and_gone_on_with(self):
        self.start(8, "1s")
        self.reads("doing", "night.yaml, line 2: M31")
        self.reads("counts", " of 8 frames, ")
        self.assertIn(" left", self.browser.run(text("counts")))
        self.browser.until("document.getElementById('start').disabled")
        self.reads("state", "the sequence night.yaml runs; it is stopped under Sequence")
        self.assertEqual(self.browser.run("document.getElementById('start').title"), "the sequence night.yaml runs")
        self.browser.run("document.getElementById('start').disabled = false")  # as before the page knew
        self.browser.run("document.getElementById('start').click()")
        self.reads("state", "the sequence night.yaml runs; it is stopped under Sequence; ")
        self.assertTrue(self.browser.run("document.getElementById('state').matches('.wrong')"))
        self.browser.until("document.getElementById('image').dataset.frame !== undefined")
        self.assertTrue(self.browser.run("document.getElementById('save').hidden"))
        self.assertLess(self.browser.run("document.getElementById('halt-after').getBoundingClientRect().bottom"),
                        self.browser.run("document.querySelector('footer').getBoundingClientRect().top"))
        self.click("halt-after")
        self.reads("doing", "stopped")
        taken = self.server.get(CAMERA + "/sequence").json["taken"]
        self.assertLess(taken, 8)
        self.reads("report", "not complete, %d of 8 frames" % taken)
        self.reads("checked", "%d of 8 frames taken in 1 run" % taken)
        self.assertEqual(self.browser.run(text("run")), "Go on")
        self.browser.until("!document.getElementById('start').disabled")
        self.click("run")
        self.browser.until("document.getElementById('report').hidden")
        self.reads("doing", "night.yaml: complete")
        self.reads("report", "complete, 8 of 8 frames, %d before this run" % taken)
        told = self.browser.run("[...document.getElementById('report-files').children].map(each => each.textContent)")
        self.assertEqual([each.split(" ")[0] for each in told],
                         ["night/M31-%04d.fits" % number for number in range(1, 9)])
        self.assertEqual(len(glob.glob(os.path.join(self.plans, "night", "M31-*.fits"))), 8)

    def test_the_section_stays_where_it_is_when_one_begins_and_ends(self):
        self.browser.resize(1024, 768)
        self.browser.until("innerWidth === 1024")
        self.expose()
        self.browser.run("document.getElementById('table').open = true")  # there is more below
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        self.write("night.yaml", self.PLAN % (2, "1h"))
        self.click("check")
        self.choose("night.yaml")
        self.reads("checked", "good: 2 frames")
        top = "document.getElementById('of-plans').getBoundingClientRect().top"
        self.browser.run("document.querySelector('aside').scrollTop += %s - 194" % top)
        self.assertLess(abs(self.browser.run(top) - 194), 2)
        for button, state in (("run", "in-sequence"), ("halt", "")):
            self.click(button)
            self.browser.until("document.body.matches('.in-sequence') === %s" % json.dumps(bool(state)))
            for _ in range(5):  # pictures
                found = self.browser.run("new Promise(done => requestAnimationFrame(done)).then(() => %s)" % top)
                self.assertLess(abs(found - 194), 30, button)

    def test_one_is_stopped_at_once_and_its_frames_may_go_elsewhere(self):
        self.browser.run("document.getElementById('folder').value = 'elsewhere'")
        self.start(2, "1h")
        self.reads("doing", "M31")
        self.click("halt")
        self.reads("doing", "stopped")
        self.reads("report", "0 of 2 frames")
        self.assertTrue(os.path.isdir(os.path.join(self.plans, "elsewhere")))

    def test_what_fails_is_told_and_why_it_ended(self):
        self.camera.end()
        camera = Simulator("--fault", "missing-packet:packet=7,times=0", port=self.camera.port, sensor="64x32")
        self.addCleanup(camera.retire)
        until(lambda: self.server.get(CAMERA).json["link"], "the link")
        self.PLAN = "retries: 2\n" + self.PLAN
        self.start(2, "500ms")
        self.browser.until(text("failures") + ".includes('M31')")
        self.reads("counts", "failure")
        self.reads("doing", "night.yaml: failed: ")
        self.reads("report", "3 failures")
        self.assertEqual(self.browser.run("document.getElementById('report-failures').children.length"), 3)

    def test_a_plan_is_added_from_here(self):
        self.browser.run("""(() => {
          const chosen = new DataTransfer();
          chosen.items.add(new File([%r], 'added.yaml'));
          document.getElementById('file').files = chosen.files;
          document.getElementById('file').dispatchEvent(new Event('change'));
        })()""" % (self.PLAN % (3, "1s")))
        self.browser.until("document.getElementById('plan').value === 'added.yaml'")
        self.reads("checked", "good: 3 frames")
        with open(os.path.join(self.plans, "added.yaml"), encoding="ascii") as file:
            self.assertEqual(file.read(), self.PLAN % (3, "1s"))

    def add(self, name, plan):
        self.browser.run('''(() => {
          const chosen = new DataTransfer();
          chosen.items.add(new File([%s], '%s'));
          document.getElementById('file').files = chosen.files;
          document.getElementById('file').dispatchEvent(new Event('change'));
        })()''' % (json.dumps(plan), name))

    def test_a_plan_is_replaced_by_those_alone_who_say_so(self):
        path = os.path.join(self.plans, "mine.yaml")
        self.write("mine.yaml", self.PLAN % (3, "1s"))  # the page has not heard of it
        self.browser.run("window.asked = []; window.confirm = text => (asked.push(text), false)")
        self.add("mine.yaml", self.PLAN % (4, "1s"))
        self.browser.until("asked.length === 1 && asked[0].includes('mine.yaml')")
        self.choose("mine.yaml")
        self.reads("checked", "good: 3 frames")
        self.browser.run("window.confirm = () => true")
        self.add("mine.yaml", self.PLAN % (4, "1s"))
        self.reads("checked", "good: 4 frames")
        with open(path, encoding="ascii") as file:
            self.assertEqual(file.read(), self.PLAN % (4, "1s"))
        self.add("wrong.yaml", "steps:\n- lights: {count: 0, exposure: 1s}\n")
        self.reads("trouble", "wrong.yaml: line 2: ")

    def test_what_somebody_else_controls_is_not_begun(self):
        self.server.ask("POST", CAMERA + "/lease", {"holder": "night script"})
        self.start(2, "1s")
        self.reads("trouble", "night script")
        self.assertEqual(self.server.get(CAMERA + "/sequence").json["state"], "none")

    def test_what_runs_already_is_shown_by_a_page_that_comes(self):
        self.write("night.yaml", self.PLAN % (3, "1h"))
        self.server.ask("POST", CAMERA + "/sequence", {"plan": "night.yaml"})
        self.browser.open("http://127.0.0.1:%d/?again" % self.server.port)
        self.reads("doing", "night.yaml, line 2: M31")
        self.browser.until("document.getElementById('plan').value === 'night.yaml'")
        self.assertTrue(self.browser.run("document.getElementById('plan').disabled"))


class NoPlans(InBrowser):
    def test_without_plans_sequences_are_disabled_and_the_reason_is_told(self):
        self.browser.until(text("no-plans") + ".includes('--plans')")
        for button in ("run", "halt", "halt-after", "check", "add"):
            self.assertTrue(self.browser.run("document.getElementById('%s').matches(':disabled')" % button))


def hidden_of_the_star(browser):
    """What of the star's panel is not to be seen without scrolling, on each screen; and what scrolls by itself in it."""
    hidden = {}
    for width, height in ((1366, 768), (1180, 820), (820, 1180)):
        browser.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        browser.until("innerWidth === %d && innerHeight === %d" % (width, height))
        found = browser.run("""new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done))).then(() => {
          const foot = document.querySelector('footer').getBoundingClientRect().top;
          const head = document.getElementById('stage').getBoundingClientRect().top;
          return [...document.querySelectorAll('#start, #live, #star :not(.u-off)')].filter(element => {
            const {top, bottom} = element.getBoundingClientRect();
            return top < head || bottom > foot || /auto|scroll/.test(getComputedStyle(element).overflowY);
          }).map(element => element.id || element.tagName + '.' + element.className);
        })""")
        if found:
            hidden[width, height] = found
    return hidden


# Whether something of the colour of lines is drawn in the graph of widths.
ACCENT_IN_FOCUS = """import('/graphs.js').then(({graphIn}) => {
  const {ctx} = graphIn('focus').plot;
  const {data} = ctx.getImageData(0, 0, ctx.canvas.width, ctx.canvas.height);
  return data.some((value, at) => at % 4 === 2 && data[at + 1] > 200 && value > data[at - 2] + 80);
})"""


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
        self.assertEqual(hidden_of_the_star(browser), {})
        browser.until(ACCENT_IN_FOCUS)  # one frame is a point
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
        frames, diameters, widths = browser.until(drawn_in("focus", 3))
        self.assertEqual(frames, [1, 2, 3])
        told = re.search(r"HFD ([\d.]+), FWHM ([\d.]+)", browser.run(text("width"))).groups()
        self.assertEqual(["%.2f" % diameters[-1], "%.2f" % widths[-1]], list(told))
        distances, light = browser.run(drawn_in("profile", 5))
        self.assertEqual(distances, sorted(distances))
        self.assertAlmostEqual(light[0], int(re.search(r"peak (\d+)", browser.run(text("width"))).group(1)),
                               delta=0.2 * light[0])
        half = next(distance for distance, value in zip(distances, light) if value < light[0] / 2)
        self.assertAlmostEqual(half, wide / 2, delta=0.5)
        browser.run("document.getElementById('leave').click()")
        self.assertTrue(browser.run("document.getElementById('star').hidden"))
        self.assertEqual(browser.complaints, [])


class Readable(unittest.TestCase):
    def test_all_can_be_read_on_small_screens_in_every_light(self):
        camera = Simulator("--heartbeat", "0.1", sensor="320x240")
        self.addCleanup(camera.retire)
        with tempfile.TemporaryDirectory() as folder:
            self.look(camera, folder)
            reap()  # before the folder goes

    def look(self, camera, folder):
        name = 59 * "n" + ".yaml"
        with open(os.path.join(folder, name), "w", encoding="ascii") as file:
            file.write("steps:\n- lights: {count: 3, exposure: 1ms, name: %s}\n" % (60 * "m"))
        server = Server(camera.target, "--plans", folder)
        server.open()
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open("http://127.0.0.1:%d/" % server.port)
        self.assertEqual(server.ask("POST", CAMERA + "/sequence", {"plan": name}).status, 202)
        browser.until("!document.getElementById('report').hidden")
        browser.run("document.getElementById('report').open = true")
        browser.until("document.getElementById('image').dataset.frame !== undefined")
        browser.until(drawn_in("temperatures", 3))
        browser.run("""document.getElementById('star').hidden = false;
                       document.getElementById('table').open = true""")
        browser.until("document.querySelectorAll('#properties label').length > 15")
        for width, height in ((1366, 768), (1180, 820), (820, 1180), (768, 1024)):
            browser.resize(width, height)
            browser.until("document.documentElement.clientWidth > %d" % (width - 30))
            self.assertEqual(browser.until(BESIDE), "nothing", (width, height))
            columns = browser.run("new Set([...document.querySelectorAll('#properties label')].map("
                                  "each => each.getBoundingClientRect().left)).size")
            self.assertEqual(columns, 2 if width < 900 else 1, (width, height))
        for scheme, dome in (("light", False), ("dark", False), ("dark", True)):
            browser.prefer(scheme)
            browser.run("document.documentElement.classList.toggle('dome', %s)" % str(dome).lower())
            self.assertGreater(contrast(browser, "on", "accent"), 4, (scheme, dome))
            for name, least in (("ink", 4.5), ("soft", 4), ("bad", 4), ("good", 4), ("accent", 3.5),
                                ("second", 3.5)):
                self.assertGreater(contrast(browser, name), least, (scheme, dome, name))
        self.assertEqual(browser.complaints, [])
        server.retire()


# What reaches beyond the window or the column that it is in, once the layout has settled.
BESIDE = """new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done))).then(() => {
  const isBeside = element => {
    const box = element.getBoundingClientRect();
    const around = element.closest('aside > *')?.getBoundingClientRect() ?? {left: 0, right: innerWidth};
    return box.width > 0 && (box.left < around.left - 1 || box.right > around.right + 1);
  };
  const beside = [...document.querySelectorAll('header *, footer, aside *')].filter(isBeside);
  return beside.map(element => element.outerHTML.slice(0, 80)).join() || 'nothing';
})"""


def contrast(browser, name, behind="panel"):
    """Of a colour of the page on another one, as the WCAG count it."""
    def light(colour):
        text_ = browser.run("getComputedStyle(document.documentElement).getPropertyValue('--%s').trim()" % colour)
        digits = text_[1:] if len(text_) == 7 else "".join(2 * digit for digit in text_[1:])
        parts = [int(digits[at:at + 2], 16) / 255 for at in (0, 2, 4)]
        linear = [part / 12.92 if part <= 0.03928 else ((part + 0.055) / 1.055)**2.4 for part in parts]
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2] + 0.05
    one, other = light(name), light(behind)
    return max(one, other) / min(one, other)


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
        _, counts = self.browser.until(drawn_in("histogram") + ".then(drawn => drawn[1].reduce((a, b) => a + b) < 100 && drawn)")
        self.assertEqual(sum(counts), 11 * 4)


@unittest.skipUnless(os.environ.get("VX_SCREENSHOT"), "VX_SCREENSHOT names no file")
class Screenshot(unittest.TestCase):
    """VX_SCREENSHOT=docs/page.png: page.png, page-dark.png, page-dome.png, page-tablet.png."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(reap)
        with open(os.path.join(folder.name, "night.yaml"), "w", encoding="ascii") as file:
            file.write("steps:\n- lights: {name: M31, count: 20, exposure: 1s}\n- darks: {count: 10, exposure: 1min}\n")
        self.server = Server("sim?sensor=1024x768&seed=3", "--plans", folder.name)
        self.addCleanup(self.server.retire)
        self.server.open()
        self.server.ask("PUT", CAMERA + "/properties/target-temp", {"value": -10})
        self.server.ask("PUT", CAMERA + "/properties/cooling", {"value": True})

    def browser(self, width, height, scheme):
        browser = Browser(width, height)
        self.addCleanup(browser.close)
        browser.prefer(scheme)
        browser.open("http://127.0.0.1:%d/" % self.server.port)
        browser.until(text("link") + " === 'connected'")
        self.server.expose(exposure=2)
        browser.until("document.getElementById('image').dataset.frame !== undefined")
        browser.until("document.getElementById('target').value === '-10'")
        return browser

    @staticmethod
    def pick(browser, column=556, row=293):
        """A star."""
        spot = browser.run("""(() => {
          const {left, top, width, height} = document.getElementById('image').getBoundingClientRect();
          const scale = Math.min(width / 1024, height / 768);
          return [left + (width - 1024 * scale) / 2 + %d * scale, top + (height - 768 * scale) / 2 + %d * scale];
        })()""" % (column, row))
        browser.mouse("mousePressed", *spot)
        browser.mouse("mouseReleased", *spot)

    @staticmethod
    def follow(browser, frames):
        browser.until("(%s).then(columns => columns && columns[0].length > %d)" % (drawn_in("focus"), frames))

    def take(self, browser, name=""):
        browser.until(drawn_in("temperatures", 12))
        browser.until("!%s.includes('of 1 in')" % text("facts"))
        self.assertEqual(browser.run(text("stale")), "")
        base, ending = os.path.splitext(os.environ["VX_SCREENSHOT"])
        browser.screenshot(base + name + ending)

    def test_pictures_of_the_page_are_taken(self):
        light = self.browser(1366, 768, "light")
        light.until(text("state") + " === 'complete'")
        self.take(light)
        dark = self.browser(1366, 768, "dark")
        self.pick(dark)
        self.server.expose(exposure=0.5, frames=12)
        self.follow(dark, 12)
        dark.until(text("state") + " === 'complete'")
        self.take(dark, "-dark")
        dome = self.browser(1366, 768, "dark")
        dome.run("document.getElementById('mode').click()")
        self.take(dome, "-dome")
        tablet = self.browser(820, 1180, "light")
        self.pick(tablet)
        self.server.ask("POST", CAMERA + "/sequence", {"plan": "night.yaml"})
        self.follow(tablet, 8)
        tablet.until("!document.getElementById('doing').hidden && %s.includes(' left')" % text("counts"))
        self.take(tablet, "-tablet")


if __name__ == "__main__":
    unittest.main()
