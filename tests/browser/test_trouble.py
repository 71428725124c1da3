#!/usr/bin/python3
"""When something is missing, broken or gone, the page says so and what to do; it is never empty."""

import time
import unittest

from page_case import LOG_LINES, PageCase, tearDownModule  # noqa: F401

# Longer than the log and the server's look at the state wait.
QUIET_S = 4
NO_ANSWER = (
    "Vorlatch does not answer. | It starts when this page asks. "
    "If this stays, install the package again. | Try again"
)


class Keys(PageCase):
    expected_complaints = ("401 (Unauthorized)", "403 (Forbidden)")

    def without_key(self):
        return self.installation.address().split("#")[0]

    def test_no_key_then_wrong_then_right(self):
        self.phone.forget()
        self.phone.open(self.without_key())
        self.expect(
            "#main",
            "This browser does not have the key yet. | Paste the address that the installation printed, or "
            "the line of the file com.zel.vorlatch.web.key. The home screen asks for it once more. | Key, or the whole address | Unlock",
        )
        self.phone.type("#key", "hello")
        self.tap("Unlock")
        self.expect(".problem", "A key has 32 digits and letters from a to f.")
        self.phone.type("#key", self.without_key() + "#key=" + "f" * 32)
        self.tap("Unlock")
        self.expect(".problem", "this is not the key; vorlatchctl web prints it")
        self.phone.type("#key", self.installation.address())
        self.tap("Unlock")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_key_leaves_the_address(self):
        self.assertRegex(self.phone.driver.current_url, self.without_key() + "[0-9a-f]{32}/#/now")
        # The page goes to the folder of the last login.
        self.phone.open(self.without_key() + "#/log")
        self.expect("h1", "Log")
        self.expect(".count", f"The last {LOG_LINES} lines; new ones come by themselves")

    def test_icon_of_an_earlier_folder(self):
        """The home screen keeps the address of the folder from which the page was put there."""
        earlier = self.phone.driver.current_url.split("#")[0]
        self.phone.open(self.installation.address())
        self.expect(".hero-sentence", "2 of 2 running targets held")
        latest = self.phone.driver.current_url.split("#")[0]
        self.assertNotEqual(latest, earlier)
        self.phone.open(earlier)
        self.expect(".hero-sentence", "2 of 2 running targets held")
        self.assertEqual(self.phone.driver.current_url.split("#")[0], latest)

    def test_address_pasted_into_the_page_itself(self):
        self.phone.forget()
        self.phone.open(self.without_key())
        self.expect(".failure h2", "This browser does not have the key yet.")
        key = self.installation.address().split("#")[1]
        self.phone.driver.execute_script("location.hash = arguments[0]", key)
        self.expect(".hero-sentence", "2 of 2 running targets held")
        self.assertNotIn(key, self.phone.driver.current_url)

    def test_wrong_key_in_the_address(self):
        self.phone.forget()
        self.phone.open(self.without_key() + "#key=" + "0" * 32)
        self.expect(".failure h2", "This browser does not have the key yet.")

    def test_key_is_replaced_while_open(self):
        address = self.installation.address("--new-key")
        self.expect(".lost", "the key is missing or was replaced; vorlatchctl web prints it | Try again")
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
        self.until(
            lambda: [text.split(" at ")[0] for text in self.phone.texts(".lost")],
            ["No connection. This is how it stood"],
        )
        self.expect(".hero-sentence", "2 of 2 running targets held")
        for view in ("processes", "target/kbd", "kills", "log", "doctor"):
            self.phone.go(view)
            self.until(lambda: self.phone.texts(".failure")[:1], [NO_ANSWER])
        self.installation.start_server()
        self.tap("Try again")
        self.expect(".lost")
        self.expect("h1", "Doctor")
        self.expect(".failure")
        self.tap("Now")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_gone_before_the_first_answer(self):
        self.phone.driver.execute_cdp_cmd("Network.enable", {})
        self.phone.driver.execute_cdp_cmd("Network.setBlockedURLs", {"urls": ["*/api/*"]})
        self.addCleanup(self.phone.driver.execute_cdp_cmd, "Network.setBlockedURLs", {"urls": []})
        self.expected_complaints += ("ERR_BLOCKED_BY_CLIENT",)
        self.phone.open(self.installation.address())
        self.expect("#main", NO_ANSWER)


