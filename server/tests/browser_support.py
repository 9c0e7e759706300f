"""Chromium without a window, which browser.mjs drives by Playwright."""

import base64
import contextlib
import io
import json
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import unittest

import numpy
from PIL import Image

from server_support import PATIENCE, until

BRIDGE = pathlib.Path(__file__).resolve().with_name("browser.mjs")
PACKAGES = BRIDGE.parents[2] / "build" / "page" / "package.json"  # scripts/setup page
GONE = "Execution context was destroyed"                          # by a page that goes


def missing():
    """Why there can be no browser, or nothing."""
    for what, there in (("chromium", shutil.which("chromium")), ("node", shutil.which("node")),
                        ("playwright-core", (PACKAGES.parent / "node_modules/playwright-core").exists())):
        if not there:
            return "there is no %s; scripts/setup page installs it" % what
    return None


def skip_without_browser():
    """For setUpModule()."""
    if missing():
        print("skipped: " + missing(), file=sys.stderr)
        raise unittest.SkipTest(missing())


class Browser:
    """As on a host without a graphics card, unless `graphics` are to be imitated."""
    program = shutil.which("chromium")

    def __init__(self, width=1366, height=768, graphics=False):
        assert not missing(), missing()
        options = {"program": self.program, "width": width, "height": height, "graphics": graphics}
        self.errors = tempfile.TemporaryFile("w+", encoding="utf-8")
        self.bridge = subprocess.Popen(["node", BRIDGE, PACKAGES, json.dumps(options)], encoding="utf-8",
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.errors)
        try:
            self._answer()
        except BaseException:
            self.close()
            raise

    def _answer(self):
        # A browser takes its time on a busy machine.
        there, _, _ = select.select([self.bridge.stdout], [], [], 6 * PATIENCE)
        line = self.bridge.stdout.readline() if there else ""
        if not line:
            self.bridge.terminate()  # what it answers later would be taken for that to the next question
            self.errors.seek(0)
            raise AssertionError("no answer of the browser: " + self.errors.read())
        answer = json.loads(line)
        assert "error" not in answer, answer["error"]
        return answer.get("value")

    def _ask(self, do, **what):
        self.bridge.stdin.write(json.dumps(dict(what, do=do)) + "\n")
        self.bridge.stdin.flush()
        return self._answer()

    def call(self, method, **parameters):
        """What Playwright has no words for, in those of the browser's debugging protocol."""
        return self._ask("call", method=method, parameters=parameters)

    def run(self, script):
        """The value of an expression in the page."""
        return self._ask("run", script=script)

    def until(self, script, patience=PATIENCE):
        """Waits until an expression holds, also while the page goes and another comes."""
        def value():
            try:
                return self.run(script)
            except AssertionError as failure:
                if GONE not in str(failure):
                    raise
                return None
        return until(value, script, patience)

    def prepare(self, script):
        """Runs a script in each page that is opened from now on, before its own."""
        self._ask("prepare", script=script)

    def open(self, url):
        self._ask("open", url=url)

    def resize(self, width, height):
        self._ask("resize", width=width, height=height)

    def prefer(self, scheme):
        """Colours that are "light" or "dark"."""
        self._ask("prefer", colorScheme=scheme)

    def press(self, key):
        self._ask("press", key=key)

    def mouse(self, kind, x, y, held=None):
        """mouseMoved, mousePressed or mouseReleased, while a key is held."""
        self._ask("mouse", kind=kind, x=x, y=y, held=held)

    def screenshot(self, path):
        self._picture().save(path)

    def pixels(self):
        """Rows of columns of red, green and blue of the whole screen."""
        return numpy.asarray(self._picture())

    def pixel(self, x, y):
        """Red, green and blue of a pixel of the screen."""
        return list(self._picture(clip={"x": x, "y": y, "width": 1, "height": 1}).getpixel((0, 0)))

    def _picture(self, **part):
        return Image.open(io.BytesIO(base64.b64decode(self._ask("screenshot", **part)))).convert("RGB")

    @property
    def complaints(self):
        """What the page threw and nobody caught, and the errors that it wrote on the console."""
        return self._ask("complaints")

    def close(self):
        with contextlib.suppress(BrokenPipeError):
            self.bridge.stdin.close()
        try:
            self.bridge.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.bridge.kill()
            self.bridge.wait()
            raise
        finally:
            self.bridge.stdout.close()
            self.errors.close()
