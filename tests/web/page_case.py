"""The base of all cases: one browser and one back end for all of them, waits, and what every case must leave behind."""

import pathlib
import unittest

from selenium.common.exceptions import NoSuchElementException, StaleElementReferenceException
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

from browser import is_elsewhere

WAIT_S = 20


def mock_only(test):
    """A case that only the mock instrument can play."""
    test.mock_only = True
    return test


class PageCase(unittest.TestCase):
    # Set once by the program that runs the cases.
    backend = None
    browser = None
    screenshots = pathlib.Path(".")

    # Console messages with one of these texts are part of the case: a refused change, a server that is away.
    expected_messages = ()

    def setUp(self):
        self.driver = self.browser.driver
        self.expected_messages = list(type(self).expected_messages)
        self.browser.size(1440, 900)
        self.browser.media()
        self.driver.get("about:blank")
        self.browser.console_errors()
        self.browser.requests()
        self.backend.reset()
        self.addCleanup(self.check_traces)
        self.addCleanup(self.js, "sessionStorage.clear(); localStorage.clear()")
        self.open()

    def run(self, result=None):
        self.failures_before = len(result.failures) + len(result.errors)
        super().run(result)
        if len(result.failures) + len(result.errors) > self.failures_before:
            self.screenshot(f"failed-{self.id().split('.', 1)[1]}")
        return result

    def screenshot(self, name):
        folder = self.screenshots / self.backend.name
        folder.mkdir(parents=True, exist_ok=True)
        self.driver.save_screenshot(str(folder / f"{name}.png"))

    def check_traces(self):
        """No script error, no violation of the policy, no request to anywhere else."""
        elsewhere = [url for url in self.browser.requests() if is_elsewhere(url, self.backend.url)]
        self.assertEqual(elsewhere, [], "requests to somewhere else")
        messages = [entry["message"] for entry in self.browser.console_errors()
                    if not any(text in entry["message"] for text in self.expected_messages)]
        self.assertEqual(messages, [], "messages in the browser's console")
        self.assertEqual(self.js("return window.violations ?? []"), [], "violations of the content security policy")

    # The page

    def open(self):
        self.driver.get(self.backend.url)
        self.wait(lambda: self.js("return document.getElementById('main') && !document.getElementById('main').hidden"),
                  "the page shows the instrument")
        self.wait(lambda: self.link() == "Live", "the page is live")

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, condition, what):
        ignored = (NoSuchElementException, StaleElementReferenceException)
        waiting = WebDriverWait(self.driver, WAIT_S, poll_frequency=0.03, ignored_exceptions=ignored)
        return waiting.until(lambda _: condition(), f"waited {WAIT_S} s for: {what}")

    def wait_equal(self, read, expected, what):
        seen = []

        def holds():
            seen[:] = [read()]
            return seen[0] == expected

        try:
            self.wait(holds, what)
        except Exception:
            self.assertEqual(seen[0] if seen else None, expected, what)
            raise

    def css(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.js("return document.querySelector(arguments[0])?.textContent", selector)

    def link(self):
        return self.text("#link")

    def banner(self):
        return self.js("const banner = document.getElementById('banner'); return banner.hidden ? '' : banner.textContent")

    @staticmethod
    def place(channel, path):
        return f".card[data-channel='{channel}'] [data-path='{path}']"

    def field(self, channel, path):
        return self.css(f"{self.place(channel, path)} input")

    def value(self, channel, path):
        """The field's text, thin spaces left out."""
        return self.js("return document.querySelector(arguments[0]).value.replaceAll('\\u2009', '')",
                       f"{self.place(channel, path)} input")

    def error(self, channel, path):
        return self.text(f"{self.place(channel, path)} .error")

    def wait_value(self, channel, path, expected):
        self.wait_equal(lambda: self.value(channel, path), expected, f"channel {channel}'s {path}")

    def enter(self, channel, path, text, key=Keys.ENTER):
        """Types into the field as a user does; focusing has selected all of it."""
        field = self.field(channel, path)
        self.js("document.activeElement?.blur()")
        field.click()
        field.send_keys(text + key)

    def open_group(self, channel, name):
        self.js("""for (const summary of document.querySelectorAll(`.card[data-channel='${arguments[0]}'] summary`)) {
                     if (summary.querySelector('.name').textContent === arguments[1]) { summary.parentElement.open = true; }
                   }""", channel, name)

    def group_state(self, channel, name):
        return self.js("""return [...document.querySelectorAll(`.card[data-channel='${arguments[0]}'] summary`)]
                            .find((each) => each.querySelector('.name').textContent === arguments[1])
                            .querySelector('.state').textContent""", channel, name)

    def switch(self, channel, path):
        return self.css(f"{self.place(channel, path)} [role=switch]")

    def is_on(self, channel, path):
        return self.switch(channel, path).get_attribute("aria-checked") == "true"

    def keys(self, *keys):
        ActionChains(self.driver).send_keys(*keys).perform()

    def focus_name(self):
        return self.driver.switch_to.active_element.accessible_name

    def dialog_title(self):
        return self.js("return document.getElementById('dialog').open ? document.getElementById('dialog-title').textContent : ''")

    def dialog_button(self, name):
        self.css(f"#dialog-{name}").click()

    def scpi(self, channel, line):
        return self.backend.scpi(channel, line)
