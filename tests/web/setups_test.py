"""Stored setups: store, recall with what changes shown first, delete with a question."""

from selenium.webdriver.common.keys import Keys

from page_case import PageCase


class Setups(PageCase):
    def button(self, name):
        return self.css(f"#setups [aria-label='{name}']")

    def press(self, name):
        self.button(name).click()

    def wait_dialog(self, title):
        self.wait_equal(self.dialog_title, title, "the dialog")

    def wait_stored(self, setup, stored):
        self.wait(lambda: self.button(f"Recall Setup {setup}").is_enabled() == stored, f"setup {setup} is stored: {stored}")

    def differences(self):
        return self.js("""return [...document.querySelectorAll('.differences tbody tr')]
                            .map((row) => [...row.cells].map((cell) => cell.textContent.replaceAll('\\u2009', '')))""")

    def store(self, setup):
        self.press(f"Store Setup {setup}")
        self.wait(lambda: self.dialog_title() or self.text("#status") == f"Setup {setup} stored", "stored, or a question")
        if self.dialog_title():
            self.dialog_button("ok")
        self.wait_stored(setup, True)

    def test_recall_shows_the_differences_first(self):
        self.scpi(1, ":FREQ 1GHz;:FREQ?")
        self.wait_value(1, "frequency_hz", "1 GHz")
        self.store(3)
        self.scpi(1, ":FREQ 6GHz;:FREQ?")
        self.wait_value(1, "frequency_hz", "6 GHz")

        self.press("Recall Setup 3")
        self.wait_dialog("Recall Setup 3?")
        self.assertEqual([row for row in self.differences() if "Frequency" in row[1]], [["1", self.differences()[0][1], "6 GHz", "1 GHz"]])
        self.screenshot("recall-with-differences")
        self.dialog_button("cancel")
        self.wait_dialog("")
        self.assertEqual(self.scpi(1, ":FREQ?"), "6000000000", "nothing is recalled after Cancel")

        self.press("Recall Setup 3")
        self.wait_dialog("Recall Setup 3?")
        self.dialog_button("ok")
        self.wait_equal(lambda: self.scpi(1, ":FREQ?"), "1000000000", "the module's frequency")
        self.wait_value(1, "frequency_hz", "1 GHz")
        self.wait_dialog("")

    def test_recall_of_what_is_set_already(self):
        self.store(4)
        self.press("Recall Setup 4")
        self.wait_dialog("Recall Setup 4?")
        self.assertIn("already is as in this setup", self.text("#dialog-body"))
        self.keys(Keys.ESCAPE)
        self.wait_dialog("")

    def test_delete_asks_first(self):
        self.store(5)
        self.press("Delete Setup 5")
        self.wait_dialog("Delete Setup 5?")
        self.assertEqual(self.focus_name(), "Cancel", "the harmless button has the focus")
        self.keys(Keys.ENTER)
        self.wait_dialog("")
        self.assertTrue(self.button("Delete Setup 5").is_enabled())
        self.press("Delete Setup 5")
        self.wait_dialog("Delete Setup 5?")
        self.dialog_button("ok")
        self.wait_stored(5, False)
        self.assertFalse(self.button("Delete Setup 5").is_enabled())

    def test_the_factory_setup_can_only_be_recalled(self):
        enabled = [self.button(f"{action} Factory").is_enabled() for action in ("Store", "Recall", "Delete")]
        self.assertEqual(enabled, [False, True, False])
