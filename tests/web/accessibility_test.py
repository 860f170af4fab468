"""axe-core's judgement of the page in its states: nothing serious, nothing critical."""

from page_case import PageCase


class Accessibility(PageCase):
    expected_messages = ("the server responded with a status of 422",)

    def setUp(self):
        if not self.axe.is_file():
            self.skipTest("axe-core is not installed: scripts/setup fetches it where npm can")
        super().setUp()

    def judge(self, what):
        self.screenshot(f"judged-{what}")
        self.driver.execute_script(self.axe.read_text(encoding="utf-8"))
        results = self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1]; axe.run(document).then(done, (error) => done({ error: String(error) }))")
        self.assertNotIn("error", results)
        self.assertGreater(len(results["passes"]), 10)  # it has judged something
        found = [f"{each['impact']} {each['id']}: {node['html'][:120]} {node['failureSummary'][:300]}"
                 for each in results["violations"] if each["impact"] in ("serious", "critical") for node in each["nodes"][:3]]
        self.assertEqual(found, [], what)

    def open_groups(self):
        self.js("for (const each of document.querySelectorAll('details')) { each.open = true; }")

    def test_light(self):
        self.open_groups()
        self.judge("light")

    def test_dark(self):
        self.browser.media(prefers_color_scheme="dark")
        self.open_groups()
        self.judge("dark")

    def test_phone(self):
        self.browser.size(360, 740)
        self.judge("phone")

    def test_an_error_and_a_completion(self):
        self.enter(1, "frequency_hz", "99 GHz")
        self.wait(lambda: self.error(1, "frequency_hz"), "the error")
        self.wait(lambda: (self.css("#console-line").clear(), self.css("#console-line").send_keys(":fr"),
                           self.css("#console-choices").is_displayed())[-1], "completions")
        self.judge("error")

    def test_a_failed_module_and_a_dialog(self):
        self.backend.unplug(2)
        self.addCleanup(self.backend.plug_in, 2)
        self.wait(lambda: self.text(".card[data-channel='2'] .trouble"), "the trouble")
        self.judge("failed-module")
        self.css("#setups [aria-label='Recall Factory']").click()
        self.wait(self.dialog_title, "the dialog")
        self.judge("dialog")
