"""Who may change something: the password, its dialog, and what read-only looks like."""

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from page_case import PageCase


class Access(PageCase):
    mock_only = True
    expected_messages = ("the server responded with a status of 401", "the server responded with a status of 403")

    def refuse(self, status, reason, password=None):
        self.backend.instrument.refuse_changes(status, reason, password)

    def sign_in(self, password):
        self.css("#password").send_keys(password + Keys.ENTER)

    def test_a_refused_change_asks_for_the_password_and_is_then_made(self):
        self.refuse(401, "A change needs the password.", "walnut")
        self.wait_equal(lambda: self.text("#access"), "Sign in", "the page offers to sign in")
        self.enter(1, "frequency_hz", "3 GHz")
        self.wait_equal(self.dialog_title, "Sign in to change settings", "the dialog")
        self.assertIn("A change needs the password.", self.text("#dialog-body"))
        self.sign_in("oak")
        self.wait_equal(lambda: self.text("#dialog-error"), "The password is wrong.", "the reason")
        self.screenshot("sign-in")
        self.css("#password").clear()
        self.sign_in("walnut")
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "3000000000", "the change that was refused before")
        self.wait_equal(lambda: self.text("#access"), "Sign out", "the page offers to sign out")
        self.enter(1, "level_dbm", "-3")
        self.wait_equal(lambda: self.scpi(1, ":POW?"), "-3", "the next change needs no password")
        self.css("#access").click()
        self.wait_equal(lambda: self.text("#access"), "Sign in", "signed out")

    def test_a_change_that_is_given_up_says_why_it_was_refused(self):
        self.refuse(401, "A change needs the password.", "walnut")
        self.enter(1, "frequency_hz", "3 GHz")
        self.wait(self.dialog_title, "the dialog")
        self.keys(Keys.ESCAPE)
        self.wait_equal(lambda: self.error(1, "frequency_hz"), "A change needs the password.", "the error at the field")

    def test_read_only_is_visible_with_its_reason(self):
        self.refuse(403, "Changes are off until a password is set.")
        self.wait_equal(lambda: self.text("#access"), "Read only", "the mark")
        self.assertEqual(self.css("#access").get_attribute("title"), "Changes are off until a password is set.")
        self.assertTrue(self.field(1, "frequency_hz").get_property("readOnly"))
        self.assertEqual(self.switch(1, "rf_output").get_attribute("aria-disabled"), "true")
        before = self.scpi(1, ":OUTP?")
        self.switch(1, "rf_output").click()
        self.css("#access").click()
        self.wait_equal(self.dialog_title, "Read only", "the dialog")
        self.assertIn("until a password is set", self.text("#dialog-body"))
        self.assertEqual(self.scpi(1, ":OUTP?"), before)
        self.screenshot("read-only")

    def test_a_pending_change_is_marked_until_the_module_has_answered(self):
        self.backend.server.gate.clear()
        self.addCleanup(self.backend.server.gate.set)
        self.enter(1, "frequency_hz", "3 GHz")
        field = self.field(1, "frequency_hz")
        self.wait_equal(lambda: field.get_attribute("aria-busy"), "true", "the change is pending")
        self.screenshot("pending")
        self.backend.server.gate.set()
        self.wait_equal(lambda: field.get_attribute("aria-busy"), "false", "the module has answered")

    def test_a_running_command_shows(self):
        self.backend.instrument.run_for(":SYST:UPD:SOFT #6", 75)
        self.wait(lambda: ":SYST:UPD:SOFT #6 (10.0.0.7:40112, 1 min)" in self.text("#health"), "the running command")
        self.backend.instrument.run_for(None, 0)
        self.wait(lambda: "nothing" in self.text("#health"), "no running command")

    def test_a_channel_that_was_never_there_takes_little_room(self):
        self.backend.instrument.unplug(4)
        self.driver.refresh()
        self.wait(lambda: "No module" == self.text(".card[data-channel='4'] .trouble"), "the card says so")
        self.assertFalse(self.css(".card[data-channel='4'] .body").is_displayed())
        self.assertTrue(self.driver.find_element(By.CSS_SELECTOR, ".card[data-channel='3'] .body").is_displayed())
