#!/usr/bin/python3
"""The quickest way through the page: switch off and on, keep an app alive, take that back."""

import unittest

from page_case import PageCase, tearDownModule  # noqa: F401


class FirstSteps(PageCase):
    def test_switch_and_keep_alive(self):
        self.expect(".hero", "Switched on | 2 of 2 running targets held")
        self.tap("Vorlatch")
        self.expect_sheet(
            "The daemon hands every target back to the system, and holds none until you switch it on again.",
            "Switch | on → off | Switch off | Cancel",
        )
        self.tap("Switch off")
        self.expect(".toast", "Switched off. All targets are handed back. | Undo")
        self.expect(".hero", "Switched off | All targets are with the system.")
        self.tap("Vorlatch", "Switch on")
        self.expect(".hero", "Switched on | 2 of 2 running targets held")

        self.installation.launch("Notes", 90, "com.apple.mobilenotes")
        self.tap("Processes", "Apps", "Notes", "Keep alive")
        self.expect_sheet(
            "The daemon holds it in the band 180 important. When memory is short, "
            "the system first ends what stands lower.",
            "com.apple.mobilenotes · Band | not set → 180 important | Keep alive | Change it | Cancel",
        )
        self.tap("Keep alive")
        self.expect(".toast", "Done. The daemon applies it now. | Undo")
        self.assertEqual(self.installation.targets()["com.apple.mobilenotes"], {"JetsamPriority": 180})
        self.tap("Undo", "Put it back")
        self.expect(".toast", "Put back. The daemon applies it now. | Undo")
        self.assertNotIn("com.apple.mobilenotes", self.installation.targets())


if __name__ == "__main__":
    unittest.main()
