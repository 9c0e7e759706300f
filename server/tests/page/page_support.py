"""The page in a browser, beside a camera and a server of its own."""

import unittest

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
