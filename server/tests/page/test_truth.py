"""What the page says of what is not there."""

import os
import signal
import tempfile
import time
import unittest

from browser_support import Browser
from page.page_support import CAMERA, InBrowser, setUpModule, tearDownModule, text
from server_support import Server, Simulator, until


class Truth(InBrowser):
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
        for seconds in (5, 6):  # by the page's clock, too
            told = "no heartbeat for %d s" % seconds
            self.browser.until("%s === '%s' && %s.includes('%s')" % (text("link"), told, text("state"), told))
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

    def test_nothing_is_under_way_on_a_server_that_began_anew(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 10})
        self.browser.until("document.getElementById('progress').value > 0.1")
        port = self.server.port
        self.server.end()
        self.server = Server(self.camera.target, "--listen", "127.0.0.1:%d" % port)
        self.addCleanup(self.server.retire)
        self.browser.until(text("state") + " === 'the exposure was lost with the server'")
        self.assertTrue(self.browser.run("document.getElementById('state').matches('.wrong')"))
        self.assertEqual(self.browser.run("document.getElementById('progress').value"), 0)
        self.browser.until("!document.getElementById('start').disabled")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")


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


class Guarded(unittest.TestCase):
    def test_a_wrong_token_is_told_where_it_was_given(self):
        token = "a-token-of-twenty-six-bytes"
        with tempfile.NamedTemporaryFile("w", encoding="ascii") as file:
            file.write(token)
            file.flush()
            server = Server("sim?sensor=64x32", "--token-file", file.name)
        self.addCleanup(server.retire)
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open("http://127.0.0.1:%d/" % server.port)
        browser.until("document.getElementById('login').open")
        give = """(() => {
          document.getElementById('token').value = '%s';
          document.querySelector('#login button').click();
        })()"""
        browser.run(give % "wrong")
        browser.until(text("token-wrong") + " === 'that is not the token'")
        self.assertTrue(browser.run("document.getElementById('login').open"))
        browser.until(text("stale") + ".includes('the token is needed')")
        self.assertNotIn("Bearer", browser.run("document.body.innerText"))
        browser.run(give % token)
        browser.until(text("link") + " === 'connected' && !document.getElementById('login').open")
        self.assertEqual(browser.complaints, [])
