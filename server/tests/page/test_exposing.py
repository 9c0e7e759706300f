"""Exposures, the camera's area and its lease, from the page."""

import datetime
import signal

from page.page_support import CAMERA, drawn_in, InBrowser, setUpModule, tearDownModule, text
from server_support import until


class Areas(InBrowser):
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


class Exposing(InBrowser):
    def test_an_exposure_and_a_live_view_are_started_and_stopped(self):
        self.browser.run("document.getElementById('seconds').value = '0.01'")
        self.browser.run("document.getElementById('start').click()")
        self.browser.until(text("state") + " === 'complete'")
        self.browser.run("document.getElementById('live').click()")
        self.browser.until("parseFloat(%s) > 2 && !document.getElementById('stop').disabled" % text("truth"))
        self.browser.run("document.getElementById('stop').click()")
        self.browser.until(text("state") + " === 'aborted'")

    def test_the_seconds_of_a_long_exposure_are_told(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 20, "frames": 2})
        self.browser.until("/^frame 1 of 2, exposing, [1-9][0-9]* of 20 s$/.test(%s)" % text("state"))

    def test_a_camera_that_answers_nothing_is_waited_for(self):
        self.camera.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.camera.process.send_signal, signal.SIGCONT)
        self.browser.run("fetch('%s/exposures', {method: 'POST', headers: {'Content-Type': 'application/json'}, "
                         "body: JSON.stringify({exposure: 3})}), 0" % CAMERA)
        self.browser.until(text("state") + ".startsWith('waiting for the camera')")
        self.assertEqual(self.browser.run("document.getElementById('progress').value"), 0)
        self.camera.process.send_signal(signal.SIGCONT)
        self.browser.until(text("state") + ".startsWith('frame 1 of 1, exposing, ')")

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

    def test_what_is_refused_of_the_cooler_goes_with_its_cause(self):
        box, field = "document.getElementById('cooling')", "document.getElementById('target')"
        refused = "%s.includes('night script')"
        self.browser.until(field + ".value !== ''")
        before = self.browser.run(field + ".value")
        self.server.ask("POST", CAMERA + "/lease", {"holder": "night script"})
        self.browser.until(text("lease") + " === 'night script controls'")
        self.browser.run(box + ".click()")
        self.browser.until(refused % text("cooling-wrong"))
        self.assertFalse(self.browser.run(box + ".checked"))
        self.browser.run("%s.focus(); %s.value = '-7'; %s.dispatchEvent(new Event('change'))" % (field, field, field))
        self.browser.until(refused % text("target-wrong"))
        self.browser.run("document.getElementById('control').click()")
        self.browser.until("%s === '' && %s === '' && %s.value === '%s'" % (
            text("cooling-wrong"), text("target-wrong"), field, before))
        self.browser.run(box + ".click()")
        until(lambda: self.server.get(CAMERA + "/properties/cooling").json["value"], "it cools")
        self.browser.run("document.getElementById('control').click()")
        self.browser.until(text("lease") + " === 'free for all'")
        self.browser.run("%s.focus(); %s.value = '-8'" % (field, field))  # somebody is writing
        self.server.ask("PUT", CAMERA + "/properties/cooling", {"value": False})
        self.browser.until("!%s.checked" % box)
        self.assertEqual(self.browser.run(field + ".value"), "-8")
        self.browser.run("%s.dispatchEvent(new Event('change'))" % field)
        until(lambda: self.server.get(CAMERA + "/properties/target-temp").json["value"] == -8, "the set point")
        self.server.ask("PUT", CAMERA + "/properties/target-temp", {"value": -9})
        self.browser.until(field + ".value === '-9'")

    def test_escape_in_the_set_point_is_the_cameras_value_again_and_sends_nothing(self):
        field = "document.getElementById('target')"
        self.browser.until(field + ".value !== ''")
        before = self.browser.run(field + ".value")
        self.browser.run("%s.focus(); %s.select()" % (field, field))
        for key in ("-", "9", "Escape"):
            self.browser.press(key)
        self.assertEqual(self.browser.run(field + ".value"), before)
        self.browser.run(field + ".blur()")
        self.browser.run("fetch('%s')" % CAMERA)  # what it asked for before is answered
        self.assertEqual(self.server.get(CAMERA + "/properties/target-temp").json["value"], float(before))
        self.browser.run("%s.focus(); %s.select()" % (field, field))
        for key in ("x", "Enter"):
            self.browser.press(key)
        self.browser.until("%s.includes('no number')" % text("target-wrong"))
        self.browser.press("Escape")
        self.assertEqual(self.browser.run("[%s.value, %s]" % (field, text("target-wrong"))), [before, ""])

    def test_escape_in_a_field_of_the_exposure_stops_it(self):
        for number, field in ((1, "seconds"), (2, "type"), (3, "frames")):
            self.server.ask("POST", CAMERA + "/exposures", {"exposure": 60})
            self.browser.until("!document.getElementById('stop').disabled")
            self.browser.run("document.getElementById('%s').focus()" % field)
            self.browser.press("Escape")
            until(lambda: self.server.get(CAMERA + "/exposures/%d" % number).json["state"] == "aborted", "%s stops it" % field)
            self.browser.until("document.getElementById('stop').disabled")

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
