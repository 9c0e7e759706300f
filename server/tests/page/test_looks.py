"""Whether all of the page can be read, and its pictures."""

import os
import tempfile
import unittest

from browser_support import Browser
from page.page_support import CAMERA, drawn_in, setUpModule, tearDownModule, text
from server_support import Server, Simulator, reap

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


@unittest.skipUnless(os.environ.get("VX_SCREENSHOT"), "VX_SCREENSHOT names no file")
class Screenshot(unittest.TestCase):
    """VX_SCREENSHOT=$PWD/docs/page.png: page.png, page-dark.png, page-dome.png, page-tablet.png."""

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
