"""Several cameras in the page."""

import os
import signal
import socket
import time
import unittest

from browser_support import Browser
from page.page_support import setUpModule, tearDownModule, text
from server_support import Server, Simulator, until


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
        until(lambda: self.server.get("/api/v1/cameras/1").json["heartbeat_interval"], "two heartbeats")
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
            self.until("%s.startsWith('%s')" % (text(element), why))
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
