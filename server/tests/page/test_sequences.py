"""Sequences, from the page."""

import glob
import json
import os
import tempfile

from page.page_support import CAMERA, InBrowser, setUpModule, tearDownModule, text
from server_support import Simulator, reap, until


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
        self.add("wrong.yaml", "steps:\n- lights: {count: 0, exposure: 1s}\n- lights: {count: 1}\n")
        self.reads("trouble", "wrong.yaml: line 2: ")
        lines = self.browser.run("document.getElementById('trouble').innerText").splitlines()
        self.assertEqual([line[:20] for line in lines], ["wrong.yaml: line 2: ", "wrong.yaml: line 3: "])

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
