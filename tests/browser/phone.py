"""A headless Chromium with the screen of a phone."""

import json
import os

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

SCALE = 2
FLAGS = [
    "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
    "--disable-background-networking", "--disable-component-update", "--no-first-run", "--disable-sync",
]  # fmt: skip
LANGUAGES = {"en": "en-US", "zh": "zh-CN"}

# What a reader can tap, by what it says or is called: the first of those in sight that begins with this.
FIND = """
const [text, index] = arguments;
const scope = document.querySelector(".sheet") || document.body;
const toast = document.getElementById("toast");
const all = [...scope.querySelectorAll("button, a[href], label, [role=switch]"),
             ...(scope === document.body ? [] : toast.querySelectorAll("button"))];
const isInSight = (node) => node.getClientRects().length > 0;
const nameOf = (node) => (node.getAttribute("aria-label") || node.innerText || "").trim();
const named = all.filter(isInSight).map((node) => [node, nameOf(node)]);
const exact = named.filter(([, name]) => name === text || name.split("\\n").includes(text));
const found = (exact.length > 0 ? exact : named.filter(([, name]) => name.startsWith(text)))[index];
if (!found) return null;
found[0].scrollIntoView({block: "center"});
return found[0];
"""

TEXTS = """
return [...document.querySelectorAll(arguments[0])].filter((node) => node.getClientRects().length > 0)
    .map((node) => node.innerText.trim().replace(/\\u00a0/g, " ").replace(/\\s*\\n\\s*/g, " | "));
"""


def options(language):
    chosen = webdriver.ChromeOptions()
    chosen.binary_location = os.environ.get("VORLATCH_CHROMIUM", "/usr/bin/chromium")
    for flag in [*FLAGS, f"--lang={LANGUAGES[language]}"]:
        chosen.add_argument(flag)
    chosen.add_experimental_option("prefs", {"intl.accept_languages": LANGUAGES[language]})
    chosen.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return chosen


class Phone:
    """`requests` collects the addresses that the page asked for, `complaints` what stands in the console."""

    def __init__(self, language="en"):
        self.language = language
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options(language))
        self.requests, self.complaints = [], []

    def forget(self):
        """As if it had never been at the page."""
        self.driver.get("about:blank")
        self.driver.execute_cdp_cmd("Storage.clearDataForOrigin", {"origin": "*", "storageTypes": "all"})
        self.driver.execute_cdp_cmd("Network.clearBrowserCookies", {})
        self.read_logs()
        self.requests, self.complaints = [], []

    def set_screen(self, width=320, height=700, is_dark=False):
        screen = {"width": width, "height": height, "deviceScaleFactor": SCALE, "mobile": True}
        scheme = [{"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}]
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", screen)
        self.driver.execute_cdp_cmd("Emulation.setScrollbarsHidden", {"hidden": True})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": scheme})

    def open(self, address):
        # The same page with another fragment would not be loaded again.
        self.driver.get("about:blank")
        self.driver.get(address)

    def go(self, view):
        self.driver.execute_script("location.hash = arguments[0]", f"#/{view}")

    def find(self, text, index=0):
        return self.driver.execute_script(FIND, text, index)

    def texts(self, css):
        """The visible text of each element in sight, lines parted by |."""
        return self.driver.execute_script(TEXTS, css)

    def type(self, css, text):
        field = self.driver.find_element(By.CSS_SELECTOR, css)
        field.clear()
        field.send_keys(text)

    def choose(self, label, choice):
        """Chooses in a list."""
        for option in self.driver.find_elements(By.CSS_SELECTOR, f'select[aria-label="{label}"] option'):
            if option.text == choice:
                option.click()

    def set_hidden(self, is_hidden):
        """Puts the browser into the background, or shows it again."""
        window = self.driver.execute_cdp_cmd("Browser.getWindowForTarget", {})["windowId"]
        bounds = {"windowState": "minimized" if is_hidden else "normal"}
        self.driver.execute_cdp_cmd("Browser.setWindowBounds", {"windowId": window, "bounds": bounds})

    def read_logs(self):
        self.complaints += [entry["message"] for entry in self.driver.get_log("browser")]
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                self.requests.append(message["params"]["request"]["url"])

    def end(self):
        self.driver.quit()
