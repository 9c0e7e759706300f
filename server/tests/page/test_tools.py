"""What mouse, fingers and keys do to the image."""

import math

import numpy

from page.page_support import CAMERA, InBrowser, setUpModule, tearDownModule, text


class Tools(InBrowser):
    """What mouse, fingers and keys do on the image with each tool."""

    def setUp(self):
        super().setUp()
        self.browser.call("Emulation.setTouchEmulationEnabled", enabled=True, maxTouchPoints=5)
        self.expose()

    def key(self, key):
        self.browser.run("document.body.dispatchEvent(new KeyboardEvent('keydown', {key: '%s', bubbles: true}))" % key)

    def pressed(self):
        return self.browser.run("[...document.querySelectorAll('#tools [aria-pressed=true]')].map(each => each.value).join()")

    def area(self):
        return self.server.get(CAMERA + "/properties/area").json["text"]

    def touch(self, kind, *places):
        """touchStart and touchMove tell where all fingers are, touchEnd those that stay."""
        points = [{"x": x, "y": y, "id": finger} for finger, (x, y) in enumerate(places)]
        self.browser.call("Input.dispatchTouchEvent", type=kind, touchPoints=points)

    def drag(self, *places):
        """One finger."""
        self.touch("touchStart", self.place(*places[0]))
        for each in places[1:]:
            self.touch("touchMove", self.place(*each))
        self.touch("touchEnd")

    def placing(self):
        """Pixels of the screen for one of the frame, and which of the frame's lies in the middle."""
        self.browser.mouse("mouseMoved", 1, 1)
        return self.browser.run("""(() => {
          const {left, top, width, height} = document.getElementById('image').getBoundingClientRect();
          const look = (x, y) => {
            document.getElementById('image').dispatchEvent(new PointerEvent('pointermove',
                {clientX: left + x, clientY: top + y, pointerId: 99}));
            return document.getElementById('pixel').textContent.split(':')[0].split(', ').map(Number);
          };
          return look(width / 2, height / 2);
        })()""")

    def test_tools_are_taken_by_button_and_by_key(self):
        self.assertEqual(self.pressed(), "pan")
        for key, tool in (("m", "measure"), ("a", "area"), ("p", "pan")):
            self.browser.run("document.querySelector('#tools [value=%s]').click()" % tool)
            self.assertEqual(self.pressed(), tool)
            self.key("p")
            self.assertEqual(self.pressed(), "pan")
            self.key(key)
            self.assertEqual(self.pressed(), tool)

    def test_a_finger_draws_the_area_once(self):
        self.key("a")
        self.drag((10, 5), (30, 9), (41, 20))
        self.browser.until(text("area") + " === 'area 10,5,32,16'")
        self.assertEqual(self.area(), "10,5,32,16")
        self.assertEqual(self.pressed(), "pan")
        self.drag((20, 5), (30, 9))
        self.browser.run("fetch('%s')" % CAMERA)  # what it asked for before is answered
        self.assertEqual(self.area(), "10,5,32,16")
        self.key("a")
        self.touch("touchStart", self.place(30, 9))
        self.touch("touchEnd")
        self.browser.run("fetch('%s')" % CAMERA)
        self.assertEqual(self.area(), "10,5,32,16")

    def test_a_second_finger_makes_no_area_of_the_first_ones_drag(self):
        self.key("a")
        self.touch("touchStart", self.place(10, 5))
        self.touch("touchMove", self.place(20, 9))
        self.assertEqual(self.browser.run("document.getElementById('region').getAttribute('visibility')"), "visible")
        self.touch("touchStart", self.place(20, 9), self.place(40, 20))
        self.touch("touchMove", self.place(20, 9), self.place(45, 25))
        self.assertEqual(self.browser.run("document.getElementById('region').getAttribute('visibility')"), "hidden")
        self.touch("touchEnd")
        self.browser.run("fetch('%s')" % CAMERA)
        self.assertEqual(self.area(), "0,0,64,32")
        self.assertEqual(self.pressed(), "area")

    def test_escape_gives_a_box_up_and_stops_nothing(self):
        self.server.ask("POST", CAMERA + "/exposures", {"exposure": 60})
        self.browser.until("!document.getElementById('stop').disabled")
        self.key("a")
        self.browser.mouse("mousePressed", *self.place(10, 5))
        self.browser.mouse("mouseMoved", *self.place(20, 9))
        self.key("Escape")
        self.browser.mouse("mouseReleased", *self.place(20, 9))
        self.browser.run("fetch('%s')" % CAMERA)
        self.assertEqual(self.area(), "0,0,64,32")
        self.assertEqual(self.server.get(CAMERA + "/exposures/2").json["state"], "running")
        self.key("Escape")
        self.browser.until(text("state") + " === 'aborted'")

    def test_two_fingers_zoom_and_move(self):
        middle = [64 / 2, 32 / 2]
        self.assertEqual(self.placing(), middle)
        one, other = self.place(28, 16), self.place(36, 16)
        self.touch("touchStart", one, other)
        self.touch("touchMove", self.place(24, 16), self.place(40, 16))
        self.touch("touchEnd")
        # Pixel 28.5 went to where 24.5 was, 36.5 to where 40.5 was: twice as large, about 32.5.
        scale = self.browser.run("(() => { const {width, height} = document.getElementById('image')"
                                 ".getBoundingClientRect(); return Math.min(width / 64, height / 32); })()")
        self.browser.mouse("mouseMoved", *self.place(24, 16))
        self.assertIn("28, ", self.browser.run(text("pixel")))
        self.browser.mouse("mouseMoved", *self.place(40, 16))
        self.assertIn("36, ", self.browser.run(text("pixel")))
        self.touch("touchStart", one, other)
        shifted = [[x + 8 * scale, y + 4 * scale] for x, y in (one, other)]
        self.touch("touchMove", *shifted)
        self.touch("touchEnd")
        # Four pixels to the right, and two down.
        self.browser.mouse("mouseMoved", *self.place(40, 16))
        self.assertIn("32, 14: ", self.browser.run(text("pixel")))
        self.key("f")
        self.assertEqual(self.placing(), middle)

    def test_the_pixel_under_the_mouse_is_that_of_what_is_drawn(self):
        def pixel(binning=(1, 1), place=(4, 2), values=(40, 40)):
            self.server.ask("PUT", CAMERA + "/properties/test-pattern", {"value": "1,%d" % values[0]})
            self.expose(binning=list(binning)) if binning != (1, 1) else self.expose()
            self.browser.until("%s === '%d, %d: %d'" % (text("pixel"), *place, values[1]))
        self.browser.mouse("mouseMoved", *self.place(4, 2))
        pixel()
        pixel(values=(50, 50))  # it lies still
        pixel((2, 2), (2, 1), (60, 4 * 60))
        self.browser.press("+")
        self.browser.until("/: 240$/.test(%s) && !%s.startsWith('2, 1:')" % (text("pixel"), text("pixel")))
        self.browser.press("-")
        self.browser.press("-")
        self.browser.until(text("pixel") + " === ''")  # beside the frame, which is small now
        self.browser.press("f")
        self.browser.until(text("pixel") + " === '2, 1: 240'")
        self.browser.mouse("mouseMoved", 1, 1)
        self.assertEqual(self.browser.run(text("pixel")), "")
        self.expose()
        self.browser.until("document.getElementById('image').dataset.frame === '5.1'")
        self.assertEqual(self.browser.run(text("pixel")), "")
        self.touch("touchStart", self.place(4, 2))
        self.touch("touchEnd")
        self.assertEqual(self.browser.run(text("pixel")), "4, 2: 60")

    def test_the_pixel_can_be_read_on_a_telephone(self):
        self.browser.resize(360, 640)
        self.browser.until("document.getElementById('image').width < 400")
        self.browser.mouse("mouseMoved", *self.place(40, 20))
        self.browser.until(text("pixel") + ".startsWith('40, 20: ')")
        self.browser.run("document.getElementById('pixel').textContent = '12345, 12345: 4294967295'")
        self.assertEqual(self.browser.run("(({scrollWidth, clientWidth}) => scrollWidth - clientWidth)(document.getElementById('pixel'))"), 0)
        self.assertEqual(self.browser.run("document.documentElement.scrollWidth"), 360)

    def test_a_click_is_no_pan(self):
        def click(moves):
            x, y = self.place(20, 10)
            self.browser.mouse("mousePressed", x, y)
            for by in moves:
                self.browser.mouse("mouseMoved", x + by, y)
            self.browser.mouse("mouseReleased", x + (moves or [0])[-1], y)
        for moves in ((), (0,), (1, 2)):
            click(moves)
        self.browser.resize(1100, 700)
        self.browser.until("document.getElementById('image').width < 800")
        self.assertEqual(self.placing(), [32, 16])
        self.expose(binning=[2, 2])
        self.browser.until("document.getElementById('image').dataset.frame === '2.1'")
        self.assertEqual(self.placing(), [16, 8])
        click((5, 60))
        self.assertLess(self.placing()[0], 16)

    def test_one_finger_moves(self):
        self.drag((30, 16), (25, 14), (20, 12))
        self.browser.mouse("mouseMoved", *self.place(20, 12))
        self.assertIn("30, 16: ", self.browser.run(text("pixel")))

    def test_a_region_is_measured_in_each_frame_until_it_is_left(self):
        self.key("m")
        self.drag((10, 5), (30, 9), (41, 20))
        self.browser.until("!document.getElementById('region-facts').hidden")
        for number, exposure in ((1, 0.001), (2, 5)):
            if number > 1:
                self.expose(exposure=exposure)
            self.browser.until("document.getElementById('image').dataset.frame === '%d.1'" % number)
            body = self.server.get(CAMERA + "/exposures/%d/frame.raw" % number).body
            inside = numpy.frombuffer(body, "<u2").reshape(32, 64)[5:21, 10:42]
            wanted = "size32 x 16 at 10, 5values%d to %dmedian%dmean%.2fdeviation%.2f" % (
                inside.min(), inside.max(), numpy.percentile(inside, 50, method="lower"), inside.mean(),
                inside.std(ddof=1))
            self.browser.until("%s === '%s'" % (text("figures"), wanted))
        self.assertEqual(self.area(), "0,0,64,32")
        self.key("x")
        self.assertTrue(self.browser.run("document.getElementById('region-facts').hidden"))
        self.assertEqual(self.browser.run("document.getElementById('measured').getAttribute('visibility')"), "hidden")

    def test_what_was_marked_goes_with_the_area_or_the_bins_that_it_was_of(self):
        is_marked = "!document.getElementById('region-facts').hidden && document.getElementById('measured')" \
                    ".getAttribute('visibility') === 'visible'"
        is_unmarked = "document.getElementById('region-facts').hidden && document.getElementById('measured')" \
                      ".getAttribute('visibility') === 'hidden'"

        def mark():
            self.key("m")
            self.drag((10, 5), (12, 6), (14, 8))
            self.browser.until(is_marked)
        mark()
        self.expose(exposure=0.002)
        self.browser.until("document.getElementById('image').dataset.frame === '2.1'")
        self.assertTrue(self.browser.run(is_marked))
        self.expose(binning=[2, 2])
        self.browser.until(is_unmarked)
        self.expose()
        self.browser.until("document.getElementById('image').dataset.frame === '4.1'")
        mark()
        self.key("a")
        self.drag((10, 5), (30, 9), (41, 20))
        self.browser.until(text("area") + " === 'area 10,5,32,16'")
        self.browser.until(is_unmarked)

    def test_what_is_measured_of_a_part_says_of_how_many(self):
        found = self.browser.run("""import('/measure.js').then(({figuresIn}) => figuresIn(
            {part: {column: 4, row: 2, step: 2, columns: 3, rows: 2}, pixels: Uint16Array.of(1, 2, 3, 4, 5, 6), facts: {missing_rows: []}},
            {column: 5, row: 0, columns: 4, rows: 4}))""")
        # Of columns 4, 6, 8 and rows 2, 4 these are 6 and 8 of row 2.
        self.assertEqual(found, {"count": 2, "share": 2 / 16, "least": 2, "most": 3, "mean": 2.5,
                                 "deviation": math.sqrt(0.5), "median": 2})
        nothing = self.browser.run("""import('/measure.js').then(({figuresIn}) => figuresIn(
            {part: {column: 0, row: 0, step: 1, columns: 2, rows: 2}, pixels: new Uint16Array(4), facts: {missing_rows: []}},
            {column: 5, row: 0, columns: 4, rows: 4}))""")
        self.assertIsNone(nothing)
