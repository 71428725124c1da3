#!/usr/bin/python3
"""Find what eats memory, and do something about it."""

import unittest

from page_case import PageCase, tearDownModule  # noqa: F401


class Picking(PageCase):
    def prepare(self):
        super().prepare()
        self.photos = self.installation.launch("Photos", 150, "com.apple.mobileslideshow")
        self.installation.launch("PhotosPicker", 30, "com.apple.mobileslideshow.picker")
        self.tap("Processes")

    def test_largest_stands_first(self):
        self.tap("Apps")
        self.expect(".count", "2 shown, most memory first")
        self.expect(
            ".group",
            "P | Photos | com.apple.mobileslideshow · band 180 important | 150 MB | PhotosPicker | "
            "com.apple.mobileslideshow.picker · band 180 important | 30 MB | 2 processes, together 180 MB",
            "W | WeChat | com.tencent.xin · band 160 home | 60 MB | target",
        )
        self.tap("System")
        self.phone.type("input[type=search]", "KB")
        self.expect(".group", "K | kbd | band 0 idle | 20 MB | target")
        self.phone.type("input[type=search]", "nobody")
        self.expect(".cards", "No process has this in its name. An app shows up as soon as it runs.")

    def test_limit(self):
        choices = (
            "com.apple.mobileslideshow · 150 MB, at most 150 MB so far",
            "Keep alive | The system ends it later than others",
            "Limit | The system ends it when it uses too much memory",
            "Lower priority | Others get processor time first",
            "By hand | See and change every setting",
        )
        self.tap("Photos")
        self.expect_sheet(*choices)
        self.tap("Limit")
        self.expect_sheet(
            "The system ends it above 250 MB, which is 1.5 times the most that it has used so far.",
            "com.apple.mobileslideshow · Band | not set → left alone",
            "com.apple.mobileslideshow · Memory limit while active | not set → 250 MB",
            "com.apple.mobileslideshow · Memory limit while inactive | not set → 250 MB",
            "Set the limit | Change it | Cancel",
        )
        self.tap("Change it")
        self.expect_sheet(*choices)
        self.tap("Limit", "Set the limit")
        self.expect(".toast", "Done. The daemon applies it now. | Undo")
        limits = {"JetsamPriority": -1, "MemLimitActive": 250, "MemLimitInactive": 250}
        self.assertEqual(self.installation.targets()["com.apple.mobileslideshow"], limits)
        self.tap("Now")
        self.expect(
            ".target-card",
            "P | Photos | com.apple.mobileslideshow | held | 150 MB | of 250 MB | Band 180 important",
            "W | WeChat | com.tencent.xin | held | 60 MB | of 2,048 MB | Band 160 home",
            "K | kbd | held | 20 MB | of 2,048 MB | Band 0 idle",
        )

    def test_lower_priority(self):
        self.tap("Photos", "Lower priority")
        self.expect_sheet(
            "It gets less processor time while others need it. Its memory is not touched.",
            "com.apple.mobileslideshow · Band | not set → left alone",
            "com.apple.mobileslideshow · Nice value | not set → 10 | Lower its priority | Change it | Cancel",
        )
        self.tap("Lower its priority")
        self.expect(".toast", "Done. The daemon applies it now. | Undo")
        self.assertEqual(
            self.installation.targets()["com.apple.mobileslideshow"], {"JetsamPriority": -1, "NiceValue": 10}
        )
        self.until(lambda: self.nice_value("Photos"), 10)

    def nice_value(self, name):
        processes = self.installation.control("ps")["processes"]
        return next(process["nice"] for process in processes if process["name"] == name)

    def test_guard_refuses_by_hand(self):
        self.tap("Photos", "By hand")
        self.expect(".head-state", "no target")
        self.tap("Memory limit while active")
        self.phone.type("#number", "20")
        self.tap("Continue")
        self.expect_sheet(
            "Vorlatch advises against this",
            "MemLimitActive of 20 MB is refused: com.apple.mobileslideshow uses 150 MB now and has used "
            "150 MB, and the system ends it above the limit; set at least 190 MB",
            "Set it anyway | Change it | Cancel",
        )
        self.tap("Change it")
        self.assertEqual(
            self.phone.driver.execute_script("return document.getElementById('number').value"), "20"
        )
        self.tap("Continue", "Set it anyway")
        self.expect_sheet(
            "com.apple.mobileslideshow: The system ends the process as soon as it uses more than this.",
            "com.apple.mobileslideshow · Band | not set → left alone",
            "com.apple.mobileslideshow · Memory limit while active | not set → 20 MB",
            "Set it | Change it | Cancel",
        )
        self.tap("Set it")
        self.expect(".toast", "Done. The daemon applies it now. | Undo")
        self.assertEqual(
            self.installation.targets()["com.apple.mobileslideshow"],
            {"JetsamPriority": -1, "MemLimitActive": 20},
        )
        self.tap("Undo")
        self.expect_sheet(
            "This puts the settings back as they were before. You can undo this, too.",
            "com.apple.mobileslideshow · Band | left alone → not set",
            "com.apple.mobileslideshow · Memory limit while active | 20 MB → not set | Put it back | Cancel",
        )
        self.tap("Put it back")
        self.expect(".toast", "Put back. The daemon applies it now. | Undo")
        self.assertNotIn("com.apple.mobileslideshow", self.installation.targets())
        self.expect(".head-state", "no target")

    def test_wrong_value_is_explained(self):
        self.tap("Photos", "By hand", "Timer")
        self.phone.type("#number", "1.5")
        self.tap("Continue")
        self.expect_sheet(
            "That did not work.",
            'CheckInterval takes 0 to 2147483647 seconds, or 30s, 5m, 1h, not "1.5"',
            "Change it | Cancel",
        )
        self.tap("Change it", "30 seconds", "Continue", "Set it")
        self.expect(".head-state", "held")
        self.assertEqual(
            self.installation.targets()["com.apple.mobileslideshow"],
            {"CheckInterval": 30, "JetsamPriority": -1},
        )


if __name__ == "__main__":
    unittest.main()
