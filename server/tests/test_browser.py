"""The browser in which the page is tested: what it tells of a page, and how it ends."""

import http.server
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

from browser_support import Browser, skip_without_browser
from server_support import until


def setUpModule():
    skip_without_browser()


class Silent(http.server.BaseHTTPRequestHandler):
    """An empty page, and nothing else."""

    def do_GET(self):
        self.send_response(200 if self.path == "/" else 404)
        self.send_header("Content-Type", "text/html")
        self.end_headers()

    def log_message(self, *_):
        pass


class Telling(unittest.TestCase):
    def setUp(self):
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Silent)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.browser = Browser(200, 100)
        self.addCleanup(self.browser.close)
        self.browser.open("http://127.0.0.1:%d/" % server.server_port)

    def test_what_a_page_throws_or_writes_as_an_error_is_told(self):
        self.assertEqual(self.browser.complaints, [])
        self.browser.run("setTimeout(() => { throw new Error('thrown late') }), Promise.reject(new Error('rejected'))"
                         ".finally(), console.error('written'), 0")
        self.browser.run("new Promise(done => setTimeout(done))")
        complaints = self.browser.complaints
        self.assertEqual(len(complaints), 3, complaints)
        for wanted in ("thrown late", "rejected", "written"):
            self.assertIn(wanted, "".join(complaints))

    def test_what_a_server_has_not_is_no_error_of_the_page(self):
        status = "fetch('/nothing').then(answer => answer.status)"
        self.assertEqual(self.browser.run(status), 404)
        self.assertEqual(self.browser.complaints, [])

    def test_an_expression_that_fails_is_told(self):
        with self.assertRaisesRegex(AssertionError, "nothing is not defined"):
            self.browser.run("nothing")
        self.assertEqual(self.browser.run("Promise.resolve({list: [1, 'a', null]})"), {"list": [1, "a", None]})

    def test_pixels_are_those_of_the_screen(self):
        self.browser.run("document.body.style = 'margin: 0; background: linear-gradient(to right, #102030 50%, #fff 50%)'")
        self.assertEqual(self.browser.pixel(99, 50), [16, 32, 48])
        self.assertEqual(self.browser.pixel(100, 50), [255, 255, 255])
        self.assertEqual(self.browser.pixels().shape, (100, 200, 3))
        self.browser.resize(300, 150)
        self.assertEqual(self.browser.pixels()[149, 149].tolist(), [16, 32, 48])

    def test_one_that_waits_while_the_page_goes_finds_the_next(self):
        self.browser.run("window.isOld = true; setTimeout(() => location.reload(), 50); 0")
        self.browser.until("new Promise(done => setTimeout(done, 500)).then(() => !window.isOld)")


class Ending(unittest.TestCase):
    def test_one_that_does_not_start_is_told_with_what_it_wrote(self):
        with tempfile.TemporaryDirectory() as folder:
            program = os.path.join(folder, "browser")
            with open(program, "w", encoding="ascii") as file:
                file.write("#!/bin/sh\necho cannot draw here >&2\nexit 3\n")
            os.chmod(program, 0o755)
            self.addCleanup(setattr, Browser, "program", Browser.program)
            Browser.program = program
            with self.assertRaisesRegex(AssertionError, "cannot draw here"):
                Browser()

    def test_it_ends_with_the_tests_also_when_they_are_killed(self):
        script = "from browser_support import Browser; b = Browser(); print(b.bridge.pid, flush=True); b.run('new Promise(() => 0)')"
        tests = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, text=True)
        self.addCleanup(tests.stdout.close)
        bridge = int(tests.stdout.readline())
        started = [bridge, *self.children_of(bridge)]
        self.assertGreater(len(started), 1)
        tests.send_signal(signal.SIGKILL)
        tests.wait()
        until(lambda: not any(self.runs(each) for each in started), "the end of the browser")

    @staticmethod
    def children_of(process):
        tasks = pathlib.Path("/proc/%d/task" % process).glob("*/children")
        return [int(child) for each in tasks for child in each.read_text(encoding="ascii").split()]

    @staticmethod
    def runs(process):
        try:
            stat = pathlib.Path("/proc/%d/stat" % process).read_text(encoding="utf-8")
        except OSError:
            return False
        return stat.rpartition(")")[2].split()[0] != "Z"


if __name__ == "__main__":
    unittest.main()
