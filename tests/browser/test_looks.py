#!/usr/bin/python3
"""Every view and sheet can be read and used: in both languages, dark and light, at each size."""

import itertools
import pathlib
import time
import unittest

from installation import alive, killed
from page_case import PageCase, tearDownModule  # noqa: F401
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.common.by import By

FAULTS = (pathlib.Path(__file__).parent / "faults.js").read_text(encoding="utf-8")
# What screen readers pass over, such as the view behind a sheet, needs no name.
CONTROLS = (
    ":is(button, a[href], input, select, textarea, nav, [role=img], [role=log], [role=dialog], [role=group], "
    "[role=radiogroup]):not([aria-hidden=true] *, [aria-hidden=true])"
)
WIDTHS = (320, 430)
# The view, what is pressed there, and what then shows that all is there.
PLACES = [
    ("now", [], ".target-card:nth-child(1)"),
    ("now", [".switch"], ".sheet .changes"),
    ("now", [".now .section:last-child .buttons button"], "#profile-name"),
    ("processes", [], ".group"),
    ("processes", [".process"], ".choice"),
    ("processes", [".process", "li:nth-child(1) > .choice"], ".sheet .buttons"),
    ("processes", [".process", "li:nth-child(2) > .choice"], ".sheet .changes"),
    ("target/com.tencent.xin", [], ".log-text"),
    ("target/com.tencent.xin", [".danger-quiet"], ".sheet .changes"),
    ("target/com.tencent.xin", ["[data-key=JetsamPriority]"], ".option"),
    ("target/com.tencent.xin", ["[data-key=MemLimitActive]"], "#number"),
    ("target/kbd", ["[data-key=MemLimitActive]", ".chips :nth-child(3)", ".primary"], ".sheet .changes"),
    ("target/com.tencent.xin", ["[data-key=NiceValue]"], "#nice"),
    ("target/com.tencent.xin", ["[data-key=StripManaged]"], ".option"),
    ("target/com.tencent.xin", ["[data-key=CheckInterval]"], "#number"),
    ("target/com.tencent.xin", ["[data-key=Remark]"], "#text"),
    ("target/com.example.not.there", [], ".setting"),
    ("kills", [], ".kill"),
    ("log", [], ".log-line"),
    ("log/kbd", [], ".log-line"),
    ("doctor", [], ".facts dt"),
    ("doctor", [".edit button"], ".sheet .changes"),
    ("doctor", [".view > .section:last-child .primary"], "textarea"),
]  # fmt: skip


class Looks(PageCase):
    def prepare(self):
        self.installation.launch("WeChat", 60, "com.tencent.xin")
        self.installation.launch("WeChatShare", 20, "com.tencent.xin.share.of-a-long-name")
        self.installation.launch("kbd", 20)
        self.installation.set_targets({
            "com.tencent.xin": {"JetsamPriority": 160, "MemLimitActive": 100, "Remark": "微信"},
            "kbd": {"NiceValue": 12},
            "org.example.an-app-whose-identifier-is-long": {"CheckInterval": 30},
        })  # fmt: skip
        self.installation.put_report(1, killed("WeChat", 600, 160), alive("SpringBoard", 300, 210))
        self.installation.put_report(50, killed("com.apple.WebKit.WebContent", 1410, 30, "per-process-limit"))
        (self.installation.reports / "JetsamEvent-2026-01-02-030405.ips").write_text("cut sho")
        self.installation.start_daemon()
        self.installation.start_server()
        self.installation.control("set", "kbd", "NiceValue=13")

    def press(self, css):
        self.until(lambda: self.try_to_press(css), True)

    def try_to_press(self, css):
        return self.phone.driver.execute_script(
            "const found = document.querySelector(arguments[0]); found?.click(); return Boolean(found);", css
        )

    def open_place(self, view, presses, ready):
        self.phone.go("none")
        self.phone.go(view)
        for css in presses:
            self.press(css)
        self.until(lambda: len(self.phone.texts(ready)) > 0, True)

    def faults(self, width, is_dark):
        """What is still wrong after a moment, in which a sheet rises and a font is applied."""
        deadline = time.monotonic() + 2
        while (
            found := self.phone.driver.execute_script(FAULTS, width, is_dark)
        ) and time.monotonic() < deadline:
            time.sleep(0.1)
        return found

    def nameless(self):
        """The controls in sight without a name, of the view as it stands."""
        try:
            controls = self.phone.driver.find_elements(By.CSS_SELECTOR, CONTROLS)
            shown = [control for control in controls if control.is_displayed()]
            return [
                control.get_attribute("outerHTML")[:100] for control in shown if not control.accessible_name
            ]
        except StaleElementReferenceException:
            return ["drawn anew meanwhile"]

    def check_places(self, is_dark, width, text_px):
        self.phone.set_screen(width, 760, is_dark)
        self.phone.open(self.installation.address())
        self.until(lambda: len(self.phone.texts(".target-card")), 3)
        self.phone.driver.execute_script("document.documentElement.style.fontSize = arguments[0]", text_px)
        for view, presses, ready in PLACES:
            with self.subTest(view=view, presses=presses, is_dark=is_dark, width=width, text_px=text_px):
                self.open_place(view, presses, ready)
                self.assertEqual(self.faults(width, is_dark), [])

    def test_no_text_is_cut_or_pale(self):
        for is_dark, width in itertools.product((False, True), WIDTHS):
            self.check_places(is_dark, width, "")

    def test_at_twice_the_text_size(self):
        for width in WIDTHS:
            self.check_places(False, width, "32px")

    def test_every_control_has_a_name(self):
        self.phone.open(self.installation.address())
        for view, presses, ready in PLACES:
            with self.subTest(view=view, presses=presses):
                self.open_place(view, presses, ready)
                self.until(self.nameless, [])


class LooksInChinese(Looks):
    language = "zh"


if __name__ == "__main__":
    unittest.main()