class Daemon(PageCase):
    def test_does_not_run(self):
        self.installation.quit("vorlatchd")
        self.expect(
            ".hero", "Switched on | The daemon does not run: nothing is held. Doctor says what to do."
        )
        self.expect(
            ".target-card[href$=kbd]",
            "K | kbd | stale status | 20 MB | of 2,048 MB | Band 0 idle | "
            "The daemon does not run, or its entry is of an earlier process.",
        )
        self.tap("Doctor")
        self.expect(
            ".finding",
            "daemon: does not run | Next step: start it: sudo launchctl bootstrap system "
            f"{self.installation.root}/Library/LaunchDaemons/com.zel.vorlatch.plist, "
            "or install the package again",
        )
        self.phone.go("target/kbd")
        self.tap("Nice value", "Continue", "Cancel", "Timer", "30 seconds", "Continue", "Set it")
        self.expect(".toast", "Written. The daemon does not run: it applies this when it starts. | Undo")
        self.installation.start_daemon()
        self.tap("Now")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_damaged_preferences(self):
        self.installation.control("set", "kbd", "NiceValue=13")
        self.installation.preferences.write_bytes(b"garbage")
        problem = (
            f"{self.installation.preferences} is no property list with a dictionary, and is left as it is; "
            "vorlatchctl check says more, vorlatchctl undo puts an earlier one back, "
            "vorlatchctl preset --replace-file starts afresh"
        )
        self.expect(".lost", f"{problem} | Try again")
        self.phone.open(self.installation.address())
        self.expect("#main", f"That did not work. | {problem} | Try again")
        self.tap("Doctor")
        self.expect(
            ".finding",
            f"{self.installation.preferences.name} is damaged, or neither XML in UTF-8 nor binary; "
            "the daemon reads it as empty",
        )
        self.tap("Undo…", "Put it back")
        self.expect(".all-well", "✓ | All in order | The installation has no finding.")
        self.tap("Now")
        self.expect(".hero-sentence", "2 of 2 running targets held")

    def test_no_target_yet(self):
        self.installation.set_targets({})
        self.installation.control("apply")
        self.expect(
            ".cards",
            "There are no targets yet. Choose one from the processes, or begin with the suggested ones. | "
            "Add the suggested targets | Choose a process",
        )
        self.tap("Add the suggested targets")
        self.expect(
            ".sheet-body > p:first-child",
            "This adds the targets of the default preset. Targets that are configured stay as they are.",
        )
        self.tap("Add them")
        self.expect(".toast", "Done. The daemon applies it now. | Undo")
        self.assertIn("SpringBoard", self.installation.targets())


class HiddenPage(PageCase):
    def requests(self):
        self.phone.read_logs()
        return len(self.phone.requests)

    def test_asks_nothing(self):
        self.tap("Log")
        self.expect("h1", "Log")
        before = self.requests()
        self.until(lambda: self.requests() > before, True)  # the view asks for new lines
        self.phone.set_hidden(True)
        self.addCleanup(self.phone.set_hidden, False)
        self.until(lambda: self.phone.driver.execute_script("return document.hidden"), True)
        before = self.requests()
        self.until(self.server_rests, True)
        self.assertEqual(self.requests(), before)
        self.phone.set_hidden(False)
        self.until(lambda: self.requests() > before, True)

    def server_rests(self):
        """Whether the server does not run for a while."""
        before, end = self.wakeups(), time.monotonic() + QUIET_S
        self.until(lambda: time.monotonic() > end, True)
        return self.wakeups() == before

    def wakeups(self):
        """How often the server has run."""
        status = f"/proc/{self.installation.pids['vorlatchweb']}/status"
        return int(self.installation.machine.ask(f"sed -n 's/^voluntary_ctxt_switches://p' {status}"))


if __name__ == "__main__":
    unittest.main()
