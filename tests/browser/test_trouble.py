#!/usr/bin/python3
"""What the page says when something is missing, broken or gone: a sentence and the next step, never nothing."""

import unittest

from page_case import PageCase, tearDownModule  # noqa: F401


class Keys(PageCase):
    expected_complaints = ("401 (Unauthorized)", "403 (Forbidden)")

    def without_key(self):
        return self.installation.address().split("#")[0]

    def test_no_key_then_wrong_then_right(self):
        self.phone.forget()
        self.phone.open(self.without_key())
        self.expect("#main", "x")
        self.phone.type("#key", "hello")
        self.tap("Unlock")
        self.expect(".problem", "A key has 32 digits and letters from a to f.")
        self.phone.type("#key", self.without_key() + "#key=" + "f" * 32)
        self.tap("Unlock")
        self.expect(".problem", "x")
        self.phone.type("#key", self.installation.address())
        self.tap("Unlock")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_key_leaves_the_address(self):
        self.assertEqual(self.phone.driver.current_url, self.without_key() + "#/now")
        self.phone.open(self.without_key() + "#/log")
        self.expect("h1", "Log")
        self.expect(".count", "The last 20 lines; new ones come by themselves")

    def test_wrong_key_in_the_address(self):
        self.phone.forget()
        self.phone.open(self.without_key() + "#key=" + "0" * 32)
        self.expect(".failure h2", "This browser does not have the key yet.")

    def test_key_is_replaced_while_open(self):
        address = self.installation.address("--new-key")
        self.expect(".lost", "x")
        self.tap("Processes")
        self.expect(".failure h2", "This browser does not have the key yet.")
        self.phone.type("#key", address)
        self.tap("Unlock")
        self.expect(".lost")
        self.tap("Now")
        self.expect(".hero-sentence", "2 of 2 running targets held")


class Server(PageCase):
    expected_complaints = ("ERR_CONNECTION_REFUSED", "ERR_EMPTY_RESPONSE", "ERR_INCOMPLETE_CHUNKED_ENCODING",
                           "ERR_CONNECTION_RESET")  # fmt: skip

    def test_gone_and_back(self):
        self.installation.quit("vorlatchweb")
        self.until(lambda: [text.split(" at ")[0] for text in self.phone.texts(".lost")], ["No connection. This is how it stood"])
        self.expect(".hero-sentence", "2 of 2 running targets held")
        for view in ("processes", "target/kbd", "kills", "log", "doctor"):
            self.phone.go(view)
            self.until(lambda: self.phone.texts(".failure")[:1], ["x"])
        self.installation.start_server()
        self.tap("Try again")
        self.expect(".lost")
        self.expect(".all-well", "x")

    def test_gone_before_the_first_answer(self):
        self.phone.driver.execute_cdp_cmd("Network.enable", {})
        self.phone.driver.execute_cdp_cmd("Network.setBlockedURLs", {"urls": ["*/api/*"]})
        self.addCleanup(self.phone.driver.execute_cdp_cmd, "Network.setBlockedURLs", {"urls": []})
        self.expected_complaints += ("ERR_BLOCKED_BY_CLIENT",)
        self.phone.open(self.installation.address())
        self.expect("#main", "x")


class Daemon(PageCase):
    def test_does_not_run(self):
        self.installation.quit("vorlatchd")
        self.expect(".hero", "x")
        self.expect(".target-card .card-note:nth-of-type(2)", "x")
        self.tap("Doctor")
        self.expect(".finding", "x")
        self.phone.go("target/kbd")
        self.tap("Nice value", "Continue", "Cancel", "Timer", "30 seconds", "Continue", "Set it")
        self.expect(".toast", "x")
        self.installation.start_daemon()
        self.tap("Now")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_damaged_preferences(self):
        stored = self.installation.preferences.read_bytes()
        self.installation.preferences.write_bytes(b"garbage")
        self.expect(".lost", "x")
        self.expect("#main", "x")
        self.phone.open(self.installation.address())
        self.expect("#main", "x")
        self.tap("Doctor")
        self.expect(".finding", "x")
        self.installation.preferences.write_bytes(stored)
        self.tap("Now")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_no_target_yet(self):
        self.installation.set_targets({})
        self.installation.control("apply")
        self.expect(".cards", "x")
        self.tap("Add the suggested targets")
        self.expect_sheet("x")
        self.tap("Add them")
        self.expect(".toast", "x")


class HiddenPage(PageCase):
    HIDE = """
      Object.defineProperty(document, "hidden", {configurable: true, get: () => arguments[0]});
      document.dispatchEvent(new Event("visibilitychange"));
    """

    def api_requests(self):
        self.phone.read_logs()
        return sum("/api/" in url for url in self.phone.requests)

    def test_asks_nothing(self):
        for view in ("now", "processes", "log"):
            self.phone.go(view)


if __name__ == "__main__":
    unittest.main()
