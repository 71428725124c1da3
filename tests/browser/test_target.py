#!/usr/bin/python3
"""One target: its settings, what the daemon does, what becomes of it."""

import unittest

from page_case import PageCase, nice_line, tearDownModule  # noqa: F401


class OneTarget(PageCase):
    def prepare(self):
        super().prepare()
        self.kbd = self.installation.pids["kbd"]
        self.tap("kbd")

    def test_everything_about_it(self):
        self.expect(".head-name", "kbd")
        self.expect(".head-state", "held")
        self.expect(
            ".setting",
            "Band | system | the kernel says: 0 idle | "
            "When memory is short, the system ends processes in low bands first.",
            "Memory limit while active | system | the kernel says: 2,048 MB | "
            "The system ends the process as soon as it uses more than this.",
            "Memory limit while inactive | system | the kernel says: 2,048 MB | "
            "The system ends the process as soon as it uses more than this.",
            "Nice value | 12 | the kernel says: 12 | A process with a low value gets more processor time.",
            "Out of the system's management | not set | the kernel says: managed | "
            "The system then neither freezes the process nor moves it to a low band.",
            "Timer | none | How often the daemon looks at this target and holds it again. "
            "Without a timer: every 1800 s.",
            "Remark | not set | A note for yourself; the daemon never reads it.",
        )
        self.expect(".section h2", "Settings", "What the daemon does", "Its log", "Its kills")
        self.expect(
            ".steps li",
            "set the memory limits: active the system's default, inactive the system's default",
            "leave the nice value, which is 12",
            "return the process to the system's management, and its band to idle",
        )
        self.expect(
            ".log-text",
            f"kbd started, PID {self.kbd}",
            "wanted Act:0 Inact:0 | final Act:2048 Inact:2048 → [succeeded]",
            "succeeded",
            nice_line(wanted=12),
            "succeeded",
            "wanted:0 → [default, left to the system]",
            "is:0",
            "the system chose band 0",
            f"kbd PID {self.kbd} done",
        )
        self.expect(
            ".section:last-child .card", "The system has not ended it, as far as its reports go back."
        )

    def test_band_by_name(self):
        self.tap("Band")
        self.expect(
            ".option",
            "Leave alone | The daemon does not change its band",
            "The system's default | The system moves it as it sees fit",
            "210 highest", "190 telephony, critical", "180 important, default", "170 executive", "160 home",
            "150 driver", "130 conductor", "120 audio and accessory", "100 foreground",
            "90 foreground support", "80 UI support", "75 freezer", "50 phone", "40 mail", "30 background",
        )  # fmt: skip
        self.tap("160 home", "Continue")
        self.expect_sheet(
            "kbd: When memory is short, the system ends processes in low bands first.",
            "kbd · Band | not set → 160 home | Set it | Change it | Cancel",
        )
        self.tap("Set it")
        self.until(lambda: self.phone.texts(".setting strong")[0], "160 home")
        self.until(lambda: self.phone.texts(".setting-now")[:1], ["the kernel says: 160 home"])
        self.tap("Band", "Take it out")
        self.expect_sheet(
            "kbd: When memory is short, the system ends processes in low bands first.",
            "kbd · Band | 160 home → not set | Take it out | Change it | Cancel",
        )
        self.tap("Take it out")
        self.until(lambda: self.installation.targets().get("kbd"), {"NiceValue": 12})

    def test_remark_is_only_text(self):
        remark = '-x --force=1 <b id="bold">&amp;'
        self.tap("Remark")
        self.phone.type("#text", remark)
        self.tap("Continue")
        self.expect_sheet(
            "kbd: A note for yourself; the daemon never reads it.",
            f"kbd · Remark | not set → {remark} | Set it | Change it | Cancel",
        )
        self.tap("Set it")
        self.until(lambda: self.installation.targets()["kbd"], {"NiceValue": 12, "Remark": remark})
        self.tap("Now")
        self.expect(".target-card[href$=kbd] .card-subtitle", remark)
        self.assertEqual(self.phone.texts("#bold"), [])

    def test_apply_again(self):
        self.tap("Apply again")
        self.expect_sheet(
            "The daemon applies all settings of this target once more.",
            "Its counter ApplyAgain goes up by one.",
            "Apply again | Cancel",
        )
        self.tap("Apply again")
        self.expect(".toast", "Done. The daemon applies it now.")
        self.assertEqual(self.installation.targets()["kbd"], {"NiceValue": 12, "ApplyAgain": 1})

    def test_remove_hands_it_back(self):
        self.tap("Remove the target")
        self.expect_sheet(
            "The daemon hands its process back to the system. These settings go:",
            "kbd · Nice value | 12 → not set | Remove | Cancel",
        )
        self.tap("Remove")
        self.expect(".card-title", "WeChat")
        self.assertEqual(list(self.installation.targets()), ["com.tencent.xin"])
        self.tap("Log")
        self.phone.choose("Category", "restore")
        self.expect(".log-text", f"kbd, PID {self.kbd}")
        self.tap("Doctor")
        self.expect(".edit .changes", "kbd · Nice value | 12 → not set")
        self.tap("Undo…", "Put it back")
        self.until(lambda: self.installation.targets().get("kbd"), {"NiceValue": 12})

    def test_process_ends_and_comes_back(self):
        self.installation.quit("kbd")
        self.expect(".head-state", "stale status")
        self.expect(".card-head + p", "Its process has ended. The daemon sees that at its next look.")
        new = self.installation.launch("kbd", 20)
        self.installation.control("apply")
        self.expect(".head-state", "held")
        self.expect(".card-names .hint", f"process {new}")

    def test_system_overrides_it(self):
        self.installation.machine.run("/dev/null", "renice", "-n", "15", "-p", self.kbd)
        self.expect(".head-state", "overridden by the system")
        self.expect(
            ".card-head + p",
            "The system changed it since. A timer would hold it again. 20 MB, at most 20 MB so far",
        )
        self.tap("Now")
        self.expect(".hero-sentence", "1 of 2 running targets held")


if __name__ == "__main__":
    unittest.main()
