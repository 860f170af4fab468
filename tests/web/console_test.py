"""The console: answers, errors, history, completion and help."""

from selenium.webdriver.common.keys import Keys

from page_case import PageCase


class Console(PageCase):
    def line(self):
        return self.css("#console-line")

    def send(self, text):
        self.line().send_keys(text + Keys.ENTER)

    def log(self, kind):
        return self.js("""return [...document.querySelectorAll(`#console-log .${arguments[0]}`)]
                            .map((entry) => entry.firstChild.textContent)""", kind)

    def choices(self):
        return self.js("return [...document.querySelectorAll('#console-choices .header')].map((each) => each.textContent)")

    def type_for_choices(self, text):
        self.wait(lambda: (self.line().clear(), self.line().send_keys(text), self.choices())[-1], "completions")

    def test_a_query_is_answered_for_the_chosen_channel(self):
        self.scpi(3, ":FREQ 1.25GHz")
        self.css("#console-channel").send_keys("3")
        self.send(":FREQ?")
        self.wait_equal(lambda: self.log("answer"), ["1250000000"], "the answer")
        self.assertEqual(self.text("#console-log .sent"), "CH3:FREQ?")

    def test_a_command_is_done_and_shows_in_the_card(self):
        self.send(":FREQ 4GHz")
        self.wait_equal(lambda: self.log("done"), ["done"], "the answer")
        self.wait_value(1, "frequency_hz", "4 GHz")

    def test_errors_are_told_apart_from_answers(self):
        self.scpi(1, ":POW -10")
        self.send(":FOO;:POW?")
        self.wait_equal(lambda: self.log("failed"), ["-113 Undefined header"], "the error")
        self.assertEqual(self.log("answer"), ["-10"])
        answer, failed = (self.css(f"#console-log .{kind}").value_of_css_property("color") for kind in ("answer", "failed"))
        self.assertNotEqual(answer, failed)

    def test_history_by_the_arrow_keys(self):
        for line in (":FREQ?", ":POW?"):
            self.send(line)
            self.wait(lambda: line in "".join(entry.text for entry in self.all("#console-log .sent")), "sent")
        value = lambda: self.line().get_property("value")
        self.keys(":PHAS", Keys.ESCAPE)
        steps = [(Keys.UP, ":POW?"), (Keys.UP, ":FREQ?"), (Keys.UP, ":FREQ?"), (Keys.DOWN, ":POW?"), (Keys.DOWN, ":PHAS")]
        for key, expected in steps:
            self.keys(key)
            self.assertEqual(value(), expected)

    def test_completion(self):
        self.type_for_choices(":freq 1GHz;:trig:s")
        self.assertEqual(self.choices(), [":TRIGger:SOURce"])
        self.keys(Keys.DOWN)
        self.assertEqual(self.line().get_attribute("aria-activedescendant"), "choice-0")
        self.assertEqual(self.css("#choice-0").get_attribute("aria-selected"), "true")
        self.screenshot("completion")
        self.keys(Keys.ENTER)
        self.assertEqual(self.line().get_property("value"), ":freq 1GHz;:TRIGger:SOURce")
        self.assertEqual(self.log("sent"), [], "Enter took the choice and sent nothing")
        self.assertEqual(self.line().get_attribute("aria-expanded"), "false")

    def test_completion_adds_the_question_mark_to_what_is_only_a_query(self):
        self.type_for_choices("*id")
        self.assertEqual(self.choices(), ["*IDN?"])
        self.keys(Keys.DOWN, Keys.TAB)
        self.assertEqual(self.line().get_property("value"), "*IDN?")

    def test_help_of_the_command_being_typed(self):
        self.type_for_choices(":puls:wid")
        self.line().clear()
        self.line().send_keys(":PULS:WIDT 1us")
        self.wait(lambda: self.text("#console-help").startswith("[:SOURce]:PULSe:WIDTh"), "the help of the pulse's width")
        self.assertIn("set and query", self.text("#console-help"))
