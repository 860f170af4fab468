"""How the page is laid out and loaded: widths, shifts, size, order of loading, themes."""

import gzip

import mock_server
from page_case import PageCase

MOST_COMPRESSED = 120_000
WIDTHS = [(360, 740), (390, 844), (768, 1024), (1024, 768), (1210, 800), (1280, 720), (1440, 900), (1920, 1080), (3840, 2160)]


class Shape(PageCase):
    def test_no_width_scrolls_sideways(self):
        for channel in (1, 4):
            self.js("for (const each of document.querySelectorAll(`.card[data-channel='${arguments[0]}'] details`)) { each.open = true; }",
                    channel)
        for width, height in WIDTHS:
            with self.subTest(width=width):
                self.browser.size(width, height)
                self.assertLessEqual(self.js("return document.documentElement.scrollWidth"), width)
                wide = self.js("""return [...document.querySelectorAll('body *:not(.unseen, .unseen *, .skip, .label)')].filter((each) => {
                    const box = each.getBoundingClientRect();
                    return box.width > 0 && (box.right > innerWidth + 0.5 || box.left < -0.5);
                  }).map((each) => `${each.tagName} ${each.className} ${each.id}`)""")
                self.assertEqual(wide, [], "elements that stick out")

    def test_a_phone_reaches_everything(self):
        self.browser.size(360, 740)
        self.driver.refresh()
        self.open()
        self.enter(1, "frequency_hz", "3.5 GHz")
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "3500000000", "the module's frequency")
        self.assertGreaterEqual(self.field(1, "frequency_hz").size["height"], 40)
        self.assertGreaterEqual(self.switch(1, "rf_output").size["height"], 40)
        self.screenshot("phone")

    def test_no_text_is_cut_off_in_the_readouts(self):
        self.scpi(1, ":FREQ 19.999999999999GHz;:POW -29.99")
        self.wait_value(1, "level_dbm", "-29.99 dBm")
        for width, height in WIDTHS:
            with self.subTest(width=width):
                self.browser.size(width, height)
                cut = self.js("""return [...document.querySelectorAll('.readout input')].filter((each) => each.scrollWidth > each.clientWidth + 1)
                                  .map((each) => each.value)""")
                self.assertEqual(cut, [])

    def test_nothing_moves_while_the_page_loads_and_lives(self):
        self.wait(lambda: "now" in self.css("#chart-level").get_attribute("aria-label"), "the charts")
        for state in ("OFF", "ON"):
            self.scpi(2, f":OUTP {state}")
            self.wait(lambda: self.is_on(2, "rf_output") == (state == "ON"), "RF has been switched")
        self.scpi(1, ":FREQ 5.8000001255GHz;:AM ON")
        self.wait_value(1, "frequency_hz", "5.8000001255 GHz")
        self.backend.unplug(3)
        self.wait(lambda: self.text(".card[data-channel='3'] .trouble"), "the trouble")
        self.backend.plug_in(3)
        self.wait(lambda: not self.text(".card[data-channel='3'] .trouble"), "no trouble")
        # Shifts are reported after the frame.
        self.driver.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(arguments[0])))")
        self.assertEqual(self.js("return window.layoutShifts"), [])

    def test_nothing_moves_while_the_page_loads_on_narrow_screens(self):
        for width in (320, 360, 414, 768, 1000):
            with self.subTest(width=width):
                self.browser.size(width, 740)
                self.open()
                self.wait(lambda: "now" in self.css("#chart-level").get_attribute("aria-label"), "the charts")
                self.driver.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(arguments[0])))")
                self.assertEqual(self.js("return window.layoutShifts"), [])

    def test_the_observer_of_shifts_sees_one(self):
        self.wait(lambda: "now" in self.css("#chart-level").get_attribute("aria-label"), "the page has been painted")
        self.js("""const block = document.createElement('div');
                   block.style.height = '300px';
                   document.getElementById('main').before(block);""")
        self.wait(lambda: self.js("return window.layoutShifts.length"), "a shift is reported")

    def test_charts_are_loaded_after_the_first_paint(self):
        self.wait(lambda: self.js("return window.Chart !== undefined"), "the chart library")
        paint, charts = self.js("""return [performance.getEntriesByName('first-contentful-paint')[0].startTime,
                                   performance.getEntriesByType('resource').find(({ name }) => name.includes('/charts/')).startTime]""")
        print(f"        first contentful paint after {paint:.0f} ms, chart library asked for after {charts:.0f} ms")
        self.assertGreater(charts, paint)

    def test_the_charts_show_what_happens(self):
        label = lambda: self.css("#chart-level").get_attribute("aria-label")
        self.wait(lambda: "now" in label(), "the charts")
        self.scpi(2, ":POW -17.5")
        self.wait(lambda: "channel 2 -17.5 dBm" in label(), "the level in the chart")

    def test_the_page_is_small(self):
        sizes = {path: len(gzip.compress(path.read_bytes(), 9)) for path in mock_server.PAGE.rglob("*") if path.is_file()}
        print(f"        {sum(sizes.values())} bytes compressed in {len(sizes)} files")
        self.assertLess(sum(sizes.values()), MOST_COMPRESSED)

    def test_themes(self):
        background = lambda: self.js("return getComputedStyle(document.body).backgroundColor")
        light = background()
        self.browser.media(prefers_color_scheme="dark")
        dark = background()
        self.assertNotEqual(light, dark)
        self.screenshot("dark")
        seen = []
        for _ in range(3):
            self.css("#theme").click()
            seen.append((self.text("#theme"), background()))
        self.assertEqual(seen, [("Light", light), ("Dark", dark), ("Auto", dark)])
        self.css("#theme").click()
        self.driver.refresh()
        self.open()
        self.assertEqual((self.text("#theme"), background()), ("Light", light), "the choice is remembered")
        self.js("localStorage.clear()")

    def test_motion_is_reduced_on_request(self):
        moving = lambda: self.js("""return [...document.querySelectorAll('*')].filter((each) => {
            const style = getComputedStyle(each);
            return parseFloat(style.transitionDuration) > 0 && style.transitionProperty !== 'none' && style.transitionDuration !== '0s';
          }).length""")
        self.assertGreater(moving(), 0)
        self.browser.media(prefers_reduced_motion="reduce")
        self.assertEqual(moving(), 0)
