"""What goes away and comes back: the service, the web process, a module."""

from page_case import PageCase, mock_only

AWAY = ("net::ERR_", "the server responded with a status of 5", "the server responded with a status of 409")


class Outages(PageCase):
    expected_messages = AWAY

    def test_the_service_goes_and_comes_back(self):
        self.scpi(1, ":FREQ 1GHz")
        self.wait_value(1, "frequency_hz", "1 GHz")
        self.backend.lose_service()
        self.wait(lambda: "service does not answer" in self.banner(), "the banner")
        self.assertEqual(self.link(), "No service")
        self.assertTrue(self.field(1, "frequency_hz").get_property("readOnly"))
        self.assertEqual(self.value(1, "frequency_hz"), "1 GHz", "the last known value stays")
        self.screenshot("service-away")
        self.backend.restore_service()
        self.wait_equal(self.banner, "", "the banner has gone")
        self.wait(lambda: not self.field(1, "frequency_hz").get_property("readOnly"), "fields can be edited again")
        self.enter(1, "frequency_hz", "2 GHz")
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "2000000000", "the module's frequency")

    def test_the_web_process_goes_and_comes_back(self):
        self.scpi(2, ":FREQ 1GHz")
        self.wait_value(2, "frequency_hz", "1 GHz")
        self.enter(2, "level_dbm", "-4.5", "")
        self.backend.lose_web()
        self.wait(lambda: "No connection" in self.banner(), "the banner")
        self.scpi(2, ":FREQ 3GHz")
        self.backend.restore_web()
        self.wait_value(2, "frequency_hz", "3 GHz")
        self.wait_equal(self.banner, "", "the banner has gone")
        self.assertEqual(self.value(2, "level_dbm"), "-4.5", "what was typed has survived")
    @mock_only  # which can take as long as the test needs
    @mock_only  # a command that takes as long as the test needs
    def test_a_page_opened_while_a_command_runs(self):
        self.backend.server.setups_gate.clear()
        self.addCleanup(self.backend.server.setups_gate.set)
        self.open()
        self.assertNotEqual(self.value(1, "frequency_hz"), "")
        self.assertFalse(self.js("return Boolean(document.querySelector('#setups tr'))"), "the setups still wait")
        self.backend.server.setups_gate.set()
        self.wait(lambda: self.css("#setups [aria-label='Recall Factory']"), "the setups have come")

    def test_a_page_that_is_left_holds_no_connection(self):
        for frequency in (2, 3, 4, 5, 6, 7, 8, 9):  # more often than a browser has connections to one server
            self.driver.get("about:blank")
            self.open()
            self.scpi(1, f":FREQ {frequency}GHz")
            self.wait_value(1, "frequency_hz", f"{frequency} GHz")
        self.driver.back()
        self.scpi(1, ":FREQ 1GHz")
        self.driver.forward()
        self.wait(lambda: self.link() == "Live", "the page is live again")
        self.wait_value(1, "frequency_hz", "1 GHz")

    def test_a_module_is_unplugged_and_plugged_in(self):
        self.scpi(2, ":FREQ 1GHz")
        self.wait_value(2, "frequency_hz", "1 GHz")
        state = lambda: self.css(".card[data-channel='2']").get_attribute("data-state")
        height = self.css(".card[data-channel='2']").size["height"]
        self.backend.unplug(2)
        try:
            self.wait(lambda: state() in ("failed", "absent"), "the card shows that the module does not answer")
            self.assertRegex(self.text(".card[data-channel='2'] .trouble"), "does not answer|has gone")
            self.assertEqual(self.css(".card[data-channel='2']").size["height"], height)
            self.assertTrue(self.field(2, "frequency_hz").get_property("readOnly"))
            self.assertFalse(self.field(1, "frequency_hz").get_property("readOnly"))
            self.screenshot("module-unplugged")
        finally:
            self.backend.plug_in(2)
        self.wait_equal(state, "well", "the module is back")
        self.assertEqual(self.text(".card[data-channel='2'] .trouble"), "")
        self.enter(2, "frequency_hz", "2.5 GHz")
        self.wait_equal(lambda: self.scpi(2, ":FREQ?"), "2500000000", "the module's frequency")
