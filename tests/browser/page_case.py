"""What every test of the page has: an installation that runs, and a phone that shows the page."""

import os
import re
import sys
import time
import unittest

sys.dont_write_bytecode = True

from installation import PATIENCE_S, Installation  # noqa: E402
from phone import Phone  # noqa: E402
from selenium.common.exceptions import WebDriverException  # noqa: E402

# A size of two or three digits, of which the last depends on the system's libraries.
SIZE = re.compile(r"(?<![\d.,])\d{2,3}(?= MB)")

phones = {}


def phone_in(language):
    """Starting a browser takes seconds, so tests share one per language."""
    if language not in phones:
        phones[language] = Phone(language)
    return phones[language]


def tearDownModule():
    while phones:
        phones.popitem()[1].end()


# The nice value of the tests, which their processes have, too.
NICE_VALUE = os.nice(0)
# The first pass says less of a target that has the nice value already.
LOG_LINES = 25 - (NICE_VALUE in (0, 12))


def nice_line(wanted):
    """The log's line on the nice value of a target."""
    if wanted == NICE_VALUE:
        return f"is {wanted} already"
    return f"current:{NICE_VALUE} wanted:{wanted} → [succeeded]"


class PageCase(unittest.TestCase):
    language = "en"
    maxDiff = None
    # What the console may say besides: a request that the server refuses on purpose.
    expected_complaints = ()

    def setUp(self):
        self.installation = Installation()
        self.addCleanup(self.installation.end)
        self.phone = phone_in(self.language)
        self.phone.forget()
        self.phone.set_screen()
        self.prepare()

    def prepare(self):
        """What runs before the page is opened; a test that wants something else replaces it."""
        self.installation.launch("WeChat", 60, "com.tencent.xin")
        self.installation.launch("kbd", 20)
        self.installation.set_targets({"com.tencent.xin": {"JetsamPriority": 160}, "kbd": {"NiceValue": 12}})
        self.installation.start_daemon()
        self.installation.start_server()
        self.phone.open(self.installation.address())
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def tearDown(self):
        self.phone.read_logs()
        here = f"http://127.0.0.1:{self.installation.port}/"
        local = ("about:", "data:", "chrome:", here)
        self.assertEqual([url for url in self.phone.requests if not url.startswith(local)], [])
        unexpected = [
            text
            for text in self.phone.complaints
            if not any(part in text for part in self.expected_complaints)
        ]
        self.assertEqual(unexpected, [])

    def until(self, look, wanted):
        """Waits until `look` returns what is wanted, and fails with the difference if it never does."""
        deadline = time.monotonic() + PATIENCE_S
        while (found := look()) != wanted and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertEqual(found, wanted, f"the page says: {self.phone.texts('body')}")

    def texts(self, css):
        """The texts of the elements in sight, with sizes of memory rounded to 10 MB."""
        return [SIZE.sub(lambda size: str(round(int(size[0]), -1)), text) for text in self.phone.texts(css)]

    def expect(self, css, *texts):
        """Waits until the elements in sight have these texts."""
        self.until(lambda: self.texts(css), list(texts))

    def tap(self, *texts, index=0):
        """Taps what has this name, and then the next. A view that is drawn anew takes its elements away."""
        for text in texts:
            self.until(lambda text=text: self.try_to_tap(text, index), True)

    def try_to_tap(self, text, index):
        try:
            found = self.phone.find(text, index)
            if found is not None:
                found.click()
            return found is not None
        except WebDriverException:
            return False

    def expect_sheet(self, *lines):
        """Waits for the sheet and compares all that it says."""
        self.expect(".sheet-body", " | ".join(lines))
