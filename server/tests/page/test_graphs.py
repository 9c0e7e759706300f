"""Histogram, stars and temperatures as graphs."""

import datetime
import json
import math
import re
import signal
import socket
import time
import unittest

import numpy

from browser_support import Browser
from page.page_support import CAMERA, drawn_in, InBrowser, setUpModule, tearDownModule, text
from server_support import PATIENCE, Server, Simulator, until


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

    def test_the_median_is_one_of_the_values_also_where_they_lie_far_apart(self):
        self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "5,100,65535,8"})
        self.expose(binning=[2, 2])
        self.browser.until(text("facts") + ".includes('median400')")
        for count, most in ((1, 9), (1000, 2**32 - 1), (1001, 2**32 - 1), (100001, 300000), (5000, 900)):
            pixels = numpy.random.default_rng(count).integers(7, most, count, dtype=numpy.uint32, endpoint=True)
            for power in (1, 3):
                values = numpy.uint32(most * (pixels / most)**power)
                found = self.browser.run("""import('/figures.js').then(({exactFigures}) =>
                    exactFigures(Uint32Array.from([%s]), 32, () => true)).then(({median}) => median)""" % ",".join(map(str, values)))
                self.assertEqual(found, numpy.percentile(values, 50, method="lower"), (count, most, power))
        about = self.browser.run("""import('/figures.js').then(({figuresOf}) => figuresOf(Uint32Array.of(1, 2, 1e6), 32).median ?? 'not known')""")
        self.assertEqual(about, "not known")  # without looking again

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

    def test_temperatures_that_nobody_told_are_a_gap(self):
        self.browser.until(drawn_in("temperatures", 3))
        self.camera.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.camera.process.send_signal, signal.SIGCONT)
        self.browser.until(text("link") + ".startsWith('no heartbeat for ')")
        self.assertNotIn(None, self.browser.run(drawn_in("temperatures"))[1])
        self.camera.process.send_signal(signal.SIGCONT)
        self.browser.until("(%s).then(columns => columns && columns[1].slice(0, -2).includes(null))" % drawn_in("temperatures"))
        times, sensor, _ = self.browser.run(drawn_in("temperatures"))
        gap = sensor.index(None)
        self.assertEqual((sensor.count(None), times), (1, sorted(times)))
        self.assertGreater(times[gap + 1] - times[gap - 1], 3)

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
        place = """(() => {
          const box = document.getElementById('image').getBoundingClientRect();
          const scale = Math.min(box.width / 320, box.height / 240);
          return [box.left + (box.width - 320 * scale) / 2 + %f * scale,
                  box.top + (box.height - 240 * scale) / 2 + %f * scale];
        })()""" % (column + 0.5, row + 0.5)

        def click():
            spot = browser.run(place)
            browser.mouse("mousePressed", *spot)
            browser.mouse("mouseReleased", *spot)
        click()
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
        is_old = "document.getElementById('profile').matches('.old')"
        self.assertFalse(browser.run(is_old))
        server.expose(exposure=1, type="dark")
        browser.until(text("width") + " === 'the star is lost'")
        self.assertTrue(browser.run(is_old))  # what it shows is of a frame before
        server.expose(exposure=1)
        browser.until("%s.startsWith('HFD') && !%s" % (text("width"), is_old))
        browser.run("document.getElementById('leave').click()")
        self.assertTrue(browser.run("document.getElementById('star').hidden"))
        for plan, why in (({"binning": [2, 2]}, "other bins"), ({}, "another area")):
            server.expose(exposure=1)
            browser.until("%s.startsWith('size320 x 240')" % text("facts"))
            click()
            browser.until("!document.getElementById('star').hidden")
            if not plan:
                server.ask("PUT", CAMERA + "/properties/area", {"value": "0,0,300,200"})
            server.expose(exposure=1, **plan)
            browser.until("%s.includes('the star was left: %s')" % (text("state"), why))
            self.assertTrue(browser.run("document.getElementById('star').hidden"))
        self.assertEqual(browser.complaints, [])
