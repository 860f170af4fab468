"""Everything by keyboard alone, with the focus visible and named."""

from selenium.webdriver.common.keys import Keys

from page_case import PageCase

MOST_STOPS = 150

# The rectangle that shows the focus: an outline, or a border that becomes one.
INDICATOR = """
const style = getComputedStyle(document.activeElement);
return style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2;
"""


class Keyboard(PageCase):
    def tab_to(self, name, within=""):
        """Presses Tab until the element of this name has the focus, inside an element of this selector."""
        for _ in range(MOST_STOPS):
            self.keys(Keys.TAB)
            inside = not within or self.js("return document.activeElement.closest(arguments[0]) !== null", within)
            if inside and self.focus_name() == name:
                return
        self.fail(f"Tab does not lead to {name}")

    def test_a_session_without_a_pointer(self):
        self.scpi(1, ":OUTP OFF")
        self.wait(lambda: not self.is_on(1, "rf_output"), "RF is off")
        self.keys(Keys.TAB)
        self.assertEqual(self.focus_name(), "Skip to the channels")
        self.keys(Keys.ENTER)

        self.tab_to("Frequency", ".card[data-channel='1']")
        self.keys("2.75 GHz", Keys.ENTER)
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "2750000000", "the module's frequency")

        self.tab_to("RF output", ".card[data-channel='1']")
        self.keys(Keys.SPACE)
        self.wait(lambda: self.is_on(1, "rf_output"), "RF is on")

        self.tab_to_group("Trigger")
        self.keys(Keys.ENTER)
        self.tab_to("Bus", ".card[data-channel='1']")
        self.keys(Keys.SPACE)
        self.wait_equal(lambda: self.scpi(1, ":TRIG:SOUR?"), "BUS", "the trigger source")

        self.tab_to("SCPI line")
        self.keys(":POW -4", Keys.ESCAPE, Keys.ENTER)
        self.wait_equal(lambda: self.scpi(1, ":POW?"), "-4", "the module's level")

        self.tab_to("Recall Factory")
        self.keys(Keys.ENTER)
        self.wait_equal(self.dialog_title, "Recall Factory?", "the dialog")
        self.keys(Keys.ESCAPE)
        self.wait_equal(self.dialog_title, "", "the dialog is closed")
        self.assertEqual(self.focus_name(), "Recall Factory", "the focus is back where it was")

    def tab_to_group(self, text):
        for _ in range(MOST_STOPS):
            self.keys(Keys.TAB)
            if self.js("return document.activeElement.querySelector?.('.name')?.textContent") == text:
                return
        self.fail(f"Tab does not lead to the group {text}")

    def test_every_stop_has_a_name_and_a_visible_focus(self):
        self.js("for (const each of document.querySelectorAll(\".card[data-channel='1'] details\")) { each.open = true; }")
        stops = []
        for _ in range(MOST_STOPS):
            self.keys(Keys.TAB)
            if self.js("return document.activeElement === document.body"):
                break
            name = self.focus_name()
            what = self.js("const e = document.activeElement; return `${e.tagName} ${e.id} ${e.className}`")
            if stops and name == stops[0]:
                break
            stops.append(name)
            self.assertTrue(name, f"{what} has no name")
            self.assertTrue(self.js(INDICATOR), f"{what} {name} does not show the focus")
        self.assertGreater(len(stops), 80)

    def test_the_pointer_leaves_no_ring_on_buttons(self):
        self.switch(2, "rf_output").click()
        self.assertFalse(self.js(INDICATOR))
