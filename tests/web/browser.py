"""Headless Chromium that can reach nothing but this machine, and what it saw."""

import json
import os
import shutil
import tempfile
import urllib.parse

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

CHROMIUM = shutil.which("chromium")
DRIVER = shutil.which("chromedriver")

# Runs before the page's own scripts.
OBSERVER = """
window.layoutShifts = [];
new PerformanceObserver((list) => {
  for (const entry of list.getEntries()) {
    if (!entry.hadRecentInput) {
      window.layoutShifts.push({ value: entry.value, at: entry.startTime, nodes: entry.sources.map(({ node, previousRect, currentRect }) =>
        `${node?.nodeName}#${node?.id}.${node?.className} ${JSON.stringify(previousRect)} -> ${JSON.stringify(currentRect)}`) });
    }
  }
}).observe({ type: "layout-shift", buffered: true });
window.violations = [];
document.addEventListener("securitypolicyviolation", (event) => window.violations.push(`${event.violatedDirective} ${event.blockedURI}`));
"""


class Browser:
    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="orvan-web-profile-")
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        arguments = [
            "--headless=new", "--disable-gpu", f"--user-data-dir={self.profile}", "--window-size=1440,900",
            "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1", "--no-proxy-server", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-default-apps", "--disable-sync",
            "--disable-extensions", "--disable-dev-shm-usage", "--force-device-scale-factor=1", "--lang=en-GB",
        ]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        for argument in arguments:
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.prepare_window()

    def prepare_window(self):
        """Each window needs this once."""
        self.command("Page.addScriptToEvaluateOnNewDocument", source=OBSERVER)

    def command(self, name, **parameters):
        return self.driver.execute_cdp_cmd(name, parameters)

    def size(self, width, height, scale=1):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale,
                     mobile=False)

    def media(self, **features):
        """`media(prefers_color_scheme="dark")`; without arguments as at the start."""
        self.command("Emulation.setEmulatedMedia", features=[
            {"name": name.replace("_", "-"), "value": value} for name, value in features.items()])

    def requests(self):
        """URLs that were asked for since the last call."""
        urls = []
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                urls.append(message["params"]["request"]["url"])
            elif message["method"] == "Network.webSocketCreated":
                urls.append(message["params"]["url"])
        return urls

    def console_errors(self):
        """Warnings and errors since the last call."""
        return [entry for entry in self.driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)


def is_elsewhere(url, base):
    parts = urllib.parse.urlsplit(url)
    return parts.scheme not in ("data", "blob", "about") and parts.netloc != urllib.parse.urlsplit(base).netloc
