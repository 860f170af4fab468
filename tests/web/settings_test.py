"""Settings: from the page to the instrument, from the instrument to the page, and what is refused."""

from selenium.webdriver.common.keys import Keys

from page_case import PageCase

REFUSED = "the server responded with a status of 422"


class Settings(PageCase):
    def test_a_frequency_entered_in_the_page_is_the_modules(self):
        self.enter(1, "frequency_hz", "3.25 GHz")
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "3250000000", "the module's frequency")
        self.keys(Keys.TAB)
        self.wait_value(1, "frequency_hz", "3.25 GHz")

    def test_a_frequency_set_by_scpi_shows_in_the_page(self):
        self.scpi(2, ":FREQ 123.456789MHz")
        self.wait_value(2, "frequency_hz", "123.456789 MHz")

    def test_units(self):
        self.open_group(3, "Pulse modulation")
        self.open_group(3, "Phase modulation")
        cases = [
            ("frequency_hz", "800 MHz", ":FREQ?", 800e6, "800 MHz"),
            ("frequency_hz", "1e9", ":FREQ?", 1e9, "1 GHz"),
            ("frequency_hz", "2.5 G", ":FREQ?", 2.5e9, "2.5 GHz"),
            ("frequency_hz", "433.92m", ":FREQ?", 433.92e6, "433.92 MHz"),
            ("frequency_hz", "75kHz", ":FREQ?", 75e3, "75 kHz"),
            ("level_dbm", "-12.5 dBm", ":POW?", -12.5, "-12.5 dBm"),
            ("level_dbm", "3", ":POW?", 3, "3 dBm"),
            ("phase_deg", "90 deg", ":PHAS?", 90, "90°"),
            ("pulse/width_s", "250 ns", ":PULS:WIDT?", 250e-9, "250 ns"),
            ("pulse/width_s", "15 us", ":PULS:WIDT?", 15e-6, "15 µs"),
            ("pulse/width_s", "40 u", ":PULS:WIDT?", 40e-6, "40 µs"),
            ("pulse/width_s", "0.02", ":PULS:WIDT?", 0.02, "20 ms"),
        ]
        for path, text, query, number, shown in cases:
            with self.subTest(text):
                self.enter(3, path, text)
                self.wait_equal(lambda: float(self.scpi(3, query)), number, query)
                self.js("document.activeElement.blur()")
                self.wait_value(3, path, shown)

    def test_a_field_shows_every_digit_while_it_has_the_focus(self):
        self.scpi(1, ":FREQ 5800000125.5")
        self.wait_value(1, "frequency_hz", "5.8000001255 GHz")
        self.scpi(1, ":PHAS 12.3456789012")
        self.wait_value(1, "phase_deg", "12.34568°")
        self.field(1, "phase_deg").click()
        self.wait_value(1, "phase_deg", "12.3456789012 deg")

    def test_an_error_is_shown_at_its_field(self):
        self.expected_messages.append(REFUSED)
        before = self.scpi(1, ":FREQ?")
        self.enter(1, "frequency_hz", "99 GHz")
        self.wait_equal(lambda: self.error(1, "frequency_hz"), "Data out of range (-222)", "the error at the field")
        field = self.field(1, "frequency_hz")
        self.assertEqual(field.get_attribute("aria-invalid"), "true")
        self.assertIn(self.css(f"{self.place(1, 'frequency_hz')} .error").get_attribute("id"),
                      field.get_attribute("aria-describedby"))
        self.assertEqual(field.get_attribute("value"), "99 GHz", "what was typed stays, to be corrected")
        self.assertEqual(self.scpi(1, ":FREQ?"), before)
        self.screenshot("error-at-a-field")
        field.send_keys(Keys.ESCAPE)
        self.wait_equal(lambda: self.error(1, "frequency_hz"), "", "Escape clears the error")
        self.assertIsNone(self.field(1, "frequency_hz").get_attribute("aria-invalid"))

    def test_a_unit_of_another_quantity_is_refused(self):
        self.expected_messages.append(REFUSED)
        self.enter(1, "level_dbm", "3 GHz")
        self.wait_equal(lambda: self.error(1, "level_dbm"), "Invalid suffix (-131)", "the error at the field")

    def test_escape_reverts_and_changes_nothing(self):
        self.scpi(1, ":FREQ 1GHz")
        self.wait_value(1, "frequency_hz", "1 GHz")
        self.enter(1, "frequency_hz", "2 GHz", Keys.ESCAPE)
        self.assertEqual(self.value(1, "frequency_hz"), "1 GHz")
        self.keys(Keys.ENTER)
        self.assertEqual(self.scpi(1, ":FREQ?"), "1000000000")

    def test_a_field_being_edited_is_not_overwritten(self):
        self.enter(1, "frequency_hz", "4.5 G", "")
        self.scpi(1, ":FREQ 7GHz;:POW -3")
        self.wait_value(1, "level_dbm", "-3 dBm")
        self.assertEqual(self.value(1, "frequency_hz"), "4.5 G")
        self.wait(lambda: "Escape keeps 7 GHz" in self.text(f"{self.place(1, 'frequency_hz')} .note"),
                  "the note has the new value")
        self.keys("Hz", Keys.ENTER)
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "4500000000", "the module's frequency")

    def test_what_was_typed_survives_a_look_elsewhere(self):
        self.enter(1, "frequency_hz", "6 GHz", Keys.TAB)
        self.assertEqual(self.value(1, "frequency_hz"), "6 GHz")
        self.assertIn("draft", self.css(self.place(1, "frequency_hz")).get_attribute("class"))
        self.field(1, "frequency_hz").click()
        self.keys(Keys.ENTER)
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "6000000000", "the module's frequency")

    def test_rf_is_switched_and_unmistakable(self):
        self.scpi(1, ":OUTP OFF")
        self.wait(lambda: not self.is_on(1, "rf_output"), "RF is off")
        off = self.switch(1, "rf_output").value_of_css_property("background-color")
        self.switch(1, "rf_output").click()
        self.wait(lambda: self.is_on(1, "rf_output"), "RF is on")
        switch = self.switch(1, "rf_output")
        self.assertEqual((switch.aria_role, switch.accessible_name), ("switch", "RF output"))
        self.assertEqual(switch.text, "RF ON")
        self.assertNotEqual(switch.value_of_css_property("background-color"), off)
        self.scpi(1, ":OUTP OFF")
        self.wait(lambda: not self.is_on(1, "rf_output"), "RF is off")
        self.assertEqual(self.switch(1, "rf_output").text, "RF OFF")

    def test_a_group_shows_its_state_while_it_is_closed(self):
        self.wait_equal(lambda: self.group_state(2, "Amplitude modulation"), "off", "AM is off")
        self.scpi(2, ":AM:INT:FREQ 2kHz;:AM:DEPT 45;:AM ON")
        self.wait_equal(lambda: self.group_state(2, "Amplitude modulation"), "on · 45 %", "AM is on")
        self.open_group(2, "Amplitude modulation")
        self.switch(2, "am/enabled").click()
        self.wait_equal(lambda: self.scpi(2, ":AM?"), "0", "AM is off")
        self.wait_equal(lambda: self.group_state(2, "Amplitude modulation"), "off", "AM is off")

    def test_a_choice(self):
        self.open_group(1, "Trigger")
        place = self.place(1, "trigger/source")
        next(each for each in self.all(f"{place} button") if each.text == "Timer").click()
        self.wait_equal(lambda: self.scpi(1, ":TRIG:SOUR?"), "TIM", "the trigger source")
        self.wait_equal(lambda: self.text(f"{place} [aria-pressed=true]"), "Timer", "the pressed button")

    def test_a_text(self):
        self.open_group(1, "List")
        self.enter(1, "list/definition", "RAMP")
        self.wait_equal(lambda: self.scpi(1, ":LIST:DEF?"), '"RAMP"', "the selected list")

    def test_two_browsers_show_the_same(self):
        first = self.driver.current_window_handle
        self.driver.switch_to.new_window("window")
        second = self.driver.current_window_handle
        try:
            self.browser.prepare_window()
            self.open()
            self.enter(4, "frequency_hz", "1.5 GHz")
            self.wait_equal(lambda: self.scpi(4, ":FREQ?"), "1500000000", "the module's frequency")
            self.driver.switch_to.window(first)
            self.wait_value(4, "frequency_hz", "1.5 GHz")
            self.enter(4, "level_dbm", "-7.5")
            self.driver.switch_to.window(second)
            self.wait_value(4, "level_dbm", "-7.5 dBm")
        finally:
            self.driver.switch_to.window(second)
            self.driver.close()
            self.driver.switch_to.window(first)
