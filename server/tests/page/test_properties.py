"""The form of all properties."""

import signal

from page.page_support import CAMERA, InBrowser, setUpModule, tearDownModule, text
from server_support import PATIENCE, until


class Properties(InBrowser):
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

    def test_escape_is_the_cameras_value_again_and_sends_nothing(self):
        self.server.ask("PUT", CAMERA + "/properties/gain", {"value": 5})
        self.browser.run("document.getElementById('table').open = true")
        self.browser.until("document.querySelectorAll('#properties label').length > 15")
        gain = self.FIELD % "Gain"
        trigger = "document.querySelector('#properties [aria-label=Trigger]')"
        said = "%s.closest('.property').querySelector('p.wrong') !== null"
        for field, name, told in ((gain, "gain", "5"), (trigger, "trigger", "0")):
            for keys in (("7",), ("7", "Backspace", "x", "Enter")):
                self.browser.run("%s.focus(); %s.select()" % (field, field))
                for key in keys:
                    self.browser.press(key)
                if "Enter" in keys:
                    self.browser.until(said % field)
                self.browser.press("Escape")
                shown = "[%s.value, %s.matches('.wrong'), %s]" % (field, field, said % field)
                self.assertEqual(self.browser.run(shown), [told, False, False])
                self.browser.run("(%s).blur()" % field)
                self.browser.run("fetch('%s')" % CAMERA)  # what it asked for before is answered
                self.assertEqual(self.server.get(CAMERA + "/properties/" + name).json["text"], told)

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
